// Overlays: up to sixteen small bitmaps, copied into a table that the record owns.
#include "krn/overlay.h"

#include "common/buffer.h"
#include "common/record.h"
#include "krn/rowcopy.h"

namespace vexakrn {
namespace {

constexpr int32_t kSlots = 16;

struct OverlayTable {
  BITMAPOVERLAY slots[kSlots];  // pBitmap null: empty; else a record of the engine's own
};

OverlayTable* TableOf(const BITMAPHANDLE& bitmap) noexcept { return static_cast<OverlayTable*>(bitmap.Overlays); }

int32_t CheckSlot(const BITMAPHANDLE* bitmap, int32_t slot) noexcept {
  V_TRY(CheckRecord(bitmap));
  return slot >= 0 && slot < kSlots ? kSuccess : kInvalidParameter;
}

void FreeSlot(BITMAPOVERLAY& slot) noexcept {
  V_FreeBitmap(slot.pBitmap);
  platform::Free(slot.pBitmap);
  slot = {};
}

// A bitmap of its own with the attributes and pixels of another; null on failure.
int32_t CopyOverlayBitmap(BITMAPHANDLE& src, BITMAPHANDLE** copy) noexcept {
  Buffer<BITMAPHANDLE> made(1);
  if (!made) return kNoMemory;
  BITMAPHANDLE& dst = made[0];
  V_TRY(V_DupBitmapNewDim(&dst, &src, V_BITMAPHANDLE_SIZE, src.Width, src.Height, src.BitsPerPixel));
  int32_t status = V_AllocateBitmap(&dst, V_MemoryConventional);
  if (status == kSuccess) status = CopyRows(dst, src, kNoReport);
  if (status != kSuccess) {
    V_FreeBitmap(&dst);
    return status;
  }
  *copy = made.Release();
  return kSuccess;
}

int32_t CheckOverlay(const BITMAPOVERLAY* overlay) noexcept {
  if (!overlay) return kNullPointer;
  if (overlay->uStructSize != sizeof *overlay) return kInvalidStructSize;
  V_TRY(CheckRecord(overlay->pBitmap, kNoImage));
  return CheckAllocated(*overlay->pBitmap);
}

}  // namespace

int32_t CopyOverlays(BITMAPHANDLE& dst, const BITMAPHANDLE& src, int32_t dx, int32_t dy) noexcept {
  const OverlayTable* table = TableOf(src);
  for (int32_t slot = 0; table && slot < kSlots; ++slot) {
    BITMAPOVERLAY overlay = table->slots[slot];
    if (!overlay.pBitmap || !HasFlag(*overlay.pBitmap, V_FlagAllocated)) continue;
    overlay.x = static_cast<int32_t>(static_cast<uint32_t>(overlay.x) + static_cast<uint32_t>(dx));
    overlay.y = static_cast<int32_t>(static_cast<uint32_t>(overlay.y) + static_cast<uint32_t>(dy));
    V_TRY(V_SetBitmapOverlay(&dst, slot, &overlay));
  }
  return kSuccess;
}

void FreeOverlays(BITMAPHANDLE& bitmap) noexcept {
  OverlayTable* table = TableOf(bitmap);
  if (!table) return;
  for (BITMAPOVERLAY& slot : table->slots) FreeSlot(slot);
  platform::Free(table);
  bitmap.Overlays = nullptr;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_SetBitmapOverlay(BITMAPHANDLE* bitmap, int32_t slot, const BITMAPOVERLAY* overlay) noexcept {
  V_TRY(CheckSlot(bitmap, slot));
  V_TRY(CheckOverlay(overlay));
  BITMAPOVERLAY made = *overlay;
  V_TRY(CopyOverlayBitmap(*overlay->pBitmap, &made.pBitmap));
  if (!bitmap->Overlays) bitmap->Overlays = AllocateZeroed<OverlayTable>(1);
  if (!bitmap->Overlays) {
    FreeSlot(made);
    return kNoMemory;
  }
  FreeSlot(TableOf(*bitmap)->slots[slot]);
  TableOf(*bitmap)->slots[slot] = made;
  return kSuccess;
}

int32_t V_CALL V_GetBitmapOverlay(BITMAPHANDLE* bitmap, int32_t slot, BITMAPOVERLAY* overlay) noexcept {
  V_TRY(CheckSlot(bitmap, slot));
  if (!overlay) return kNullPointer;
  const OverlayTable* table = TableOf(*bitmap);
  *overlay = table ? table->slots[slot] : BITMAPOVERLAY{};
  overlay->uStructSize = sizeof *overlay;
  return overlay->pBitmap ? kSuccess : kNoImage;
}

int32_t V_CALL V_FreeBitmapOverlay(BITMAPHANDLE* bitmap, int32_t slot) noexcept {
  V_TRY(CheckSlot(bitmap, slot));
  if (OverlayTable* table = TableOf(*bitmap)) FreeSlot(table->slots[slot]);
  return kSuccess;
}
