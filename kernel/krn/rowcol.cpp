// Rows and parts of rows, in and out, whatever the storage.
#include "vexakrn/rows.h"

#include "krn/diagnostics.h"
#include "krn/storage.h"

namespace vexakrn {
namespace {

// A transfer as its function was called.
struct RowCall {
  const char* name;
  int32_t row;
  int32_t column;
  uint64_t count;
};

int32_t CheckCall(const BITMAPHANDLE* bitmap, const void* buffer, const RowCall& call) noexcept {
  if (!bitmap || !buffer) return kInvalidParameter;
  V_TRY(CheckRecord(bitmap));
  if (LockCount(*bitmap) < 1) TraceLockCount(call.name, *bitmap, "\r\n");  // this trace ends in CR LF, and is meant to
  return kSuccess;
}

bool IsInside(const BITMAPHANDLE& bitmap, const RowCall& call) noexcept {
  return call.row >= 0 && call.row < bitmap.Height && call.column >= 0 && call.column < bitmap.Width;
}

int64_t Get(BITMAPHANDLE* bitmap, void* buffer, const RowCall& call) noexcept {
  V_TRY(CheckCall(bitmap, buffer, call));
  if (const auto* callbacks = DataCallbacks(*bitmap); callbacks && callbacks->GetBitmapRowCol) {
    const uint64_t result =
        callbacks->GetBitmapRowCol(bitmap, buffer, call.row, call.column, call.count, callbacks->pUserData);
    if (result != 0) return static_cast<int64_t>(result);
  }
  if (!IsInside(*bitmap, call)) return kInvalidParameter;
  const uint32_t offset = ColumnOffset(call.column, bitmap->BitsPerPixel);
  return StorageOf(*bitmap).read(*bitmap, static_cast<uint8_t*>(buffer), call.row, offset, call.count);
}

int64_t Put(BITMAPHANDLE* bitmap, const void* buffer, const RowCall& call) noexcept {
  V_TRY(CheckCall(bitmap, buffer, call));
  if (const auto* callbacks = DataCallbacks(*bitmap); callbacks && callbacks->PutBitmapRowCol) {
    const uint64_t result =
        callbacks->PutBitmapRowCol(bitmap, buffer, call.row, call.column, call.count, callbacks->pUserData);
    if (result != 0) return static_cast<int64_t>(result);
  }
  if (!IsInside(*bitmap, call)) return kInvalidParameter;
  const uint32_t offset = ColumnOffset(call.column, bitmap->BitsPerPixel);
  return StorageOf(*bitmap).write(*bitmap, static_cast<const uint8_t*>(buffer), call.row, offset, call.count);
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int64_t V_CALL V_GetBitmapRow(BITMAPHANDLE* bitmap, void* buffer, int32_t row, uint64_t count) noexcept {
  return Get(bitmap, buffer, {"V_GetBitmapRow", row, 0, count});
}

int64_t V_CALL V_PutBitmapRow(BITMAPHANDLE* bitmap, const void* buffer, int32_t row, uint64_t count) noexcept {
  return Put(bitmap, buffer, {"V_PutBitmapRow", row, 0, count});
}

int64_t V_CALL V_GetBitmapRowCol(BITMAPHANDLE* bitmap, void* buffer, int32_t row, int32_t column,
                                 uint64_t count) noexcept {
  return Get(bitmap, buffer, {"V_GetBitmapRowCol", row, column, count});
}

int64_t V_CALL V_PutBitmapRowCol(BITMAPHANDLE* bitmap, const void* buffer, int32_t row, int32_t column,
                                 uint64_t count) noexcept {
  return Put(bitmap, buffer, {"V_PutBitmapRowCol", row, column, count});
}
