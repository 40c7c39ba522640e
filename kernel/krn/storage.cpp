// Finding a bitmap's storage kind, releasing it, and what all linear kinds share.
#include "krn/storage.h"

#include "krn/access.h"

namespace vexakrn {
namespace {

void FreeNothing(BITMAPHANDLE&) noexcept {}

const Storage& LinearStorageOf(const BITMAPHANDLE& bitmap) noexcept {
  if (HasFlag(bitmap, V_FlagConventionalMemory)) {
    if (HasFlag(bitmap, V_FlagMirror)) return kUserStorage;
    return HasFlag(bitmap, V_FlagGlobal) ? kGlobalStorage : kMappedStorage;
  }
  return HasFlag(bitmap, V_FlagDiskMemory) ? kDiskStorage : kNoStorage;
}

}  // namespace

int32_t RefuseAllocation(BITMAPHANDLE&, const AllocationContext&) noexcept { return kNoMemory; }
int32_t RefuseResize(BITMAPHANDLE&, int32_t) noexcept { return kInvalidParameter; }

const Storage kNoStorage = {.memoryType = 0,
                            .allocate = RefuseAllocation,
                            .free = FreeNothing,
                            .read = nullptr,
                            .write = nullptr,
                            .resize = RefuseResize};

const Storage& StorageOf(const BITMAPHANDLE& bitmap) noexcept {
  if (!HasFlag(bitmap, V_FlagAllocated)) return kNoStorage;
  if (HasFlag(bitmap, V_FlagCompressed)) return kCompressedStorage;
  if (HasFlag(bitmap, V_FlagTiled)) return kTiledStorage;
  return HasFlag(bitmap, V_FlagSuperCompressed) ? kSuperCompressedStorage : LinearStorageOf(bitmap);
}

uint32_t MemoryTypeOf(const BITMAPHANDLE& bitmap) noexcept {
  const uint32_t type = StorageOf(bitmap).memoryType;
  return type != 0 ? type : uint32_t{V_MemoryUser};
}

uint64_t PackedSize(const BITMAPHANDLE& bitmap) noexcept {
  if (!StorageOf(bitmap).heldBytes) return DataSize(bitmap);
  return static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(bitmap.Height);
}

void ReleaseStorage(BITMAPHANDLE& bitmap) noexcept {
  SetDataSize(bitmap, PackedSize(bitmap));  // what the next storage needs
  const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(bitmap);
  const bool handled = callbacks && callbacks->FreeBitmapData &&
                       callbacks->FreeBitmapData(&bitmap, callbacks->pUserData) == kSuccessAbort;
  if (!handled) {
    UnlockData(bitmap);
    StorageOf(bitmap).free(bitmap);
  }
  bitmap.Flags &= ~kStorageFlags;
  bitmap.Addr.Windows = {};
}

int32_t LinearPosition(const BITMAPHANDLE& bitmap, int32_t row, uint32_t offset, uint64_t count,
                       uint64_t* position) noexcept {
  *position = static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(row) + offset;
  return InsideRange(*position, count, DataSize(bitmap)) ? kSuccess : kInvalidParameter;
}

bool SizeOfRows(const BITMAPHANDLE& bitmap, int32_t height, uint64_t* bytes) noexcept {
  const uint64_t rows = static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(height);
  BITMAPHANDLE probe{};
  probe.uStructSize = bitmap.uStructSize;
  return CheckedAdd(rows, bitmap.DataOffset, bytes) && SetDataSize(probe, *bytes) == kSuccess;
}

}  // namespace vexakrn
