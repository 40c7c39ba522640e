// Pouring rows, or a rectangle of pixels, of one bitmap into another of the same depth.
#ifndef VEXAKRN_KRN_ROWCOPY_H
#define VEXAKRN_KRN_ROWCOPY_H

#include "common/settings.h"
#include "vexakrn/copy.h"

namespace vexakrn {

inline constexpr StatusCallbackPair kNoReport = {};

// As V_CopyBitmapData with checked records. Both are accessed for the time, and `report` is told how far it is.
int32_t CopyRows(BITMAPHANDLE& dst, BITMAPHANDLE& src, const StatusCallbackPair& report) noexcept;

// Fills `dst` with the pixels of `src` from a column and a row on; they lie inside.
int32_t CopyRectangle(BITMAPHANDLE& dst, BITMAPHANDLE& src, int32_t left, int32_t top,
                      const StatusCallbackPair& report) noexcept;

}  // namespace vexakrn

#endif
