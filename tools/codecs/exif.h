// The little of an EXIF block that a picture record keeps: how the picture lies, and its resolution.
#ifndef VEXA_CODECS_EXIF_H
#define VEXA_CODECS_EXIF_H

#include <cstdint>
#include <span>
#include <vector>

namespace vexa {

struct ExifFacts {
  int32_t orientation = 0;  // 1 to 8, 0 when the block does not say
  double xResolution = 0;   // dots per inch, 0 when the block does not say
  double yResolution = 0;
};

// Reads the data of an APP1 marker. Whatever is damaged is left out.
ExifFacts ParseExif(std::span<const uint8_t> marker);

// The data of an APP1 marker that holds the orientation.
std::vector<uint8_t> MakeExif(int32_t orientation);

}  // namespace vexa

#endif
