// Conversion steps with AVX2 and BMI2.
#include <immintrin.h>

#include "krn/convertwide.h"

namespace vexakrn {
namespace {

// --- vectors ---

__m128i Load16(const uint8_t* at) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }
__m256i Load32(const uint8_t* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)); }
void Store16(uint8_t* at, __m128i value) noexcept { _mm_storeu_si128(reinterpret_cast<__m128i*>(at), value); }
void Store32(uint8_t* at, __m256i value) noexcept { _mm256_storeu_si256(reinterpret_cast<__m256i*>(at), value); }

// How 32 bytes come from a block: each half from up to three pieces of 16 bytes, which start inside the block.
struct GatherPlan {
  int pieces, at[3][2];
  uint8_t index[3][32];
};

template <typename Map>
constexpr GatherPlan PlanGather(int chunk) {
  constexpr int kLatest = Map::kBytes - 16;
  GatherPlan plan{};
  for (int i = 0; i < 3 * 32; ++i) plan.index[i / 32][i % 32] = 0x80;
  for (int half = 0; half < 2; ++half) {
    int from[16] = {}, first = kLatest, last = 0;
    for (int i = 0; i < 16; ++i) {
      from[i] = Map::At(32 * chunk + 16 * half + i);
      if (from[i] < 0) continue;
      first = from[i] < first ? from[i] : first;
      last = from[i] > last ? from[i] : last;
    }
    const int step = first / 4 * 4;  // of double words, where that takes no more pieces
    if ((last - step) / 16 == (last - first) / 16) first = step;
    const int pieces = (last - first) / 16 + 1;
    plan.pieces = pieces > plan.pieces ? pieces : plan.pieces;
    for (int piece = 0; piece < 3; ++piece)
      plan.at[piece][half] = first + 16 * piece < kLatest ? first + 16 * piece : kLatest;
    for (int i = 0; i < 16; ++i) {
      if (from[i] < 0) continue;
      const int piece = (from[i] - first) / 16;
      plan.index[piece][16 * half + i] = static_cast<uint8_t>(from[i] - plan.at[piece][half]);
    }
  }
  return plan;
}

template <typename Map, int Chunk>
inline constexpr GatherPlan kGatherPlan = PlanGather<Map>(Chunk);

struct Avx2 {
  using Vector = __m256i;
  using Words [[gnu::vector_size(32)]] = uint16_t;
  static constexpr int kBytes = 32;

  static Vector Load(const uint8_t* at) noexcept { return Load32(at); }
  static void Store(uint8_t* at, Vector value) noexcept { Store32(at, value); }
  static void Stream(uint8_t* at, Vector value) noexcept { _mm256_stream_si256(reinterpret_cast<__m256i*>(at), value); }
  static void Fence() noexcept { _mm_sfence(); }
  static Vector LoadBits(const uint8_t* at) noexcept {
    int32_t bits = 0;
    __builtin_memcpy(&bits, at, sizeof bits);
    return _mm256_set1_epi32(bits);
  }
  static Vector Repeat(uint32_t word) noexcept { return _mm256_set1_epi32(static_cast<int32_t>(word)); }
  static Vector Repeat64(uint64_t word) noexcept { return _mm256_set1_epi64x(static_cast<int64_t>(word)); }
  static Vector Shuffle(Vector bytes, Vector index) noexcept { return _mm256_shuffle_epi8(bytes, index); }
  static Vector MultiplyAdd(Vector bytes, Vector weights) noexcept { return _mm256_maddubs_epi16(bytes, weights); }
  static Vector Eighth(Words words) noexcept {
    return _mm256_mulhrs_epi16(reinterpret_cast<Vector>(words), _mm256_set1_epi16(1 << 12));
  }
  static Vector Spread(Vector value) noexcept { return _mm256_permute4x64_epi64(value, 0xD8); }
  static Vector Narrow(Vector low, Vector high) noexcept { return Spread(_mm256_packus_epi16(low, high)); }
  static Vector Low(Vector even, Vector odd) noexcept { return _mm256_unpacklo_epi16(even, odd); }
  static Vector High(Vector even, Vector odd) noexcept { return _mm256_unpackhi_epi16(even, odd); }
  static Vector LowHalves(Vector first, Vector second) noexcept { return _mm256_unpacklo_epi64(first, second); }
  static Vector HighHalves(Vector first, Vector second) noexcept { return _mm256_unpackhi_epi64(first, second); }
  static Vector Choose(Vector bits, Vector bit, Vector zero, Vector one) noexcept {
    return _mm256_blendv_epi8(zero, one, _mm256_cmpeq_epi8(bits & bit, bit));
  }
  static uint32_t SignBits(Vector value) noexcept { return static_cast<uint32_t>(_mm256_movemask_epi8(value)); }

  static void CopyIn(uint8_t* buffer, const uint8_t* source, size_t bytes, size_t size) noexcept {
    for (size_t at = 0; at < size; at += 32) Store32(buffer + at, _mm256_setzero_si256());
    __builtin_memcpy(buffer, source, bytes);
  }
  static void CopyOut(uint8_t* destination, const uint8_t* buffer, size_t bytes) noexcept {
    __builtin_memcpy(destination, buffer, bytes);
  }

  // 16 bytes from each of two places, by one load where 32 bytes hold them; `latest` is where those may start.
  [[gnu::always_inline]] static inline Vector LoadPieces(const uint8_t* block, int low, int high, int latest) noexcept {
    if (high == low + 16) return Load32(block + low);
    const int start = low < latest ? low : latest, a = low - start, b = high - start;
    if (start < 0 || b < a || b > 16 || a % 4 != 0 || b % 4 != 0)
      return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(block + low)), Load16(block + high), 1);
    const Vector step = _mm256_setr_epi32(a, a + 4, a + 8, a + 12, b, b + 4, b + 8, b + 12);
    return _mm256_permutevar8x32_epi32(Load32(block + start), _mm256_srli_epi32(step, 2));
  }

  template <typename Map, int Chunk>
  [[gnu::always_inline]] static inline Vector Gather(const uint8_t* block) noexcept {
    constexpr const GatherPlan& kPlan = kGatherPlan<Map, Chunk>;
    Vector result = _mm256_setzero_si256();
#pragma GCC unroll 3
    for (int piece = 0; piece < kPlan.pieces; ++piece) {
      const Vector bytes = LoadPieces(block, kPlan.at[piece][0], kPlan.at[piece][1], Map::kBytes - 32);
      const Vector moved = _mm256_shuffle_epi8(bytes, Load32(kPlan.index[piece]));
      result = piece == 0 ? moved : result | moved;
    }
    return result;
  }

  template <typename Map>
  static constexpr bool kCloses = Map::kTo % 3 == 0 && kGatherPlan<Map, 0>.pieces > 1;

  // The next store covers the last eight bytes.
  static void StoreClosed(uint8_t* at, Vector value, bool last) noexcept {
    const Vector closed = _mm256_permutevar8x32_epi32(value, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    if (!last) return Store32(at, closed);
    Store16(at, _mm256_castsi256_si128(closed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(at + 16), _mm256_extracti128_si256(closed, 1));
  }
};

using Steps = WideSteps<Avx2>;

void Gray16ToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  Steps::ForBlocks<16, 8>(destination, source, pixels, context, [=](Steps::Place out, const uint8_t* in) noexcept {
    out.Put(0, Avx2::Narrow(_mm256_srli_epi16(Load32(in), 8), _mm256_srli_epi16(Load32(in + 32), 8)));
  });
}

// --- palette indices ---

// The low `Bytes` bytes of a word, in two halves that may overlap: one piece written and another read would have to wait.
template <typename Half, int Bytes>
uint64_t LoadHalves(const uint8_t* at) noexcept {
  Half first, last;
  __builtin_memcpy(&first, at, sizeof first);
  __builtin_memcpy(&last, at + Bytes - sizeof last, sizeof last);
  return first | uint64_t{last} << (8 * (Bytes - sizeof last));
}

template <typename Half, int Bytes>
void StoreHalves(uint8_t* at, uint64_t word) noexcept {
  const auto first = static_cast<Half>(word), last = static_cast<Half>(word >> (8 * (Bytes - sizeof(Half))));
  __builtin_memcpy(at, &first, sizeof first);
  __builtin_memcpy(at + Bytes - sizeof last, &last, sizeof last);
}

template <int Bytes>
using HalfOf = std::conditional_t<(Bytes >= 4), uint32_t, std::conditional_t<(Bytes >= 2), uint16_t, uint8_t>>;

// The bits of eight pixels of a byte each are collected from a word, in the order in which they lie.
template <int Bits>
uint64_t Collect(uint64_t word) noexcept {
  constexpr uint64_t kPixelBits = ((1u << Bits) - 1) * 0x0101010101010101u;
  return __builtin_bswap64(_pext_u64(__builtin_bswap64(word), kPixelBits) << (64 - 8 * Bits));
}

template <int Bits>
void Pack(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext&) noexcept {
  const size_t words = pixels / 8, rest = pixels % 8;
  for (size_t i = 0; i < words; ++i)
    StoreHalves<HalfOf<Bits>, Bits>(destination + i * Bits, Collect<Bits>(LoadHalves<uint32_t, 8>(source + i * 8)));
  if (rest == 0) return;
  uint64_t word = 0;
  __builtin_memcpy(&word, source + words * 8, rest);
  word = Collect<Bits>(word);
  __builtin_memcpy(destination + words * Bits, &word, (rest * Bits + 7) / 8);
}

// Sixteen entries at a time: other indices saturate, which chooses 0.
void IndexToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  const __m256i offset = _mm256_set1_epi8(0x70), next = _mm256_set1_epi8(16);
  Steps::ForBlocks<8, 8>(destination, source, pixels, context, [&](uint8_t* out, const uint8_t* in) noexcept {
    __m256i index = Load32(in), gray = _mm256_setzero_si256();
    for (uint32_t first = 0; first < context.colors; first += 16) {
      const __m256i entries = _mm256_broadcastsi128_si256(Load16(context.grayOfIndex + first));
      gray |= _mm256_shuffle_epi8(entries, _mm256_adds_epu8(index, offset));
      index = _mm256_sub_epi8(index, next);
    }
    Store32(out, gray);
  });
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

template <Layout To>
void IndexToColor32(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const __m128i alpha = _mm_set1_epi32(context.alpha << 24);
  const __m128i order = IsRgb(To) ? _mm_setr_epi8(2, 1, 0, -1, 6, 5, 4, -1, 10, 9, 8, -1, 14, 13, 12, -1)
                                  : _mm_setr_epi8(0, 1, 2, -1, 4, 5, 6, -1, 8, 9, 10, -1, 12, 13, 14, -1);
  const RGBQUAD* palette = context.palette;
  Steps::ForBlocks<8, 32>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
    uint32_t indices[8];
    __builtin_memcpy(indices, in, sizeof indices);
    for (int i = 0; i < 8; ++i)
      Store16(out + 16 * i, _mm_or_si128(_mm_shuffle_epi8(FourEntries(palette, indices[i]), order), alpha));
  });
}

template <Layout To>
void IndexToColor24(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const __m128i order = IsRgb(To) ? _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)
                                  : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  const RGBQUAD* palette = context.palette;
  Steps::ForBlocks<8, 24>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
    uint32_t indices[8];
    __builtin_memcpy(indices, in, sizeof indices);
    const auto four = [&](int i) noexcept { return _mm_shuffle_epi8(FourEntries(palette, indices[i]), order); };
    for (int i = 0; i < 8; i += 4, out += 48) {
      const __m128i a = four(i), b = four(i + 1), c = four(i + 2), d = four(i + 3);
      Store16(out, _mm_or_si128(a, _mm_slli_si128(b, 12)));
      Store16(out + 16, _mm_or_si128(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
      Store16(out + 32, _mm_or_si128(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
    }
  });
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
  Steps::ForBlocks<16, 16>(destination, source, pixels, context,
                           [range = context.source](uint8_t* out, const uint8_t* in) noexcept {
                             const __m256i low = RangeToGray(in, range), high = RangeToGray(in + 32, range);
                             Store32(out, low);
                             Store32(out + 32, high);
                           });
}

void WordToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  if (context.sourceTable) return ScalarStep(Layout::WordIn16, Layout::Gray8)(destination, source, pixels, context);
  Steps::ForBlocks<16, 8>(destination, source, pixels, context,
                          [range = context.source](uint8_t* out, const uint8_t* in) noexcept {
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
  Steps::ForBlocks<16, 16>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
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
  Steps::ForBlocks<8, 16>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i gray = _mm256_permute4x64_epi64(Load32(in), 0xD8);
    Store32(out, _mm256_sll_epi16(scaled(_mm256_unpacklo_epi8(gray, gray)), low));
    Store32(out + 32, _mm256_sll_epi16(scaled(_mm256_unpackhi_epi8(gray, gray)), low));
  });
}

// Two pixels in three bytes: pairs of words, of which one is masked and one is shifted.
struct PairMap {
  static constexpr int kBytes = 48;
  static constexpr int At(int i) { return i / 4 * 3 + i % 4 - i % 4 / 2; }
};

void Gray12ToWord(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  const __m256i mask = _mm256_set1_epi16(0x0FFF);
  Steps::ForBlocks<12, 16>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
    const __m256i pairs[] = {Avx2::Gather<PairMap, 0>(in), Avx2::Gather<PairMap, 1>(in)};
    for (int i = 0; i < 2; ++i)
      Store32(out + 32 * i, _mm256_blend_epi16(pairs[i] & mask, _mm256_srli_epi16(pairs[i], 4), 0xAA));
  });
}

void WordToGray12(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  const __m256i weights = _mm256_set1_epi32(0x10000001);                                          // low + 4096 * high
  const __m256i close = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                         0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  Steps::ForBlocks<16, 12>(destination, source, pixels, context, [=](uint8_t* out, const uint8_t* in) noexcept {
    const auto pairs = [=](int at) noexcept {
      return _mm256_shuffle_epi8(_mm256_madd_epi16(Load32(in + at), weights), close);
    };
    const __m256i first = pairs(0), second = pairs(32);
    Avx2::StoreClosed(out, first, false);
    Avx2::StoreClosed(out + 24, second, true);
  });
}

// --- the table ---

template <int... Bits>
constexpr void SetPacked(ConvertSteps& steps, std::integer_sequence<int, Bits...>) {
  (steps.Set(Layout::Match8, static_cast<Layout>(static_cast<int>(Layout::Bits1) + Bits), Pack<Bits + 1>), ...);
}

constexpr ConvertSteps kSteps = [] {
  using enum Layout;
  ConvertSteps steps = Steps::Table();
  SetPacked(steps, std::make_integer_sequence<int, 7>{});
  steps.Set(Gray16, Gray8, Gray16ToGray8);
  steps.Set(Index8, Gray8, IndexToGray8);
  steps.Set(Index8, Bgr24, IndexToColor24<Bgr24>);
  steps.Set(Index8, Rgb24, IndexToColor24<Rgb24>);
  steps.Set(Index8, Bgr32, IndexToColor32<Bgr32>);
  steps.Set(Index8, Rgb32, IndexToColor32<Rgb32>);
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
