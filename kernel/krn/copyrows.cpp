// Pouring the rows of one bitmap into another.
//
// Run-length records go over as they are. Rows that lie in memory on both sides move in stretches, past the caches when
// there are many of them. All others go through the row functions, one at a time.
#include <algorithm>
#include <cstring>

#include "common/progress.h"
#include "krn/access.h"
#include "krn/bytecopy.h"
#include "krn/rowcopy.h"
#include "krn/rowview.h"
#include "krn/runs.h"

namespace vexakrn {
namespace {

bool CanMoveRecords(const BITMAPHANDLE& dst, const BITMAPHANDLE& src) noexcept {
  return StorageOf(src).recordAt && StorageOf(dst).putRecord && src.Width == dst.Width && !HasRowCallbacks(src) &&
         !HasRowCallbacks(dst);
}

int32_t MoveRecord(BITMAPHANDLE& dst, BITMAPHANDLE& src, int32_t row) noexcept {
  if (row >= dst.Height) return kInvalidParameter;
  const uint8_t* record = StorageOf(src).recordAt(src, row);
  if (!record) return kNoImage;
  const Storage& storage = StorageOf(dst);
  V_TRY(storage.putRecord(dst, row, record));
  UpdateDataSize(dst, storage);
  return kSuccess;
}

// A caller's own buffers may overlap: then the order of the rows decides.
bool Overlap(const uint8_t* a, const uint8_t* b, uint64_t bytes) noexcept { return a < b + bytes && b < a + bytes; }

// Moves rows that lie in memory in both bitmaps, at most `rows` of them. Returns their number; 0 when they do not.
int32_t MoveInMemory(BITMAPHANDLE& dst, BITMAPHANDLE& src, int32_t row, int32_t rows, uint64_t total) noexcept {
  if (dst.BytesPerLine != src.BytesPerLine) return 0;
  const RowSpan from = RowsInMemory(src, row);
  if (!from.data) return 0;
  const RowSpan to = RowsInMemory(dst, row);
  if (!to.data) return 0;
  const int32_t count = std::min({rows, from.rows, to.rows});
  const uint64_t bytes = static_cast<uint64_t>(src.BytesPerLine) * static_cast<uint32_t>(count);
  if (Overlap(to.data, from.data, bytes)) return 0;
  CopyBytes(to.data, from.data, bytes, total);
  return count;
}

int32_t MoveRow(BITMAPHANDLE& dst, RowReader& reader, int32_t row) noexcept {
  const uint8_t* line = nullptr;
  V_TRY(reader.Row(row, &line));
  return PutWholeRowPart(dst, line, {row, 0, dst.BytesPerLine});
}

int32_t MoveRows(BITMAPHANDLE& dst, BITMAPHANDLE& src, Progress& progress) noexcept {
  const uint64_t total = static_cast<uint64_t>(src.BytesPerLine) * static_cast<uint32_t>(src.Height);
  RowReader reader(src, 0, src.BytesPerLine, &dst, dst.BytesPerLine);
  V_TRY(progress.Begin());
  for (int32_t row = 0; row < src.Height;) {
    // The callback may change what it is told of: nothing is taken for granted from row to row.
    const bool records = CanMoveRecords(dst, src);
    const int32_t most = std::min(progress.StepsToNextCall(), src.Height - row);
    int32_t moved = records ? 0 : MoveInMemory(dst, src, row, most, total);
    if (moved == 0) {
      V_TRY(records ? MoveRecord(dst, src, row) : MoveRow(dst, reader, row));
      moved = 1;
    }
    row += moved;
    V_TRY(progress.Advance(moved));
  }
  return kSuccess;
}

}  // namespace

int32_t CopyRows(BITMAPHANDLE& dst, BITMAPHANDLE& src, const StatusCallbackPair& report) noexcept {
  AccessGuard from(src);
  V_TRY(from.Status());
  AccessGuard to(dst);
  V_TRY(to.Status());
  Progress progress(report, src.Height);
  V_TRY(MoveRows(dst, src, progress));
  V_TRY(to.Release());
  return from.Release();
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_CopyBitmapData(BITMAPHANDLE* dst, BITMAPHANDLE* src) noexcept {
  if (!dst || !src || !HasFlag(*dst, V_FlagAllocated) || !HasFlag(*src, V_FlagAllocated)) return kNoImage;
  if (dst == src) return kSuccess;
  V_TRY(CheckRecord(src));
  V_TRY(CheckRecord(dst));
  if (dst->Height < src->Height) return kInvalidParameter;
  return CopyRows(*dst, *src, ThreadSettings().copyStatus);
}
