// Allocation, as creation needs it: with the caller's data pointer for the hook and the callback to see.
#ifndef VEXAKRN_KRN_ALLOC_H
#define VEXAKRN_KRN_ALLOC_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

int32_t AllocateBitmap(BITMAPHANDLE& bitmap, uint32_t memoryType, void* userData) noexcept;

}  // namespace vexakrn

#endif
