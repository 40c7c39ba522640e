// Readings of the system that allocation decisions rest on.
#ifndef VEXAKRN_COMMON_SYSTEMSTATUS_H
#define VEXAKRN_COMMON_SYSTEMSTATUS_H

#include "platform/platform.h"

namespace vexakrn {

// At most 10 ms old. False when the system does not tell.
bool ReadMemoryStatus(platform::MemoryStatus* status) noexcept;

// Whether the process holds nine tenths of its handle budget; true as well when the count cannot be read.
bool NearHandleLimit() noexcept;

}  // namespace vexakrn

#endif
