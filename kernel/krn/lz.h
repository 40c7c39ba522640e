// The coder for rows of whole bytes: fast in both directions, and it knows where an image repeats itself.
//
// A strip of rows is a sequence of steps: some literal bytes, then a match, which is a copy of earlier bytes from some
// distance back, and may run into itself. One byte opens a step:
//
//   bits 7-6  number of literals; 3: and more
//   bits 5-4  0: the match's distance is given; 1: it is that of the row above; 2: that of the pixel to the left;
//             3: there is no match, the literals are all the rest of the strip (the other bits are 0)
//   bits 3-0  bytes of the match beyond the shortest one; 15: and more
//
// Behind it lie the distance where it is given (two bytes), the rest of the number of literals, the rest of the match,
// and the literals. A rest comes seven bits at a time, the lowest first, the top bit set on all bytes but the last.
#ifndef VEXAKRN_KRN_LZ_H
#define VEXAKRN_KRN_LZ_H

#include <cstdint>

namespace vexakrn {

inline constexpr uint64_t kLzNearest = 16;  // the least distance, but for that of a pixel

// What encoder and decoder agree on beside the bytes.
struct LzDistances {
  uint64_t above;  // bytes of a row, or of some rows; at least kLzNearest
  uint64_t left;   // bytes of a pixel: 1 or 3
};

// Returns the bytes written, or 0 when they and a small margin would be more than `capacity`, or when the first
// quarter of the strip hardly shrinks.
uint64_t LzEncode(uint8_t* coded, uint64_t capacity, const uint8_t* strip, uint64_t bytes,
                  const LzDistances& distances) noexcept;

// False when `coded` is not exactly a strip of `bytes` bytes; what is in `strip` then is unspecified.
bool LzDecode(uint8_t* strip, uint64_t bytes, const uint8_t* coded, uint64_t codedBytes,
              const LzDistances& distances) noexcept;

}  // namespace vexakrn

#endif
