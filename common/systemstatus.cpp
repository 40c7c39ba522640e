// System readings. The memory status costs several system calls and is asked by every allocation, so the calling thread
// keeps it for a short while; the handle count is cheap, and rarely asked.
#include "common/systemstatus.h"

#include "common/settings.h"

namespace vexakrn {
namespace {

constexpr uint64_t kFreshMilliseconds = 10;
constexpr uint32_t kHandleBudget = 20000;

}  // namespace

bool ReadMemoryStatus(platform::MemoryStatus* status) noexcept {
  MemoryReading& kept = ThreadSettings().memoryStatus;
  uint64_t now = 0;
  const bool hasClock = platform::System().milliseconds(&now) == 0;
  if (!hasClock || !kept.valid || now - kept.milliseconds >= kFreshMilliseconds) {
    kept.valid = false;
    platform::MemoryStatus fresh{};
    if (platform::System().memoryStatus(&fresh) != 0) return false;
    kept = {hasClock, now, fresh};
  }
  *status = kept.value;
  return true;
}

bool NearHandleLimit() noexcept {
  uint32_t count = 0;
  return platform::System().handleCount(&count) != 0 || count >= kHandleBudget / 10 * 9;
}

}  // namespace vexakrn
