// The record's private copy of its data-callback table.
#ifndef VEXAKRN_KRN_CALLBACKS_H
#define VEXAKRN_KRN_CALLBACKS_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

void FreeDataCallbacks(BITMAPHANDLE& bitmap) noexcept;

}  // namespace vexakrn

#endif
