// How a pair of formats is converted: the checks, the layouts on both sides, and the way from one to the other.
//
// Values keep 8 bits where either side has no more, and 16 where both have: gray of more than 8 bits and colour of 16 bits
// a component. Narrowing keeps the top bits, widening repeats them. Luminance is that of components of 8 bits.
#include "krn/convertplan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "common/buffer.h"
#include "common/cpu.h"
#include "common/record.h"

namespace vexakrn {
namespace {

// --- formats ---

constexpr int32_t kDepths = 65, kOrders = 8;

// The layout of an order at a depth; none where they do not go together. Below 8 bits there is a palette,
// be the order Rgb, Bgr or Gray.
constexpr Layout LayoutAt(int32_t bits, int32_t order) {
  if (order == V_OrderRomm) return bits == 24 ? Layout::Romm24 : bits == 48 ? Layout::Romm48 : Layout::None;
  if (order == V_OrderRgb565) return bits == 16 ? Layout::Rgb565 : Layout::None;
  if (order > V_OrderGray) return Layout::None;
  if (bits >= 1 && bits <= 7) return static_cast<Layout>(static_cast<int32_t>(Layout::Bits1) + bits - 1);
  if (order == V_OrderGray)
    return bits == 8 ? Layout::Gray8 : bits == 12 ? Layout::Gray12 : bits == 16 ? Layout::Gray16 : Layout::None;
  switch (bits) {
    case 8:
      return Layout::Index8;
    case 16:
      return Layout::Rgb555;
    case 24:
      return order == V_OrderBgr ? Layout::Bgr24 : Layout::Rgb24;
    case 32:
      return order == V_OrderBgr ? Layout::Bgr32 : Layout::Rgb32;
    case 48:
      return order == V_OrderBgr ? Layout::Bgr48 : Layout::Rgb48;
    case 64:
      return order == V_OrderBgr ? Layout::Bgr64 : Layout::Rgb64;
    default:
      return Layout::None;
  }
}

constexpr auto kLayoutTable = [] {
  std::array<std::array<Layout, kOrders>, kDepths> table{};
  for (int32_t bits = 0; bits < kDepths; ++bits)
    for (int32_t order = 0; order < kOrders; ++order)
      table[static_cast<size_t>(bits)][static_cast<size_t>(order)] = LayoutAt(bits, order);
  return table;
}();

Layout LayoutOf(const LineFormat& format) noexcept {
  const auto bits = static_cast<uint32_t>(format.bits), order = static_cast<uint32_t>(format.order);
  return bits < kDepths && order < kOrders ? kLayoutTable[bits][order] : Layout::None;
}

constexpr bool HasPalette(Layout layout) noexcept { return layout <= Layout::Index8; }
constexpr bool IsGray(Layout layout) noexcept { return layout >= Layout::Gray8 && layout <= Layout::WordOut16; }

int32_t CheckRequest(const ConversionRequest& request, Layout from) noexcept {
  const LineFormat &source = request.source, &destination = request.destination;
  if ((request.flags & V_ConvertDestinationUseBits) != 0) {
    if (destination.order != V_OrderGray) return kInvalidParameter;
    if (source.order == V_OrderGray && (request.flags & V_ConvertSourceUseBits) != 0) return kInvalidParameter;
  }
  return from == Layout::None && source.bits != 0 ? kInvalidParameter : kSuccess;
}

// Of a destination that has no layout.
int32_t StatusOfNone(const LineFormat& destination) noexcept {
  const bool onlyRomm =
      destination.order == V_OrderRomm && destination.bits != 12 && IsSupportedDepth(destination.bits);
  return onlyRomm ? kFeatureNotSupported : kInvalidParameter;
}

// The bits that hold gray; false for a range that leaves the pixel. A negative end means the pixel's own.
bool SetRange(Layout layout, const LineFormat& format, const ConversionRequest& request, uint32_t flag,
              GrayRange* range) noexcept {
  *range = {0, format.bits};
  if ((request.flags & flag) == 0 || (layout != Layout::Gray12 && layout != Layout::Gray16)) return true;
  const int32_t low = std::max(request.lowBit, 0);
  const int32_t high = request.highBit < 0 ? format.bits - 1 : request.highBit;
  *range = {low, high - low + 1};
  return low <= high && high < format.bits;
}

bool IsBlackAndWhite(const RGBQUAD* palette, uint32_t white) noexcept {
  constexpr uint8_t kBlack[3] = {0, 0, 0}, kWhite[3] = {255, 255, 255};
  return std::memcmp(palette + white, kWhite, 3) == 0 && std::memcmp(palette + (white ^ 1), kBlack, 3) == 0;
}

// --- the way through the hub ---

// The neighbours of the layouts outside it; the layout itself for those inside.
Layout HubOfSource(Layout from, bool deepGray) noexcept {
  switch (from) {
    case Layout::Gray12:
      return Layout::WordIn16;
    case Layout::WordIn16:
      return deepGray ? Layout::Gray16 : Layout::Gray8;
    case Layout::Rgb555:
    case Layout::Rgb565:
    case Layout::Bgr24:
    case Layout::Rgb24:
    case Layout::Rgb32:
      return Layout::Bgr32;
    case Layout::Bgr48:
    case Layout::Rgb48:
    case Layout::Rgb64:
      return Layout::Bgr64;
    case Layout::Romm24:
      return Layout::Bgr24;
    case Layout::Romm48:
      return Layout::Bgr48;
    default:
      return HasPalette(from) ? Layout::Index8 : from;
  }
}

Layout HubOfDestination(Layout to, bool deepGray) noexcept {
  switch (to) {
    case Layout::Mono1:
      return Layout::Gray8;
    case Layout::Gray12:
      return Layout::WordOut16;
    case Layout::WordOut16:
      return deepGray ? Layout::Gray16 : Layout::Gray8;
    default:
      return HasPalette(to) ? Layout::Match8 : HubOfSource(to, deepGray);
  }
}

// The stop between two layouts of the hub that have no step: 16-bit values to what has 8 by way of 8 of the same kind.
Layout StopBetween(Layout from, Layout to) noexcept {
  if (from == Layout::Gray16) return Layout::Gray8;
  if (from == Layout::Bgr64) return Layout::Bgr32;
  return to == Layout::Gray16 ? Layout::Gray8 : Layout::Bgr32;
}

// A direct lane where the processor's table, or one below it, has one.
ConvertStep FindStep(Layout from, Layout to) noexcept {
  const CpuLevel level = ActiveCpuLevel();
  ConvertStep step = nullptr;
  if (level >= CpuLevel::Avx512) step = kConvertStepsAvx512.Get(from, to);
  if (!step && level >= CpuLevel::Avx2) step = kConvertStepsAvx2.Get(from, to);
  return step ? step : kConvertStepsScalar.Get(from, to);
}

constexpr size_t kStrip = 512;  // pixels; a multiple of 8, so that strips of packed pixels begin with whole bytes

// From these sizes on a result pays to be written past the caches. In place they hold part of it already, all of it where
// no pixel changes its size.
constexpr uint64_t kPastCaches = 12u << 20, kPastCachesInPlace = 32u << 20;
constexpr size_t kCacheLine = 64;

constexpr size_t BytesFor(size_t pixels, size_t bits) noexcept { return (pixels * bits + 7) / 8; }

}  // namespace

void ConvertPlan::AddSteps(Layout from, Layout to) noexcept {
  if (const ConvertStep step = FindStep(from, to)) {
    steps_[count_++] = step;
    return;
  }
  Layout last = HubOfDestination(to, deepSource_ && context_.destination.bits > 8);
  if (last == Layout::Bgr64 && !deepSource_ && FindStep(Layout::Bgr32, to)) last = Layout::Bgr32;
  Layout stop = FindStep(from, last) ? last : HubOfSource(from, deepSource_);
  if (stop == from) stop = last;
  if (stop == to) stop = StopBetween(from, to);
  AddSteps(from, stop);
  AddSteps(stop, to);
}

void ConvertPlan::SetSourcePalette(Layout from, Layout to, const LineFormat& source) noexcept {
  const auto bits = static_cast<uint32_t>(source.bits);
  const size_t bytes = sizeof(RGBQUAD) << bits;
  context_.palette = source.palette ? source.palette : FixedPalette(bits);
  context_.colors = 1u << bits;
  // Steps from bytes to colour may read whole palettes; direct lanes of bits, gray and matching do not.
  if (bits < 8 && !HasPalette(to) && !IsGray(to) && !FindStep(from, to)) {
    std::memcpy(colors_, context_.palette, bytes);
    std::memset(colors_ + context_.colors, 0, sizeof colors_ - bytes);
    context_.palette = colors_;
  }
  if (!IsGray(to)) return;
  std::memset(context_.grayOfIndex, 0, 16);  // which steps may read as one
  FindStep(Layout::Bgr32, Layout::Gray8)(context_.grayOfIndex, reinterpret_cast<const uint8_t*>(context_.palette),
                                         context_.colors, context_);
}

// The step to the destination's palette. Few values of a palette or of gray are matched one by one; colours get a table.
int32_t ConvertPlan::SetMatch(Layout from, const LineFormat& destination, Layout* to) noexcept {
  const auto bits = static_cast<uint32_t>(destination.bits), colors = 1u << bits;
  const RGBQUAD* palette = destination.palette ? destination.palette : FixedPalette(bits);
  if (*to == Layout::Index8) *to = Layout::Match8;
  if (from == Layout::Bits1) {
    for (uint32_t bit = 0; bit < 2; ++bit) {
      const RGBQUAD color = context_.palette[bit];
      context_.matchOfBit[bit] =
          static_cast<uint8_t>(V_FindPaletteIndex(palette, colors, color.rgbRed, color.rgbGreen, color.rgbBlue));
    }
  } else if (IsGray(from) && bits == 1 && (IsBlackAndWhite(palette, 0) || IsBlackAndWhite(palette, 1))) {
    *to = Layout::Mono1;
    context_.whiteBit = IsBlackAndWhite(palette, 1) ? 1 : 0;
  } else if (HasPalette(from) || IsGray(from)) {
    context_.indexMatch = &indexMatch_;
    indexMatch_.Set(HasPalette(from) ? context_.palette : nullptr, palette, colors);
  } else {
    void* memory = platform::System().allocate(sizeof(ColorMatch));
    if (!memory) return kNoMemory;
    context_.colorMatch = colorMatch_ = ::new (memory) ColorMatch(palette, colors);
  }
  return kSuccess;
}

int32_t ConvertPlan::Make(const ConversionRequest& request) noexcept {
  const LineFormat &source = request.source, &destination = request.destination;
  Layout from = LayoutOf(source), to = LayoutOf(destination);
  V_TRY(CheckRequest(request, from));
  if (!SetRange(from, source, request, V_ConvertSourceUseBits, &context_.source) ||
      !SetRange(to, destination, request, V_ConvertDestinationUseBits, &context_.destination))
    return kInvalidParameter;
  if (to == Layout::None) return StatusOfNone(destination);
  if (source.bits == 0) {
    count_ = kNothing;
    return kSuccess;
  }
  context_.sourceTable = from == Layout::Gray16 ? source.table : nullptr;
  context_.destinationTable = to == Layout::Gray16 ? destination.table : nullptr;
  context_.pastCaches = false;
  context_.alpha = static_cast<uint8_t>((request.flags & V_ConvertAlphaInit) != 0 ? request.color >> 24 : 0);
  sourceBits_ = source.bits;
  destinationBits_ = destination.bits;
  deepSource_ = IsGray(from) ? context_.source.bits > 8 || context_.sourceTable : from >= Layout::Bgr48 && !IsGray(to);

  const bool plainSource = context_.source.bits == source.bits && !context_.sourceTable;
  const bool plainDestination = context_.destination.bits == destination.bits && !context_.destinationTable;
  if (from == to && plainSource && plainDestination && !HasPalette(from)) return kSuccess;
  if (from == Layout::Gray16 && !plainSource) from = Layout::WordIn16;
  if (to == Layout::Gray16 && !plainDestination) to = Layout::WordOut16;
  if (source.order == V_OrderRomm && destination.order == V_OrderRomm) {  // of two depths: no colour changes
    from = source.bits == 24 ? Layout::Bgr24 : Layout::Bgr48;
    to = destination.bits == 24 ? Layout::Bgr24 : Layout::Bgr48;
  }
  if (HasPalette(from)) SetSourcePalette(from, to, source);
  if (HasPalette(to)) V_TRY(SetMatch(from, destination, &to));
  AddSteps(from, to);
  return kSuccess;
}

// --- lines ---

void ConvertPlan::Run(uint8_t* destination, const uint8_t* source, size_t pixels) const noexcept {
  if (count_ == 1) [[likely]] {
    steps_[0](destination, source, pixels, context_);
  } else if (count_ > 1) {
    RunStrips(destination, source, pixels);
  } else if (count_ == 0 && destination != source) {
    std::memcpy(destination, source, BytesFor(pixels, static_cast<size_t>(sourceBits_)));
  }
}

// The pixels before the first one that starts both a line of the caches and a byte of the source; all where there is none.
size_t ConvertPlan::PixelsToCacheLine(const uint8_t* destination, size_t pixels) const noexcept {
  const auto bits = static_cast<size_t>(destinationBits_), step = static_cast<size_t>(sourceBits_ % 8 == 0 ? 1 : 8);
  for (size_t i = 0; i < std::min(pixels, 8 * kCacheLine); i += step)
    if ((reinterpret_cast<uintptr_t>(destination) * 8 + i * bits) % (8 * kCacheLine) == 0) return i;
  return pixels;
}

// Lines without gaps are one line.
void ConvertPlan::RunLines(uint8_t* destination, uint64_t destinationPitch, const uint8_t* source, uint64_t sourcePitch,
                           size_t pixels, size_t lines, uint64_t total) noexcept {
  const auto from = static_cast<size_t>(sourceBits_), to = static_cast<size_t>(destinationBits_);
  const bool inPlace = destination == source;
  if (lines > 1 && destinationPitch * 8 == pixels * to && sourcePitch * 8 == pixels * from) {
    pixels *= lines;
    lines = 1;
  }
  context_.pastCaches =
      count_ == 1 && total >= (inPlace ? kPastCachesInPlace : kPastCaches) && !(inPlace && from == to);
  for (; lines > 0; --lines, destination += destinationPitch, source += sourcePitch) {
    const size_t lead = context_.pastCaches ? PixelsToCacheLine(destination, pixels) : 0;
    const bool leadLast = inPlace && to > from;
    if (lead > 0 && !leadLast) Run(destination, source, lead);
    if (lead < pixels) Run(destination + BytesFor(lead, to), source + BytesFor(lead, from), pixels - lead);
    if (lead > 0 && leadLast) Run(destination, source, lead);
  }
  context_.pastCaches = false;
}

// In place, where each pixel grows, the last strip comes first. Not inlined: the strip is of no use to single steps.
[[gnu::noinline]] void ConvertPlan::RunStrips(uint8_t* destination, const uint8_t* source,
                                              size_t pixels) const noexcept {
  const size_t strips = (pixels + kStrip - 1) / kStrip;
  const bool backward = destination == source && destinationBits_ > sourceBits_;
  for (size_t i = 0; i < strips; ++i) {
    const size_t at = (backward ? strips - 1 - i : i) * kStrip;
    RunStrip(destination + BytesFor(at, static_cast<size_t>(destinationBits_)),
             source + BytesFor(at, static_cast<size_t>(sourceBits_)), std::min(kStrip, pixels - at));
  }
}

// The first step reads all of the source before the last one writes.
void ConvertPlan::RunStrip(uint8_t* destination, const uint8_t* source, size_t pixels) const noexcept {
  alignas(64) uint8_t strip[8 * kStrip];
  steps_[0](strip, source, pixels, context_);
  for (int32_t i = 1; i < count_ - 1; ++i) steps_[i](strip, strip, pixels, context_);
  steps_[count_ - 1](destination, strip, pixels, context_);
}

}  // namespace vexakrn
