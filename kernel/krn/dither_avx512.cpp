// The inner loops of dithering with 512-bit vectors: twice the lanes of those with 256 bits, and byte permutations.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/dithermap.h"
#include "krn/ditherwave.h"

namespace vexakrn {
namespace {

// --- operations of the wave ---

// What both lane widths share.
struct Lanes {
  using Vector = __m512i;
  using Count = __m128i;

  static Vector Zero() noexcept { return _mm512_setzero_si512(); }
  static Vector And(Vector a, Vector b) noexcept { return _mm512_and_si512(a, b); }
  static Vector Or(Vector a, Vector b) noexcept { return _mm512_or_si512(a, b); }
  static Vector Keep(Vector mask, Vector a) noexcept { return _mm512_and_si512(mask, a); }
  static Vector Select(Vector mask, Vector a, Vector b) noexcept {
    return _mm512_ternarylogic_epi64(mask, a, b, 0xCA);  // mask ? a : b
  }
  static Count CountOf(int32_t shift) noexcept { return _mm_cvtsi32_si128(shift); }
  static void Transpose(uint8_t* to, ptrdiff_t toPitch, const uint8_t* from, ptrdiff_t fromPitch, int32_t rows,
                        int32_t columns) noexcept {
    TransposeAvx2(to, toPitch, from, fromPitch, rows, columns);
  }

 protected:
  static Vector Gather(const DitherMatches& matches, Vector keys) noexcept {
    return _mm512_i32gather_epi32(keys, matches.entries, 4);
  }
  // Fills the entries of keys that are still empty.
  [[gnu::noinline]] static void Fill(const DitherMatches& matches, Vector keys, __mmask16 missing) noexcept {
    uint32_t wanted[16];
    _mm512_storeu_si512(wanted, keys);
    for (uint32_t lane = 0; lane < 16; ++lane)
      if ((missing >> lane & 1) != 0 && matches.entries[wanted[lane]] == matches.empty)
        matches.find(matches.pass, wanted[lane]);
  }
  static __mmask16 Missing(const DitherMatches& matches, Vector entries) noexcept {
    return _mm512_cmpeq_epi32_mask(entries, _mm512_set1_epi32(static_cast<int>(matches.empty)));
  }
};

struct Lanes16 : Lanes {
  using Element = int16_t;
  static constexpr int32_t kLanes = 32, kMaxSum = 32767;

  static Vector Load(const Element* from) noexcept { return _mm512_loadu_si512(from); }
  static void Store(Element* to, Vector a) noexcept { _mm512_storeu_si512(to, a); }
  static Vector LoadBytes(const uint8_t* from) noexcept {
    return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
  }
  static void StoreBytes(uint8_t* to, Vector a) noexcept {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm512_cvtepi16_epi8(a));
  }
  static Vector Set(int32_t value) noexcept { return _mm512_set1_epi16(static_cast<int16_t>(value)); }
  static Vector Add(Vector a, Vector b) noexcept { return _mm512_add_epi16(a, b); }
  static Vector Subtract(Vector a, Vector b) noexcept { return _mm512_sub_epi16(a, b); }
  static Vector Multiply(Vector a, Vector b) noexcept { return _mm512_mullo_epi16(a, b); }
  static Vector Min(Vector a, Vector b) noexcept { return _mm512_min_epi16(a, b); }
  static Vector Max(Vector a, Vector b) noexcept { return _mm512_max_epi16(a, b); }
  static Vector Greater(Vector a, Vector b) noexcept { return _mm512_movm_epi16(_mm512_cmpgt_epi16_mask(a, b)); }
  static Vector ShiftRightBy(Vector a, Count count) noexcept { return _mm512_srl_epi16(a, count); }
  template <int kBits>
  static Vector ShiftRightLogical(Vector a) noexcept {
    return _mm512_srli_epi16(a, kBits);
  }
  template <int kBits>
  static Vector ShiftLeft(Vector a) noexcept {
    return _mm512_slli_epi16(a, kBits);
  }
  static Vector Times(Vector a, int32_t weight) noexcept { return weight == 1 ? a : Multiply(a, Set(weight)); }

  // Truncates towards zero.
  template <int32_t kDivisor>
  static Vector Divide(Vector a) noexcept {
    const Vector negative = _mm512_srai_epi16(a, 15);
    if constexpr (kDivisor == 16 || kDivisor == 32) {
      constexpr int kShift = kDivisor == 16 ? 4 : 5;
      return _mm512_srai_epi16(Add(a, _mm512_srli_epi16(negative, 16 - kShift)), kShift);
    } else {
      // By 2^20 / 42, 2^20 / 48 or 2^22 / 200, rounded up: exact for the sums that there are.
      constexpr int kShift = kDivisor == 200 ? 6 : 4;
      constexpr int32_t kFactor = (65536 << kShift) / kDivisor + 1;
      return Subtract(_mm512_srai_epi16(_mm512_mulhi_epi16(a, Set(kFactor)), kShift), negative);
    }
  }

  static int32_t First(Vector a) noexcept { return static_cast<int16_t>(_mm_cvtsi128_si32(_mm512_castsi512_si128(a))); }
  // The lanes of `low` from the second one on, then the first one of `high`.
  static Vector Next(Vector low, Vector high) noexcept {
    const Vector nextWords = _mm512_alignr_epi32(high, low, 1);
    return Or(_mm512_srli_epi32(low, 16), _mm512_slli_epi32(nextWords, 16));
  }

  template <int32_t kComponents>
  static Vector Match(const DitherMatches& matches, Vector key, Vector live, Vector* values) noexcept {
    const Vector evenKeys = And(key, _mm512_set1_epi32(0xFFFF)), oddKeys = _mm512_srli_epi32(key, 16);
    Vector even = Gather(matches, evenKeys), odd = Gather(matches, oddKeys);
    const auto evenMissing =
        static_cast<__mmask16>(Missing(matches, even) & _mm512_test_epi32_mask(live, _mm512_set1_epi32(0xFFFF)));
    const auto oddMissing =
        static_cast<__mmask16>(Missing(matches, odd) & _mm512_test_epi32_mask(live, _mm512_set1_epi32(-65536)));
    if ((evenMissing | oddMissing) != 0) [[unlikely]] {
      Fill(matches, evenKeys, evenMissing);
      Fill(matches, oddKeys, oddMissing);
      even = Gather(matches, evenKeys);
      odd = Gather(matches, oddKeys);
    }
    constexpr __mmask32 kOdd = 0xAAAAAAAA;
    const Vector low = _mm512_mask_blend_epi16(kOdd, even, _mm512_slli_epi32(odd, 16));   // green << 8 | blue
    const Vector high = _mm512_mask_blend_epi16(kOdd, _mm512_srli_epi32(even, 16), odd);  // index << 8 | red
    values[0] = And(high, Set(0xFF));
    if constexpr (kComponents == 3) {
      values[1] = ShiftRightLogical<8>(low);
      values[2] = And(low, Set(0xFF));
    }
    return ShiftRightLogical<8>(high);
  }
};

struct Lanes32 : Lanes {
  using Element = int32_t;
  static constexpr int32_t kLanes = 16, kMaxSum = 51000;

  static Vector Load(const Element* from) noexcept { return _mm512_loadu_si512(from); }
  static void Store(Element* to, Vector a) noexcept { _mm512_storeu_si512(to, a); }
  static Vector LoadBytes(const uint8_t* from) noexcept {
    return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
  }
  static void StoreBytes(uint8_t* to, Vector a) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm512_cvtepi32_epi8(a));
  }
  static Vector Set(int32_t value) noexcept { return _mm512_set1_epi32(value); }
  static Vector Add(Vector a, Vector b) noexcept { return _mm512_add_epi32(a, b); }
  static Vector Subtract(Vector a, Vector b) noexcept { return _mm512_sub_epi32(a, b); }
  static Vector Multiply(Vector a, Vector b) noexcept { return _mm512_mullo_epi32(a, b); }
  static Vector Min(Vector a, Vector b) noexcept { return _mm512_min_epi32(a, b); }
  static Vector Max(Vector a, Vector b) noexcept { return _mm512_max_epi32(a, b); }
  static Vector Greater(Vector a, Vector b) noexcept { return _mm512_movm_epi32(_mm512_cmpgt_epi32_mask(a, b)); }
  static Vector ShiftRightBy(Vector a, Count count) noexcept { return _mm512_srl_epi32(a, count); }
  template <unsigned kBits>
  static Vector ShiftRightLogical(Vector a) noexcept {
    return _mm512_srli_epi32(a, kBits);
  }
  template <unsigned kBits>
  static Vector ShiftLeft(Vector a) noexcept {
    return _mm512_slli_epi32(a, kBits);
  }
  // Errors and weights fit 16 bits, so a multiplication of pairs does, which is faster than one of 32 bits.
  static Vector Times(Vector a, int32_t weight) noexcept { return _mm512_madd_epi16(a, Set(weight)); }

  // By 200 alone, by 25 after 8: exact for the sums that there are.
  template <int32_t kDivisor>
  static Vector Divide(Vector a) noexcept {
    static_assert(kDivisor == 200);
    const Vector eighth = _mm512_srli_epi32(_mm512_abs_epi32(a), 3);
    const Vector quotient = _mm512_srli_epi32(_mm512_madd_epi16(eighth, Set(20972)), 19);
    return _mm512_mask_sub_epi32(quotient, _mm512_movepi32_mask(a), Zero(), quotient);
  }

  static int32_t First(Vector a) noexcept { return _mm_cvtsi128_si32(_mm512_castsi512_si128(a)); }
  static Vector Next(Vector low, Vector high) noexcept { return _mm512_alignr_epi32(high, low, 1); }

  template <int32_t kComponents>
  static Vector Match(const DitherMatches& matches, Vector key, Vector live, Vector* values) noexcept {
    Vector match = Gather(matches, key);
    const auto missing = static_cast<__mmask16>(Missing(matches, match) & _mm512_test_epi32_mask(live, live));
    if (missing != 0) [[unlikely]] {
      Fill(matches, key, missing);
      match = Gather(matches, key);
    }
    values[0] = And(ShiftRightLogical<16>(match), Set(0xFF));
    if constexpr (kComponents == 3) {
      values[1] = And(ShiftRightLogical<8>(match), Set(0xFF));
      values[2] = And(match, Set(0xFF));
    }
    return ShiftRightLogical<24>(match);
  }
};

// --- lines ---

void Map(const DitherMap& map, uint8_t* indices) noexcept {
  const DitherRule rule = map.choice->rule;
  if (rule == DitherRule::Matches || rule == DitherRule::GrayMatches) return MapMatches<Lanes16>(map, indices);
  (map.thresholds ? MapFixed<true> : MapFixed<false>)(map, indices);
}

// Where the bytes of each plane lie in 64 pixels of three bytes: for the first two of the three vectors, then for all,
// with the results of the first step as bytes 0 to 63 and the third vector behind them.
struct SplitOrder {
  uint8_t first[3][64], second[3][64];
};
constexpr SplitOrder kSplitOrder = [] {
  SplitOrder order{};
  for (uint32_t plane = 0; plane < 3; ++plane)
    for (uint32_t i = 0; i < 64; ++i) {
      const uint32_t at = 3 * i + plane;
      order.first[plane][i] = static_cast<uint8_t>(at < 128 ? at : 0);
      order.second[plane][i] = static_cast<uint8_t>(at < 128 ? i : at - 128 + 64);
    }
  return order;
}();

void Split(const uint8_t* pixels, int32_t pixelBytes, int32_t count, uint8_t* const planes[3]) noexcept {
  int32_t x = 0;
  if (pixelBytes == 3)
    for (; count - x >= 64; x += 64, pixels += 192) {
      const __m512i a = _mm512_loadu_si512(pixels), b = _mm512_loadu_si512(pixels + 64);
      const __m512i c = _mm512_loadu_si512(pixels + 128);
      for (int32_t plane = 0; plane < 3; ++plane) {
        const __m512i first = _mm512_permutex2var_epi8(a, _mm512_loadu_si512(kSplitOrder.first[plane]), b);
        const __m512i all = _mm512_permutex2var_epi8(first, _mm512_loadu_si512(kSplitOrder.second[plane]), c);
        _mm512_storeu_si512(planes[plane] + x, all);
      }
    }
  uint8_t* const rest[3] = {planes[0] + x, planes[1] + x, planes[2] + x};
  if (x < count) kDitherKernelsAvx2.split(pixels, pixelBytes, count - x, rest);
}

}  // namespace

const DitherKernels kDitherKernelsAvx512 = {
    Map, PackIndicesAvx2, MapBitsAvx2, Split, DiffuseBand<Lanes16, Lanes32, 64, 64>, 64, 64};

}  // namespace vexakrn
