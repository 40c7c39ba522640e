// Access and release: nesting is counted in the record, and only the outermost pair does work.
//
// A record of the older layout has no count: its movable block is locked by the first access and unlocked by the first
// release.
#include "krn/access.h"

#include "krn/diagnostics.h"
#include "platform/platform.h"

namespace vexakrn {
namespace {

bool HasMovableBlock(const BITMAPHANDLE& bitmap) noexcept {
  constexpr uint32_t kWanted = V_FlagAllocated | V_FlagConventionalMemory | V_FlagGlobal;
  constexpr uint32_t kOtherStores = V_FlagCompressed | V_FlagTiled | V_FlagSuperCompressed;
  return (bitmap.Flags & (kWanted | kOtherStores)) == kWanted;
}

int32_t BeginAccess(BITMAPHANDLE& bitmap) noexcept {
  if (const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(bitmap); callbacks && callbacks->AccessBitmap) {
    const int32_t result = callbacks->AccessBitmap(&bitmap, callbacks->pUserData);
    if (result == kSuccessAbort) return kSuccess;
    V_TRY(result);
  }
  return LockData(bitmap);
}

int32_t EndAccess(BITMAPHANDLE& bitmap) noexcept {
  if (const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(bitmap); callbacks && callbacks->ReleaseBitmap) {
    const int32_t result = callbacks->ReleaseBitmap(&bitmap, callbacks->pUserData);
    if (result == kSuccessAbort) return kSuccess;
    V_TRY(result);
  }
  UnlockData(bitmap);
  return kSuccess;
}

}  // namespace

int32_t LockData(BITMAPHANDLE& bitmap) noexcept {
  if (!HasMovableBlock(bitmap) || HasFlag(bitmap, V_FlagLockedMemory)) return kSuccess;
  void* block = bitmap.Addr.Windows.hMemory;
  void* address = block ? platform::System().lockBlock(block) : nullptr;
  if (!address) return kNoMemory;
  bitmap.Flags |= V_FlagLockedMemory;
  bitmap.Addr.Windows.pData = static_cast<uint8_t*>(address) + bitmap.DataOffset;
  return kSuccess;
}

void UnlockData(BITMAPHANDLE& bitmap) noexcept {
  if (!HasMovableBlock(bitmap) || !HasFlag(bitmap, V_FlagLockedMemory)) return;
  platform::UnlockBlock(bitmap.Addr.Windows.hMemory);
  bitmap.Flags &= ~static_cast<uint32_t>(V_FlagLockedMemory);
  bitmap.Addr.Windows.pData = nullptr;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_AccessBitmap(BITMAPHANDLE* bitmap) noexcept {
  if (!bitmap) return kNullPointer;
  if (IsOldLayout(*bitmap)) return LockData(*bitmap);

  if (bitmap->nLockCount < 0) TraceLockCount("V_AccessBitmap", *bitmap, "\n");
  bitmap->nLockCount = bitmap->nLockCount + 1;
  if (bitmap->nLockCount != 1) return kSuccess;

  const int32_t status = BeginAccess(*bitmap);
  if (status != kSuccess) bitmap->nLockCount = bitmap->nLockCount - 1;
  return status;
}

int32_t V_CALL V_ReleaseBitmap(BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckRecord(bitmap, kNullPointer));
  if (IsOldLayout(*bitmap)) {
    UnlockData(*bitmap);
    return kSuccess;
  }
  if (bitmap->nLockCount < 1) TraceLockCount("V_ReleaseBitmap", *bitmap, "\n");
  bitmap->nLockCount = bitmap->nLockCount - 1;
  return bitmap->nLockCount == 0 ? EndAccess(*bitmap) : kSuccess;
}

int32_t V_CALL V_IntAccessBitmap(BITMAPHANDLE* bitmap, int32_t* didLock) noexcept {
  int32_t status = CheckRecord(bitmap, kNullPointer);
  if (status == kSuccess) status = V_AccessBitmap(bitmap);
  if (didLock) *didLock = status == kSuccess;
  return status;
}

int32_t V_CALL V_IntReleaseBitmap(BITMAPHANDLE* bitmap, int32_t didLock, int32_t status) noexcept {
  V_TRY(CheckRecord(bitmap, kNullPointer));
  if (didLock == 0) return status;
  const int32_t released = V_ReleaseBitmap(bitmap);
  return status != kSuccess ? status : released;
}
