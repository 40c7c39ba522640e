// The conventional limit: how large a block of memory may be by the calling thread's thresholds.
#ifndef VEXAKRN_KRN_THRESHOLDS_H
#define VEXAKRN_KRN_THRESHOLDS_H

#include <cstdint>

namespace vexakrn {

uint64_t ConventionalLimit() noexcept;

// The thread's tile size, or the default one.
int64_t TileSize() noexcept;

}  // namespace vexakrn

#endif
