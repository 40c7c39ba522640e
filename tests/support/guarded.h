// A byte buffer between two canaries. Under the address sanitizer the canaries are poisoned too, so that reading them
// is caught as well as writing.
#ifndef VEXAKRN_TESTS_SUPPORT_GUARDED_H
#define VEXAKRN_TESTS_SUPPORT_GUARDED_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

namespace vexatest {

class GuardedBytes {
 public:
  explicit GuardedBytes(size_t size, uint8_t fill = 0xCD) : size_(size), bytes_(size + 2 * kGuard, kCanary) {
    std::fill_n(data(), size, fill);
    Poison();
  }
  ~GuardedBytes() { Unpoison(); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  uint8_t* data() { return bytes_.data() + kGuard; }
  const uint8_t* data() const { return bytes_.data() + kGuard; }
  size_t size() const { return size_; }

  bool GuardsIntact() const {
    Unpoison();
    const bool intact = std::all_of(bytes_.begin(), bytes_.begin() + kGuard, IsCanary) &&
                        std::all_of(bytes_.end() - kGuard, bytes_.end(), IsCanary);
    Poison();
    return intact;
  }
  bool Holds(uint8_t value) const {
    return std::all_of(data(), data() + size_, [value](uint8_t byte) { return byte == value; });
  }
  bool operator==(const std::vector<uint8_t>& other) const {
    return size_ == other.size() && std::equal(other.begin(), other.end(), data());
  }

 private:
  static constexpr ptrdiff_t kGuard = 64;
  static constexpr uint8_t kCanary = 0x5A;

  static bool IsCanary(uint8_t byte) { return byte == kCanary; }
  void Poison() const {
    ASAN_POISON_MEMORY_REGION(bytes_.data(), kGuard);
    ASAN_POISON_MEMORY_REGION(data() + size_, kGuard);
  }
  void Unpoison() const { ASAN_UNPOISON_MEMORY_REGION(bytes_.data(), bytes_.size()); }

  size_t size_;
  std::vector<uint8_t> bytes_;
};

}  // namespace vexatest

#endif
