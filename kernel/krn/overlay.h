// The overlays that hang from a record.
#ifndef VEXAKRN_KRN_OVERLAY_H
#define VEXAKRN_KRN_OVERLAY_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

void FreeOverlays(BITMAPHANDLE& bitmap) noexcept;

}  // namespace vexakrn

#endif
