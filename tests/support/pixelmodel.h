// Bits and pixels of packed rows, one at a time: the oracle of the row and pixel tests.
#ifndef VEXAKRN_TESTS_SUPPORT_PIXELMODEL_H
#define VEXAKRN_TESTS_SUPPORT_PIXELMODEL_H

#include <cstddef>
#include <cstdint>

namespace vexatest {

// Byte that holds the first bit of a pixel.
inline size_t ColumnByte(int32_t column, int32_t bits) {
  return static_cast<size_t>(column) * static_cast<size_t>(bits) / 8;
}

// A pixel's value. Below 8 bits the first pixel lies at the top bits; 12-bit pixels lie two in three bytes, the even
// one in the low 12 bits of the word at its first byte, the odd one in the high 12 bits of the next word; wider pixels
// are little-endian.
inline uint64_t PixelAt(const uint8_t* row, int32_t column, int32_t bits) {
  uint64_t value = 0;
  if (bits < 8) {
    const size_t first = static_cast<size_t>(column) * static_cast<size_t>(bits);
    for (size_t bit = first; bit < first + static_cast<size_t>(bits); ++bit)
      value = value << 1 | (static_cast<uint32_t>(row[bit / 8]) >> (7 - bit % 8) & 1u);
    return value;
  }
  const uint8_t* at = row + ColumnByte(column, bits);
  if (bits == 12) {
    const uint32_t word = static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8;
    return column % 2 == 0 ? word & 0xFFF : word >> 4;
  }
  for (int32_t i = bits / 8; i-- > 0;) value = value << 8 | at[i];
  return value;
}

inline void PutPixelAt(uint8_t* row, int32_t column, int32_t bits, uint64_t value) {
  if (bits < 8) {
    const size_t first = static_cast<size_t>(column) * static_cast<size_t>(bits);
    for (size_t i = 0; i < static_cast<size_t>(bits); ++i) {
      const size_t bit = first + i;
      const auto mask = static_cast<uint8_t>(1u << (7 - bit % 8));
      const bool set = (value >> (static_cast<size_t>(bits) - 1 - i) & 1) != 0;
      row[bit / 8] = static_cast<uint8_t>(set ? row[bit / 8] | mask : row[bit / 8] & ~mask);
    }
    return;
  }
  uint8_t* at = row + ColumnByte(column, bits);
  if (bits == 12) {
    uint32_t word = static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8;
    word = column % 2 == 0 ? (word & 0xF000) | static_cast<uint32_t>(value)
                           : (word & 0x000F) | static_cast<uint32_t>(value) << 4;
    at[0] = static_cast<uint8_t>(word);
    at[1] = static_cast<uint8_t>(word >> 8);
    return;
  }
  for (int32_t i = 0; i < bits / 8; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

// The low `from` bits repeated, most significant first, until there are `to`.
inline uint32_t RepeatBits(uint32_t value, int32_t from, int32_t to) {
  uint32_t result = 0;
  for (int32_t i = 0; i < to; ++i) result = result << 1 | (value >> (from - 1 - i % from) & 1);
  return result;
}

}  // namespace vexatest

#endif
