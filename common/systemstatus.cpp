// System readings, kept in the calling thread's settings for a short while: reading them costs a system call or more.
#include "common/systemstatus.h"

#include "common/settings.h"

namespace vexakrn {
namespace {

constexpr uint64_t kFreshMilliseconds = 10;
constexpr uint32_t kHandleBudget = 20000;

// Reads through the cache. Without a clock nothing is kept.
template <typename T>
bool ReadCached(CachedReading<T>& cache, int32_t (*read)(T*), T* value) noexcept {
  uint64_t now = 0;
  const bool hasClock = platform::System().milliseconds(&now) == 0;
  if (!hasClock || !cache.valid || now - cache.milliseconds >= kFreshMilliseconds) {
    T fresh{};
    cache.valid = false;
    if (read(&fresh) != 0) return false;
    cache = {hasClock, now, fresh};
  }
  *value = cache.value;
  return true;
}

}  // namespace

bool ReadMemoryStatus(platform::MemoryStatus* status) noexcept {
  return ReadCached(ThreadSettings().memoryStatus, platform::System().memoryStatus, status);
}

bool NearHandleLimit() noexcept {
  uint32_t count = 0;
  return !ReadCached(ThreadSettings().handleCount, platform::System().handleCount, &count) ||
         count >= kHandleBudget / 10 * 9;
}

}  // namespace vexakrn
