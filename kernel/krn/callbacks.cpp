// Setting and reading a record's data callbacks.
#include "krn/callbacks.h"

#include "common/buffer.h"
#include "common/record.h"
#include "krn/storage.h"

namespace vexakrn {

void FreeDataCallbacks(BITMAPHANDLE& bitmap) noexcept {
  if (IsOldLayout(bitmap)) return;
  platform::Free(bitmap.DataCallbacks);
  bitmap.DataCallbacks = nullptr;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_SetBitmapDataCallbacks(BITMAPHANDLE* bitmap, const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept {
  V_TRY(CheckRecord(bitmap));
  if (!callbacks) {
    FreeDataCallbacks(*bitmap);
    return kSuccess;
  }
  if (IsOldLayout(*bitmap) || callbacks->uStructSize != sizeof *callbacks) return kInvalidStructSize;
  if (PackedSize(*bitmap) == 0) return kInvalidRange;
  auto* copy = AllocateArray<BITMAPHANDLEDATACALLBACKS>(1);
  if (!copy) return kNoMemory;
  *copy = *callbacks;
  FreeDataCallbacks(*bitmap);
  bitmap->DataCallbacks = copy;
  return kSuccess;
}

int32_t V_CALL V_GetBitmapDataCallbacks(BITMAPHANDLE* bitmap, BITMAPHANDLEDATACALLBACKS* out) noexcept {
  V_TRY(CheckRecord(bitmap));
  if (!out) return kNullPointer;
  const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(*bitmap);
  *out = callbacks ? *callbacks : BITMAPHANDLEDATACALLBACKS{};
  out->uStructSize = sizeof *out;
  return kSuccess;
}
