// What happens to an allocated bitmap: user data, change of height, freeing.
#include "common/buffer.h"
#include "common/record.h"
#include "krn/callbacks.h"
#include "krn/diagnostics.h"
#include "krn/overlay.h"
#include "krn/storage.h"
#include "vexakrn/dither.h"
#include "vexakrn/memory.h"
#include "vexakrn/palette.h"

namespace vexakrn {
namespace {

bool IsUserBitmap(const BITMAPHANDLE& bitmap) noexcept {
  return HasFlag(bitmap, V_FlagAllocated) && HasFlag(bitmap, V_FlagMirror) && !HasFlag(bitmap, V_FlagGlobal);
}

void FreeLookupTables(BITMAPHANDLE& bitmap) noexcept {
  V_FreeBuffer(bitmap.pLUT);
  bitmap.pLUT = nullptr;
  bitmap.LUTLength = 0;
  if (IsOldLayout(bitmap)) return;
  V_FreeBuffer(bitmap.pLUT16);
  bitmap.pLUT16 = nullptr;
  bitmap.LUTLength16 = 0;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_SetBitmapDataPointer(BITMAPHANDLE* bitmap, void* data, uint64_t size) noexcept {
  V_TRY(CheckRecord(bitmap, kNoImage));
  if (!IsUserBitmap(*bitmap) && data && size != DataSize(*bitmap)) return kInvalidParameter;
  // Storage of the engine's own would be lost under a foreign pointer.
  if (HasFlag(*bitmap, V_FlagAllocated) && !HasFlag(*bitmap, V_FlagMirror)) return kInvalidParameter;
  bitmap->Addr.Windows.pData = static_cast<uint8_t*>(data);
  return kSuccess;
}

int32_t V_CALL V_ChangeBitmapHeight(BITMAPHANDLE* bitmap, int32_t newHeight) noexcept {
  V_TRY(CheckRecord(bitmap, kNoImage));
  V_TRY(CheckAllocated(*bitmap));
  const Storage& storage = StorageOf(*bitmap);
  if (HasFlag(*bitmap, V_FlagMirror)) return kInvalidParameter;
  if (newHeight == bitmap->Height) return kSuccess;
  if (newHeight < 1) return kInvalidRange;
  V_TRY(storage.resize(*bitmap, newHeight));
  bitmap->Height = newHeight;
  SetDataSize(*bitmap, static_cast<uint64_t>(bitmap->BytesPerLine) * static_cast<uint32_t>(newHeight));
  UpdateDataSize(*bitmap, storage);
  return kSuccess;
}

void V_CALL V_FreeBitmap(BITMAPHANDLE* bitmap) noexcept {
  if (CheckRecord(bitmap) != kSuccess) return;
  if (LockCount(*bitmap) != 0) TraceLockCount("V_FreeBitmap", *bitmap, "\n");
  V_FreeBuffer(bitmap->pPalette);
  bitmap->pPalette = nullptr;
  FreeOverlays(*bitmap);
  if (HasFlag(*bitmap, V_FlagAllocated)) ReleaseStorage(*bitmap);
  FreeLookupTables(*bitmap);
  V_SetBitmapMinMax(bitmap, 0, 0);
  V_StopDithering(bitmap);
  FreeDataCallbacks(*bitmap);
  if (!IsOldLayout(*bitmap)) bitmap->nLockCount = 0;
}
