// Moving pixels from one place in memory to another: large blocks, and stretches that start inside a byte.
#ifndef VEXAKRN_KRN_BYTECOPY_H
#define VEXAKRN_KRN_BYTECOPY_H

#include <cstdint>

namespace vexakrn {

// Copies bytes between blocks that do not overlap. `total` is the size of the result that they are part of: one that is
// too large to stay in the caches is written past them.
void CopyBytes(uint8_t* destination, const uint8_t* source, uint64_t bytes, uint64_t total) noexcept;

// Copies whole 64-byte lines to an aligned destination with stores that bypass the caches.
void StreamLinesSse41(uint8_t* destination, const uint8_t* source, uint64_t lines) noexcept;
void StreamLinesAvx512(uint8_t* destination, const uint8_t* source, uint64_t lines) noexcept;

// Copies `bits` bits, the first of them `offset` (0 to 7) bits into `source`, to the start of `destination`; the rest of
// its last byte becomes 0. Reads only bytes that hold one of the bits.
void CopyBits(uint8_t* destination, const uint8_t* source, uint32_t offset, uint64_t bits) noexcept;

}  // namespace vexakrn

#endif
