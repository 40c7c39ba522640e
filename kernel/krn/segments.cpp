// Writing stretches of one row.
//
// Where a segment starts and ends on whole bytes of the row its data goes in as it is. Else its pixels are laid over
// the bytes that it touches, which are read first.
#include "krn/segments.h"

#include <cstring>

#include "common/buffer.h"
#include "common/packed.h"
#include "common/record.h"
#include "krn/rowcol.h"

namespace vexakrn {
namespace {

// The bytes of the row that a segment touches.
struct Span {
  int64_t firstByte;
  int64_t bytes;
  bool aligned;  // and fills, with its data in the same bit positions
};

Span SpanOf(const BITMAPROWSEGMENT& segment, int32_t bits) noexcept {
  const int64_t firstBit = static_cast<int64_t>(segment.column) * bits;
  const int64_t endBit = firstBit + static_cast<int64_t>(segment.pixels) * bits;
  const int64_t firstByte = firstBit / 8;
  return {firstByte, (endBit + 7) / 8 - firstByte, firstBit % 8 == 0 && endBit % 8 == 0};
}

bool IsInside(const BITMAPROWSEGMENT& segment, int32_t width) noexcept {
  return segment.column >= 0 && segment.pixels >= 0 && segment.column <= width &&
         segment.pixels <= width - segment.column && (segment.data || segment.pixels == 0);
}

// Lays the segment's pixels into `row`, which starts at pixel `origin`, a multiple of eight. Eight pixels fill whole
// bytes at every depth, so where the segment starts on such a boundary its groups of eight go in as they are.
void LayPixels(const BITMAPROWSEGMENT& segment, int32_t bits, int32_t origin, uint8_t* row) noexcept {
  const auto first = static_cast<uint32_t>(segment.column - origin), count = static_cast<uint32_t>(segment.pixels);
  const uint32_t done = first == 0 ? count / 8 * 8 : 0;
  std::memcpy(row, segment.data, static_cast<uint64_t>(done / 8) * static_cast<uint32_t>(bits));
  WithPacked(bits, [&](auto packed) {
    using Pixels = decltype(packed);
    for (uint32_t i = done; i < count; ++i) Pixels::Put(row, first + i, Pixels::Get(segment.data, i));
  });
}

}  // namespace

int64_t PutSegment(BITMAPHANDLE& bitmap, const BITMAPROWSEGMENT& segment, int32_t row) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  const Span span = SpanOf(segment, bits);
  const auto bytes = static_cast<uint64_t>(span.bytes);
  if (span.aligned) return PutRowPart(bitmap, segment.data, {row, segment.column, bytes});

  const int32_t origin = segment.column / 8 * 8;
  const auto lead =
      static_cast<uint64_t>(span.firstByte) - static_cast<uint64_t>(origin / 8) * static_cast<uint32_t>(bits);
  const Buffer<uint8_t> touched(lead + bytes);
  if (!touched) return kNoMemory;
  V_TRY(GetWholeRowPart(bitmap, touched.data(), {row, origin, lead + bytes}));
  LayPixels(segment, bits, origin, touched.data());
  return PutRowPart(bitmap, touched.data() + lead, {row, segment.column, bytes});
}

}  // namespace vexakrn

using namespace vexakrn;

int64_t V_CALL V_PutBitmapRowSegments(BITMAPHANDLE* bitmap, const BITMAPROWSEGMENT* segments, int32_t count,
                                      int32_t row) noexcept {
  if (count < 0) return kInvalidParameter;
  V_TRY(CheckRowCall(bitmap, segments, "V_PutBitmapRowSegments"));
  // A host that keeps the rows judges the row itself.
  const auto* callbacks = DataCallbacks(*bitmap);
  const bool hostKeepsRows = callbacks && callbacks->PutBitmapRowCol;
  if (!hostKeepsRows && (row < 0 || row >= bitmap->Height)) return kInvalidParameter;
  for (int32_t i = 0; i < count; ++i)
    if (!IsInside(segments[i], bitmap->Width)) return kInvalidParameter;

  int64_t written = 0;
  for (int32_t i = 0; i < count; ++i) {
    if (segments[i].pixels == 0) continue;
    const int64_t result = PutSegment(*bitmap, segments[i], row);
    if (result < 0) return result;
    written += result;
  }
  return written;
}
