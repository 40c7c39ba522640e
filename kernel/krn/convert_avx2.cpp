// Conversion steps with AVX2 and BMI2, 32 pixels at a time.
//
// What is left of a line is converted in a buffer of its own, so that no step reads or writes a byte beyond it. A block is
// read as a whole before any of it is written: source and destination may start at the same place.
#include <immintrin.h>

#include <utility>  // types alone

#include "krn/convertkernels.h"
#include "krn/convertlayout.h"

namespace vexakrn {
namespace {

constexpr size_t kBlock = 32;  // pixels

__m128i Load16(const uint8_t* at) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }
__m256i Load32(const uint8_t* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)); }
void Store16(uint8_t* at, __m128i value) noexcept { _mm_storeu_si128(reinterpret_cast<__m128i*>(at), value); }
void Store32(uint8_t* at, __m256i value) noexcept { _mm256_storeu_si256(reinterpret_cast<__m256i*>(at), value); }

__m256i LoadPair(const uint8_t* low, const uint8_t* high) noexcept {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(low)), Load16(high), 1);
}

// What is left of a line, in buffers of its own.
template <size_t FromBits, size_t ToBits, typename Block>
void ForRest(uint8_t* destination, const uint8_t* source, size_t pixels, const Block& block) noexcept {
  uint8_t in[kBlock / 8 * FromBits] = {}, out[kBlock / 8 * ToBits];
  __builtin_memcpy(in, source, (pixels * FromBits + 7) / 8);
  block(out, in);
  __builtin_memcpy(destination, out, (pixels * ToBits + 7) / 8);
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

// How 32 bytes of the destination come from a block: each half from up to four neighbouring pieces of 16 bytes.
struct MovePlan {
  int pieces;
  int start[2];
  uint8_t index[4][32];
};

template <Layout From, Layout To>
constexpr MovePlan PlanMove(int chunk) {
  constexpr int kFrom = BytesOf(From).bytes, kTo = BytesOf(To).bytes;
  MovePlan plan{};
  int from[32] = {};
  for (int half = 0; half < 2; ++half) {
    int first = 1 << 20, last = 0;
    for (int i = 16 * half; i < 16 * half + 16; ++i) {
      const int at = 32 * chunk + i, byte = SourceByte(From, To, at % kTo);
      from[i] = byte < 0 ? -1 : at / kTo * kFrom + byte;
      if (from[i] < 0) continue;
      first = from[i] < first ? from[i] : first;
      last = from[i] > last ? from[i] : last;
    }
    const int pieces = (last - first) / 16 + 1, latest = 32 * kFrom - 16 * pieces;
    plan.start[half] = first < latest ? first : latest;
    plan.pieces = pieces > plan.pieces ? pieces : plan.pieces;
  }
  for (int half = 0; half < 2; ++half) {  // both halves read as many pieces
    const int latest = 32 * kFrom - 16 * plan.pieces;
    plan.start[half] = plan.start[half] < latest ? plan.start[half] : latest;
  }
  for (int piece = 0; piece < 4; ++piece)
    for (int i = 0; i < 32; ++i) {
      const int at = from[i] - plan.start[i / 16] - 16 * piece;
      plan.index[piece][i] = static_cast<uint8_t>(from[i] >= 0 && at >= 0 && at < 16 ? at : 0x80);
    }
  return plan;
}

template <Layout From, Layout To, int Chunk>
inline constexpr MovePlan kMovePlan = PlanMove<From, To>(Chunk);

template <Layout From, Layout To, int Chunk>
[[gnu::always_inline]] inline __m256i MoveChunk(const uint8_t* source) noexcept {
  constexpr const MovePlan& kPlan = kMovePlan<From, To, Chunk>;
  __m256i result = _mm256_setzero_si256();
#pragma GCC unroll 4
  for (int piece = 0; piece < kPlan.pieces; ++piece) {
    const uint8_t *low = source + kPlan.start[0] + 16 * piece, *high = source + kPlan.start[1] + 16 * piece;
    const __m256i bytes = kPlan.start[1] == kPlan.start[0] + 16 ? Load32(low) : LoadPair(low, high);
    const __m256i moved = _mm256_shuffle_epi8(bytes, Load32(kPlan.index[piece]));
    result = piece == 0 ? moved : _mm256_or_si256(result, moved);
  }
  return result;
}

// Alpha in its places, where only the destination has it.
template <Layout From, Layout To>
__m256i AlphaBytes(uint8_t alpha) noexcept {
  if constexpr (BytesOf(From).at[3] >= 0 || BytesOf(To).at[3] < 0) return _mm256_setzero_si256();
  if constexpr (BytesOf(To).component == 2)
    return _mm256_slli_epi64(_mm256_set1_epi64x(alpha * 257), 48);
  else
    return _mm256_slli_epi32(_mm256_set1_epi32(alpha), 24);
}

template <Layout From, Layout To, int... Chunk>
[[gnu::always_inline]] inline void MoveBlock(uint8_t* out, const uint8_t* in, __m256i alpha,
                                             std::integer_sequence<int, Chunk...>) noexcept {
  const __m256i moved[] = {MoveChunk<From, To, Chunk>(in)...};
  (Store32(out + 32 * Chunk, _mm256_or_si256(moved[Chunk], alpha)), ...);
}

template <Layout From, Layout To>
void Move(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  constexpr int kFrom = BytesOf(From).bytes, kTo = BytesOf(To).bytes;
  const __m256i alpha = AlphaBytes<From, To>(context.alpha);
  ForBlocks<8 * kFrom, 8 * kTo>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    MoveBlock<From, To>(out, in, alpha, std::make_integer_sequence<int, kTo>{});
  });
}

// --- luminance ---

// Eight pixels of 24 or 32 bits as 32-bit ones; the fourth byte is anything.
template <Layout From>
[[gnu::always_inline]] inline __m256i EightPixels(const uint8_t* block, int first) noexcept {
  constexpr int kBytes = BytesOf(From).bytes;
  if constexpr (kBytes == 4) return Load32(block + 4 * first);
  // The last four pixels of a block are read from four bytes before them.
  const bool last = first == 24;
  const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                          0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m256i late = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                        4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
  const uint8_t* at = block + 3 * first;
  return _mm256_shuffle_epi8(LoadPair(at, at + (last ? 8 : 12)), last ? late : spread);
}

constexpr bool IsRgb(Layout layout) { return layout == Layout::Rgb24 || layout == Layout::Rgb32; }

// 2 R + 5 G + B in two words a pixel, which the second multiplication adds.
template <Layout From>
void ToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const __m256i weights = _mm256_set1_epi32(IsRgb(From) ? 0x00010502 : 0x00020501);
  const __m256i ones = _mm256_set1_epi16(1), half = _mm256_set1_epi32(4);
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  constexpr size_t kBits = 8 * BytesOf(From).bytes;
  ForBlocks<kBits, 8>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto gray = [=](int first) noexcept {
      const __m256i sums = _mm256_madd_epi16(_mm256_maddubs_epi16(EightPixels<From>(in, first), weights), ones);
      return _mm256_srli_epi32(_mm256_add_epi32(sums, half), 3);
    };
    const __m256i low = _mm256_packus_epi32(gray(0), gray(8)), high = _mm256_packus_epi32(gray(16), gray(24));
    Store32(out, _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), order));
  });
}

// Products are of signed words: components are taken relative to 32768, which adds up to 8 * 32768.
void Bgr64ToGray16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const __m256i flip = _mm256_set1_epi16(-32768), weights = _mm256_set1_epi64x(0x0000000200050001);
  const __m256i offset = _mm256_set1_epi32(8 * 32768 + 4), order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  ForBlocks<64, 16>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto sums = [=](int at) noexcept {
      return _mm256_madd_epi16(_mm256_xor_si256(Load32(in + at), flip), weights);
    };
    const auto gray = [=](int at) noexcept {
      return _mm256_srli_epi32(_mm256_add_epi32(_mm256_hadd_epi32(sums(at), sums(at + 32)), offset), 3);
    };
    const __m256i low = _mm256_packus_epi32(gray(0), gray(64)), high = _mm256_packus_epi32(gray(128), gray(192));
    Store32(out, _mm256_permutevar8x32_epi32(low, order));
    Store32(out + 32, _mm256_permutevar8x32_epi32(high, order));
  });
}

// --- 16-bit colour ---

// `a` where `mask` has ones, `b` elsewhere.
__m256i Select(uint32_t mask, __m256i a, __m256i b) noexcept {
  return _mm256_xor_si256(b, _mm256_and_si256(_mm256_xor_si256(a, b), _mm256_set1_epi32(static_cast<int32_t>(mask))));
}

template <Layout From, bool Green6>
void ToRgb16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  constexpr size_t kBits = 8 * BytesOf(From).bytes;
  ForBlocks<kBits, 16>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto packed = [=](int first) noexcept {
      const __m256i pixel = EightPixels<From>(in, first);
      const __m256i blue = IsRgb(From) ? _mm256_srli_epi32(pixel, 19) : _mm256_srli_epi32(pixel, 3);
      const __m256i green = _mm256_srli_epi32(pixel, Green6 ? 5 : 6);
      const __m256i red =
          IsRgb(From) ? _mm256_slli_epi32(pixel, Green6 ? 8 : 7) : _mm256_srli_epi32(pixel, Green6 ? 8 : 9);
      const __m256i both = Select(0x1F, blue, green);
      return _mm256_and_si256(Select(Green6 ? 0x7FF : 0x3FF, both, red), _mm256_set1_epi32(Green6 ? 0xFFFF : 0x7FFF));
    };
    const __m256i low = _mm256_packus_epi32(packed(0), packed(8)), high = _mm256_packus_epi32(packed(16), packed(24));
    Store32(out, _mm256_permute4x64_epi64(low, 0xD8));
    Store32(out + 32, _mm256_permute4x64_epi64(high, 0xD8));
  });
}

template <bool Green6>
void Rgb16ToBgr32(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  const auto mask = [](int32_t bits) noexcept { return _mm256_set1_epi16(static_cast<int16_t>(bits)); };
  const auto keep = [](__m256i value, __m256i bits) noexcept { return _mm256_and_si256(value, bits); };
  const __m256i top = mask(0xF8), low = mask(7), greenTop = mask(Green6 ? 0xFC00 : 0xF800),
                greenLow = mask(Green6 ? 0x0300 : 0x0700), alpha = mask(context.alpha << 8);
  ForBlocks<16, 32>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i words[] = {Load32(in), Load32(in + 32)};
    for (int i = 0; i < 2; ++i) {
      const __m256i pixel = _mm256_permute4x64_epi64(words[i], 0xD8);
      const __m256i blue =
          _mm256_or_si256(keep(_mm256_slli_epi16(pixel, 3), top), keep(_mm256_srli_epi16(pixel, 2), low));
      const __m256i green =
          _mm256_or_si256(keep(_mm256_slli_epi16(pixel, Green6 ? 5 : 6), greenTop),
                          keep(Green6 ? _mm256_srli_epi16(pixel, 1) : _mm256_slli_epi16(pixel, 1), greenLow));
      const __m256i red = _mm256_or_si256(keep(_mm256_srli_epi16(pixel, Green6 ? 8 : 7), top),
                                          keep(_mm256_srli_epi16(pixel, Green6 ? 13 : 12), low));
      const __m256i first = _mm256_or_si256(blue, green), second = _mm256_or_si256(red, alpha);
      Store32(out + 64 * i, _mm256_unpacklo_epi16(first, second));
      Store32(out + 64 * i + 32, _mm256_unpackhi_epi16(first, second));
    }
  });
}

// --- palette indices ---

// The bits of eight pixels of a byte each are spread from a word, or collected in it, in the order in which they lie.
template <int Bits>
inline constexpr uint64_t kPixelBits = ((1u << Bits) - 1) * 0x0101010101010101u;

template <int Bits>
uint64_t Spread(uint64_t word) noexcept {
  return __builtin_bswap64(_pdep_u64(__builtin_bswap64(word) >> (64 - 8 * Bits), kPixelBits<Bits>));
}

template <int Bits>
uint64_t Collect(uint64_t word) noexcept {
  return __builtin_bswap64(_pext_u64(__builtin_bswap64(word), kPixelBits<Bits>) << (64 - 8 * Bits));
}

// Pixels may grow in place: the last ones come first.
template <int Bits>
void Unpack(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const size_t words = pixels / 8, rest = pixels % 8;
  uint64_t word = 0;
  if (rest > 0) {
    __builtin_memcpy(&word, source + words * Bits, (rest * Bits + 7) / 8);
    word = Spread<Bits>(word);
    __builtin_memcpy(destination + words * 8, &word, rest);
  }
  for (size_t i = words; i-- > 0;) {
    word = 0;
    __builtin_memcpy(&word, source + i * Bits, Bits);
    word = Spread<Bits>(word);
    __builtin_memcpy(destination + i * 8, &word, 8);
  }
}

template <int Bits>
void Pack(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const size_t words = pixels / 8, rest = pixels % 8;
  uint64_t word = 0;
  for (size_t i = 0; i < words; ++i) {
    __builtin_memcpy(&word, source + i * 8, 8);
    word = Collect<Bits>(word);
    __builtin_memcpy(destination + i * Bits, &word, Bits);
  }
  if (rest == 0) return;
  word = 0;
  __builtin_memcpy(&word, source + words * 8, rest);
  word = Collect<Bits>(word);
  __builtin_memcpy(destination + words * Bits, &word, (rest * Bits + 7) / 8);
}

// Four entries, a load each.
__m128i FourEntries(const RGBQUAD* palette, uint32_t indices) noexcept {
  const auto entry = [=](int i) noexcept {
    int32_t value = 0;
    __builtin_memcpy(&value, palette + (indices >> (8 * i) & 0xFF), sizeof value);
    return value;
  };
  __m128i entries = _mm_cvtsi32_si128(entry(0));
  entries = _mm_insert_epi32(entries, entry(1), 1);
  entries = _mm_insert_epi32(entries, entry(2), 2);
  return _mm_insert_epi32(entries, entry(3), 3);
}

struct Indices {
  uint32_t four[kBlock / 4];
};

Indices LoadIndices(const uint8_t* at) noexcept {
  Indices indices;
  __builtin_memcpy(&indices, at, sizeof indices);
  return indices;
}

template <Layout To>
void IndexToColor32(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const __m128i alpha = _mm_set1_epi32(context.alpha << 24);
  const __m128i order = IsRgb(To) ? _mm_setr_epi8(2, 1, 0, -1, 6, 5, 4, -1, 10, 9, 8, -1, 14, 13, 12, -1)
                                  : _mm_setr_epi8(0, 1, 2, -1, 4, 5, 6, -1, 8, 9, 10, -1, 12, 13, 14, -1);
  ForBlocks<8, 32>(
      destination, source, pixels, [=, palette = context.palette](uint8_t* out, const uint8_t* in) noexcept {
        const Indices indices = LoadIndices(in);
        for (int i = 0; i < 8; ++i)
          Store16(out + 16 * i, _mm_or_si128(_mm_shuffle_epi8(FourEntries(palette, indices.four[i]), order), alpha));
      });
}

template <Layout To>
void IndexToColor24(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const __m128i order = IsRgb(To) ? _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)
                                  : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  ForBlocks<8, 24>(destination, source, pixels,
                   [=, palette = context.palette](uint8_t* out, const uint8_t* in) noexcept {
                     const Indices indices = LoadIndices(in);
                     for (int i = 0; i < 8; i += 4) {
                       const auto four = [&](int at) noexcept {
                         return _mm_shuffle_epi8(FourEntries(palette, indices.four[i + at]), order);
                       };
                       const __m128i a = four(0), b = four(1), c = four(2), d = four(3);
                       Store16(out + 12 * i, _mm_or_si128(a, _mm_slli_si128(b, 12)));
                       Store16(out + 12 * i + 16, _mm_or_si128(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
                       Store16(out + 12 * i + 32, _mm_or_si128(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
                     }
                   });
}

// --- 1 bit ---

// Each bit chooses between two pixels of 1, 3 or 4 bytes.
template <int Bytes, int Chunk>
[[gnu::always_inline]] inline __m256i ChosenBytes(__m256i bits, __m256i zero, __m256i one) noexcept {
  alignas(32) static constexpr auto kTables = [] {
    struct {
      uint8_t byte[32], bit[32];
    } tables{};
    for (int i = 0; i < 32; ++i) {
      const int pixel = (32 * Chunk + i) / Bytes;
      tables.byte[i] = static_cast<uint8_t>(pixel / 8);
      tables.bit[i] = static_cast<uint8_t>(0x80 >> pixel % 8);
    }
    return tables;
  }();
  const __m256i bit = Load32(kTables.bit);
  const __m256i set = _mm256_and_si256(_mm256_shuffle_epi8(bits, Load32(kTables.byte)), bit);
  return _mm256_blendv_epi8(zero, one, _mm256_cmpeq_epi8(set, bit));
}

// 32 bytes of a pixel repeated, from byte 32 * `chunk` on.
template <int Bytes>
__m256i RepeatedPixel(uint32_t pixel, int chunk) noexcept {
  uint8_t bytes[32];
  for (int i = 0; i < 32; ++i) bytes[i] = static_cast<uint8_t>(pixel >> (8 * ((32 * chunk + i) % Bytes)));
  return Load32(bytes);
}

template <int Bytes, int... Chunk>
void ChoosePixels(uint8_t* destination, const uint8_t* source, size_t pixels, const uint32_t (&pixel)[2],
                  std::integer_sequence<int, Chunk...>) noexcept {
  const __m256i zero[] = {RepeatedPixel<Bytes>(pixel[0], Chunk)...}, one[] = {RepeatedPixel<Bytes>(pixel[1], Chunk)...};
  ForBlocks<1, 8 * Bytes>(destination, source, pixels, [&](uint8_t* out, const uint8_t* in) noexcept {
    int32_t word = 0;
    __builtin_memcpy(&word, in, sizeof word);
    const __m256i bits = _mm256_set1_epi32(word);
    (Store32(out + 32 * Chunk, ChosenBytes<Bytes, Chunk>(bits, zero[Chunk], one[Chunk])), ...);
  });
}

void Bits1ToIndex(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  ChoosePixels<1>(destination, source, pixels, {0, 1}, std::make_integer_sequence<int, 1>{});
}

void Bits1ToGray(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  ChoosePixels<1>(destination, source, pixels, {context.grayOfIndex[0], context.grayOfIndex[1]},
                  std::make_integer_sequence<int, 1>{});
}

void Bits1ToMatch(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  ChoosePixels<1>(destination, source, pixels, {context.matchOfBit[0], context.matchOfBit[1]},
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
  ChoosePixels<kBytes>(destination, source, pixels,
                       {ColorOf<To>(context.palette[0], context), ColorOf<To>(context.palette[1], context)},
                       std::make_integer_sequence<int, kBytes>{});
}

// The top bit decides between black and white.
void Gray8ToMono1(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  const __m256i reverse = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,  //
                                           7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  const int32_t invert = context.whiteBit != 0 ? 0 : -1;
  ForBlocks<8, 1>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const int32_t bits = _mm256_movemask_epi8(_mm256_shuffle_epi8(Load32(in), reverse)) ^ invert;
    __builtin_memcpy(out, &bits, sizeof bits);
  });
  if (pixels % 8 != 0) destination[pixels / 8] &= static_cast<uint8_t>(0xFF00u >> pixels % 8);
}

// --- gray in a range of bits ---

// Tables are looked up pixel by pixel.
ConvertStep ScalarStep(Layout from, Layout to) noexcept {
  return kConvertStepsScalar.step[static_cast<size_t>(from)][static_cast<size_t>(to)];
}

// A value of `bits` bits in each word, repeated from the top on; by way of 8 bits where it has no more.
__m256i WidenWords(__m256i values, int32_t bits) noexcept {
  values = _mm256_sll_epi16(values, _mm_cvtsi32_si128(16 - bits));
  for (int32_t shift = bits; shift < 16; shift *= 2)
    values = _mm256_or_si256(values, _mm256_srl_epi16(values, _mm_cvtsi32_si128(shift)));
  if (bits >= 8) return values;
  const __m256i top = _mm256_srli_epi16(values, 8);
  return _mm256_or_si256(_mm256_slli_epi16(top, 8), top);
}

__m256i RangeToGray(const uint8_t* words, const GrayRange& range) noexcept {
  const __m256i shifted = _mm256_srl_epi16(Load32(words), _mm_cvtsi32_si128(range.low));
  return WidenWords(_mm256_and_si256(shifted, _mm256_set1_epi16(static_cast<int16_t>((1 << range.bits) - 1))),
                    range.bits);
}

void WordToGray16(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  if (context.sourceTable) return ScalarStep(Layout::WordIn16, Layout::Gray16)(destination, source, pixels, context);
  ForBlocks<16, 16>(destination, source, pixels, [range = context.source](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i low = RangeToGray(in, range), high = RangeToGray(in + 32, range);
    Store32(out, low);
    Store32(out + 32, high);
  });
}

void WordToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  if (context.sourceTable) return ScalarStep(Layout::WordIn16, Layout::Gray8)(destination, source, pixels, context);
  ForBlocks<16, 8>(destination, source, pixels, [range = context.source](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i low = _mm256_srli_epi16(RangeToGray(in, range), 8);
    const __m256i high = _mm256_srli_epi16(RangeToGray(in + 32, range), 8);
    Store32(out, _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8));
  });
}

void Gray16ToWord(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  if (context.destinationTable)
    return ScalarStep(Layout::Gray16, Layout::WordOut16)(destination, source, pixels, context);
  const __m128i drop = _mm_cvtsi32_si128(16 - context.destination.bits),
                low = _mm_cvtsi32_si128(context.destination.low);
  ForBlocks<16, 16>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto word = [=](int at) noexcept { return _mm256_sll_epi16(_mm256_srl_epi16(Load32(in + at), drop), low); };
    const __m256i first = word(0), second = word(32);
    Store32(out, first);
    Store32(out + 32, second);
  });
}

// Eight bits to m: the top m, or g * (2^m - 1) / 255. With w = 257 g that is w * (2^m - 1) / 65535 without a remainder
// to lose: the upper half of the product, and one more where the lower half and the quotient overflow.
void Gray8ToWord(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  if (context.destinationTable)
    return ScalarStep(Layout::Gray8, Layout::WordOut16)(destination, source, pixels, context);
  const int32_t bits = context.destination.bits;
  const __m256i maximum = _mm256_set1_epi16(static_cast<int16_t>((1 << bits) - 1)), ones = _mm256_set1_epi16(1);
  const __m128i drop = _mm_cvtsi32_si128(16 - bits), low = _mm_cvtsi32_si128(context.destination.low);
  const auto scaled = [=](__m256i wide) noexcept {
    const __m256i top = _mm256_srl_epi16(wide, drop);
    if (bits <= 8) return top;
    const __m256i lower = _mm256_mullo_epi16(wide, maximum), upper = _mm256_mulhi_epu16(wide, maximum);
    const __m256i sum = _mm256_add_epi16(lower, _mm256_add_epi16(top, ones));
    const __m256i kept = _mm256_cmpeq_epi16(_mm256_max_epu16(sum, lower), sum);  // all ones where nothing overflowed
    return _mm256_add_epi16(upper, _mm256_add_epi16(ones, kept));
  };
  ForBlocks<8, 16>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i gray = _mm256_permute4x64_epi64(Load32(in), 0xD8);
    Store32(out, _mm256_sll_epi16(scaled(_mm256_unpacklo_epi8(gray, gray)), low));
    Store32(out + 32, _mm256_sll_epi16(scaled(_mm256_unpackhi_epi8(gray, gray)), low));
  });
}

// Two pixels in three bytes: pairs of words, of which one is shifted and one is masked.
void Gray12ToWord(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const __m256i spread = _mm256_setr_epi8(0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9, 10, 10, 11,  //
                                          4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11, 12, 13, 14, 14, 15);
  const __m256i mask = _mm256_set1_epi16(0x0FFF);
  ForBlocks<12, 16>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i halves[] = {LoadPair(in, in + 8), LoadPair(in + 24, in + 32)};
    for (int i = 0; i < 2; ++i) {
      const __m256i words = _mm256_shuffle_epi8(halves[i], spread);
      const __m256i even = _mm256_and_si256(words, mask), odd = _mm256_srli_epi16(words, 4);
      Store32(out + 32 * i, _mm256_blend_epi16(even, odd, 0xAA));
    }
  });
}

void WordToGray12(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const __m256i weights = _mm256_set1_epi32(0x10000001);                                          // low + 4096 * high
  const __m256i close = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                         0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  ForBlocks<16, 12>(destination, source, pixels, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto pairs = [=](int at) noexcept {
      return _mm256_shuffle_epi8(_mm256_madd_epi16(Load32(in + at), weights), close);
    };
    const __m256i first = pairs(0), second = pairs(32);
    const __m128i a = _mm256_castsi256_si128(first), b = _mm256_extracti128_si256(first, 1);
    const __m128i c = _mm256_castsi256_si128(second), d = _mm256_extracti128_si256(second, 1);
    Store16(out, _mm_or_si128(a, _mm_slli_si128(b, 12)));
    Store16(out + 16, _mm_or_si128(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
    Store16(out + 32, _mm_or_si128(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
  });
}

// --- the table ---

template <Layout From, Layout... To>
constexpr void SetMoves(ConvertSteps& steps) {
  ((From != To ? steps.Set(From, To, Move<From, To>) : void()), ...);
}

template <int... Bits>
constexpr void SetPacked(ConvertSteps& steps, std::integer_sequence<int, Bits...>) {
  (steps.Set(static_cast<Layout>(static_cast<int>(Layout::Bits1) + Bits), Layout::Index8, Unpack<Bits + 1>), ...);
  (steps.Set(Layout::Match8, static_cast<Layout>(static_cast<int>(Layout::Bits1) + Bits), Pack<Bits + 1>), ...);
}

constexpr ConvertSteps kSteps = [] {
  using enum Layout;
  ConvertSteps steps{};
  SetPacked(steps, std::make_integer_sequence<int, 7>{});
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
  steps.Set(Bgr24, Gray8, ToGray8<Bgr24>);
  steps.Set(Rgb24, Gray8, ToGray8<Rgb24>);
  steps.Set(Bgr32, Gray8, ToGray8<Bgr32>);
  steps.Set(Rgb32, Gray8, ToGray8<Rgb32>);
  steps.Set(Bgr64, Gray16, Bgr64ToGray16);
  steps.Set(Bgr24, Rgb555, ToRgb16<Bgr24, false>);
  steps.Set(Bgr24, Rgb565, ToRgb16<Bgr24, true>);
  steps.Set(Rgb24, Rgb555, ToRgb16<Rgb24, false>);
  steps.Set(Rgb24, Rgb565, ToRgb16<Rgb24, true>);
  steps.Set(Bgr32, Rgb555, ToRgb16<Bgr32, false>);
  steps.Set(Bgr32, Rgb565, ToRgb16<Bgr32, true>);
  steps.Set(Rgb32, Rgb555, ToRgb16<Rgb32, false>);
  steps.Set(Rgb32, Rgb565, ToRgb16<Rgb32, true>);
  steps.Set(Rgb555, Bgr32, Rgb16ToBgr32<false>);
  steps.Set(Rgb565, Bgr32, Rgb16ToBgr32<true>);
  steps.Set(Index8, Bgr24, IndexToColor24<Bgr24>);
  steps.Set(Index8, Rgb24, IndexToColor24<Rgb24>);
  steps.Set(Index8, Bgr32, IndexToColor32<Bgr32>);
  steps.Set(Index8, Rgb32, IndexToColor32<Rgb32>);
  steps.Set(Bits1, Index8, Bits1ToIndex);
  steps.Set(Bits1, Gray8, Bits1ToGray);
  steps.Set(Bits1, Match8, Bits1ToMatch);
  steps.Set(Bits1, Bgr24, Bits1ToColor<Bgr24>);
  steps.Set(Bits1, Rgb24, Bits1ToColor<Rgb24>);
  steps.Set(Bits1, Bgr32, Bits1ToColor<Bgr32>);
  steps.Set(Bits1, Rgb32, Bits1ToColor<Rgb32>);
  steps.Set(Gray8, Mono1, Gray8ToMono1);
  steps.Set(WordIn16, Gray8, WordToGray8);
  steps.Set(WordIn16, Gray16, WordToGray16);
  steps.Set(Gray8, WordOut16, Gray8ToWord);
  steps.Set(Gray16, WordOut16, Gray16ToWord);
  steps.Set(Gray12, WordIn16, Gray12ToWord);
  steps.Set(WordOut16, Gray12, WordToGray12);
  return steps;
}();

}  // namespace

const ConvertSteps kConvertStepsAvx2 = kSteps;

}  // namespace vexakrn
