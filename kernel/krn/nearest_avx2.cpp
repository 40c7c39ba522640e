// The nearest palette entry with 256-bit vectors, eight entries a step.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/nearestkernels.h"

namespace vexakrn {
namespace {

const __m256i* Vector(const void* address) noexcept { return static_cast<const __m256i*>(address); }

// A colour as blue and red in one word of 32 bits and green in another.
struct Wanted {
  __m256i blueRed, green;
};

__m256i Distances(__m256i entries, const Wanted& wanted) noexcept {
  const __m256i toGreen = _mm256_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1,  //
                                           1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
  const __m256i blueRed = _mm256_sub_epi16(_mm256_and_si256(entries, _mm256_set1_epi32(0x00FF00FF)), wanted.blueRed);
  const __m256i green = _mm256_sub_epi16(_mm256_shuffle_epi8(entries, toGreen), wanted.green);
  return _mm256_add_epi32(_mm256_madd_epi16(blueRed, blueRed), _mm256_madd_epi16(green, green));
}

// The least lane, in every lane.
__m256i LeastOf(__m256i v) noexcept {
  v = _mm256_min_epi32(v, _mm256_permute2x128_si256(v, v, 1));
  v = _mm256_min_epi32(v, _mm256_shuffle_epi32(v, 0x4E));
  return _mm256_min_epi32(v, _mm256_shuffle_epi32(v, 0xB1));
}

// One bit for each of 32 distances: is it `least`?
uint32_t Hits32(const int32_t* distances, __m256i least) noexcept {
  const auto hits = [&](int i) { return _mm256_cmpeq_epi32(_mm256_loadu_si256(Vector(distances + 8 * i)), least); };
  const __m256i packed = _mm256_packs_epi16(_mm256_packs_epi32(hits(0), hits(1)), _mm256_packs_epi32(hits(2), hits(3)));
  const __m256i inOrder = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  return static_cast<uint32_t>(_mm256_movemask_epi8(inOrder));
}

uint32_t FindHitsAvx2(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b,
                      uint64_t hits[4]) noexcept {
  const Wanted wanted = {_mm256_set1_epi32(static_cast<int32_t>(b | r << 16)),
                         _mm256_set1_epi32(static_cast<int32_t>(g))};
  const __m256i none = _mm256_set1_epi32(INT32_MAX);
  int32_t distances[kBlockEntries];
  __m256i least = none;
  uint32_t i = 0;
  const auto put = [&](__m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(distances + i), v);
    least = _mm256_min_epi32(least, v);
    i += 8;
  };
  const auto next = [&] { put(Distances(_mm256_loadu_si256(Vector(entries + 4 * i)), wanted)); };
  while (i + 32 <= count) next(), next(), next(), next();
  while (i + 8 <= count) next();
  if (i < count) {
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i inside = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int32_t>(count - i)), lanes);
    const __m256i rest = _mm256_maskload_epi32(reinterpret_cast<const int*>(entries + 4 * i), inside);
    put(_mm256_blendv_epi8(none, Distances(rest, wanted), inside));
  }
  while (i % 64 != 0) put(none);

  least = LeastOf(least);
  for (uint32_t word = 0; word < 4; ++word) {
    const int32_t* at = distances + 64 * word;
    hits[word] = 64 * word >= i ? 0 : Hits32(at, least) | uint64_t{Hits32(at + 32, least)} << 32;
  }
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(least)));
}

uint32_t SearchAvx2(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b) noexcept {
  if (count <= kBlockEntries) {  // mostly there is one hit, and it decides
    uint64_t hits[4];
    FindHitsAvx2(entries, count, r, g, b, hits);
    const int64_t number =
        _mm_popcnt_u64(hits[0]) + _mm_popcnt_u64(hits[1]) + _mm_popcnt_u64(hits[2]) + _mm_popcnt_u64(hits[3]);
    if (number == 1) {
      const auto bit = static_cast<uint32_t>(_tzcnt_u64(hits[0] | hits[1] | hits[2] | hits[3]));
      return bit + 64u * (hits[1] != 0) + 128u * (hits[2] != 0) + 192u * (hits[3] != 0);
    }
  }
  return SearchByHits(FindHitsAvx2, entries, count, r, g, b);
}

int32_t LeastKeyAvx2(const NearestColumns& columns, uint32_t r, uint32_t g, uint32_t b) noexcept {
  // -2 * r in the low half and -2 * g in the high half of each 32 bits.
  const auto weights = [](uint32_t low, uint32_t high) {
    return _mm256_set1_epi32(static_cast<int32_t>(((0 - 2 * low) & 0xFFFF) | (0 - 2 * high) << 16));
  };
  const __m256i redGreen = weights(r, g), blueNone = weights(b, 0);
  const auto keys = [&](uint32_t i) {
    const __m256i product =
        _mm256_add_epi32(_mm256_madd_epi16(_mm256_loadu_si256(Vector(columns.redGreen + 2 * i)), redGreen),
                         _mm256_madd_epi16(_mm256_loadu_si256(Vector(columns.blueNone + 2 * i)), blueNone));
    return _mm256_add_epi32(_mm256_slli_epi32(product, kKeyShift), _mm256_loadu_si256(Vector(columns.keys + i)));
  };
  __m256i even = keys(0), odd = keys(8);
  for (uint32_t i = 16; i < columns.count; i += 16) {
    even = _mm256_min_epi32(even, keys(i));
    odd = _mm256_min_epi32(odd, keys(i + 8));
  }
  return _mm_cvtsi128_si32(_mm256_castsi256_si128(LeastOf(_mm256_min_epi32(even, odd))));
}

}  // namespace

const NearestKernels kNearestKernelsAvx2 = {SearchAvx2, LeastKeyAvx2};

}  // namespace vexakrn
