// The process-wide account of conventional memory, behind its one critical section.
#include "krn/account.h"

#include <limits>

#include "common/checked.h"
#include "common/status.h"
#include "platform/platform.h"
#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

class Account {
 public:
  int32_t Manage(int32_t operation, uint64_t size, uint64_t* value) noexcept {
    const platform::CriticalGuard guard(section_);
    switch (operation) {
      case V_MemorySetLimit:
        Report(value, limit_), limit_ = size;
        return kSuccess;
      case V_MemoryGetLimit:
        Report(value, limit_);
        return kSuccess;
      case V_MemoryReserve:
        if (!Allows(size)) return kMemoryLimit;
        used_ += size;
        return kSuccess;
      case V_MemoryReturn:
        used_ -= size < used_ ? size : used_;
        return kSuccess;
      case V_MemoryGetUsed:
        Report(value, used_);
        return value ? kSuccess : kNullPointer;
      case V_MemoryQuery:
        Report(value, Headroom());
        return Allows(size) ? kSuccess : kMemoryLimit;
      default:
        return kFeatureNotSupported;
    }
  }

 private:
  static void Report(uint64_t* value, uint64_t number) noexcept {
    if (value) *value = number;
  }

  bool Allows(uint64_t size) const noexcept {
    uint64_t sum = 0;
    return CheckedAdd(used_, size, &sum) && (limit_ == 0 || sum <= limit_);
  }

  uint64_t Headroom() const noexcept {
    if (limit_ == 0) return std::numeric_limits<int64_t>::max();
    return limit_ > used_ ? limit_ - used_ : 1;  // 1, not 0, when it is used up
  }

  platform::CriticalSection section_;
  uint64_t limit_ = 0;  // 0: none
  uint64_t used_ = 0;
};

constinit Account account;

}  // namespace

int32_t ReserveMemory(uint64_t bytes) noexcept { return account.Manage(V_MemoryReserve, bytes, nullptr); }
void ReturnMemory(uint64_t bytes) noexcept { account.Manage(V_MemoryReturn, bytes, nullptr); }

uint64_t AvailableMemory() noexcept {
  uint64_t available = 0;
  account.Manage(V_MemoryQuery, 0, &available);
  return available;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_ManageMemory(int32_t operation, uint64_t size, uint64_t* value) noexcept {
  return account.Manage(operation, size, value);
}
