// The coder for 1-bit rows: it keeps the bytes in which a row differs from the one above.
//
// A strip of rows goes in blocks of 64 bytes, whatever the rows' length. A block is compared with the 64 bytes that lie
// one row before it (zeros before the first row), as eight words of eight bytes:
//
//   a byte, not 0         bit i: word i differs. For each such word a byte, bit i: byte i of it differs; then those
//                         bytes, each the exclusive or of new and old.
//   a byte 0, a byte n    n + 1 blocks that do not differ at all.
#ifndef VEXAKRN_KRN_CHANGES_H
#define VEXAKRN_KRN_CHANGES_H

#include <cstdint>

namespace vexakrn {

inline constexpr uint64_t kChangesBlock = 64;

// `above` is how many bytes before a byte that of the row above lies, at least a block. Returns the bytes written, or
// 0 when they and a margin of some blocks would be more than `capacity`.
uint64_t EncodeChanges(uint8_t* coded, uint64_t capacity, const uint8_t* strip, uint64_t bytes,
                       uint64_t above) noexcept;

// False when `coded` is not exactly a strip of `bytes` bytes; what is in `strip` then is unspecified.
bool DecodeChanges(uint8_t* strip, uint64_t bytes, const uint8_t* coded, uint64_t codedBytes, uint64_t above) noexcept;

}  // namespace vexakrn

#endif
