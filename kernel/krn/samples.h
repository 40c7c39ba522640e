// Samples of pixels: the bits of a gray one that count, fields of fewer bits, and the gray of a colour. Scalar code.
#ifndef VEXAKRN_KRN_SAMPLES_H
#define VEXAKRN_KRN_SAMPLES_H

#include "krn/convertkernels.h"
#include "vexakrn/bitmap.h"

namespace vexakrn {

// Whether the pixels of a bitmap are single gray samples of more than 8 bits.
inline bool HasGraySamples(int32_t bits, int32_t order) noexcept {
  return bits == 12 || (bits == 16 && order == V_OrderGray);
}

// The bits of a bitmap's samples that count; a range that makes no sense is the whole sample.
inline GrayRange SampleRange(int32_t bits, int32_t low, int32_t high) noexcept {
  if (low < 0 || high < low || high >= bits) return {0, bits};
  return {low, high - low + 1};
}

inline uint32_t SampleValue(uint32_t sample, const GrayRange& range) noexcept {
  return sample >> range.low & ((1u << range.bits) - 1);
}

// A value of `bits` bits repeated from the top of 16 bits on, by way of 8 bits where it has no more.
inline uint32_t WidenTo16(uint32_t value, int32_t bits) noexcept {
  value <<= 16 - bits;
  for (int32_t shift = bits; shift < 16; shift *= 2) value |= value >> shift;
  return bits < 8 ? (value & 0xFF00) | value >> 8 : value;
}

// A field of 4 to 8 bits repeated from the top of 8 bits on.
constexpr uint32_t WidenTo8(uint32_t value, uint32_t bits) noexcept {
  return value << (8 - bits) | value >> (2 * bits - 8);
}

inline uint32_t GrayOfSample(uint32_t sample, const GrayRange& range) noexcept {
  return WidenTo16(SampleValue(sample, range), range.bits) >> 8;
}

// The value that stands for a gray of 8 bits in so many bits.
inline uint32_t ValueOfGray(uint32_t gray, int32_t bits) noexcept {
  return bits > 8 ? gray * ((1u << bits) - 1) / 255 : gray >> (8 - bits);
}

constexpr uint32_t LuminanceOf(uint32_t r, uint32_t g, uint32_t b) noexcept { return (2 * r + 5 * g + b + 4) >> 3; }

}  // namespace vexakrn

#endif
