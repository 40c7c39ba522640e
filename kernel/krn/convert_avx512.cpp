// Conversion steps with AVX-512 and its byte permutes, 64 pixels at a time.
//
// What is left of a line is converted in a buffer of its own, which is filled and emptied by masked moves, so that no step
// reads or writes a byte beyond it. A block is read as a whole before any of it is written: source and destination may
// start at the same place.
#include <immintrin.h>

#include <utility>  // types alone

#include "krn/convertkernels.h"
#include "krn/convertlayout.h"

namespace vexakrn {
namespace {

constexpr size_t kBlock = 64;  // pixels

__m512i Load(const uint8_t* at) noexcept { return _mm512_loadu_si512(at); }
void Store(uint8_t* at, __m512i value) noexcept { _mm512_storeu_si512(at, value); }

// The first `bytes` bytes of a vector, up to 64.
__mmask64 FirstBytes(size_t bytes) noexcept {
  return bytes >= 64 ? ~__mmask64{0} : _bzhi_u64(~__mmask64{0}, static_cast<uint32_t>(bytes));
}

// What is left of a line, in buffers of its own.
template <size_t FromBits, size_t ToBits, typename Block>
void ForRest(uint8_t* destination, const uint8_t* source, size_t pixels, const Block& block) noexcept {
  constexpr size_t kFrom = 8 * FromBits, kTo = 8 * ToBits;
  alignas(64) uint8_t in[(kFrom + 63) / 64 * 64], out[(kTo + 63) / 64 * 64];
  const size_t from = (pixels * FromBits + 7) / 8, to = (pixels * ToBits + 7) / 8;
  for (size_t at = 0; at < kFrom; at += 64)
    Store(in + at, _mm512_maskz_loadu_epi8(at < from ? FirstBytes(from - at) : 0, source + at));
  block(out, in);
  for (size_t at = 0; at < to; at += 64) _mm512_mask_storeu_epi8(destination + at, FirstBytes(to - at), Load(out + at));
}

// Calls `block(destination, source)` for every block of pixels of so many bits: from the end on where pixels grow in place.
template <size_t FromBits, size_t ToBits, typename Block>
void ForBlocks(uint8_t* destination, const uint8_t* source, size_t pixels, const Block& block) noexcept {
  constexpr size_t kFrom = kBlock / 8 * FromBits, kTo = kBlock / 8 * ToBits;
  const size_t blocks = pixels / kBlock, rest = pixels % kBlock;
  if (ToBits > FromBits && destination == source) {
    if (rest > 0) ForRest<FromBits, ToBits>(destination + blocks * kTo, source + blocks * kFrom, rest, block);
    for (size_t i = blocks; i-- > 0;) block(destination + i * kTo, source + i * kFrom);
    return;
  }
  for (size_t i = 0; i < blocks; ++i) block(destination + i * kTo, source + i * kFrom);
  if (rest > 0) ForRest<FromBits, ToBits>(destination + blocks * kTo, source + blocks * kFrom, rest, block);
}

// --- bytes that move ---

// How 64 bytes of the destination come from a block: from up to four neighbouring pieces of 64 bytes.
struct MovePlan {
  int pieces, start;
  uint64_t mask[4], alpha;
  uint8_t index[64];
};

template <Layout From, Layout To>
constexpr MovePlan PlanMove(int chunk) {
  constexpr int kFrom = BytesOf(From).bytes, kTo = BytesOf(To).bytes;
  MovePlan plan{};
  int from[64] = {}, first = 1 << 20, last = 0;
  for (int i = 0; i < 64; ++i) {
    const int at = 64 * chunk + i, byte = SourceByte(From, To, at % kTo);
    from[i] = byte < 0 ? -1 : at / kTo * kFrom + byte;
    if (from[i] < 0) continue;
    first = from[i] < first ? from[i] : first;
    last = from[i] > last ? from[i] : last;
  }
  plan.pieces = (last - first) / 64 + 1;
  const int latest = 64 * kFrom - 64 * plan.pieces;
  plan.start = first < latest ? first : latest;
  for (int i = 0; i < 64; ++i) {
    const uint64_t bit = uint64_t{1} << i;
    if (from[i] < 0) {
      plan.alpha |= bit;
      continue;
    }
    plan.mask[(from[i] - plan.start) / 64] |= bit;
    plan.index[i] = static_cast<uint8_t>((from[i] - plan.start) % 128);  // of two pieces at once
  }
  return plan;
}

template <Layout From, Layout To, int Chunk>
inline constexpr MovePlan kMovePlan = PlanMove<From, To>(Chunk);

template <Layout From, Layout To, int Chunk>
[[gnu::always_inline]] inline __m512i MoveChunk(const uint8_t* source, __m512i alpha) noexcept {
  constexpr const MovePlan& kPlan = kMovePlan<From, To, Chunk>;
  const __m512i index = Load(kPlan.index), first = Load(source + kPlan.start);
  __m512i moved = first;
  if constexpr (kPlan.pieces == 1)
    moved = _mm512_permutexvar_epi8(index, first);
  else
    moved = _mm512_permutex2var_epi8(first, index, Load(source + kPlan.start + 64));
  if constexpr (kPlan.pieces == 3)
    moved = _mm512_mask_permutexvar_epi8(moved, kPlan.mask[2], index, Load(source + kPlan.start + 128));
  if constexpr (kPlan.pieces == 4)
    moved = _mm512_mask_blend_epi8(
        kPlan.mask[2] | kPlan.mask[3], moved,
        _mm512_permutex2var_epi8(Load(source + kPlan.start + 128), index, Load(source + kPlan.start + 192)));
  if constexpr (kPlan.alpha != 0) moved = _mm512_mask_mov_epi8(moved, kPlan.alpha, alpha);
  return moved;
}

template <Layout From, Layout To, int... Chunk>
[[gnu::always_inline]] inline void MoveBlock(uint8_t* out, const uint8_t* in, __m512i alpha,
                                             std::integer_sequence<int, Chunk...>) noexcept {
  const __m512i moved[] = {MoveChunk<From, To, Chunk>(in, alpha)...};
  (Store(out + 64 * Chunk, moved[Chunk]), ...);
}

template <Layout From, Layout To>
void Move(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  constexpr int kFrom = BytesOf(From).bytes, kTo = BytesOf(To).bytes;
  const __m512i alpha = _mm512_set1_epi8(static_cast<char>(context.alpha));
  ForBlocks<8 * kFrom, 8 * kTo>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    MoveBlock<From, To>(out, in, alpha, std::make_integer_sequence<int, kTo>{});
  });
}

// --- two components of 32 pixels in words ---

// Which bytes of the first 32 pixels make words of component `low` and, above it, component `high`.
struct PairPlan {
  uint8_t index[64];
};

template <Layout From>
constexpr PairPlan PlanPair(int low, int high) {
  constexpr PixelBytes kFrom = BytesOf(From);
  PairPlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int at = i / 2 * kFrom.bytes + kFrom.at[i % 2 == 0 ? low : high];
    plan.index[i] = static_cast<uint8_t>(at < 64 ? at : at - (32 * kFrom.bytes - 64) + 64);
  }
  return plan;
}

template <Layout From, int Low, int High>
inline constexpr PairPlan kPairPlan = PlanPair<From>(Low, High);

template <Layout From, int Low, int High>
[[gnu::always_inline]] inline __m512i Pair(const uint8_t* pixels) noexcept {
  constexpr int kBytes = 32 * BytesOf(From).bytes;
  return _mm512_permutex2var_epi8(Load(pixels), Load(kPairPlan<From, Low, High>.index), Load(pixels + kBytes - 64));
}

constexpr int kBlue = 0, kGreen = 1, kRed = 2;

struct EvenBytes {
  uint8_t index[64];
};
constexpr EvenBytes kEvenBytes = [] {
  EvenBytes even{};
  for (int i = 0; i < 64; ++i) even.index[i] = static_cast<uint8_t>(2 * i);
  return even;
}();

template <Layout From>
void ToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  constexpr size_t kBytes = BytesOf(From).bytes;
  const __m512i blueGreen = _mm512_set1_epi16(0x0501), red = _mm512_set1_epi16(0x0002), half = _mm512_set1_epi16(4);
  const __m512i even = Load(kEvenBytes.index);
  ForBlocks<8 * kBytes, 8>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto gray = [=](const uint8_t* at) noexcept {
      const __m512i sum = _mm512_add_epi16(_mm512_maddubs_epi16(Pair<From, kBlue, kGreen>(at), blueGreen),
                                           _mm512_maddubs_epi16(Pair<From, kRed, kRed>(at), red));
      return _mm512_srli_epi16(_mm512_add_epi16(sum, half), 3);
    };
    Store(out, _mm512_permutex2var_epi8(gray(in), even, gray(in + 32 * kBytes)));
  });
}

// --- 16-bit colour ---

// `a` where `mask` has ones, `b` elsewhere.
__m512i Select(uint16_t mask, __m512i a, __m512i b) noexcept {
  return _mm512_ternarylogic_epi32(_mm512_set1_epi16(static_cast<int16_t>(mask)), a, b, 0xCA);
}

template <Layout From, bool Green6>
void ToRgb16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  constexpr size_t kBytes = BytesOf(From).bytes;
  ForBlocks<8 * kBytes, 16>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto packed = [=](const uint8_t* at) noexcept {
      const __m512i blueGreen = Pair<From, kBlue, kGreen>(at), red = Pair<From, kRed, kRed>(at);
      const __m512i both = Select(0x1F, _mm512_srli_epi16(blueGreen, 3), _mm512_srli_epi16(blueGreen, Green6 ? 5 : 6));
      return Green6 ? Select(0x7FF, both, red) : Select(0x3FF, both, _mm512_srli_epi16(red, 1));
    };
    const __m512i low = packed(in), high = packed(in + 32 * kBytes);
    Store(out, low);
    Store(out + 64, high);
  });
}

// 64 bytes of pixels from words of blue and green and words of red and alpha of 32 pixels.
template <Layout To>
constexpr PairPlan PlanJoin(int chunk) {
  constexpr PixelBytes kTo = BytesOf(To);
  constexpr int kBytes = kTo.bytes > 0 ? kTo.bytes : 1;
  PairPlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int at = 64 * chunk + i, pixel = at / kBytes, byte = at % kBytes;
    for (int c = 0; c < 4; ++c)
      if (kTo.at[c] == byte) plan.index[i] = static_cast<uint8_t>((2 * pixel + c % 2 + 64 * (c / 2)) % 128);
  }
  return plan;
}

template <Layout To, int Chunk>
inline constexpr PairPlan kJoinPlan = PlanJoin<To>(Chunk);

template <Layout To, bool Green6>
void FromRgb16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  constexpr size_t kBytes = BytesOf(To).bytes;
  const __m512i alpha = _mm512_set1_epi16(static_cast<int16_t>(context.alpha << 8));
  ForBlocks<16, 8 * kBytes>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m512i both[2] = {Load(in), Load(in + 64)};
    for (int i = 0; i < 2; ++i) {
      const __m512i pixel = both[i];
      // The top bits at their place, below them the same bits again.
      const __m512i blue = Select(7, _mm512_srli_epi16(pixel, 2), _mm512_slli_epi16(pixel, 3));
      const __m512i green = Green6 ? Select(0x0300, _mm512_srli_epi16(pixel, 1), _mm512_slli_epi16(pixel, 5))
                                   : Select(0x0700, _mm512_slli_epi16(pixel, 1), _mm512_slli_epi16(pixel, 6));
      const __m512i red =
          Select(7, _mm512_srli_epi16(pixel, Green6 ? 13 : 12), _mm512_srli_epi16(pixel, Green6 ? 8 : 7));
      const __m512i first = Select(0x00FF, blue, green), second = Select(0x00FF, red, alpha);
      uint8_t* at = out + 32 * kBytes * static_cast<size_t>(i);
      Store(at, _mm512_permutex2var_epi8(first, Load(kJoinPlan<To, 0>.index), second));
      const __m512i rest = _mm512_permutex2var_epi8(first, Load(kJoinPlan<To, 1>.index), second);
      if constexpr (kBytes == 4)
        Store(at + 64, rest);
      else
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(at + 64), _mm512_castsi512_si256(rest));
    }
  });
}

// --- palette indices ---

// A table of 256 bytes in registers.
struct ByteTable {
  __m512i part[4];
};

__m512i LookUp(const ByteTable& table, __m512i index) noexcept {
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index),
                                _mm512_permutex2var_epi8(table.part[0], index, table.part[1]),
                                _mm512_permutex2var_epi8(table.part[2], index, table.part[3]));
}

// Byte `component` of each palette entry.
ByteTable ComponentTable(const RGBQUAD* palette, int component) noexcept {
  const auto* at = reinterpret_cast<const uint8_t*>(palette);
  const __m512i pick =
      _mm512_add_epi8(_mm512_set1_epi8(static_cast<char>(component)),
                      _mm512_slli_epi16(_mm512_and_si512(Load(kEvenBytes.index), _mm512_set1_epi8(0x3F)), 1));
  ByteTable table;
  for (int i = 0; i < 4; ++i, at += 256) {
    const __m512i low = _mm512_permutex2var_epi8(Load(at), pick, Load(at + 64));
    const __m512i high = _mm512_permutex2var_epi8(Load(at + 128), pick, Load(at + 192));
    table.part[i] = _mm512_inserti64x4(low, _mm512_castsi512_si256(high), 1);
  }
  return table;
}

void IndexToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  ByteTable table;
  for (int i = 0; i < 4; ++i) table.part[i] = Load(context.grayOfIndex + 64 * i);
  ForBlocks<8, 8>(destination, source, pixels,
                  [&](uint8_t* out, const uint8_t* in) noexcept { Store(out, LookUp(table, Load(in))); });
}

constexpr bool IsRgb(Layout layout) { return layout == Layout::Rgb24 || layout == Layout::Rgb32; }

// Rows of four pixels are set apart first, so that the interleaved lanes come out in order.
template <Layout To>
void IndexToColor32(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const ByteTable first = ComponentTable(context.palette, IsRgb(To) ? 2 : 0);
  const ByteTable second = ComponentTable(context.palette, 1),
                  third = ComponentTable(context.palette, IsRgb(To) ? 0 : 2);
  const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m512i alpha = _mm512_set1_epi8(static_cast<char>(context.alpha));
  ForBlocks<8, 32>(destination, source, pixels, [&](uint8_t* out, const uint8_t* in) noexcept {
    const __m512i index = _mm512_permutexvar_epi32(order, Load(in));
    const __m512i a = LookUp(first, index), b = LookUp(second, index), c = LookUp(third, index);
    const __m512i abLow = _mm512_unpacklo_epi8(a, b), abHigh = _mm512_unpackhi_epi8(a, b);
    const __m512i cLow = _mm512_unpacklo_epi8(c, alpha), cHigh = _mm512_unpackhi_epi8(c, alpha);
    Store(out, _mm512_unpacklo_epi16(abLow, cLow));
    Store(out + 64, _mm512_unpackhi_epi16(abLow, cLow));
    Store(out + 128, _mm512_unpacklo_epi16(abHigh, cHigh));
    Store(out + 192, _mm512_unpackhi_epi16(abHigh, cHigh));
  });
}

// 64 bytes of pixels of three bytes: from the first two components at once, and from the third where the mask says so.
struct WeavePlan {
  uint8_t index[64];
  uint64_t third;
};

constexpr WeavePlan PlanWeave(int chunk) {
  WeavePlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int at = 64 * chunk + i;
    plan.index[i] = static_cast<uint8_t>(at / 3 + (at % 3 == 1 ? 64 : 0));
    if (at % 3 == 2) plan.third |= uint64_t{1} << i;
  }
  return plan;
}
constexpr WeavePlan kWeavePlans[3] = {PlanWeave(0), PlanWeave(1), PlanWeave(2)};

template <Layout To>
void IndexToColor24(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const ByteTable first = ComponentTable(context.palette, IsRgb(To) ? 2 : 0);
  const ByteTable second = ComponentTable(context.palette, 1),
                  third = ComponentTable(context.palette, IsRgb(To) ? 0 : 2);
  ForBlocks<8, 24>(destination, source, pixels, [&](uint8_t* out, const uint8_t* in) noexcept {
    const __m512i index = Load(in);
    const __m512i a = LookUp(first, index), b = LookUp(second, index), c = LookUp(third, index);
    for (int i = 0; i < 3; ++i) {
      const __m512i place = Load(kWeavePlans[i].index), both = _mm512_permutex2var_epi8(a, place, b);
      Store(out + 64 * i, _mm512_mask_permutexvar_epi8(both, kWeavePlans[i].third, place, c));
    }
  });
}

// Each eight pixels are brought into a word, first pixel on top, from which bytes are taken at every `Bits` bits.
struct UnpackPlan {
  uint8_t byte[64], shift[64];
};

constexpr UnpackPlan PlanUnpack(int bits) {
  UnpackPlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int fromTop = 7 - i % 8;
    plan.byte[i] = static_cast<uint8_t>(fromTop < bits ? i / 8 * bits + fromTop : 0);
    plan.shift[i] = static_cast<uint8_t>(64 - bits * (i % 8 + 1));
  }
  return plan;
}

template <int Bits>
inline constexpr UnpackPlan kUnpackPlan = PlanUnpack(Bits);

template <int Bits>
void Unpack(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const __m512i byte = Load(kUnpackPlan<Bits>.byte), shift = Load(kUnpackPlan<Bits>.shift);
  const __m512i mask = _mm512_set1_epi8((1 << Bits) - 1);
  ForBlocks<Bits, 8>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m512i packed = _mm512_maskz_loadu_epi8(FirstBytes(8 * Bits), in);
    Store(out, _mm512_and_si512(_mm512_multishift_epi64_epi8(shift, _mm512_permutexvar_epi8(byte, packed)), mask));
  });
}

// --- 1 bit ---

// Each bit chooses between two pixels of 1, 3 or 4 bytes.
struct ChoicePlan {
  uint8_t byte[64], bit[64];
};

template <int Bytes>
constexpr ChoicePlan PlanChoice(int chunk) {
  ChoicePlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int pixel = (64 * chunk + i) / Bytes;
    plan.byte[i] = static_cast<uint8_t>(pixel / 8);
    plan.bit[i] = static_cast<uint8_t>(0x80 >> pixel % 8);
  }
  return plan;
}

template <int Bytes, int Chunk>
inline constexpr ChoicePlan kChoicePlan = PlanChoice<Bytes>(Chunk);

struct Repetition {
  uint8_t index[64];
};

template <int Bytes>
constexpr Repetition PlanRepetition(int chunk) {
  Repetition plan{};
  for (int i = 0; i < 64; ++i) plan.index[i] = static_cast<uint8_t>((64 * chunk + i) % Bytes);
  return plan;
}

// The bytes of a pixel over and over.
template <int Bytes, int Chunk>
inline constexpr Repetition kRepetition = PlanRepetition<Bytes>(Chunk);

template <int Bytes, int... Chunk>
[[gnu::always_inline]] inline void ChoosePixels(uint8_t* destination, const uint8_t* source, size_t pixels,
                                                uint32_t zeroPixel, uint32_t onePixel,
                                                std::integer_sequence<int, Chunk...>) noexcept {
  const __m512i zeros = _mm512_set1_epi32(static_cast<int32_t>(zeroPixel));
  const __m512i ones = _mm512_set1_epi32(static_cast<int32_t>(onePixel));
  const __m512i zero[] = {_mm512_shuffle_epi8(zeros, Load(kRepetition<Bytes, Chunk>.index))...};
  const __m512i one[] = {_mm512_shuffle_epi8(ones, Load(kRepetition<Bytes, Chunk>.index))...};
  ForBlocks<1, 8 * Bytes>(destination, source, pixels, [&](uint8_t* out, const uint8_t* in) noexcept {
    int64_t word = 0;
    __builtin_memcpy(&word, in, sizeof word);
    const __m512i bits = _mm512_set1_epi64(word);
    (Store(out + 64 * Chunk,
           _mm512_mask_blend_epi8(_mm512_test_epi8_mask(_mm512_shuffle_epi8(bits, Load(kChoicePlan<Bytes, Chunk>.byte)),
                                                        Load(kChoicePlan<Bytes, Chunk>.bit)),
                                  zero[Chunk], one[Chunk])),
     ...);
  });
}

void Bits1ToIndex(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  ChoosePixels<1>(destination, source, pixels, 0, 1, std::make_integer_sequence<int, 1>{});
}

void Bits1ToGray(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  ChoosePixels<1>(destination, source, pixels, context.grayOfIndex[0], context.grayOfIndex[1],
                  std::make_integer_sequence<int, 1>{});
}

void Bits1ToMatch(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  ChoosePixels<1>(destination, source, pixels, context.matchOfBit[0], context.matchOfBit[1],
                  std::make_integer_sequence<int, 1>{});
}

template <Layout To>
uint32_t ColorOf(const RGBQUAD& entry, const ConvertContext& context) noexcept {
  const uint32_t blue = entry.rgbBlue, red = entry.rgbRed;
  return (IsRgb(To) ? red : blue) | uint32_t{entry.rgbGreen} << 8 | (IsRgb(To) ? blue : red) << 16 |
         uint32_t{context.alpha} << 24;
}

template <Layout To>
void Bits1ToColor(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  constexpr int kBytes = BytesOf(To).bytes;
  ChoosePixels<kBytes>(destination, source, pixels, ColorOf<To>(context.palette[0], context),
                       ColorOf<To>(context.palette[1], context), std::make_integer_sequence<int, kBytes>{});
}

// The top bit decides between black and white.
void Gray8ToMono1(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  const __m512i reverse = _mm512_set4_epi32(0x08090A0B, 0x0C0D0E0F, 0x00010203, 0x04050607);
  const uint64_t invert = context.whiteBit != 0 ? 0 : ~uint64_t{0};
  ForBlocks<8, 1>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const uint64_t bits = _mm512_movepi8_mask(_mm512_shuffle_epi8(Load(in), reverse)) ^ invert;
    __builtin_memcpy(out, &bits, sizeof bits);
  });
  if (pixels % 8 != 0) destination[pixels / 8] &= static_cast<uint8_t>(0xFF00u >> pixels % 8);
}

// --- the table ---

template <Layout From, Layout... To>
constexpr void SetMoves(ConvertSteps& steps) {
  (steps.Set(From, To, Move<From, To>), ...);
}

template <Layout From>
constexpr void SetColor8(ConvertSteps& steps) {
  steps.Set(From, Layout::Gray8, ToGray8<From>);
  steps.Set(From, Layout::Rgb555, ToRgb16<From, false>);
  steps.Set(From, Layout::Rgb565, ToRgb16<From, true>);
  steps.Set(Layout::Rgb555, From, FromRgb16<From, false>);
  steps.Set(Layout::Rgb565, From, FromRgb16<From, true>);
  steps.Set(Layout::Bits1, From, Bits1ToColor<From>);
}

template <int... Bits>
constexpr void SetPacked(ConvertSteps& steps, std::integer_sequence<int, Bits...>) {
  (steps.Set(static_cast<Layout>(static_cast<int>(Layout::Bits2) + Bits), Layout::Index8, Unpack<Bits + 2>), ...);
}

constexpr ConvertSteps kSteps = [] {
  using enum Layout;
  ConvertSteps steps{};
  SetPacked(steps, std::make_integer_sequence<int, 6>{});
  SetMoves<Gray8, Gray16, Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Gray16, Gray8, Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Rgb24, Bgr24, Bgr32, Rgb32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Bgr32, Bgr24, Rgb24, Rgb32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Rgb32, Bgr24, Rgb24, Bgr32, Bgr48, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Bgr48, Bgr24, Rgb24, Bgr32, Rgb32, Rgb48, Bgr64, Rgb64>(steps);
  SetMoves<Rgb48, Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Bgr64, Rgb64>(steps);
  SetMoves<Bgr64, Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Rgb48, Rgb64>(steps);
  SetMoves<Rgb64, Bgr24, Rgb24, Bgr32, Rgb32, Bgr48, Rgb48, Bgr64>(steps);
  SetColor8<Bgr24>(steps);
  SetColor8<Rgb24>(steps);
  SetColor8<Bgr32>(steps);
  SetColor8<Rgb32>(steps);
  steps.Set(Index8, Gray8, IndexToGray8);
  steps.Set(Index8, Bgr24, IndexToColor24<Bgr24>);
  steps.Set(Index8, Rgb24, IndexToColor24<Rgb24>);
  steps.Set(Index8, Bgr32, IndexToColor32<Bgr32>);
  steps.Set(Index8, Rgb32, IndexToColor32<Rgb32>);
  steps.Set(Bits1, Index8, Bits1ToIndex);
  steps.Set(Bits1, Gray8, Bits1ToGray);
  steps.Set(Bits1, Match8, Bits1ToMatch);
  steps.Set(Gray8, Mono1, Gray8ToMono1);
  return steps;
}();

}  // namespace

const ConvertSteps kConvertStepsAvx512 = kSteps;

}  // namespace vexakrn
