// How the samples of a TIFF row lie, and the way between that and a bitmap's row.
#ifndef VEXA_CODECS_TIFF_ROWS_H
#define VEXA_CODECS_TIFF_ROWS_H

#include <cstddef>
#include <cstdint>

#include "codecs/bitmap.h"

namespace vexa {

struct TiffLayout {
  enum Kind { kUnsupported, kGray, kPalette, kColor, kConverted };

  // Decides kind, depth and the flags below from sizes and samples that are set; `photometric` is the tag's value.
  void Choose(uint32_t photometric);
  // The layout in which a bitmap is written.
  void ForBitmap(const Bitmap& bitmap);

  // Bytes of a row of one plane (of all samples when they lie together).
  size_t ScanBytes(uint32_t columns) const;

  // File to bitmap; of separate planes only the samples of `plane` are set.
  void Unpack(const uint8_t* scan, uint8_t* row, int32_t columns, int plane) const;
  // Bitmap to file, samples together.
  void Pack(const uint8_t* row, uint8_t* scan, int32_t columns) const;

  uint32_t width = 0;
  uint32_t height = 0;
  int sampleBits = 1;
  int samples = 1;        // in the file
  bool separate = false;  // a plane for each sample
  Kind kind = kUnsupported;
  int bits = 0;  // of the bitmap
  bool alpha = false;
  bool grayWithAlpha = false;  // one sample of the file becomes three
  bool inverted = false;       // 0 is white
  bool redFirst = false;       // order of the bitmap's colours
};

}  // namespace vexa

#endif
