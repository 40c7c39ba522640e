// Copying a rectangle of pixels: only its own bytes are read.
#include <algorithm>
#include <cstring>

#include "common/packed.h"
#include "common/progress.h"
#include "krn/access.h"
#include "krn/bytecopy.h"
#include "krn/rowcopy.h"
#include "krn/rowview.h"

namespace vexakrn {
namespace {

// How pixels from `left` on come to the start of a row of their own.
class RowCutter {
 public:
  RowCutter(int32_t bits, int32_t left, int32_t width) noexcept
      : depth_(bits),
        // 12-bit pixels lie in pairs: an odd one is reached through its pair.
        column_(bits == 12 ? left / 2 * 2 : left),
        skip_(static_cast<uint32_t>(left - column_)),
        offset_(bits == 12 ? 0 : static_cast<uint32_t>(static_cast<uint64_t>(left) * static_cast<uint32_t>(bits) % 8)),
        width_(static_cast<uint32_t>(width)),
        bits_(uint64_t{width_} * static_cast<uint32_t>(bits)) {}

  int32_t Column() const noexcept { return column_; }
  uint64_t Bytes() const noexcept { return (bits_ + 7) / 8; }
  uint64_t SourceBytes() const noexcept {
    return (offset_ + bits_ + static_cast<uint64_t>(skip_) * static_cast<uint32_t>(depth_) + 7) / 8;
  }

  // Whole bytes that can be taken as they lie.
  bool IsPlain() const noexcept { return skip_ == 0 && offset_ == 0 && bits_ % 8 == 0; }

  void Cut(uint8_t* row, const uint8_t* source) const noexcept {
    if (depth_ != 12 || IsPlain()) return CopyBits(row, source, offset_, bits_);
    row[Bytes() - 1] = 0;
    for (uint32_t i = 0; i < width_; ++i) Packed<12>::Put(row, i, Packed<12>::Get(source, i + skip_));
  }

 private:
  const int32_t depth_, column_;
  const uint32_t skip_, offset_, width_;
  const uint64_t bits_;
};

// `line` is room for a row where the destination's are not in memory; null when plain bytes need none.
int32_t CutRow(BITMAPHANDLE& dst, int32_t row, const uint8_t* source, const RowCutter& cutter, uint8_t* line) noexcept {
  if (const RowSpan span = RowsInMemory(dst, row); span.data) {
    cutter.Cut(span.data, source);
    return kSuccess;
  }
  if (line) cutter.Cut(line, source);
  return PutWholeRowPart(dst, line ? line : source, {row, 0, cutter.Bytes()});
}

}  // namespace

int32_t CopyRectangle(BITMAPHANDLE& dst, BITMAPHANDLE& src, int32_t left, int32_t top,
                      const StatusCallbackPair& report) noexcept {
  AccessGuard from(src);
  V_TRY(from.Status());
  AccessGuard to(dst);
  V_TRY(to.Status());
  const RowCutter cutter(src.BitsPerPixel, left, dst.Width);
  RowReader reader(src, cutter.Column(), cutter.SourceBytes(), &dst);
  Buffer<uint8_t> line;
  if (!cutter.IsPlain()) {
    line.Reset(AllocateArray<uint8_t>(cutter.Bytes()));
    if (!line) return kNoMemory;
  }
  Progress progress(report, dst.Height);
  V_TRY(progress.Begin());
  for (int32_t row = 0; row < dst.Height; ++row) {
    const uint8_t* source = nullptr;
    V_TRY(reader.Row(top + row, &source));
    V_TRY(CutRow(dst, row, source, cutter, line.data()));
    V_TRY(progress.Advance(1));
  }
  V_TRY(to.Release());
  return from.Release();
}

}  // namespace vexakrn
