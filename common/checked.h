// Arithmetic on sizes and offsets that cannot overflow: 64 bits, checked or saturating.
#ifndef VEXAKRN_COMMON_CHECKED_H
#define VEXAKRN_COMMON_CHECKED_H

#include <cstdint>
#include <limits>

namespace vexakrn {

// Each returns false, and leaves `*result` unspecified, when the true result does not fit 64 bits.
inline bool CheckedAdd(uint64_t a, uint64_t b, uint64_t* result) noexcept {
  return !__builtin_add_overflow(a, b, result);
}
inline bool CheckedMultiply(uint64_t a, uint64_t b, uint64_t* result) noexcept {
  return !__builtin_mul_overflow(a, b, result);
}

inline uint64_t SaturatingAdd(uint64_t a, uint64_t b) noexcept {
  uint64_t sum = 0;
  return CheckedAdd(a, b, &sum) ? sum : std::numeric_limits<uint64_t>::max();
}

// Rounds up to a multiple of `step`; the largest multiple there is when that does not fit.
inline uint64_t RoundUp(uint64_t value, uint64_t step) noexcept { return SaturatingAdd(value, step - 1) / step * step; }

// Whether `count` bytes from `offset` on lie inside `size`.
inline bool InsideRange(uint64_t offset, uint64_t count, uint64_t size) noexcept {
  return offset <= size && count <= size - offset;
}

// `percent` (0 to 100) of a value, without overflow.
inline uint64_t PercentOf(uint64_t value, uint32_t percent) noexcept {
  return value / 100 * percent + value % 100 * percent / 100;
}

}  // namespace vexakrn

#endif
