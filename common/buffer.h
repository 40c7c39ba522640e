// Memory of the kernel: everything is asked for through the platform's table, and a failure is a null pointer.
#ifndef VEXAKRN_COMMON_BUFFER_H
#define VEXAKRN_COMMON_BUFFER_H

#include <cstring>
#include <type_traits>
#include <utility>

#include "common/checked.h"
#include "platform/platform.h"

namespace vexakrn {

// A block of `count` elements, uninitialised; null on failure, on overflow and for none.
template <typename T>
T* AllocateArray(uint64_t count) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  uint64_t bytes = 0;
  if (count == 0 || !CheckedMultiply(count, sizeof(T), &bytes)) return nullptr;
  return static_cast<T*>(platform::System().allocate(bytes));
}

template <typename T>
T* AllocateZeroed(uint64_t count) noexcept {
  T* block = AllocateArray<T>(count);
  if (block) std::memset(static_cast<void*>(block), 0, count * sizeof(T));
  return block;
}

// Owns a block of elements of trivial type, uninitialised. Test it before use.
template <typename T>
class Buffer {
 public:
  Buffer() noexcept = default;
  explicit Buffer(uint64_t count) noexcept : data_(AllocateArray<T>(count)) {}
  Buffer(Buffer&& other) noexcept : data_(std::exchange(other.data_, nullptr)) {}
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  Buffer& operator=(Buffer&&) = delete;
  ~Buffer() { platform::Free(data_); }

  explicit operator bool() const noexcept { return data_ != nullptr; }
  T* data() const noexcept { return data_; }
  T& operator[](uint64_t index) const noexcept { return data_[index]; }
  T* Release() noexcept { return std::exchange(data_, nullptr); }
  void Reset(T* block) noexcept { platform::Free(std::exchange(data_, block)); }

 private:
  T* data_ = nullptr;
};

}  // namespace vexakrn

#endif
