// Rows and parts of rows, in and out, whatever the storage.
#include "krn/rowcol.h"

#include "krn/diagnostics.h"
#include "krn/storage.h"
#include "vexakrn/rows.h"

namespace vexakrn {
namespace {

bool IsInside(const BITMAPHANDLE& bitmap, const RowPart& part) noexcept {
  return part.row >= 0 && part.row < bitmap.Height && part.column >= 0 && part.column < bitmap.Width;
}

int64_t Get(BITMAPHANDLE* bitmap, void* buffer, const RowPart& part, const char* name) noexcept {
  V_TRY(CheckRowCall(bitmap, buffer, name));
  return GetRowPart(*bitmap, buffer, part);
}

int64_t Put(BITMAPHANDLE* bitmap, const void* buffer, const RowPart& part, const char* name) noexcept {
  V_TRY(CheckRowCall(bitmap, buffer, name));
  return PutRowPart(*bitmap, buffer, part);
}

// The status of a transfer of `count` bytes that moved so many, or failed.
int32_t WholeStatus(int64_t moved, uint64_t count) noexcept {
  if (moved < 0) return static_cast<int32_t>(moved);
  return static_cast<uint64_t>(moved) >= count ? kSuccess : kNoMemory;
}

}  // namespace

int32_t CheckRowCall(const BITMAPHANDLE* bitmap, const void* buffer, const char* name) noexcept {
  if (!bitmap || !buffer) return kInvalidParameter;
  V_TRY(CheckRecord(bitmap));
  if (LockCount(*bitmap) < 1) TraceLockCount(name, *bitmap, "\r\n");  // this trace ends in CR LF, and is meant to
  return kSuccess;
}

int64_t GetRowPart(BITMAPHANDLE& bitmap, void* buffer, const RowPart& part) noexcept {
  if (const auto* callbacks = DataCallbacks(bitmap); callbacks && callbacks->GetBitmapRowCol) {
    const uint64_t result =
        callbacks->GetBitmapRowCol(&bitmap, buffer, part.row, part.column, part.count, callbacks->pUserData);
    if (result != 0) return static_cast<int64_t>(result);
  }
  const Storage& storage = StorageOf(bitmap);
  if (!storage.read) return kNoMemory;
  if (!IsInside(bitmap, part)) return kInvalidParameter;
  const uint32_t offset = ColumnOffset(part.column, bitmap.BitsPerPixel);
  const int64_t got = storage.read(bitmap, static_cast<uint8_t*>(buffer), part.row, offset, part.count);
  UpdateDataSize(bitmap, storage);  // a strip may have been closed
  return got;
}

int64_t PutRowPart(BITMAPHANDLE& bitmap, const void* buffer, const RowPart& part) noexcept {
  if (const auto* callbacks = DataCallbacks(bitmap); callbacks && callbacks->PutBitmapRowCol) {
    const uint64_t result =
        callbacks->PutBitmapRowCol(&bitmap, buffer, part.row, part.column, part.count, callbacks->pUserData);
    if (result != 0) return static_cast<int64_t>(result);
  }
  const Storage& storage = StorageOf(bitmap);
  if (!storage.write) return kNoMemory;
  if (!IsInside(bitmap, part)) return kInvalidParameter;
  const uint32_t offset = ColumnOffset(part.column, bitmap.BitsPerPixel);
  const int64_t written = storage.write(bitmap, static_cast<const uint8_t*>(buffer), part.row, offset, part.count);
  UpdateDataSize(bitmap, storage);
  return written;
}

int32_t GetWholeRowPart(BITMAPHANDLE& bitmap, void* buffer, const RowPart& part) noexcept {
  return WholeStatus(GetRowPart(bitmap, buffer, part), part.count);
}

int32_t PutWholeRowPart(BITMAPHANDLE& bitmap, const void* buffer, const RowPart& part) noexcept {
  return WholeStatus(PutRowPart(bitmap, buffer, part), part.count);
}

}  // namespace vexakrn

using namespace vexakrn;

int64_t V_CALL V_GetBitmapRow(BITMAPHANDLE* bitmap, void* buffer, int32_t row, uint64_t count) noexcept {
  return Get(bitmap, buffer, {row, 0, count}, "V_GetBitmapRow");
}

int64_t V_CALL V_PutBitmapRow(BITMAPHANDLE* bitmap, const void* buffer, int32_t row, uint64_t count) noexcept {
  return Put(bitmap, buffer, {row, 0, count}, "V_PutBitmapRow");
}

int64_t V_CALL V_GetBitmapRowCol(BITMAPHANDLE* bitmap, void* buffer, int32_t row, int32_t column,
                                 uint64_t count) noexcept {
  return Get(bitmap, buffer, {row, column, count}, "V_GetBitmapRowCol");
}

int64_t V_CALL V_PutBitmapRowCol(BITMAPHANDLE* bitmap, const void* buffer, int32_t row, int32_t column,
                                 uint64_t count) noexcept {
  return Put(bitmap, buffer, {row, column, count}, "V_PutBitmapRowCol");
}
