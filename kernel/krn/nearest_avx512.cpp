// The nearest palette entry with 512-bit vectors, sixteen entries a step.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/nearestkernels.h"

namespace vexakrn {
namespace {

// A colour as blue and red in one word of 32 bits and green in another.
struct Wanted {
  __m512i blueRed, green;
};

__m512i Distances(__m512i entries, const Wanted& wanted) noexcept {
  const __m512i toGreen =
      _mm512_broadcast_i32x4(_mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1));
  const __m512i blueRed = _mm512_sub_epi16(_mm512_and_si512(entries, _mm512_set1_epi32(0x00FF00FF)), wanted.blueRed);
  const __m512i green = _mm512_sub_epi16(_mm512_shuffle_epi8(entries, toGreen), wanted.green);
  return _mm512_add_epi32(_mm512_madd_epi16(blueRed, blueRed), _mm512_madd_epi16(green, green));
}

// The least lane, in every lane.
__m512i LeastOf(__m512i v) noexcept {
  v = _mm512_min_epi32(v, _mm512_shuffle_i64x2(v, v, 0x4E));
  v = _mm512_min_epi32(v, _mm512_shuffle_i64x2(v, v, 0xB1));
  v = _mm512_min_epi32(v, _mm512_shuffle_epi32(v, _MM_PERM_BADC));
  return _mm512_min_epi32(v, _mm512_shuffle_epi32(v, _MM_PERM_CDAB));
}

int32_t FirstLane(__m512i v) noexcept { return _mm_cvtsi128_si32(_mm512_castsi512_si128(v)); }

// One bit for each of 64 distances: is it `least`? None is below it, so what it exceeds it by can be packed.
uint64_t Hits64(const uint8_t* distances, __m512i least) noexcept {
  const auto excess = [&](int i) { return _mm512_sub_epi32(_mm512_loadu_si512(distances + 64 * i), least); };
  const __m512i packed =
      _mm512_packus_epi16(_mm512_packs_epi32(excess(0), excess(1)), _mm512_packs_epi32(excess(2), excess(3)));
  const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m512i inOrder = _mm512_permutexvar_epi32(order, packed);
  return _mm512_testn_epi8_mask(inOrder, inOrder);
}

uint32_t FindHitsAvx512(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b,
                        uint64_t hits[4]) noexcept {
  const Wanted wanted = {_mm512_set1_epi32(static_cast<int32_t>(b | r << 16)),
                         _mm512_set1_epi32(static_cast<int32_t>(g))};
  uint8_t room[4 * kBlockEntries + 64];
  uint8_t* distances = room + (0 - reinterpret_cast<uintptr_t>(room)) % 64;  // whole cache lines
  const __m512i none = _mm512_set1_epi32(INT32_MAX);
  __m512i least = none;
  uint32_t i = 0;
  const auto put = [&](__m512i v) {
    _mm512_storeu_si512(distances + 4 * i, v);
    least = _mm512_min_epi32(least, v);
    i += 16;
  };
  const auto next = [&] { put(Distances(_mm512_loadu_si512(entries + 4 * i), wanted)); };
  while (i + 64 <= count) next(), next(), next(), next();
  while (i + 16 <= count) next();
  if (i < count) {
    const auto inside = static_cast<__mmask16>(_bzhi_u32(0xFFFF, count - i));
    const __m512i rest = Distances(_mm512_maskz_loadu_epi32(inside, entries + 4 * i), wanted);
    put(_mm512_mask_mov_epi32(none, inside, rest));
  }
  while (i % 64 != 0) put(none);

  least = LeastOf(least);
  for (uint32_t word = 0; word < 4; ++word) hits[word] = 64 * word < i ? Hits64(distances + 256 * word, least) : 0;
  return static_cast<uint32_t>(FirstLane(least));
}

uint32_t SearchAvx512(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b) noexcept {
  if (count <= kBlockEntries) {  // mostly there is one hit, and it decides
    uint64_t hits[4];
    FindHitsAvx512(entries, count, r, g, b, hits);
    const int64_t number =
        _mm_popcnt_u64(hits[0]) + _mm_popcnt_u64(hits[1]) + _mm_popcnt_u64(hits[2]) + _mm_popcnt_u64(hits[3]);
    if (number == 1) {
      const auto bit = static_cast<uint32_t>(_tzcnt_u64(hits[0] | hits[1] | hits[2] | hits[3]));
      return bit + 64u * (hits[1] != 0) + 128u * (hits[2] != 0) + 192u * (hits[3] != 0);
    }
  }
  return SearchByHits(FindHitsAvx512, entries, count, r, g, b);
}

int32_t LeastKeyAvx512(const NearestColumns& columns, uint32_t r, uint32_t g, uint32_t b) noexcept {
  // -2 * r in the low half and -2 * g in the high half of each 32 bits.
  const auto weights = [](uint32_t low, uint32_t high) {
    return _mm512_set1_epi32(static_cast<int32_t>(((0 - 2 * low) & 0xFFFF) | (0 - 2 * high) << 16));
  };
  const __m512i redGreen = weights(r, g), blueNone = weights(b, 0);
  __m512i least = _mm512_set1_epi32(INT32_MAX);
  for (uint32_t i = 0; i < columns.count; i += 16) {
    const __m512i product = _mm512_add_epi32(_mm512_madd_epi16(_mm512_loadu_si512(columns.redGreen + 2 * i), redGreen),
                                             _mm512_madd_epi16(_mm512_loadu_si512(columns.blueNone + 2 * i), blueNone));
    const __m512i key = _mm512_add_epi32(_mm512_slli_epi32(product, kKeyShift), _mm512_loadu_si512(columns.keys + i));
    least = _mm512_min_epi32(least, key);
  }
  return FirstLane(LeastOf(least));
}

}  // namespace

const NearestKernels kNearestKernelsAvx512 = {SearchAvx512, LeastKeyAvx512};

}  // namespace vexakrn
