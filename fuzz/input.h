// The bytes that drive a fuzz target, read as numbers; an input that has ended reads as zeros.
#ifndef VEXAKRN_FUZZ_INPUT_H
#define VEXAKRN_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace vexafuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

  bool Ended() const { return at_ == end_; }
  uint8_t Byte() { return Ended() ? uint8_t{0} : *at_++; }
  template <class T>
  T Number() {
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) value |= uint64_t{Byte()} << (8 * i);
    return static_cast<T>(value);
  }
  // Below `limit`, from as few bytes as it needs.
  uint32_t Below(uint32_t limit) {
    return (limit <= 256 ? Byte() : limit <= 65536 ? Number<uint16_t>() : Number<uint32_t>()) % limit;
  }
  bool OneIn(uint32_t n) { return Below(n) == 0; }

  // Mostly 0 to `limit`; sometimes a value at an end of the type, around the limit, or anything.
  int32_t Hostile(int32_t limit) {
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max(), kLeast = std::numeric_limits<int32_t>::min();
    const auto little = [this] { return static_cast<int32_t>(Below(3)); };
    const uint32_t kind = Below(16);
    if (kind == 0) return -1 - little();
    if (kind == 1) return static_cast<int32_t>(std::clamp<int64_t>(int64_t{limit} + little() - 1, kLeast, kMost));
    if (kind == 2) return kMost - little();
    if (kind == 3) return kLeast + little();
    if (kind == 4) return Number<int32_t>();
    return limit > 0 ? static_cast<int32_t>(Below(static_cast<uint32_t>(limit))) : 0;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// A finding: says what was wrong and ends the process, for the fuzzer to keep the input.
inline void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "finding: %s\n", what);
  std::abort();
}

}  // namespace vexafuzz

#endif
