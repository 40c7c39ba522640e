// Rows of a bitmap to read from and to write to: in place where they lie in memory, else through a row buffer.
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

// Reads several rows at once, each of the bitmap's row length: in place where they lie in memory.
class RowBlockReader {
 public:
  RowBlockReader(BITMAPHANDLE& bitmap, int32_t rows) noexcept : bitmap_(bitmap), rows_(rows) {}

  // At most `rows` rows from `row` on, a row length apart; valid until the next call, or the bitmap is used otherwise.
  int32_t Rows(int32_t row, int32_t count, const uint8_t** data) noexcept {
    const RowSpan span = RowsInMemory(bitmap_, row);
    *data = span.data;
    if (span.data && span.rows >= count) return kSuccess;
    const uint64_t pitch = bitmap_.BytesPerLine;
    if (!buffer_) buffer_.Reset(AllocateArray<uint8_t>(pitch * static_cast<uint32_t>(rows_)));
    if (!buffer_) return kNoMemory;
    *data = buffer_.data();
    for (int32_t i = 0; i < count; ++i)
      V_TRY(GetWholeRowPart(bitmap_, buffer_.data() + pitch * static_cast<uint32_t>(i), {row + i, 0, pitch}));
    return kSuccess;
  }

 private:
  BITMAPHANDLE& bitmap_;
  const int32_t rows_;
  Buffer<uint8_t> buffer_;
};

// Writes several rows at once: in place where they lie in memory, else by way of a buffer.
class RowBlockWriter {
 public:
  RowBlockWriter(BITMAPHANDLE& bitmap, int32_t rows) noexcept : bitmap_(bitmap), rows_(rows) {}

  // Room for at most `rows` rows from `row` on, a row length apart; null without memory.
  uint8_t* Room(int32_t row, int32_t count) noexcept {
    const RowSpan span = RowsInMemory(bitmap_, row);
    inPlace_ = span.data && span.rows >= count;
    if (inPlace_) return span.data;
    if (!buffer_) buffer_.Reset(AllocateZeroed<uint8_t>(uint64_t{bitmap_.BytesPerLine} * static_cast<uint32_t>(rows_)));
    return buffer_.data();
  }

  // Puts what was written there.
  int32_t Put(int32_t row, int32_t count) noexcept {
    const uint64_t pitch = bitmap_.BytesPerLine;
    for (int32_t i = 0; !inPlace_ && i < count; ++i)
      V_TRY(PutWholeRowPart(bitmap_, buffer_.data() + pitch * static_cast<uint32_t>(i), {row + i, 0, pitch}));
    return kSuccess;
  }

 private:
  BITMAPHANDLE& bitmap_;
  const int32_t rows_;
  Buffer<uint8_t> buffer_;
  bool inPlace_ = false;
};

}  // namespace vexakrn

#endif
