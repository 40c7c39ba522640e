// Rows of a bitmap to read from: in place where they lie in memory, else through a row buffer.
#ifndef VEXAKRN_KRN_ROWVIEW_H
#define VEXAKRN_KRN_ROWVIEW_H

#include "common/buffer.h"
#include "krn/rowcol.h"
#include "krn/storage.h"

namespace vexakrn {

// Whether the record's callbacks see the rows.
inline bool HasRowCallbacks(const BITMAPHANDLE& bitmap) noexcept {
  const auto* callbacks = DataCallbacks(bitmap);
  return callbacks && (callbacks->GetBitmapRowCol || callbacks->PutBitmapRowCol);
}

// The rows in memory from `row` on, if the engine may take them from there.
inline RowSpan RowsInMemory(BITMAPHANDLE& bitmap, int32_t row) noexcept {
  const auto rowsAt = StorageOf(bitmap).rowsAt;
  const bool inside = row >= 0 && row < bitmap.Height;
  return rowsAt && inside && !HasRowCallbacks(bitmap) ? rowsAt(bitmap, row) : RowSpan{};
}

// Reads `bytes` bytes of one row after another, from the byte that holds pixel `column` on. With `room` above that,
// what is handed out has so many bytes, the rest zeros. For a `taker` with row callbacks, which may use the bitmap while
// they have the row, it is always a copy.
class RowReader {
 public:
  RowReader(BITMAPHANDLE& bitmap, int32_t column, uint64_t bytes, const BITMAPHANDLE* taker = nullptr,
            uint64_t room = 0) noexcept
      : bitmap_(bitmap),
        column_(column),
        bytes_(bytes),
        room_(room > bytes ? room : bytes),
        copies_(room_ != bytes_ || (taker && HasRowCallbacks(*taker))) {}

  // `*data` stays valid until the next row is asked for, or the bitmap is used otherwise.
  int32_t Row(int32_t row, const uint8_t** data) noexcept {
    if (!copies_) {
      if (const RowSpan span = RowsInMemory(bitmap_, row); span.data) {
        *data = span.data + ColumnOffset(column_, bitmap_.BitsPerPixel);
        return kSuccess;
      }
    }
    if (!line_) {
      line_.Reset(AllocateZeroed<uint8_t>(room_));
      if (!line_) return kNoMemory;
    }
    *data = line_.data();
    return GetWholeRowPart(bitmap_, line_.data(), {row, column_, bytes_});
  }

 private:
  BITMAPHANDLE& bitmap_;
  const int32_t column_;
  const uint64_t bytes_, room_;
  const bool copies_;
  Buffer<uint8_t> line_;
};

}  // namespace vexakrn

#endif
