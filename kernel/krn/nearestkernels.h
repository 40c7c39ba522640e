// The inner loops of the search for the nearest palette entry, one table a processor level.
//
// Entries are four bytes each: blue, green, red, reserved. Components of wanted colours are 0 to 255.
#ifndef VEXAKRN_KRN_NEARESTKERNELS_H
#define VEXAKRN_KRN_NEARESTKERNELS_H

#include <cstdint>

namespace vexakrn {

// A palette prepared for many searches (PaletteSearch), as columns. Unused entries up to a multiple of kColumnStep have
// zero components and a key that is never the least.
//
// The key of an entry is its squared length, shifted up, and what decides between entries of one distance below it: for
// the wanted colour's ordering class kOrders - 1 - i if the entry has that class, kOrders + i if it has not.
inline constexpr uint32_t kColumnStep = 16;
inline constexpr uint32_t kKeyShift = 9;
inline constexpr uint32_t kOrders = 256;

struct NearestColumns {
  const int16_t* redGreen;  // pairs
  const int16_t* blueNone;  // pairs with 0
  const int32_t* keys;      // of the wanted colour's ordering class
  uint32_t count;           // a multiple of kColumnStep, not 0
};

struct NearestKernels {
  // V_FindPaletteIndex without the preference for black and white at the ends; not for 0 entries.
  uint32_t (*search)(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b) noexcept;

  // The least of key - 2 * (entry . wanted), the product shifted like the key: the least distance, but for the
  // wanted colour's own squared length.
  int32_t (*leastKey)(const NearestColumns& columns, uint32_t r, uint32_t g, uint32_t b) noexcept;
};

extern const NearestKernels kNearestKernelsScalar, kNearestKernelsAvx2, kNearestKernelsAvx512;

// The searches of the vector levels: entries are looked at in blocks. A finder returns the least squared distance among
// 1 to kBlockEntries entries and sets a bit in `hits` for each entry that has it; the other bits become 0.
inline constexpr uint32_t kBlockEntries = 256;
using FindHits = uint32_t(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b,
                          uint64_t hits[4]) noexcept;
uint32_t SearchByHits(FindHits* find, const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g,
                      uint32_t b) noexcept;

}  // namespace vexakrn

#endif
