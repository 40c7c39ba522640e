// Fault injection, in test builds only: makes calls of the platform's table fail.
#ifndef VEXAKRN_PLATFORM_FAULT_H
#define VEXAKRN_PLATFORM_FAULT_H

#ifdef VEXAKRN_FAULT_INJECTION
#include <cstdint>

namespace vexakrn::platform {

// The error number of injected failures.
inline constexpr int32_t kInjectedError = 5;

// From now on the n-th call (1 is the next) of any thread fails, and with `onwards` every later one too.
void FailCall(uint64_t n, bool onwards) noexcept;

// Ends the injection. Returns the number of calls made since FailCall.
uint64_t StopFailing() noexcept;

// Whether a call has been failed since FailCall.
bool HasFailed() noexcept;

// Resources alive by the count of the table: blocks, mappings, views, files. For leak checks.
struct LiveResources {
  int64_t blocks, mappings, views, files, movableBlocks;
  bool operator==(const LiveResources&) const = default;
};
LiveResources Live() noexcept;

}  // namespace vexakrn::platform
#endif
#endif
