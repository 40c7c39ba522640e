// The inner loops of dithering with 256-bit vectors.
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
  using Vector = __m256i;

  static Vector Gather(const uint32_t* entries, Vector keys) noexcept {
    return _mm256_i32gather_epi32(reinterpret_cast<const int*>(entries), keys, 4);
  }
  static Vector Select(Vector mask, Vector a, Vector b) noexcept { return _mm256_blendv_epi8(b, a, mask); }
  static bool Any(Vector a) noexcept { return _mm256_testz_si256(a, a) == 0; }
  static void Transpose(uint8_t* to, ptrdiff_t toPitch, const uint8_t* from, ptrdiff_t fromPitch, int32_t rows,
                        int32_t columns) noexcept {
    TransposeAvx2(to, toPitch, from, fromPitch, rows, columns);
  }

 protected:
  static __m128i High(Vector a) noexcept { return _mm256_extracti128_si256(a, 1); }
  static __m128i Low(Vector a) noexcept { return _mm256_castsi256_si128(a); }
};

struct Lanes16 : Lanes<Level, int16_t> {
  static Vector LoadBytes(const uint8_t* from) noexcept {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
  }
  static void StoreBytes(uint8_t* to, Vector a) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(Low(a), High(a)));
  }
  static Vector Clamped(Vector a) noexcept { return _mm256_min_epi16(_mm256_max_epi16(a, Zero()), Set(255)); }
  static Vector MultiplyHigh(Vector a, Vector b) noexcept { return _mm256_mulhi_epi16(a, b); }
  // The lanes of `low` from the second one on, then the first one of `high`.
  static Vector Next(Vector low, Vector high) noexcept {
    return _mm256_alignr_epi8(_mm256_permute2x128_si256(low, high, 0x21), low, 2);
  }
};

struct Lanes32 : Lanes<Level, int32_t> {
  static Vector LoadBytes(const uint8_t* from) noexcept {
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
  }
  static void StoreBytes(uint8_t* to, Vector a) noexcept {
    const __m128i words = _mm_packus_epi32(Low(a), High(a));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(words, words));
  }
  static Vector Clamped(Vector a) noexcept { return _mm256_min_epi32(_mm256_max_epi32(a, Zero()), Set(255)); }
  static Vector MultiplyPairs(Vector a, Vector b) noexcept { return _mm256_madd_epi16(a, b); }
  static Vector Next(Vector low, Vector high) noexcept {
    return _mm256_alignr_epi8(_mm256_permute2x128_si256(low, high, 0x21), low, 4);
  }
};

using WaveOps32 = Ops32<Lanes32>;
using WaveOps16 = Ops16<Lanes16, WaveOps32>;

// --- lines ---

__m256i LoadHalves(const uint8_t* low, const uint8_t* high) noexcept {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(low))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
}

// 32 pixels of three bytes: the bytes of a plane lie at different places of each 16, so that they can be put together
// first and then ordered.
void Split3(const uint8_t* pixels, int32_t at, uint8_t* const planes[3]) noexcept {
  const __m128i everyThird[3] = {_mm_setr_epi8(-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1),
                                 _mm_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0),
                                 _mm_setr_epi8(0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0)};
  const __m128i order[3] = {_mm_setr_epi8(0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14, 1, 4, 7, 10, 13),
                            _mm_setr_epi8(1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15, 2, 5, 8, 11, 14),
                            _mm_setr_epi8(2, 5, 8, 11, 14, 1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15)};
  const __m256i a = LoadHalves(pixels, pixels + 48), b = LoadHalves(pixels + 16, pixels + 64);
  const __m256i c = LoadHalves(pixels + 32, pixels + 80);
  for (int32_t plane = 0; plane < 3; ++plane) {
    // The plane's bytes are those with (position + plane offset) % 3 == 0; each 16 bytes on, the offset moves by one.
    const __m256i inB = _mm256_broadcastsi128_si256(everyThird[(plane + 2) % 3]);
    const __m256i inC = _mm256_broadcastsi128_si256(everyThird[(plane + 1) % 3]);
    const __m256i mixed = _mm256_blendv_epi8(_mm256_blendv_epi8(a, b, inB), c, inC);
    const __m256i bytes = _mm256_shuffle_epi8(mixed, _mm256_broadcastsi128_si256(order[plane]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[plane] + at), bytes);
  }
}

// 32 pixels of four bytes.
void Split4(const uint8_t* pixels, int32_t at, uint8_t* const planes[3]) noexcept {
  const __m256i byPlane =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
  __m256i eights[4];
  for (int32_t i = 0; i < 4; ++i) {
    const __m256i loaded = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + 32 * i));
    eights[i] = _mm256_shuffle_epi8(loaded, byPlane);
  }
  const __m256i low01 = _mm256_unpacklo_epi32(eights[0], eights[1]),
                low23 = _mm256_unpacklo_epi32(eights[2], eights[3]);
  const __m256i high01 = _mm256_unpackhi_epi32(eights[0], eights[1]);
  const __m256i high23 = _mm256_unpackhi_epi32(eights[2], eights[3]);
  const __m256i mixed[3] = {_mm256_unpacklo_epi64(low01, low23), _mm256_unpackhi_epi64(low01, low23),
                            _mm256_unpacklo_epi64(high01, high23)};
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  for (int32_t plane = 0; plane < 3; ++plane)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(planes[plane] + at),
                        _mm256_permutevar8x32_epi32(mixed[plane], order));
}

void SplitBlock(const uint8_t* pixels, int32_t pixelBytes, uint8_t* const planes[3]) noexcept {
  for (int32_t x = 0; x < kMapBlock; x += 32, pixels += 32 * pixelBytes)
    (pixelBytes == 3 ? Split3 : Split4)(pixels, x, planes);
}

// 32 rows and 16 columns: four rounds of interleaving row i with row i + 8, on rows 0 to 15 in the low and 16 to 31 in the
// high half.
void Transpose32x16(uint8_t* to, ptrdiff_t toPitch, const uint8_t* from, ptrdiff_t fromPitch) noexcept {
  __m256i a[16], b[16];
  for (int32_t i = 0; i < 16; ++i) a[i] = LoadHalves(from + i * fromPitch, from + (i + 16) * fromPitch);
  for (int32_t round = 0; round < 2; ++round) {
    for (int32_t i = 0; i < 8; ++i) {
      b[2 * i] = _mm256_unpacklo_epi8(a[i], a[i + 8]);
      b[2 * i + 1] = _mm256_unpackhi_epi8(a[i], a[i + 8]);
    }
    for (int32_t i = 0; i < 8; ++i) {
      a[2 * i] = _mm256_unpacklo_epi8(b[i], b[i + 8]);
      a[2 * i + 1] = _mm256_unpackhi_epi8(b[i], b[i + 8]);
    }
  }
  for (int32_t i = 0; i < 16; ++i) _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i * toPitch), a[i]);
}

// A movemask takes the first byte for the least significant bit; within each eight they are turned round.
__m256i TurnEights(__m256i bytes) noexcept {
  const __m128i backwards = _mm_set_epi64x(0x08090A0B0C0D0E0F, 0x0001020304050607);
  return _mm256_shuffle_epi8(bytes, _mm256_broadcastsi128_si256(backwards));
}

}  // namespace

// Eight indices fill `bits` bytes.
void PackIndicesAvx2(const uint8_t* indices, int32_t count, uint32_t bits, uint8_t* destination) noexcept {
  ptrdiff_t x = 0;
  if (bits == 1) {
    for (; x + 32 <= count; x += 32, destination += 4) {
      const __m256i flags = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(indices + x));
      const int packed = _mm256_movemask_epi8(_mm256_slli_epi16(TurnEights(flags), 7));
      std::memcpy(destination, &packed, sizeof packed);
    }
  }
  const uint64_t mask = 0x0101010101010101u * ((1u << bits) - 1);
  const auto packEight = [&](uint64_t eight) {
    return __builtin_bswap64(_pext_u64(__builtin_bswap64(eight), mask) << (64 - 8 * bits));
  };
  // A store of eight bytes reaches into the next pixels' bytes: these must follow.
  for (; x + 64 + 8 <= count; x += 8, destination += bits) {
    uint64_t eight = 0;
    std::memcpy(&eight, indices + x, sizeof eight);
    const uint64_t packed = packEight(eight);
    std::memcpy(destination, &packed, sizeof packed);
  }
  for (; x < count; x += 8) {
    const ptrdiff_t pixels = count - x < 8 ? count - x : 8;
    uint64_t eight = 0;
    std::memcpy(&eight, indices + x, static_cast<size_t>(pixels));
    const uint64_t packed = packEight(eight);
    const uint32_t bytes = (static_cast<uint32_t>(pixels) * bits + 7) / 8;
    std::memcpy(destination, &packed, bytes);
    destination += bytes;
  }
}

void MapBitsAvx2(const uint8_t* pixels, int32_t count, const uint8_t* least, uint8_t* destination) noexcept {
  uint8_t eight[8], rest[32] = {};
  std::memcpy(eight, least, sizeof eight);
  long long pattern = 0;
  std::memcpy(&pattern, eight, sizeof pattern);
  const __m256i thresholds = TurnEights(_mm256_set1_epi64x(pattern));
  const auto map = [thresholds](const uint8_t* from) {
    const __m256i turned = TurnEights(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
    return _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(turned, thresholds), turned));
  };
  int32_t x = 0;
  for (; count - x >= 32; x += 32, destination += 4) {
    __builtin_prefetch(pixels + x + kMapAhead);
    const int bits = map(pixels + x);
    std::memcpy(destination, &bits, sizeof bits);
  }
  if (x == count) return;
  const auto left = static_cast<uint32_t>(count - x);
  std::memcpy(rest, pixels + x, left);
  const int bits = map(rest);
  std::memcpy(destination, &bits, (left + 7) / 8);
  if (left % 8 != 0) destination[left / 8] &= static_cast<uint8_t>(0xFF00u >> left % 8);
}

void TransposeAvx2(uint8_t* to, ptrdiff_t toPitch, const uint8_t* from, ptrdiff_t fromPitch, int32_t rows,
                   int32_t columns) noexcept {
  for (int32_t row = 0; row < rows; row += 32)
    for (int32_t column = 0; column < columns; column += 16)
      Transpose32x16(to + column * toPitch + row, toPitch, from + row * fromPitch + column, fromPitch);
}

const DitherKernels kDitherKernelsAvx2 = {Map<SplitBlock>,
                                          PackIndicesAvx2,
                                          MapBitsAvx2,
                                          SplitLine<SplitBlock>,
                                          DiffuseBand<WaveOps16, WaveOps32, 64, 32>,
                                          64,
                                          32};

}  // namespace vexakrn
