// Status codes by their short names, from the one public list, and the early return on failure.
#ifndef VEXAKRN_COMMON_STATUS_H
#define VEXAKRN_COMMON_STATUS_H

#include "vexakrn/status.h"

namespace vexakrn {

enum : int32_t {  // kSuccess, kNoMemory, ...
#define VEXAKRN_STATUS_ENTRY(name, value, text) k##name = (value),
  VEXAKRN_STATUS_LIST(VEXAKRN_STATUS_ENTRY)
#undef VEXAKRN_STATUS_ENTRY
};

// Leaves the calling function with `expr`'s status unless it is success.
#define V_TRY(expr)                                         \
  do {                                                      \
    if (const int32_t v_status_ = (expr); v_status_ != 1) { \
      return v_status_;                                     \
    }                                                       \
  } while (false)

}  // namespace vexakrn

#endif
