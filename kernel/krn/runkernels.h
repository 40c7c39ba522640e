// The inner loops of run-length records, one table a processor level.
//
// `words` is the address of a record's first run word, without alignment; a run word is 16 bits in the machine's order.
#ifndef VEXAKRN_KRN_RUNKERNELS_H
#define VEXAKRN_KRN_RUNKERNELS_H

#include <cstdint>

namespace vexakrn {

struct RunKernels {
  // Writes the run words of at least one pixel and returns their number: EncodeRecord (runs.h) without the count.
  uint32_t (*encode)(uint8_t* words, const uint8_t* source, uint32_t bitOffset, uint32_t pixels) noexcept;

  // The sum of `count` run words.
  uint64_t (*sum)(const uint8_t* words, uint64_t count) noexcept;

  // ExpandRecord (runs.h), of `count` run words.
  void (*expand)(const uint8_t* words, uint64_t count, uint64_t firstPixel, uint8_t* destination,
                 uint64_t bytes) noexcept;
};

extern const RunKernels kRunKernelsScalar, kRunKernelsAvx2, kRunKernelsAvx512;

// What the encoders of the vector levels share: the row is walked in segments, in each of which one of the functions
// below finds the positions where the colour changes; runs are their differences. Positions count bits from the row's
// first byte on, modulo 2^16.

inline constexpr uint32_t kSegmentBits = 4096;
inline constexpr uint32_t kChangesRoom = kSegmentBits + 64;  // finders store up to 64 positions at a time

// Writes the positions at which a colour begins within `bits` bits (1 to kSegmentBits) and returns their end. The first
// bit, at position `base`, is the most significant one of the byte at `source`; the first `skipped` bits (0 to 7) count
// as colour 0. `colour` is that of the pixel before the segment.
using FindChanges = uint16_t*(uint16_t* changes, const uint8_t* source, uint32_t skipped, uint32_t bits, uint16_t base,
                              uint32_t colour) noexcept;

uint32_t EncodeByChanges(FindChanges* find, uint8_t* words, const uint8_t* source, uint32_t bitOffset,
                         uint32_t pixels) noexcept;

// `expand` of both vector levels.
void ExpandRunsAvx2(const uint8_t* words, uint64_t count, uint64_t firstPixel, uint8_t* destination,
                    uint64_t bytes) noexcept;

}  // namespace vexakrn

#endif
