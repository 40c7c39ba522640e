// Palettes as files: the text form that palette editors exchange, and the palette of a picture.
//
//     GIMP Palette
//     Name: Sunset
//     Columns: 16
//     # any comment
//     255 128   0	Orange
//
// The first line is the form's own; name, columns and comments may be missing, and so may an entry's name.
#ifndef VEXA_CODECS_PALETTEFILE_H
#define VEXA_CODECS_PALETTEFILE_H

#include <cstdint>
#include <string>
#include <vector>

#include "codecs/file.h"
#include "vexakrn.h"

namespace vexa {

// The palette of a palette file, or of a page of a picture, counted from 1. An Error when the file is neither, or the
// page has no palette.
std::vector<RGBQUAD> LoadPalette(const std::string& path, int32_t page = 1);

void WritePaletteFile(File& file, const std::string& name, const std::vector<RGBQUAD>& palette);

}  // namespace vexa

#endif
