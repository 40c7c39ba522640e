// Repeatable random numbers: a failure prints its seed and can be run again.
#ifndef VEXAKRN_TESTS_SUPPORT_RANDOM_H
#define VEXAKRN_TESTS_SUPPORT_RANDOM_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vexatest {

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  uint64_t Below(uint64_t n) { return Next() % n; }
  int32_t Between(int32_t low, int32_t high) {  // both inclusive
    return static_cast<int32_t>(low + static_cast<int64_t>(Below(static_cast<uint64_t>(int64_t{high} - low + 1))));
  }
  bool Coin() { return (Next() & 1) != 0; }

  void Fill(void* data, size_t size) {
    auto* bytes = static_cast<uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(Next());
  }
  std::vector<uint8_t> Bytes(size_t size) {
    std::vector<uint8_t> bytes(size);
    Fill(bytes.data(), size);
    return bytes;
  }

 private:
  uint64_t state_;
};

}  // namespace vexatest

#endif
