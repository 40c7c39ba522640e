// A function and its user data that any thread may replace while others call it, without a lock for the readers.
#ifndef VEXAKRN_COMMON_ATOMICPAIR_H
#define VEXAKRN_COMMON_ATOMICPAIR_H

#include <atomic>
#include <cstdint>

namespace vexakrn {

// The version is odd while a writer is at work; readers try again until they have seen both halves under one even
// version.
template <typename Function>
class AtomicPair {
 public:
  struct Value {
    Function function;
    void* userData;
  };

  // The cheap question that hot paths ask.
  bool IsSet() const noexcept { return function_.load(std::memory_order_relaxed) != nullptr; }

  Value Load() const noexcept {
    for (;;) {
      const uint32_t before = version_.load();
      const Value value{function_.load(), userData_.load()};
      if (before % 2 == 0 && version_.load() == before) return value;
    }
  }

  void Store(Function function, void* userData) noexcept {
    uint32_t version = version_.load();
    do {
      version &= ~1u;  // wait for another writer's turn to end
    } while (!version_.compare_exchange_weak(version, version + 1));
    function_.store(function);
    userData_.store(userData);
    version_.store(version + 2);
  }

 private:
  std::atomic<uint32_t> version_{0};
  std::atomic<Function> function_{nullptr};
  std::atomic<void*> userData_{nullptr};
};

}  // namespace vexakrn

#endif
