// Single pixels in packed rows, at every depth that shares bytes between pixels: 1 to 7 bits and 12.
//
// Below 8 bits pixels follow each other from the most significant bit on and may straddle two bytes. Two 12-bit pixels
// lie in three bytes: the even one in the low 12 bits of the little-endian word at its first byte, the odd one in
// the high 12 bits of the word that starts a byte later.
#ifndef VEXAKRN_COMMON_PACKED_H
#define VEXAKRN_COMMON_PACKED_H

#include <cstdint>

namespace vexakrn {

// Bits of a two-byte window: the pixel is (window >> shift) & mask, in the byte order that its depth uses.
template <int Bits>
struct Packed {
  static_assert((Bits >= 1 && Bits <= 7) || Bits == 12);
  static constexpr uint32_t kMask = (1u << Bits) - 1;

  static uint32_t Get(const uint8_t* row, uint64_t index) noexcept {
    if constexpr (Bits == 12) {
      const uint8_t* at = row + index + index / 2;
      return index % 2 == 0 ? at[0] | (at[1] & 0x0Fu) << 8 : static_cast<uint32_t>(at[0] >> 4 | at[1] << 4);
    } else {
      const uint64_t bit = index * Bits;
      const uint8_t* at = row + bit / 8;
      const auto end = static_cast<uint32_t>(bit % 8) + Bits;  // one past the pixel's last bit, from the first byte on
      if (end <= 8) return at[0] >> (8 - end) & kMask;
      return static_cast<uint32_t>(at[0] << 8 | at[1]) >> (16 - end) & kMask;
    }
  }

  static void Put(uint8_t* row, uint64_t index, uint32_t value) noexcept {
    if constexpr (Bits == 12) {
      uint8_t* at = row + index + index / 2;
      if (index % 2 == 0) {
        at[0] = static_cast<uint8_t>(value);
        at[1] = static_cast<uint8_t>((at[1] & 0xF0u) | (value >> 8 & 0x0Fu));
      } else {
        at[0] = static_cast<uint8_t>((at[0] & 0x0Fu) | (value & 0x0Fu) << 4);
        at[1] = static_cast<uint8_t>(value >> 4);
      }
    } else {
      const uint64_t bit = index * Bits;
      uint8_t* at = row + bit / 8;
      const auto end = static_cast<uint32_t>(bit % 8) + Bits;
      const uint32_t bits = (value & kMask) << (16 - end), mask = kMask << (16 - end);
      at[0] = static_cast<uint8_t>((at[0] & ~(mask >> 8)) | bits >> 8);
      if (end > 8) at[1] = static_cast<uint8_t>((at[1] & ~mask) | bits);
    }
  }
};

// Calls `function` with Packed<bits> of a depth known at run time; false, and no call, for a depth of whole bytes.
template <typename Function>
bool WithPacked(int32_t bits, Function function) noexcept {
  switch (bits) {
    case 1:
      function(Packed<1>{});
      return true;
    case 2:
      function(Packed<2>{});
      return true;
    case 3:
      function(Packed<3>{});
      return true;
    case 4:
      function(Packed<4>{});
      return true;
    case 5:
      function(Packed<5>{});
      return true;
    case 6:
      function(Packed<6>{});
      return true;
    case 7:
      function(Packed<7>{});
      return true;
    case 12:
      function(Packed<12>{});
      return true;
    default:
      return false;
  }
}

}  // namespace vexakrn

#endif
