// Rows of 1-bit bitmaps in run-length form.
//
// Where the storage keeps records, a whole row's goes in and out as it is. Everything else is encoded from, or expanded
// to, packed pixels, so that it is the same for every kind of storage.
#include <cstring>

#include "common/buffer.h"
#include "krn/rowview.h"
#include "krn/runs.h"
#include "krn/segments.h"
#include "vexakrn/runs.h"

namespace vexakrn {
namespace {

int32_t CheckCall(const BITMAPHANDLE* bitmap, const void* record, const char* name) noexcept {
  V_TRY(CheckRowCall(bitmap, record, name));
  return bitmap->BitsPerPixel == 1 ? kSuccess : kBitsPerPixel;
}

// Pixels of one row.
struct Stretch {
  int32_t row;
  int32_t column;
  uint64_t pixels;
};

int32_t CheckStretch(const BITMAPHANDLE& bitmap, const Stretch& stretch) noexcept {
  if (stretch.column < 0 || stretch.column >= bitmap.Width || stretch.pixels == 0) return kInvalidParameter;
  return stretch.pixels <= static_cast<uint32_t>(bitmap.Width - stretch.column) ? kSuccess : kInvalidParameter;
}

// The storage, when a row's record is to be had from it directly.
const Storage* RecordStorage(const BITMAPHANDLE& bitmap) noexcept {
  const Storage& storage = StorageOf(bitmap);
  return storage.recordAt && !HasRowCallbacks(bitmap) ? &storage : nullptr;
}

bool IsRow(const BITMAPHANDLE& bitmap, int32_t row) noexcept { return row >= 0 && row < bitmap.Height; }

// Hands out a record of the engine's own making.
int64_t HandOut(const uint8_t* made, void* record, uint64_t capacity) noexcept {
  const uint64_t bytes = RecordBytes(made);
  if (bytes > capacity) return kInvalidParameter;
  std::memcpy(record, made, bytes);
  return static_cast<int64_t>(bytes);
}

int64_t GetStretch(BITMAPHANDLE& bitmap, void* record, const Stretch& stretch, uint64_t capacity) noexcept {
  const auto offset = static_cast<uint32_t>(stretch.column % 8);
  RowReader reader(bitmap, stretch.column, (offset + stretch.pixels + 7) / 8);
  const uint8_t* packed = nullptr;
  if (!IsRow(bitmap, stretch.row) && !HasRowCallbacks(bitmap)) return kInvalidParameter;
  V_TRY(reader.Row(stretch.row, &packed));
  const auto pixels = static_cast<uint32_t>(stretch.pixels);
  const uint64_t most = MaxRecordBytes(pixels);
  if (capacity >= most)
    return static_cast<int64_t>(EncodeRecord(static_cast<uint8_t*>(record), packed, offset, pixels));
  const Buffer<uint8_t> made(most);
  if (!made) return kNoMemory;
  EncodeRecord(made.data(), packed, offset, pixels);
  return HandOut(made.data(), record, capacity);
}

int64_t PutStretch(BITMAPHANDLE& bitmap, const uint8_t* record, const Stretch& stretch) noexcept {
  const uint64_t bytes = (stretch.pixels + 7) / 8;
  const Buffer<uint8_t> packed(bytes);
  if (!packed) return kNoMemory;
  ExpandRecord(record, 0, packed.data(), bytes);
  const auto pixels = static_cast<int32_t>(stretch.pixels);
  const int64_t put = pixels == bitmap.Width ? PutRowPart(bitmap, packed.data(), {stretch.row, 0, bytes})
                                             : PutSegment(bitmap, {stretch.column, pixels, packed.data()}, stretch.row);
  if (put < 0) return put;
  const uint64_t touched = (static_cast<uint32_t>(stretch.column) % 8 + stretch.pixels + 7) / 8;
  return static_cast<uint64_t>(put) >= touched ? static_cast<int64_t>(RecordBytes(record)) : int64_t{kNoMemory};
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int64_t V_CALL V_GetBitmapRowCompressed(BITMAPHANDLE* bitmap, void* record, int32_t row, uint64_t capacity) noexcept {
  V_TRY(CheckCall(bitmap, record, "V_GetBitmapRowCompressed"));
  const Storage* storage = RecordStorage(*bitmap);
  if (!storage) return GetStretch(*bitmap, record, {row, 0, static_cast<uint32_t>(bitmap->Width)}, capacity);
  const uint8_t* held = IsRow(*bitmap, row) ? storage->recordAt(*bitmap, row) : nullptr;
  return held ? HandOut(held, record, capacity) : int64_t{kInvalidParameter};
}

int64_t V_CALL V_PutBitmapRowCompressed(BITMAPHANDLE* bitmap, const void* record, int32_t row, uint64_t size) noexcept {
  V_TRY(CheckCall(bitmap, record, "V_PutBitmapRowCompressed"));
  const auto* bytes = static_cast<const uint8_t*>(record);
  const auto width = static_cast<uint32_t>(bitmap->Width);
  V_TRY(CheckRuns(bytes, size, width));
  const Storage* storage = RecordStorage(*bitmap);
  if (!storage) return PutStretch(*bitmap, bytes, {row, 0, width});
  if (!IsRow(*bitmap, row)) return kInvalidParameter;
  V_TRY(storage->putRecord(*bitmap, row, bytes));
  UpdateDataSize(*bitmap, *storage);
  return static_cast<int64_t>(RecordBytes(bytes));
}

int64_t V_CALL V_GetBitmapRowColCompressed(BITMAPHANDLE* bitmap, void* record, int32_t row, int32_t column,
                                           uint64_t pixels) noexcept {
  V_TRY(CheckCall(bitmap, record, "V_GetBitmapRowColCompressed"));
  V_TRY(CheckStretch(*bitmap, {row, column, pixels}));
  return GetStretch(*bitmap, record, {row, column, pixels}, MaxRecordBytes(pixels));
}

int64_t V_CALL V_PutBitmapRowColCompressed(BITMAPHANDLE* bitmap, const void* record, int32_t row, int32_t column,
                                           uint64_t pixels) noexcept {
  V_TRY(CheckCall(bitmap, record, "V_PutBitmapRowColCompressed"));
  V_TRY(CheckStretch(*bitmap, {row, column, pixels}));
  const auto* bytes = static_cast<const uint8_t*>(record);
  V_TRY(CheckRuns(bytes, MaxRecordBytes(pixels), pixels));
  return PutStretch(*bitmap, bytes, {row, column, pixels});
}
