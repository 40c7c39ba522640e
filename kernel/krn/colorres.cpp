// Whole bitmaps from one depth to another: to a palette by a dithering pass, else by conversion.
//
// The new bitmap is built aside; the caller's changes in the last step.
#include <algorithm>
#include <cstring>

#include "common/packed.h"
#include "common/progress.h"
#include "krn/access.h"
#include "krn/alloc.h"
#include "krn/colorvalue.h"
#include "krn/convert.h"
#include "krn/convertmatch.h"
#include "krn/dither.h"
#include "krn/duplicate.h"
#include "krn/quantize.h"
#include "krn/replace.h"
#include "krn/rowview.h"
#include "krn/samples.h"
#include "vexakrn/convert.h"
#include "vexakrn/copy.h"

namespace vexakrn {
namespace {

constexpr uint32_t kChoices = V_ColorResFixedPalette | V_ColorResOptimized | V_ColorResIdentity | V_ColorResUsePalette;
constexpr uint32_t kOptions = kChoices | V_ColorResFastMatch | V_ColorResSlowMatch | V_ColorResFavorPureColors;

// What is asked for, with its defaults in place.
struct Request {
  int32_t bits;
  uint32_t options;
  const RGBQUAD* palette;
  uint32_t* matchTable;
  uint32_t colors;
  bool gray;  // 8 bits of gray, asked for as 0 bits
};

int32_t CheckRequest(Request* request, int32_t colors) noexcept {
  request->gray = request->bits == 0;
  if (request->gray) request->bits = 8;
  if (!IsSupportedDepth(request->bits)) return kBitsPerPixel;
  if ((request->options & ~kOptions) != 0 || colors < 0) return kInvalidParameter;
  uint32_t choice = request->options & kChoices;
  if ((choice & (choice - 1)) != 0) return kInvalidParameter;
  if (choice == 0) request->options |= choice = request->palette ? V_ColorResUsePalette : V_ColorResFixedPalette;
  if (request->bits > 8) return kSuccess;
  if (choice == V_ColorResUsePalette && !request->palette) return kInvalidParameter;
  const uint32_t most = 1u << request->bits;
  request->colors = colors == 0 ? most : static_cast<uint32_t>(colors);
  return request->colors <= most ? kSuccess : kInvalidParameter;
}

// The order of a deeper result: that of the source where the depth can have it.
int32_t ResultOrder(const BITMAPHANDLE& src, int32_t bits) noexcept {
  if (bits == 12) return V_OrderGray;
  switch (src.Order) {
    case V_OrderGray:
      return bits == 16 ? V_OrderGray : V_OrderBgr;
    case V_OrderRomm:
      return bits == 24 || bits == 48 ? V_OrderRomm : V_OrderBgr;
    case V_OrderRgb565:
      return bits == 16 ? V_OrderRgb565 : V_OrderBgr;
    default:
      return src.BitsPerPixel > 8 ? src.Order : V_OrderBgr;
  }
}

LineFormat FormatOf(const BITMAPHANDLE& bitmap) noexcept {
  const int32_t order = bitmap.BitsPerPixel == 12 ? int32_t{V_OrderGray} : int32_t{bitmap.Order};
  return {bitmap.BitsPerPixel, order, bitmap.pPalette, nullptr};
}

// The source's palette with as many entries as its depth can name, black where it has none.
struct FullPalette {
  explicit FullPalette(const BITMAPHANDLE& bitmap) noexcept {
    const auto count = static_cast<uint32_t>(std::clamp<int32_t>(bitmap.nColors, 0, kMaxColors));
    if (bitmap.pPalette) std::memcpy(entries, bitmap.pPalette, count * sizeof(RGBQUAD));
    given = bitmap.pPalette != nullptr;
  }
  const RGBQUAD* get() const noexcept { return given ? entries : nullptr; }
  RGBQUAD entries[kMaxColors] = {};
  bool given;
};

ConversionRequest Conversion(const BITMAPHANDLE& src, const RGBQUAD* palette, const LineFormat& to) noexcept {
  ConversionRequest request{};
  request.source = FormatOf(src);
  request.source.palette = palette;
  request.destination = to;
  request.color = 0xFF000000;  // opaque where alpha is new
  request.flags = V_ConvertAlphaInit;
  request.lowBit = request.highBit = -1;
  if (HasGraySamples(src.BitsPerPixel, src.Order) && to.bits != src.BitsPerPixel) {  // the same depth keeps its range
    const GrayRange range = SampleRange(src.BitsPerPixel, src.LowBit, src.HighBit);
    request.flags |= V_ConvertSourceUseBits;
    request.lowBit = range.low;
    request.highBit = range.low + range.bits - 1;
  }
  return request;
}

// Rows of a bitmap as 24-bit colour, blue first.
class ColorRows {
 public:
  explicit ColorRows(const BITMAPHANDLE& src) noexcept : palette_(src), width_(src.Width) {
    if (src.BitsPerPixel == 24 && src.Order == V_OrderBgr) return;  // they are that already
    line_.Reset(AllocateArray<uint8_t>(V_CalcConvertSize(src.Width, src.BitsPerPixel, src.Width, 24)));
    status_ = line_ ? toColor_.Prepare(Conversion(src, palette_.get(), {24, V_OrderBgr, nullptr, nullptr}))
                    : int32_t{kNoMemory};
  }
  int32_t Status() const noexcept { return status_; }

  // Valid until the next row is asked for.
  int32_t Row(const uint8_t* source, const uint8_t** colors) noexcept {
    *colors = line_ ? line_.data() : source;
    return line_ ? toColor_.Run(line_.data(), source, width_) : int32_t{kSuccess};
  }

 private:
  const FullPalette palette_;
  const int32_t width_;
  Buffer<uint8_t> line_;  // none where the rows are such colour themselves
  LineConversion toColor_;
  int32_t status_ = kSuccess;
};

// --- the palette of a result ---------------------------------------------------------------------------------------------

struct ResultPalette {
  RGBQUAD entries[kMaxColors];
  uint32_t colors;
};

// What a histogram gets to see of large pictures: one of so many rows, and of so many pixels of a row.
struct Sampling {
  uint64_t rows, columns;
};

// One of `count` places, scattered from one group of places to the next, so that no pattern of the picture is missed.
uint64_t Scatter(uint64_t group, uint64_t count) noexcept { return (group * 0x9E3779B97F4A7C15u >> 32) * count >> 32; }

Sampling SamplingOf(const BITMAPHANDLE* bitmaps, uint32_t count) noexcept {
  const auto most = ColorHistogram::kMostPixels;
  const auto total = [&](uint64_t step) noexcept {
    uint64_t pixels = 0;
    for (uint32_t i = 0; i < count; ++i)
      pixels += (static_cast<uint32_t>(bitmaps[i].Height) + step - 1) / step * static_cast<uint32_t>(bitmaps[i].Width);
    return pixels;
  };
  const uint64_t step = (total(1) + most - 1) / most;
  return {step, (total(step) + most - 1) / most};  // of low pictures all rows may be left
}

int32_t CountColors(BITMAPHANDLE& src, const Sampling& sampling, ColorHistogram& histogram) noexcept {
  AccessGuard access(src);
  V_TRY(access.Status());
  ColorRows rows(src);
  V_TRY(rows.Status());
  RowReader reader(src, 0, src.BytesPerLine);
  const auto width = static_cast<uint32_t>(src.Width), height = static_cast<uint32_t>(src.Height);
  for (uint64_t first = 0, group = 0; first < height; first += sampling.rows, ++group) {
    const uint64_t row = first + Scatter(group, std::min(sampling.rows, height - first));
    const uint64_t column = Scatter(group, std::min<uint64_t>(sampling.columns, width));
    const uint8_t *source = nullptr, *colors = nullptr;
    V_TRY(reader.Row(static_cast<int32_t>(row), &source));
    V_TRY(rows.Row(source, &colors));
    histogram.Add(colors + 3 * column, width - column, sampling.columns);
  }
  return access.Release();
}

// One palette for all of the bitmaps.
int32_t OptimizePalette(BITMAPHANDLE* bitmaps, uint32_t count, const Request& request, ResultPalette* result) noexcept {
  ColorHistogram histogram;
  V_TRY(histogram.Allocate());
  const Sampling sampling = SamplingOf(bitmaps, count);
  for (uint32_t i = 0; i < count; ++i) V_TRY(CountColors(bitmaps[i], sampling, histogram));
  const bool pure = (request.options & V_ColorResFavorPureColors) != 0;
  return histogram.MakePalette(request.colors, pure, result->entries, &result->colors);
}

int32_t ChoosePalette(BITMAPHANDLE* bitmaps, uint32_t count, const Request& request, ResultPalette* result) noexcept {
  const auto take = [&](const RGBQUAD* palette, uint32_t colors) noexcept {
    std::memcpy(result->entries, palette, colors * sizeof(RGBQUAD));
    result->colors = colors;
    return int32_t{kSuccess};
  };
  switch (request.options & kChoices) {
    case V_ColorResOptimized:
      return OptimizePalette(bitmaps, count, request, result);
    case V_ColorResUsePalette:
      return take(request.palette, request.colors);
    case V_ColorResIdentity: {
      const BITMAPHANDLE& first = bitmaps[0];
      const bool fits = first.pPalette && first.nColors > 0 && first.nColors <= 1 << request.bits;
      return fits ? take(first.pPalette, static_cast<uint32_t>(first.nColors)) : int32_t{kInvalidParameter};
    }
    default:
      return take(FixedPalette(static_cast<uint32_t>(request.bits)), request.colors);
  }
}

// --- rows ------------------------------------------------------------------------------------------------------------------

// Calls `work(source, destination, count)` for blocks of at most `most` rows.
template <typename Work>
int32_t ForRows(BITMAPHANDLE& src, BITMAPHANDLE& dst, int32_t most, Progress& progress, Work work) noexcept {
  AccessGuard from(src);
  V_TRY(from.Status());
  AccessGuard to(dst);
  V_TRY(to.Status());
  RowBlockReader reader(src, most);
  RowBlockWriter writer(dst, most);
  for (int32_t row = 0; row < src.Height; row += most) {
    const int32_t count = std::min(most, src.Height - row);
    const uint8_t* source = nullptr;
    V_TRY(reader.Rows(row, count, &source));
    uint8_t* room = writer.Room(row, count);
    if (!room) return kNoMemory;
    V_TRY(work(source, room, count));
    V_TRY(writer.Put(row, count));
    for (int32_t i = 0; i < count; ++i) V_TRY(progress.Advance(1));
  }
  V_TRY(to.Release());
  return from.Release();
}

int32_t ConvertRows(BITMAPHANDLE& src, BITMAPHANDLE& dst, const LineFormat& to, Progress& progress) noexcept {
  const FullPalette palette(src);
  LineConversion conversion;
  V_TRY(conversion.Prepare(Conversion(src, palette.get(), to)));
  const uint64_t from = src.BytesPerLine, pitch = dst.BytesPerLine, total = pitch * static_cast<uint32_t>(dst.Height);
  const int32_t width = src.Width;
  const auto most = static_cast<int32_t>(std::clamp<uint64_t>((1u << 20) / std::max<uint64_t>(pitch, 1), 1, 256));
  return ForRows(src, dst, most, progress, [&](const uint8_t* source, uint8_t* room, int32_t count) noexcept {
    return conversion.RunLines(room, pitch, source, from, width, count, total);
  });
}

// The entries that may be chosen, and which they are.
struct Candidates {
  explicit Candidates(const ResultPalette& palette) noexcept {
    for (uint32_t i = 0; i < palette.colors; ++i) {
      if (IsBarred(palette.entries[i])) continue;
      entries[count] = palette.entries[i];
      index[count++] = static_cast<uint8_t>(i);
    }
  }
  RGBQUAD entries[kMaxColors];
  uint8_t index[kMaxColors];
  uint32_t count = 0;
};

// Each pixel becomes the entry that is exactly nearest.
int32_t MatchRows(BITMAPHANDLE& src, BITMAPHANDLE& dst, const ResultPalette& result, Progress& progress) noexcept {
  const Candidates candidates(result);
  if (candidates.count == 0) return kInvalidParameter;
  ColorRows rows(src);
  V_TRY(rows.Status());
  const auto width = static_cast<uint32_t>(src.Width);
  ColorMatch match(candidates.entries, candidates.count);
  return ForRows(src, dst, 1, progress, [&](const uint8_t* source, uint8_t* room, int32_t) noexcept -> int32_t {
    const uint8_t* colors = nullptr;
    V_TRY(rows.Row(source, &colors));
    const auto fill = [&](auto put) noexcept {
      const uint8_t* bgr = colors;
      for (uint32_t x = 0; x < width; ++x, bgr += 3) put(x, candidates.index[match.Find(bgr[2], bgr[1], bgr[0])]);
    };
    const bool packed = WithPacked(dst.BitsPerPixel, [&](auto pixels) {
      fill([&](uint32_t x, uint32_t index) noexcept { decltype(pixels)::Put(room, x, index); });
    });
    if (!packed) fill([&](uint32_t x, uint32_t index) noexcept { room[x] = static_cast<uint8_t>(index); });
    return kSuccess;
  });
}

int32_t DitherRows(BITMAPHANDLE& src, BITMAPHANDLE& dst, const Request& request, const ResultPalette& result,
                   Progress& progress) noexcept {
  const FullPalette palette(src);
  const DitherRequest pass{src.Width,
                           src.BitsPerPixel,
                           src.Order,
                           palette.get(),
                           kMaxColors,
                           src.LowBit,
                           src.HighBit,
                           src.DitherMethod,
                           result.entries,
                           result.colors,
                           static_cast<uint32_t>(request.bits),
                           request.matchTable};
  DitherContext* context = nullptr;
  V_TRY(StartPass(pass, &context));
  constexpr uint64_t kMostBytes = 16u << 20;  // of a block of rows, which may need buffers
  const uint64_t from = src.BytesPerLine, to = dst.BytesPerLine;
  const auto lines =
      static_cast<int32_t>(std::clamp<uint64_t>(kMostBytes / std::max<uint64_t>(from + to, 1), 1, kDitherLines));
  const int32_t status =
      ForRows(src, dst, lines, progress, [&](const uint8_t* source, uint8_t* room, int32_t count) noexcept {
        DitherNextLines(*context, source, from, room, to, count);
        return int32_t{kSuccess};
      });
  StopPass(context);
  return status;
}

// --- the result ------------------------------------------------------------------------------------------------------------

uint32_t ResultMemory(const BITMAPHANDLE& src, int32_t bits) noexcept {
  switch (const uint32_t type = MemoryTypeOf(src)) {
    case V_MemoryUser:
      return V_MemoryConventional;
    case V_MemoryCompressed:
      return bits == 1 ? type : uint32_t{V_MemoryConventional};
    case V_MemorySuperCompressed:
      return bits == 1 || bits == 8 || bits == 24 ? type : uint32_t{V_MemoryConventional};
    default:
      return type;
  }
}

// The record of a result, not allocated: of the same depth beyond palettes it keeps all that goes with its pixels.
int32_t InitResult(BITMAPHANDLE& made, BITMAPHANDLE& src, uint32_t structSize, int32_t bits) noexcept {
  if (bits > 8 && bits == src.BitsPerPixel)
    return V_DupBitmapNewDim(&made, &src, structSize, src.Width, src.Height, bits);
  V_TRY(InitOtherFormat(&made, src, structSize, src.Width, src.Height, bits));
  if (bits > 8) made.Order = ResultOrder(src, bits);
  return kSuccess;
}

// An index of the source's palette becomes what shows the same colour.
int32_t FrameColor(BITMAPHANDLE& made, BITMAPHANDLE& src, int32_t color) noexcept {
  const auto value = static_cast<uint32_t>(color);
  return KindOf(value) == ColorKind::Index ? static_cast<int32_t>(V_TranslateBitmapColor(&made, &src, value)) : color;
}

int32_t FillResult(BITMAPHANDLE& made, BITMAPHANDLE& src, const Request& request, const ResultPalette& palette,
                   Progress& progress) noexcept {
  if (request.gray) {
    V_TRY(V_CreateBitmapGrayPalette(&made));
  } else if (request.bits <= 8) {
    V_TRY(V_SetBitmapNewPalette(&made, palette.entries, palette.colors));
  }
  made.Background = FrameColor(made, src, src.Background);
  made.Transparency = FrameColor(made, src, src.Transparency);
  V_TRY(AllocateBitmap(made, ResultMemory(src, request.bits), nullptr, ThreadTileSettings()));
  if (request.gray) return ConvertRows(src, made, {8, V_OrderGray, nullptr, nullptr}, progress);
  if (request.bits > 8) return ConvertRows(src, made, FormatOf(made), progress);
  const bool exact = (request.options & V_ColorResSlowMatch) != 0 && src.DitherMethod == V_DitheringNone;
  return exact ? MatchRows(src, made, palette, progress) : DitherRows(src, made, request, palette, progress);
}

// Makes a bitmap of `src` in the new format; an empty record after a failure.
int32_t MakeResult(BITMAPHANDLE& made, BITMAPHANDLE& src, uint32_t structSize, const Request& request,
                   const ResultPalette& palette, Progress& progress) noexcept {
  int32_t status = InitResult(made, src, structSize, request.bits);
  if (status == kSuccess) {
    status = FillResult(made, src, request, palette, progress);
    if (status != kSuccess) V_FreeBitmap(&made);
  }
  if (status != kSuccess) V_InitBitmap(&made, structSize, 0, 0, 0);
  return status;
}

// Overlays stay with the picture.
void MoveOverlays(BITMAPHANDLE& from, BITMAPHANDLE& to) noexcept {
  to.Overlays = from.Overlays;
  from.Overlays = nullptr;
}

int32_t ConvertList(HBITMAPLIST list, BITMAPHANDLE* items, BITMAPHANDLE* made, uint32_t count,
                    const Request& request) noexcept {
  ResultPalette palette;
  if (request.bits <= 8 && !request.gray) V_TRY(ChoosePalette(items, count, request, &palette));
  int64_t rows = 0;
  for (uint32_t i = 0; i < count; ++i) rows += items[i].Height;
  Progress progress(ThreadSettings().status, rows);
  V_TRY(progress.Begin());
  for (uint32_t i = 0; i < count; ++i)
    V_TRY(MakeResult(made[i], items[i], V_BITMAPHANDLE_SIZE, request, palette, progress));
  for (uint32_t i = 0; i < count; ++i) {  // nothing can fail any more
    MoveOverlays(items[i], made[i]);
    V_SetBitmapListItem(list, i, &items[i]);  // the same item, without them
    V_SetBitmapListItem(list, i, &made[i]);
    made[i] = {};
  }
  return kSuccess;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_ColorResBitmap(BITMAPHANDLE* src, BITMAPHANDLE* dst, uint32_t structSize, int32_t bitsPerPixel,
                                uint32_t options, const RGBQUAD* palette, uint32_t* matchTable,
                                int32_t colors) noexcept {
  V_TRY(CheckRecord(src));
  V_TRY(CheckAllocated(*src));
  const bool inPlace = !dst || dst == src;
  if (!inPlace && !IsStructSize(structSize)) return kInvalidStructSize;
  Request request{bitsPerPixel, options, palette, matchTable, 0, false};
  V_TRY(CheckRequest(&request, colors));
  ResultPalette result;
  if (request.bits <= 8 && !request.gray) V_TRY(ChoosePalette(src, 1, request, &result));
  Progress progress(ThreadSettings().status, src->Height);
  V_TRY(progress.Begin());
  BITMAPHANDLE made;
  V_TRY(MakeResult(made, *src, inPlace ? src->uStructSize : structSize, request, result, progress));
  if (inPlace) {
    MoveOverlays(*src, made);
    TakePlace(*src, made);
  } else {
    std::memcpy(dst, &made, structSize);
  }
  return kSuccess;
}

int32_t V_CALL V_ColorResBitmapListExt(HBITMAPLIST list, int32_t bitsPerPixel, uint32_t options, const RGBQUAD* palette,
                                       uint32_t* matchTable, int32_t colors) noexcept {
  uint32_t count = 0;
  V_TRY(V_GetBitmapListCount(list, &count));
  Request request{bitsPerPixel, options, palette, matchTable, 0, false};
  V_TRY(CheckRequest(&request, colors));
  if (count == 0) return kSuccess;
  const Buffer<BITMAPHANDLE> items(count);
  Buffer<BITMAPHANDLE> made;
  made.Reset(AllocateZeroed<BITMAPHANDLE>(count));
  if (!items || !made) return kNoMemory;
  for (uint32_t i = 0; i < count; ++i) {
    V_TRY(V_GetBitmapListItem(list, i, &items[i], V_BITMAPHANDLE_SIZE));
    V_TRY(CheckAllocated(items[i]));
  }
  const int32_t status = ConvertList(list, items.data(), made.data(), count, request);
  for (uint32_t i = 0; i < count; ++i) V_FreeBitmap(&made[i]);
  return status;
}
