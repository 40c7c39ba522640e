// A dithering pass: state and work, for single lines and for whole bitmaps.
#ifndef VEXAKRN_KRN_DITHER_H
#define VEXAKRN_KRN_DITHER_H

#include <cstdint>

#include "vexakrn/dither.h"

namespace vexakrn {

struct DitherContext;

struct DitherRequest {
  int32_t width;
  int32_t sourceBits, sourceOrder;
  const RGBQUAD* sourcePalette;  // up to 8 bits
  uint32_t sourceColors;
  int32_t lowBit, highBit;  // of gray sources deeper than 8 bits
  int32_t method;
  const RGBQUAD* palette;  // null: the fixed one
  uint32_t colors;
  uint32_t destinationBits;
  uint32_t* userMatchTable;
};

// The codes of V_StartDitheringExt; nothing is left after a failure.
int32_t StartPass(const DitherRequest& request, DitherContext** pass) noexcept;
void StopPass(DitherContext* pass) noexcept;  // null is ignored

// Dithers the next line.
void DitherNextLine(DitherContext& pass, const uint8_t* source, uint8_t* destination) noexcept;

// Dithers the next `count` lines at once, which lie so many bytes apart: the same result as one after the other, much
// faster for many.
void DitherNextLines(DitherContext& pass, const uint8_t* source, uint64_t sourcePitch, uint8_t* destination,
                     uint64_t destinationPitch, int32_t count) noexcept;

// How many lines DitherNextLines likes at a time.
inline constexpr int32_t kDitherLines = 64;

}  // namespace vexakrn

#endif
