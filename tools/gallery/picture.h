// Pictures for the page: at most a few hundred pixels wide, 8 bits a channel.
#ifndef VEXA_GALLERY_PICTURE_H
#define VEXA_GALLERY_PICTURE_H

#include <filesystem>
#include <string>

#include "codecs/bitmap.h"

namespace vexa::gallery {

// Writes an upright, reduced picture of the bitmap as PNG (PPM in a build without PNG) to `folder`/`name`.EXTENSION.
// Samples wider than 8 bits are stretched to what the eye can see; `note` says so. Returns the file's name.
std::string WritePicture(Bitmap& bitmap, const std::filesystem::path& folder, const std::string& name,
                         std::string* note);

// Writes the bitmap as it is, as PNG or, in a build without, as PPM where that holds it. Returns the file's name.
std::string SavePicture(Bitmap& bitmap, const std::filesystem::path& folder, const std::string& name);

// True when both display the same pixels: bit by bit above 8 bits, by the colours of the palettes below.
bool SamePixels(Bitmap& a, Bitmap& b);

}  // namespace vexa::gallery

#endif
