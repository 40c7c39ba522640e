// Single pixels of packed rows, for the places where whole bytes do not do.
//
// Below 8 bits pixels are packed most significant bit first and may straddle two bytes. At 12 bits two pixels share
// three bytes: the even one is the low 12 bits of the first little-endian word, the odd one the high 12 bits of the
// word one byte later.
#ifndef VEXA_CODECS_PIXELS_H
#define VEXA_CODECS_PIXELS_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "codecs/error.h"

namespace vexa {

inline size_t PackedBytes(int64_t pixels, int bits) { return static_cast<size_t>((pixels * bits + 7) / 8); }

template <int Bits>
uint64_t GetPixel(const uint8_t* row, int64_t index) {
  if constexpr (Bits < 8) {
    const int64_t bit = index * Bits;
    const uint8_t* at = row + bit / 8;
    const int end = static_cast<int>(bit % 8) + Bits;  // past the pixel, from the first bit of `at`
    const unsigned window = static_cast<unsigned>(at[0]) << 8 | (end > 8 ? at[1] : 0u);
    return window >> (16 - end) & ((1u << Bits) - 1);
  } else if constexpr (Bits == 12) {
    const uint8_t* at = row + index + index / 2;
    return index % 2 == 0 ? at[0] | static_cast<unsigned>(at[1] & 15) << 8
                          : static_cast<unsigned>(at[0]) >> 4 | static_cast<unsigned>(at[1]) << 4;
  } else {
    uint64_t value = 0;
    for (int i = 0; i < Bits / 8; ++i) value |= static_cast<uint64_t>(row[index * (Bits / 8) + i]) << (8 * i);
    return value;
  }
}

template <int Bits>
void PutPixel(uint8_t* row, int64_t index, uint64_t value) {
  if constexpr (Bits < 8) {
    const int64_t bit = index * Bits;
    uint8_t* at = row + bit / 8;
    const int end = static_cast<int>(bit % 8) + Bits;
    const unsigned mask = ((1u << Bits) - 1) << (16 - end);
    const unsigned bitsAt = static_cast<unsigned>(value) << (16 - end) & mask;
    at[0] = static_cast<uint8_t>((at[0] & ~(mask >> 8)) | bitsAt >> 8);
    if (end > 8) at[1] = static_cast<uint8_t>((at[1] & ~mask) | (bitsAt & 0xFF));
  } else if constexpr (Bits == 12) {
    uint8_t* at = row + index + index / 2;
    if (index % 2 == 0) {
      at[0] = static_cast<uint8_t>(value);
      at[1] = static_cast<uint8_t>((at[1] & 0xF0) | (value >> 8 & 15));
    } else {
      at[0] = static_cast<uint8_t>((at[0] & 0x0F) | (value & 15) << 4);
      at[1] = static_cast<uint8_t>(value >> 4);
    }
  } else {
    for (int i = 0; i < Bits / 8; ++i) row[index * (Bits / 8) + i] = static_cast<uint8_t>(value >> (8 * i));
  }
}

// Calls `work` with the depth as a compile-time constant: once a row or image, not once a pixel.
template <typename Work>
decltype(auto) WithDepth(int bits, Work&& work) {
  switch (bits) {
#define VEXA_DEPTH(b) \
  case b:             \
    return work(std::integral_constant<int, b>{});
    VEXA_DEPTH(1)
    VEXA_DEPTH(2)
    VEXA_DEPTH(3)
    VEXA_DEPTH(4)
    VEXA_DEPTH(5)
    VEXA_DEPTH(6)
    VEXA_DEPTH(7)
    VEXA_DEPTH(8)
    VEXA_DEPTH(12)
    VEXA_DEPTH(16)
    VEXA_DEPTH(24)
    VEXA_DEPTH(32)
    VEXA_DEPTH(48)
    VEXA_DEPTH(64)
#undef VEXA_DEPTH
    default:
      throw Error("the depth is not supported");
  }
}

// The next depth that other programs know: 4 for 3, 8 for 5 to 7.
inline int WidenedBits(int bits) { return bits == 3 ? 4 : bits >= 5 && bits <= 7 ? 8 : bits; }

// A row of indices of 3, 5, 6 or 7 bits in their widened depth.
inline void WidenIndices(const uint8_t* row, int32_t width, int bits, int widenedBits, uint8_t* out) {
  WithDepth(bits, [&](auto depth) {
    for (int32_t x = 0; x < width; ++x) {
      const uint64_t index = GetPixel<depth>(row, x);
      if (widenedBits == 4)
        PutPixel<4>(out, x, index);
      else
        PutPixel<8>(out, x, index);
    }
  });
}

}  // namespace vexa

#endif
