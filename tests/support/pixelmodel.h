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

// Where the bit of value 1 << `i` of a pixel lies. Below 8 bits the first pixel lies at the top bits; all others are
// little-endian, also those of 12 bits, which lie two in three bytes.
struct BitPlace {
  BitPlace(int32_t column, int32_t bits, int32_t i) {
    const int64_t first = int64_t{column} * bits, at = bits < 8 ? (first + bits - 1 - i) ^ 7 : first + i;
    byte = static_cast<size_t>(at / 8);
    shift = static_cast<uint32_t>(at % 8);
  }
  size_t byte;
  uint32_t shift;
};

inline uint64_t PixelAt(const uint8_t* row, int32_t column, int32_t bits) {
  uint64_t value = 0;
  for (int32_t i = 0; i < bits; ++i) {
    const BitPlace at(column, bits, i);
    value |= uint64_t{row[at.byte] >> at.shift & 1u} << i;
  }
  return value;
}

inline void PutPixelAt(uint8_t* row, int32_t column, int32_t bits, uint64_t value) {
  for (int32_t i = 0; i < bits; ++i) {
    const BitPlace at(column, bits, i);
    const uint32_t others = row[at.byte] & ~(1u << at.shift);
    row[at.byte] = static_cast<uint8_t>(others | (value >> i & 1) << at.shift);
  }
}

// The low `from` bits repeated, most significant first, until there are `to`.
inline uint32_t RepeatBits(uint32_t value, int32_t from, int32_t to) {
  uint32_t result = 0;
  for (int32_t i = 0; i < to; ++i) result = result << 1 | (value >> (from - 1 - i % from) & 1);
  return result;
}

}  // namespace vexatest

#endif
