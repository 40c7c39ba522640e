// Conversion steps pixel by pixel: the definition, to which the other levels are equal bit for bit. Where pixels grow, the
// last one comes first: the line may be converted in place.
#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "common/packed.h"
#include "krn/convertkernels.h"
#include "krn/convertlayout.h"
#include "krn/samples.h"

namespace vexakrn {
namespace {

uint32_t Load16(const uint8_t* at) noexcept {
  uint16_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return value;
}

void Store16(uint8_t* at, uint32_t value) noexcept {
  const auto word = static_cast<uint16_t>(value);
  std::memcpy(at, &word, sizeof word);
}

// --- colour and plain gray: bytes that move ---

template <Layout From, Layout To>
constexpr auto kSourceByte = []<int... Index>(std::integer_sequence<int, Index...>) {
  return std::array<int, sizeof...(Index)>{SourceByte(From, To, Index)...};
}
(std::make_integer_sequence<int, BytesOf(To).bytes>{});

template <Layout From, Layout To>
void MoveComponents(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  constexpr size_t kFrom = BytesOf(From).bytes, kTo = BytesOf(To).bytes;
  const auto move = [&](size_t i) noexcept {
    uint8_t in[kFrom], out[kTo];
    std::memcpy(in, source + i * kFrom, kFrom);
    for (size_t byte = 0; byte < kTo; ++byte) {
      const int from = kSourceByte<From, To>[byte];
      out[byte] = from < 0 ? context.alpha : in[from];
    }
    std::memcpy(destination + i * kTo, out, kTo);
  };
  if constexpr (kTo > kFrom) {
    for (size_t i = pixels; i-- > 0;) move(i);
  } else {
    for (size_t i = 0; i < pixels; ++i) move(i);
  }
}

template <Layout From>
void ToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  constexpr PixelBytes kFrom = BytesOf(From);
  for (size_t i = 0; i < pixels; ++i, source += kFrom.bytes)
    destination[i] = static_cast<uint8_t>(LuminanceOf(source[kFrom.at[2]], source[kFrom.at[1]], source[kFrom.at[0]]));
}

// --- 16-bit colour ---

template <uint32_t GreenBits>
void FromRgb16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = pixels; i-- > 0;) {
    uint8_t* color = destination + 4 * i;
    const uint32_t pixel = Load16(source + 2 * i);
    const uint32_t blue = pixel & 31, green = pixel >> 5 & ((1u << GreenBits) - 1), red = pixel >> (5 + GreenBits) & 31;
    color[0] = static_cast<uint8_t>(WidenTo8(blue, 5));
    color[1] = static_cast<uint8_t>(WidenTo8(green, GreenBits));
    color[2] = static_cast<uint8_t>(WidenTo8(red, 5));
    color[3] = context.alpha;
  }
}

template <uint32_t GreenBits>
void ToRgb16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  for (size_t i = 0; i < pixels; ++i, source += 4) {
    const uint32_t blue = source[0], green = source[1], red = source[2];
    Store16(destination + 2 * i, red >> 3 << (5 + GreenBits) | green >> (8 - GreenBits) << 5 | blue >> 3);
  }
}

// --- palette indices ---

template <int Bits>
void Unpack(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  for (size_t i = pixels; i-- > 0;) destination[i] = static_cast<uint8_t>(Packed<Bits>::Get(source, i));
}

// Collects bits from the most significant one on.
template <int Bits>
void Pack(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  uint32_t waiting = 0;
  int count = 0;
  for (size_t i = 0; i < pixels; ++i) {
    waiting = waiting << Bits | source[i];
    count += Bits;
    if (count < 8) continue;
    count -= 8;
    *destination++ = static_cast<uint8_t>(waiting >> count);
  }
  if (count > 0) *destination = static_cast<uint8_t>(waiting << (8 - count));
}

void IndexToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = 0; i < pixels; ++i) destination[i] = context.grayOfIndex[source[i]];
}

void IndexToBgr32(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = pixels; i-- > 0;) {
    uint8_t* color = destination + 4 * i;
    std::memcpy(color, context.palette + source[i], 3);
    color[3] = context.alpha;
  }
}

void Bits1ToMatch(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = pixels; i-- > 0;) destination[i] = context.matchOfBit[Packed<1>::Get(source, i)];
}

// Of black and white, white is the nearer one from 128 on.
void Gray8ToMono1(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = 0; i < pixels; i += 8) {
    uint32_t bits = 0;
    for (size_t k = 0; k < std::min<size_t>(pixels - i, 8); ++k)
      bits |= (source[i + k] >= 128 ? context.whiteBit : context.whiteBit ^ 1u) << (7 - k);
    destination[i / 8] = static_cast<uint8_t>(bits);
  }
}

// --- gray in a range of bits ---

uint32_t WordToGray(uint32_t word, const ConvertContext& context) noexcept {
  const uint32_t value = SampleValue(word, context.source);
  if (context.sourceTable) return context.sourceTable[std::min(value, kGrayTableLength - 1)];
  return WidenTo16(value, context.source.bits);
}

void Word16ToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = 0; i < pixels; ++i)
    destination[i] = static_cast<uint8_t>(WordToGray(Load16(source + 2 * i), context) >> 8);
}

void Word16ToGray16(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  for (size_t i = 0; i < pixels; ++i) Store16(destination + 2 * i, WordToGray(Load16(source + 2 * i), context));
}

uint32_t GrayToWord(uint32_t value, const ConvertContext& context) noexcept {
  if (context.destinationTable)
    value = context.destinationTable[std::min(value, kGrayTableLength - 1)] & ((1u << context.destination.bits) - 1);
  return value << context.destination.low;
}

void Gray8ToWord16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = pixels; i-- > 0;)
    Store16(destination + 2 * i, GrayToWord(ValueOfGray(source[i], context.destination.bits), context));
}

void Gray16ToWord16(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const int32_t drop = 16 - context.destination.bits;
  for (size_t i = 0; i < pixels; ++i) Store16(destination + 2 * i, GrayToWord(Load16(source + 2 * i) >> drop, context));
}

void Gray12ToWord16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  for (size_t i = pixels; i-- > 0;) Store16(destination + 2 * i, Packed<12>::Get(source, i));
}

void Word16ToGray12(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  for (size_t i = 0; i + 1 < pixels; i += 2, source += 4, destination += 3) {
    const uint32_t both = Load16(source) | Load16(source + 2) << 12;
    Store16(destination, both);
    destination[2] = static_cast<uint8_t>(both >> 16);
  }
  if (pixels % 2 != 0) Store16(destination, Load16(source));
}

// --- the table ---

template <int Bits>
constexpr void SetPacked(ConvertSteps& steps) noexcept {
  constexpr auto kLayout = static_cast<Layout>(static_cast<int>(Layout::Bits1) + Bits - 1);
  steps.Set(kLayout, Layout::Index8, Unpack<Bits>);
  steps.Set(Layout::Match8, kLayout, Pack<Bits>);
}

template <Layout From, Layout... To>
constexpr void SetMoves(ConvertSteps& steps) noexcept {
  (steps.Set(From, To, MoveComponents<From, To>), ...);
}

constexpr ConvertSteps kSteps = [] {
  using enum Layout;
  ConvertSteps steps{};
  SetPacked<1>(steps);
  SetPacked<2>(steps);
  SetPacked<3>(steps);
  SetPacked<4>(steps);
  SetPacked<5>(steps);
  SetPacked<6>(steps);
  SetPacked<7>(steps);
  SetMoves<Gray8, Gray16, Bgr24, Rgb24, Bgr32>(steps);
  SetMoves<Gray16, Gray8, Bgr64>(steps);
  SetMoves<Bgr24, Rgb24, Bgr32, Rgb32, Bgr48>(steps);
  SetMoves<Rgb24, Bgr24, Bgr32, Rgb32, Rgb48>(steps);
  SetMoves<Bgr32, Bgr24, Rgb24, Rgb32, Bgr64>(steps);
  SetMoves<Rgb32, Bgr24, Rgb24, Bgr32>(steps);
  SetMoves<Bgr48, Bgr24, Bgr64>(steps);
  SetMoves<Rgb48, Rgb24, Bgr64>(steps);
  SetMoves<Bgr64, Bgr32, Bgr48, Rgb48, Rgb64>(steps);
  SetMoves<Rgb64, Bgr64>(steps);
  steps.Set(Bgr24, Gray8, ToGray8<Bgr24>);
  steps.Set(Rgb24, Gray8, ToGray8<Rgb24>);
  steps.Set(Bgr32, Gray8, ToGray8<Bgr32>);
  steps.Set(Rgb555, Bgr32, FromRgb16<5>);
  steps.Set(Rgb565, Bgr32, FromRgb16<6>);
  steps.Set(Bgr32, Rgb555, ToRgb16<5>);
  steps.Set(Bgr32, Rgb565, ToRgb16<6>);
  steps.Set(Index8, Gray8, IndexToGray8);
  steps.Set(Index8, Bgr32, IndexToBgr32);
  steps.Set(Index8, Match8, MatchIndices);
  steps.Set(Bits1, Match8, Bits1ToMatch);
  steps.Set(Gray8, Match8, MatchIndices);
  steps.Set(Bgr32, Match8, MatchColors);
  steps.Set(Gray8, Mono1, Gray8ToMono1);
  steps.Set(WordIn16, Gray8, Word16ToGray8);
  steps.Set(WordIn16, Gray16, Word16ToGray16);
  steps.Set(Gray8, WordOut16, Gray8ToWord16);
  steps.Set(Gray16, WordOut16, Gray16ToWord16);
  steps.Set(Gray12, WordIn16, Gray12ToWord16);
  steps.Set(WordOut16, Gray12, Word16ToGray12);
  steps.Set(Bgr24, Romm24, ToRomm24);
  steps.Set(Romm24, Bgr24, FromRomm24);
  steps.Set(Bgr48, Romm48, ToRomm48);
  steps.Set(Romm48, Bgr48, FromRomm48);
  return steps;
}();

}  // namespace

const ConvertSteps kConvertStepsScalar = kSteps;

}  // namespace vexakrn
