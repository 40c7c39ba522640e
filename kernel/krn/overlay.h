// The overlays that hang from a record.
#ifndef VEXAKRN_KRN_OVERLAY_H
#define VEXAKRN_KRN_OVERLAY_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

// Gives `dst`, which has none, copies of the overlays, moved by so many pixels. A failure may leave some there.
int32_t CopyOverlays(BITMAPHANDLE& dst, const BITMAPHANDLE& src, int32_t dx, int32_t dy) noexcept;

void FreeOverlays(BITMAPHANDLE& bitmap) noexcept;

}  // namespace vexakrn

#endif
