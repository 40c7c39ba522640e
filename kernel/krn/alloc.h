// Allocation, as creation needs it: with the caller's data pointer for the hook and the callback to see.
#ifndef VEXAKRN_KRN_ALLOC_H
#define VEXAKRN_KRN_ALLOC_H

#include "krn/storage.h"

namespace vexakrn {

// How the calling thread's bitmaps are tiled.
TileSettings ThreadTileSettings() noexcept;

// What hooks and callbacks are told about storage for a record.
ALLOCATEBITMAPCALLBACKDATA DescribeAllocation(const BITMAPHANDLE& bitmap, uint32_t request, uint32_t bytesPerLine,
                                              void* userData) noexcept;

int32_t AllocateBitmap(BITMAPHANDLE& bitmap, uint32_t memoryType, void* userData, const TileSettings& tiles) noexcept;

}  // namespace vexakrn

#endif
