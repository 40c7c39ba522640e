// The inner loops of dithering with 512-bit vectors: twice the lanes of those with 256 bits, and byte permutations.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include <cstring>

#include "krn/dithermap.h"
#include "krn/ditherwave.h"

namespace vexakrn {
namespace {

// --- operations of the wave ---

struct Level {
  using Vector = __m512i;

  static Vector Gather(const uint32_t* entries, Vector keys) noexcept {
    return _mm512_i32gather_epi32(keys, entries, 4);
  }
  static Vector Select(Vector mask, Vector a, Vector b) noexcept {
    return _mm512_ternarylogic_epi64(mask, a, b, 0xCA);  // mask ? a : b
  }
  static bool Any(Vector a) noexcept { return _mm512_test_epi32_mask(a, a) != 0; }
  static void Transpose(uint8_t* to, ptrdiff_t toPitch, const uint8_t* from, ptrdiff_t fromPitch, int32_t rows,
                        int32_t columns) noexcept {
    TransposeAvx2(to, toPitch, from, fromPitch, rows, columns);
  }
};

struct Lanes16 : Lanes<Level, int16_t> {
  static Vector LoadBytes(const uint8_t* from) noexcept {
    return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
  }
  static void StoreBytes(uint8_t* to, Vector a) noexcept {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm512_cvtepi16_epi8(a));
  }
  static Vector Clamped(Vector a) noexcept { return _mm512_min_epi16(_mm512_max_epi16(a, Zero()), Set(255)); }
  static Vector MultiplyHigh(Vector a, Vector b) noexcept { return _mm512_mulhi_epi16(a, b); }
  // The lanes of `low` from the second one on, then the first one of `high`.
  static Vector Next(Vector low, Vector high) noexcept {
    const Vector nextWords = _mm512_alignr_epi32(high, low, 1);
    return _mm512_srli_epi32(low, 16) | _mm512_slli_epi32(nextWords, 16);
  }
};

struct Lanes32 : Lanes<Level, int32_t> {
  static Vector LoadBytes(const uint8_t* from) noexcept {
    return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
  }
  static void StoreBytes(uint8_t* to, Vector a) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm512_cvtepi32_epi8(a));
  }
  static Vector Clamped(Vector a) noexcept { return _mm512_min_epi32(_mm512_max_epi32(a, Zero()), Set(255)); }
  static Vector MultiplyPairs(Vector a, Vector b) noexcept { return _mm512_madd_epi16(a, b); }
  static Vector Next(Vector low, Vector high) noexcept { return _mm512_alignr_epi32(high, low, 1); }
};

using WaveOps32 = Ops32<Lanes32>;
using WaveOps16 = Ops16<Lanes16, WaveOps32>;

// --- lines ---

// Where the bytes of each plane lie in 64 pixels of three bytes: for the first two of the three vectors, then for all,
// with the results of the first step as bytes 0 to 63 and the third vector behind them. And in 32 pixels of four bytes.
struct SplitOrder {
  uint8_t first[3][64], second[3][64], everyFourth[3][64];
};
constexpr SplitOrder kSplitOrder = [] {
  SplitOrder order{};
  for (uint32_t plane = 0; plane < 3; ++plane)
    for (uint32_t i = 0; i < 64; ++i) {
      const uint32_t at = 3 * i + plane;
      order.first[plane][i] = static_cast<uint8_t>(at < 128 ? at : 0);
      order.second[plane][i] = static_cast<uint8_t>(at < 128 ? i : at - 128 + 64);
      order.everyFourth[plane][i] = static_cast<uint8_t>(4 * (i % 32) + plane);
    }
  return order;
}();

void SplitBlock(const uint8_t* pixels, int32_t pixelBytes, uint8_t* const planes[3]) noexcept {
  const auto put = [planes](int32_t plane, __m512i bytes) { _mm512_storeu_si512(planes[plane], bytes); };
  const auto load = [pixels](int32_t vector) { return _mm512_loadu_si512(pixels + 64 * vector); };
  if (pixelBytes == 3) {
    for (int32_t plane = 0; plane < 3; ++plane) {
      const __m512i first = _mm512_permutex2var_epi8(load(0), _mm512_loadu_si512(kSplitOrder.first[plane]), load(1));
      put(plane, _mm512_permutex2var_epi8(first, _mm512_loadu_si512(kSplitOrder.second[plane]), load(2)));
    }
  } else {
    for (int32_t plane = 0; plane < 3; ++plane) {
      const __m512i order = _mm512_loadu_si512(kSplitOrder.everyFourth[plane]);
      const __m512i low = _mm512_permutex2var_epi8(load(0), order, load(1));
      const __m512i high = _mm512_permutex2var_epi8(load(2), order, load(3));
      put(plane, _mm512_inserti64x4(low, _mm512_castsi512_si256(high), 1));
    }
  }
}

void MapBits(const uint8_t* pixels, int32_t count, const uint8_t* least, uint8_t* destination) noexcept {
  long long pattern = 0;
  std::memcpy(&pattern, least, sizeof pattern);
  const __m512i turned = _mm512_broadcast_i32x4(_mm_set_epi64x(0x08090A0B0C0D0E0F, 0x0001020304050607));
  const __m512i thresholds = _mm512_shuffle_epi8(_mm512_set1_epi64(pattern), turned);
  ptrdiff_t x = 0;
  for (; count - x >= 64; x += 64, destination += 8) {
    __builtin_prefetch(pixels + x + kMapAhead);
    const __m512i eights = _mm512_shuffle_epi8(_mm512_loadu_si512(pixels + x), turned);
    const uint64_t bits = _mm512_cmpge_epu8_mask(eights, thresholds);
    std::memcpy(destination, &bits, sizeof bits);
  }
  if (x < count) MapBitsAvx2(pixels + x, static_cast<int32_t>(count - x), least, destination);
}

}  // namespace

const DitherKernels kDitherKernelsAvx512 = {Map<SplitBlock>,
                                            PackIndicesAvx2,
                                            MapBits,
                                            SplitLine<SplitBlock>,
                                            DiffuseBand<WaveOps16, WaveOps32, 64, 64>,
                                            64,
                                            64};

}  // namespace vexakrn
