// Allocation: which storage a request gets.
//
// hook -> adjust and check the request -> release what there was -> the record's own callback -> the kind by size,
// thresholds and account -> memory, tiles, a file, in that order, as far as the request allows.
#include "krn/alloc.h"

#include <algorithm>
#include <iterator>

#include "common/atomicpair.h"
#include "common/settings.h"
#include "common/systemstatus.h"
#include "krn/storage.h"
#include "krn/thresholds.h"
#include "vexakrn/tempfile.h"

namespace vexakrn {
namespace {

AtomicPair<ALLOCATEBITMAPHOOK> allocationHook;

constexpr uint32_t kAcceptedRequests[] = {1,   2,   4,   8,   9,    128,  256,  257, 260,
                                          264, 265, 768, 769, 1024, 1025, 1280, 1281};

int32_t CallHook(BITMAPHANDLE& bitmap, uint32_t* request, void* userData) noexcept {
  if (!allocationHook.IsSet()) return kSuccess;
  const auto hook = allocationHook.Load();
  if (!hook.function) return kSuccess;
  ALLOCATEBITMAPCALLBACKDATA data = DescribeAllocation(bitmap, *request, 0, userData);
  const int32_t result = hook.function(&bitmap, &data, hook.userData);
  *request = data.uMemory;
  return result;
}

bool CanSuperCompress(int32_t bits) noexcept { return bits == 1 || bits == 8 || bits == 24; }

// Drops what the depth, the temporary-file mode or the process cannot have, and checks the rest.
int32_t AdjustRequest(const BITMAPHANDLE& bitmap, uint32_t* request) noexcept {
  uint32_t r = *request;
  if (r & V_MemoryUser) {
    r &= ~static_cast<uint32_t>(V_MemoryNoTiled | V_MemoryNoDisk);
  } else if (V_GetTempFileMode() == V_TempFileMemory) {
    r = (r & ~static_cast<uint32_t>(V_MemoryDisk)) | V_MemoryNoDisk;
  }
  if (r & V_MemoryCompressed) {
    r = bitmap.BitsPerPixel == 1 ? static_cast<uint32_t>(V_MemoryCompressed | V_MemoryNoDisk)
                                 : r & ~static_cast<uint32_t>(V_MemoryCompressed);
  }
  if ((r & V_MemorySuperCompressed) && (!CanSuperCompress(bitmap.BitsPerPixel) || NearHandleLimit()))
    r &= ~static_cast<uint32_t>(V_MemorySuperCompressed);
  *request = r;
  return std::find(std::begin(kAcceptedRequests), std::end(kAcceptedRequests), r) != std::end(kAcceptedRequests)
             ? kSuccess
             : kInvalidParameter;
}

// The record's own callback: it may keep the data itself (2) or change the request (1).
int32_t CallAllocate(BITMAPHANDLE& bitmap, uint32_t* request, void* userData) noexcept {
  const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(bitmap);
  if (!callbacks || !callbacks->AllocateBitmapData) return kSuccess;
  ALLOCATEBITMAPCALLBACKDATA data = DescribeAllocation(bitmap, *request, bitmap.BytesPerLine, userData);
  const int32_t result = callbacks->AllocateBitmapData(&bitmap, &data, callbacks->pUserData);
  if (result != kSuccess) return result;
  if (data.uMemory == *request) return kSuccess;
  *request = data.uMemory;
  return AdjustRequest(bitmap, request);
}

// Settles Tiled and Disk in a request by the data size. False when nothing is left that it allows.
bool ChooseBySize(uint64_t size, const AllocationContext& context, uint32_t* request) noexcept {
  uint32_t& r = *request;
  if (r & V_MemoryTiled) {
    if (NearHandleLimit() || size <= static_cast<uint64_t>(context.tiles.tileSize))
      r &= ~static_cast<uint32_t>(V_MemoryTiled);
    return true;
  }
  const int64_t maximum = ThreadSettings().thresholds.maxConventional;
  if (maximum > 0 && size > static_cast<uint64_t>(maximum) && !(r & V_MemoryNoDisk)) {
    r |= V_MemoryDisk;
  } else if (r != V_MemoryDisk && size > context.conventionalLimit) {
    if (!(r & V_MemoryNoTiled)) {
      r |= V_MemoryTiled;
    } else if (r & V_MemoryNoDisk) {
      return false;
    } else {
      r |= V_MemoryDisk;
    }
  }
  return true;
}

int32_t TryStorage(BITMAPHANDLE& bitmap, const Storage& storage, const AllocationContext& context,
                   uint32_t flags) noexcept {
  V_TRY(storage.allocate(bitmap, context));
  bitmap.Flags |= V_FlagAllocated | flags;
  return kSuccess;
}

// Memory, tiles, a file: the first that the request allows and that succeeds.
int32_t AllocateBySize(BITMAPHANDLE& bitmap, uint32_t request, const TileSettings& tiles) noexcept {
  const AllocationContext context{ConventionalLimit(), tiles,
                                  V_GetTempFileMode() == V_TempFileMemory || (request & V_MemoryNoDisk) != 0};
  if (!ChooseBySize(DataSize(bitmap), context, &request)) return kNoMemory;

  int32_t status = kNoMemory;
  if (!(request & (V_MemoryTiled | V_MemoryDisk))) {
    status = TryStorage(bitmap, kMappedStorage, context, V_FlagConventionalMemory);
    if (status == kSuccess) return status;
  }
  if (!(request & (V_MemoryNoTiled | V_MemoryDisk))) {
    const int32_t tiled = TryStorage(bitmap, kTiledStorage, context, V_FlagConventionalMemory | V_FlagTiled);
    if (tiled == kSuccess) return tiled;
    if (request & V_MemoryTiled) status = tiled;  // the only attempt
  }
  if (request & V_MemoryNoDisk) return status;
  return TryStorage(bitmap, kDiskStorage, context, V_FlagDiskMemory) == kSuccess ? kSuccess : kNoMemory;
}

}  // namespace

ALLOCATEBITMAPCALLBACKDATA DescribeAllocation(const BITMAPHANDLE& bitmap, uint32_t request, uint32_t bytesPerLine,
                                              void* userData) noexcept {
  ALLOCATEBITMAPCALLBACKDATA data{};
  data.uStructSize = sizeof data;
  data.uMemory = request;
  data.Width = static_cast<uint32_t>(bitmap.Width);
  data.Height = static_cast<uint32_t>(bitmap.Height);
  data.BitsPerPixel = static_cast<uint32_t>(bitmap.BitsPerPixel);
  data.BytesPerLine = bytesPerLine;
  data.Order = static_cast<uint32_t>(bitmap.Order);
  data.ViewPerspective = static_cast<uint32_t>(bitmap.ViewPerspective);
  data.Size = PackedSize(bitmap);
  data.pData = userData;
  return data;
}

TileSettings ThreadTileSettings() noexcept {
  return {TileSize(), ThreadSettings().thresholds.fifth, kDefaultViewBytes};
}

int32_t AllocateBitmap(BITMAPHANDLE& bitmap, uint32_t memoryType, void* userData, const TileSettings& tiles) noexcept {
  if (PackedSize(bitmap) == 0 || bitmap.Height < 1 || bitmap.BytesPerLine == 0 || !PitchHoldsRow(bitmap))
    return kInvalidRange;
  uint32_t request = memoryType;
  V_TRY(CallHook(bitmap, &request, userData));

  const int32_t accepted = AdjustRequest(bitmap, &request);
  if (HasFlag(bitmap, V_FlagAllocated)) ReleaseStorage(bitmap);
  bitmap.Flags &= ~kStorageFlags;
  bitmap.Addr.Windows = {};
  V_TRY(accepted);

  const int32_t called = CallAllocate(bitmap, &request, userData);
  if (called == kSuccessAbort) {
    bitmap.Flags |= V_FlagAllocated | V_FlagMirror;
    return kSuccess;
  }
  if (called != kSuccess) bitmap.Addr.Windows = {};
  V_TRY(called);

  if (request == V_MemoryUser) return TryStorage(bitmap, kUserStorage, {}, V_FlagConventionalMemory | V_FlagMirror);
  if (request & V_MemoryCompressed)
    return TryStorage(bitmap, kCompressedStorage, {}, V_FlagConventionalMemory | V_FlagCompressed);
  if (request & V_MemorySuperCompressed) {
    constexpr uint32_t kFlags = V_FlagConventionalMemory | V_FlagSuperCompressed;
    if (TryStorage(bitmap, kSuperCompressedStorage, {}, kFlags) == kSuccess) return kSuccess;
    request &= ~static_cast<uint32_t>(V_MemorySuperCompressed);  // plain storage is better than none
  }
  return AllocateBySize(bitmap, request, tiles);
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_AllocateBitmap(BITMAPHANDLE* bitmap, uint32_t memoryType) noexcept {
  V_TRY(CheckRecord(bitmap));
  return AllocateBitmap(*bitmap, memoryType, nullptr, ThreadTileSettings());
}

int32_t V_CALL V_SetAllocateBitmapHook(ALLOCATEBITMAPHOOK hook, void* userData) noexcept {
  allocationHook.Store(hook, userData);
  return kSuccess;
}
