// Conversion steps over vectors, written once for all their sizes.
//
// A variant file gives its vectors to WideSteps as a type with these members:
//
//   Vector, Words, kBytes        a vector, its 16-bit lanes, its size
//   Load, Store                  at any address
//   Stream, Fence                past the caches, to an address that is a multiple of the size; what follows such stores
//   LoadBits                     an eighth of a vector's size, over and over
//   Repeat, Repeat64             a word of 32 or 64 bits over and over
//   Gather<Map, Chunk>(block)    byte i of the vector is byte Map::At(kBytes * Chunk + i) of the block, or 0 where that is -1
//   Shuffle, MultiplyAdd         within 16 bytes: bytes by their indices; bytes times signed bytes, added in pairs
//   Eighth(words)                words / 8, rounded
//   Narrow(low, high)            two vectors of words below 256 as one of bytes
//   Spread(vector)               eight bytes at a time, so that Low and High, which work within 16 bytes, keep the order
//   Low, High                    words of two vectors by turns
//   LowHalves, HighHalves        of 32 bytes: double words of two vectors by turns
//   Choose(bits, bit, zero, one) bytes of `one` where `bits` has the only bit that `bit` has, else of `zero`
//   SignBits(vector)             the top bit of each byte
//   CopyIn, CopyOut              part of a block to a buffer and back
//   kCloses<Map>                 whether whole pixels in 12 of 16 bytes are made sooner; StoreClosed then stores them
//
// Everything here belongs to the file that includes it and is compiled for its processor: it is in an anonymous namespace.
// What is left of a line is converted in a buffer of its own, so that no step reads or writes a byte beyond it. A block is
// read as a whole before any of it is written, so that source and destination may overlap as ConvertStep says.
#ifndef VEXAKRN_KRN_CONVERTWIDE_H
#define VEXAKRN_KRN_CONVERTWIDE_H

#include <utility>  // types alone

#include "krn/convertkernels.h"
#include "krn/convertlayout.h"

namespace vexakrn {
namespace {

inline constexpr int kBlue = 0, kGreen = 1, kRed = 2;

struct ByteTable {
  uint8_t at[64];
};

// Bytes of pixels of another layout.
template <Layout From, Layout To>
inline constexpr auto kSourceBytes = [] {
  struct {
    int at[8];
  } table{};
  for (int i = 0; i < BytesOf(To).bytes; ++i) table.at[i] = SourceByte(From, To, i);
  return table;
}();

template <Layout From, Layout To, int Pixels>
struct MoveMap {
  static constexpr int kTo = BytesOf(To).bytes, kFrom = BytesOf(From).bytes, kBytes = Pixels * kFrom;
  static constexpr int At(int i) {
    const int byte = kSourceBytes<From, To>.at[i % kTo];
    return byte < 0 ? -1 : i / kTo * kFrom + byte;
  }
};

// The same in 12 of each 16 bytes.
template <typename Map>
struct ClosedMap {
  static constexpr int kBytes = Map::kBytes;
  static constexpr int At(int i) { return i % 16 < 12 ? Map::At(i / 16 * 12 + i % 16) : -1; }
};

// Words of one component below another.
template <Layout From, int Low, int High, int Pixels>
struct WordMap {
  static constexpr PixelBytes kPixel = BytesOf(From);
  static constexpr int kBytes = Pixels * kPixel.bytes;
  static constexpr int At(int i) { return i / 2 * kPixel.bytes + kPixel.at[i % 2 == 0 ? Low : High]; }
};

// Of eight pixels in 16 bytes four, and in the next vector the other four: eight bytes of blue and green, eight of red.
template <Layout From, int Pixels>
struct HalvesMap {
  static constexpr PixelBytes kPixel = BytesOf(From);
  static constexpr int kBytes = Pixels * kPixel.bytes;
  static constexpr int At(int i) {
    const int vector = i / Pixels, pixel = vector / 2 * (Pixels / 2) + i % Pixels / 16 * 8 + vector % 2 * 4 + i % 8 / 2;
    return pixel * kPixel.bytes + kPixel.at[i % 16 >= 8 ? kRed : i % 2];
  }
};

// The two bytes in which a pixel of a few bits starts, the first one on top.
template <int Bits>
struct BitsMap {
  static constexpr int kBytes = 8 * Bits;
  static constexpr int At(int i) {
    const int byte = i / 2 * Bits / 8 + (i % 2 == 0 ? 1 : 0);
    return byte < kBytes ? byte : -1;
  }
};

// For bytes of pixels that one bit each chooses: the byte in which the bit lies, the bit, and the byte of the pixel.
struct ChoicePlan {
  ByteTable byte, bit, part;
};

template <int Bytes, int First>
inline constexpr ChoicePlan kChoicePlan = [] {
  ChoicePlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int pixel = (First + i) / Bytes;
    plan.byte.at[i] = static_cast<uint8_t>(pixel / 8);
    plan.bit.at[i] = static_cast<uint8_t>(0x80 >> pixel % 8);
    plan.part.at[i] = static_cast<uint8_t>((First + i) % Bytes);
  }
  return plan;
}();

inline constexpr ByteTable kReversedEights = [] {
  ByteTable table{};
  for (int i = 0; i < 64; ++i) table.at[i] = static_cast<uint8_t>(i % 16 ^ 7);
  return table;
}();

// The factor that brings a pixel of a few bits to the top of its word.
template <int Bits>
inline constexpr auto kToTop = [] {
  struct {
    uint16_t factor[32];
  } table{};
  for (int i = 0; i < 32; ++i) table.factor[i] = static_cast<uint16_t>(1 << i * Bits % 8);
  return table;
}();

template <typename V>
struct WideSteps {
  using Vector = typename V::Vector;
  using Words = typename V::Words;
  static constexpr int kBytes = V::kBytes;

  // Where a block goes.
  struct Place {
    uint8_t* at;
    bool pastCaches;

    operator uint8_t*() const noexcept { return at; }  // NOLINT(google-explicit-constructor)
    [[gnu::always_inline]] void Put(int vector, Vector value) const noexcept {
      if (pastCaches)
        V::Stream(at + ptrdiff_t{kBytes} * vector, value);
      else
        V::Store(at + ptrdiff_t{kBytes} * vector, value);
    }
  };

  // Calls `block(destination, source)` for every block of pixels of so many bits: from the end on where they grow in place.
  // Blocks go past the caches where they are to and the first one starts a line of them; `block` has to take a Place for that.
  template <size_t FromBits, size_t ToBits, int Pixels = kBytes, typename Block>
  [[gnu::always_inline]] static inline void ForBlocks(uint8_t* destination, const uint8_t* source, size_t pixels,
                                                      const ConvertContext& context, const Block& block) noexcept {
    constexpr size_t kFrom = Pixels * FromBits / 8, kTo = Pixels * ToBits / 8;
    const size_t blocks = pixels / Pixels, rest = pixels % Pixels;
    const uintptr_t apart = reinterpret_cast<uintptr_t>(destination) - reinterpret_cast<uintptr_t>(source);
    const bool backward = ToBits > FromBits && apart <= pixels * FromBits / 8;
    const bool lines = context.pastCaches && reinterpret_cast<uintptr_t>(destination) % 64 == 0;
    alignas(64) uint8_t in[(kFrom + 63) / 64 * 64], out[(kTo + 63) / 64 * 64];
    for (int part = 0; part < 2; ++part) {
      const bool last = (part == 0) == backward;
      if ((last ? rest : blocks) == 0) continue;
      const size_t first = backward ? blocks - 1 : 0;
      uint8_t* to = last ? out : destination + first * kTo;
      const uint8_t* from = last ? in : source + first * kFrom;
      if (last) V::CopyIn(in, source + blocks * kFrom, (rest * FromBits + 7) / 8, sizeof in);
      for (size_t i = last ? 1 : blocks; i > 0; --i) {
        block(Place{to, lines && !last}, from);
        to = backward ? to - kTo : to + kTo;
        from = backward ? from - kFrom : from + kFrom;
      }
      if (last) V::CopyOut(destination + blocks * kTo, out, (rest * ToBits + 7) / 8);
    }
    if (lines) V::Fence();
  }

  // --- bytes that move ---

  // Alpha in its places, where only the destination has it.
  template <Layout To>
  static Vector AlphaBytes(uint8_t alpha) noexcept {
    if constexpr (BytesOf(To).component == 2)
      return V::Repeat64(uint64_t{alpha} * 257 << 48);
    else
      return V::Repeat(uint32_t{alpha} << 24);
  }

  template <Layout From, Layout To, int... Chunk>
  [[gnu::always_inline]] static inline void MoveBlock(Place out, const uint8_t* in, Vector alpha,
                                                      std::integer_sequence<int, Chunk...>) noexcept {
    using Map = MoveMap<From, To, kBytes>;
    if constexpr (V::template kCloses<Map>) {
      constexpr int kChunks = sizeof...(Chunk) / 3 * 4, kClosed = kBytes / 4 * 3;
      [=]<int... Lane>(std::integer_sequence<int, Lane...>) noexcept {
        const Vector moved[] = {V::template Gather<ClosedMap<Map>, Lane>(in)...};
        (V::StoreClosed(out.at + kClosed * Lane, moved[Lane], Lane + 1 == kChunks), ...);
      }
      (std::make_integer_sequence<int, kChunks>{});
    } else {
      const Vector moved[] = {V::template Gather<Map, Chunk>(in)...};
      if constexpr (BytesOf(From).at[3] < 0 && BytesOf(To).at[3] >= 0)
        (out.Put(Chunk, moved[Chunk] | alpha), ...);
      else
        (out.Put(Chunk, moved[Chunk]), ...);
    }
  }

  template <Layout From, Layout To>
  static void Move(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
    constexpr int kFrom = BytesOf(From).bytes, kTo = BytesOf(To).bytes;
    const Vector alpha = AlphaBytes<To>(context.alpha);
    ForBlocks<8 * kFrom, 8 * kTo>(destination, source, pixels, context, [=](Place out, const uint8_t* in) noexcept {
      MoveBlock<From, To>(out, in, alpha, std::make_integer_sequence<int, kTo>{});
    });
  }

  // --- luminance, and colour in 16 bits ---

  struct Split {
    Vector blueGreen, red;  // words
  };

  template <Layout From, int Half>
  [[gnu::always_inline]] static inline Split SplitWords(const uint8_t* block) noexcept {
    if constexpr (kBytes == 64) {
      return {V::template Gather<WordMap<From, kBlue, kGreen, kBytes>, Half>(block),
              V::template Gather<WordMap<From, kRed, kRed, kBytes>, Half>(block)};
    } else {
      using Map = HalvesMap<From, kBytes>;
      const Vector first = V::template Gather<Map, 2 * Half>(block);
      const Vector second = V::template Gather<Map, 2 * Half + 1>(block);
      return {V::LowHalves(first, second), V::HighHalves(first, second)};
    }
  }

  template <Layout From>
  static void ToGray8(uint8_t* destination, const uint8_t* source, size_t pixels,
                      const ConvertContext& context) noexcept {
    constexpr size_t kFrom = BytesOf(From).bytes;
    const Vector blueGreen = V::Repeat(0x05010501), red = V::Repeat(0x00020002);
    ForBlocks<8 * kFrom, 8>(destination, source, pixels, context, [=](Place out, const uint8_t* in) noexcept {
      const auto gray = [=](const Split& split) noexcept {
        return V::Eighth(reinterpret_cast<Words>(V::MultiplyAdd(split.blueGreen, blueGreen)) +
                         reinterpret_cast<Words>(V::MultiplyAdd(split.red, red)));
      };
      out.Put(0, V::Narrow(gray(SplitWords<From, 0>(in)), gray(SplitWords<From, 1>(in))));
    });
  }

  // The top bits of blue and green are added up at eight times their places.
  template <Layout From, bool Green6>
  static void ToRgb16(uint8_t* destination, const uint8_t* source, size_t pixels,
                      const ConvertContext& context) noexcept {
    constexpr size_t kFrom = BytesOf(From).bytes;
    const Vector top = V::Repeat(Green6 ? 0xFCF8FCF8 : 0xF8F8F8F8);
    const Vector weights = V::Repeat(Green6 ? 0x40014001 : 0x20012001);
    ForBlocks<8 * kFrom, 16>(destination, source, pixels, context, [=](Place out, const uint8_t* in) noexcept {
      const auto packed = [=](const Split& split) noexcept {
        const Words both = reinterpret_cast<Words>(V::MultiplyAdd(split.blueGreen & top, weights)) >> 3;
        const Words red = reinterpret_cast<Words>(split.red) >> (Green6 ? 0 : 1);
        return reinterpret_cast<Vector>(both | (red & uint16_t{Green6 ? 0xF800 : 0x7C00}));
      };
      const Vector low = packed(SplitWords<From, 0>(in)), high = packed(SplitWords<From, 1>(in));
      out.Put(0, low);
      out.Put(1, high);
    });
  }

  // The top bits at their place, below them the same bits again.
  template <bool Green6>
  static void Rgb16ToBgr32(uint8_t* destination, const uint8_t* source, size_t pixels,
                           const ConvertContext& context) noexcept {
    const Words alpha = reinterpret_cast<Words>(V::Repeat(context.alpha * 0x01000100u));
    ForBlocks<16, 32>(destination, source, pixels, context, [=](Place out, const uint8_t* in) noexcept {
      const Vector both[] = {V::Spread(V::Load(in)), V::Spread(V::Load(in + kBytes))};
      for (int i = 0; i < 2; ++i) {
        const Words pixel = reinterpret_cast<Words>(both[i]);
        const Words blue = (pixel << 3 & uint16_t{0xF8}) | (pixel >> 2 & uint16_t{7});
        const Words green = Green6 ? (pixel << 5 & uint16_t{0xFC00}) | (pixel >> 1 & uint16_t{0x0300})
                                   : (pixel << 6 & uint16_t{0xF800}) | (pixel << 1 & uint16_t{0x0700});
        const Words red = (pixel >> (Green6 ? 8 : 7) & uint16_t{0xF8}) | (pixel >> (Green6 ? 13 : 12) & uint16_t{7});
        const auto first = reinterpret_cast<Vector>(blue | green), second = reinterpret_cast<Vector>(red | alpha);
        out.Put(2 * i, V::Low(first, second));
        out.Put(2 * i + 1, V::High(first, second));
      }
    });
  }

  // --- packed pixels ---

  // 64 at a time, which have 16 bytes at least.
  template <int Bits>
  static void Unpack(uint8_t* destination, const uint8_t* source, size_t pixels,
                     const ConvertContext& context) noexcept {
    const Words factor = reinterpret_cast<Words>(V::Load(reinterpret_cast<const uint8_t*>(kToTop<Bits>.factor)));
    ForBlocks<Bits, 8, 64>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
      const auto words = [=]<int Chunk>() noexcept {
        const auto top = reinterpret_cast<Words>(V::template Gather<BitsMap<Bits>, Chunk>(in)) * factor;
        return reinterpret_cast<Vector>(top >> (16 - Bits));
      };
      const auto bytes = [=]<int Chunk>() noexcept {
        return V::Narrow(words.template operator()<2 * Chunk>(), words.template operator()<2 * Chunk + 1>());
      };
      const Vector first = bytes.template operator()<0>();
      if constexpr (kBytes == 32) V::Store(out + 32, bytes.template operator()<1>());
      V::Store(out, first);
    });
  }

  template <int Bytes, int... Chunk>
  [[gnu::always_inline]] static inline void ChoosePixels(uint8_t* destination, const uint8_t* source, size_t pixels,
                                                         uint32_t zeroPixel, uint32_t onePixel,
                                                         const ConvertContext& context,
                                                         std::integer_sequence<int, Chunk...>) noexcept {
    struct Pixels {
      Vector part[sizeof...(Chunk)];
    };
    const auto repeated = [](uint32_t pixel) noexcept {
      const Vector all = V::Repeat(pixel);
      return Pixels{{V::Shuffle(all, V::Load(kChoicePlan<Bytes, kBytes * Chunk>.part.at))...}};
    };
    const Pixels zero = repeated(zeroPixel), one = repeated(onePixel);
    ForBlocks<1, 8 * Bytes>(destination, source, pixels, context, [=](Place out, const uint8_t* in) noexcept {
      const Vector bits = V::LoadBits(in);
      const Vector chosen[] = {V::Choose(V::Shuffle(bits, V::Load(kChoicePlan<Bytes, kBytes * Chunk>.byte.at)),
                                         V::Load(kChoicePlan<Bytes, kBytes * Chunk>.bit.at), zero.part[Chunk],
                                         one.part[Chunk])...};
      (out.Put(Chunk, chosen[Chunk]), ...);
    });
  }

  static void Bits1ToIndex(uint8_t* destination, const uint8_t* source, size_t pixels,
                           const ConvertContext& context) noexcept {
    ChoosePixels<1>(destination, source, pixels, 0, 0x01010101, context, std::make_integer_sequence<int, 1>{});
  }

  static void Bits1ToGray(uint8_t* destination, const uint8_t* source, size_t pixels,
                          const ConvertContext& context) noexcept {
    ChoosePixels<1>(destination, source, pixels, context.grayOfIndex[0], context.grayOfIndex[1], context,
                    std::make_integer_sequence<int, 1>{});
  }

  static void Bits1ToMatch(uint8_t* destination, const uint8_t* source, size_t pixels,
                           const ConvertContext& context) noexcept {
    ChoosePixels<1>(destination, source, pixels, context.matchOfBit[0], context.matchOfBit[1], context,
                    std::make_integer_sequence<int, 1>{});
  }

  template <Layout To>
  static uint32_t ColorOf(const RGBQUAD& entry, uint8_t alpha) noexcept {
    const uint32_t blue = entry.rgbBlue, red = entry.rgbRed;
    return (IsRgb(To) ? red : blue) | uint32_t{entry.rgbGreen} << 8 | (IsRgb(To) ? blue : red) << 16 |
           uint32_t{alpha} << 24;
  }

  template <Layout To>
  static void Bits1ToColor(uint8_t* destination, const uint8_t* source, size_t pixels,
                           const ConvertContext& context) noexcept {
    constexpr int kTo = BytesOf(To).bytes;
    ChoosePixels<kTo>(destination, source, pixels, ColorOf<To>(context.palette[0], context.alpha),
                      ColorOf<To>(context.palette[1], context.alpha), context, std::make_integer_sequence<int, kTo>{});
  }

  // The top bit decides between black and white.
  static void Gray8ToMono1(uint8_t* destination, const uint8_t* source, size_t pixels,
                           const ConvertContext& context) noexcept {
    const Vector reversed = V::Load(kReversedEights.at);
    const auto invert = context.whiteBit != 0 ? 0 : ~decltype(V::SignBits(reversed)){0};
    ForBlocks<8, 1>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
      const auto bits = V::SignBits(V::Shuffle(V::Load(in), reversed)) ^ invert;
      __builtin_memcpy(out, &bits, sizeof bits);
    });
    if (pixels % 8 != 0) destination[pixels / 8] &= static_cast<uint8_t>(0xFF00u >> pixels % 8);
  }

  // --- the table ---

  // Pairs of orders that lie alike share a step: gray is all components, and both sides may be turned at once.
  template <Layout From, Layout To>
  static constexpr ConvertStep MoveStep() {
    constexpr Layout kFrom = BgrOf(From), kTo = BgrOf(To);
    constexpr Layout kTurned = IsPlainGray(From) || IsRgb(From) == IsRgb(To) ? kTo : RgbOf(To);
    return Move<kFrom, kTurned>;
  }

  template <Layout From, Layout... To>
  static constexpr void SetMoves(ConvertSteps& steps) {
    const auto set = [&]<Layout Each>() {
      if constexpr (From != Each && (IsPlainGray(From) || !IsPlainGray(Each)))
        steps.Set(From, Each, MoveStep<From, Each>());
    };
    (set.template operator()<To>(), ...);
  }

  template <Layout... All>
  static constexpr void SetAllMoves(ConvertSteps& steps) {
    (SetMoves<All, All...>(steps), ...);
  }

  template <Layout... Color>
  static constexpr void SetColors(ConvertSteps& steps) {
    (steps.Set(Color, Layout::Gray8, ToGray8<Color>), ...);
    (steps.Set(Color, Layout::Rgb555, ToRgb16<Color, false>), ...);
    (steps.Set(Color, Layout::Rgb565, ToRgb16<Color, true>), ...);
    (steps.Set(Layout::Bits1, Color, Bits1ToColor<Color>), ...);
  }

  template <int... Bits>
  static constexpr void SetPacked(ConvertSteps& steps, std::integer_sequence<int, Bits...>) {
    (steps.Set(static_cast<Layout>(static_cast<int>(Layout::Bits2) + Bits), Layout::Index8, Unpack<Bits + 2>), ...);
  }

  static constexpr ConvertSteps Table() {
    using enum Layout;
    ConvertSteps steps{};
    SetPacked(steps, std::make_integer_sequence<int, 6>{});
    SetAllMoves<Gray8, Gray16, Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
    SetColors<Bgr24, Rgb24, Bgr32, Rgb32>(steps);
    steps.Set(Rgb555, Bgr32, Rgb16ToBgr32<false>);
    steps.Set(Rgb565, Bgr32, Rgb16ToBgr32<true>);
    steps.Set(Bits1, Index8, Bits1ToIndex);
    steps.Set(Bits1, Gray8, Bits1ToGray);
    steps.Set(Bits1, Match8, Bits1ToMatch);
    steps.Set(Gray8, Mono1, Gray8ToMono1);
    return steps;
  }
};

}  // namespace
}  // namespace vexakrn

#endif
