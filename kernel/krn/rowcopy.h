// Pouring the rows of one bitmap into another of the same dimensions and depth.
#ifndef VEXAKRN_KRN_ROWCOPY_H
#define VEXAKRN_KRN_ROWCOPY_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

// Both are accessed for the time. Returns 1, or the first failure.
int32_t CopyRows(BITMAPHANDLE& dst, BITMAPHANDLE& src) noexcept;

}  // namespace vexakrn

#endif
