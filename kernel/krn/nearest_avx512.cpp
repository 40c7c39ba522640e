// The nearest palette entry with 512-bit vectors, sixteen entries a step.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/nearestvectors.h"

namespace vexakrn {
namespace {

struct Level {
  using Vector = __m512i;
};

struct Ops : Lanes<Level, int32_t> {
  static Vector Subtract16(Vector a, Vector b) noexcept { return _mm512_sub_epi16(a, b); }
  static Vector MultiplyAdd(Vector a, Vector b) noexcept { return _mm512_madd_epi16(a, b); }
  static Vector Min(Vector a, Vector b) noexcept { return _mm512_min_epi32(a, b); }

  // The first `count` lanes; of `others` the rest.
  static Vector First(Vector v, uint32_t count, Vector others) noexcept {
    return _mm512_mask_mov_epi32(others, Inside(count), v);
  }
  static Vector LoadFirst(const void* from, uint32_t count) noexcept {
    return _mm512_maskz_loadu_epi32(Inside(count), from);
  }

  static Vector Greens(Vector entries) noexcept {
    const __m128i toGreen = _mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
    return _mm512_shuffle_epi8(entries, _mm512_broadcast_i32x4(toGreen));
  }

  // The least lane, in every lane.
  static Vector LeastOf(Vector v) noexcept {
    v = Min(v, _mm512_shuffle_i64x2(v, v, 0x4E));
    v = Min(v, _mm512_shuffle_i64x2(v, v, 0xB1));
    v = Min(v, _mm512_shuffle_epi32(v, _MM_PERM_BADC));
    return Min(v, _mm512_shuffle_epi32(v, _MM_PERM_CDAB));
  }

  // One bit for each of 64 distances: is it `least`? None is below it, so what it exceeds it by can be packed.
  static uint64_t Hits64(const uint8_t* distances, Vector least) noexcept {
    const auto excess = [&](int i) { return _mm512_sub_epi32(Load(distances + 64 * i), least); };
    const Vector packed =
        _mm512_packus_epi16(_mm512_packs_epi32(excess(0), excess(1)), _mm512_packs_epi32(excess(2), excess(3)));
    const Vector order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    const Vector inOrder = _mm512_permutexvar_epi32(order, packed);
    return _mm512_testn_epi8_mask(inOrder, inOrder);
  }

 private:
  static __mmask16 Inside(uint32_t count) noexcept { return static_cast<__mmask16>(_bzhi_u32(0xFFFF, count)); }
};

}  // namespace

const NearestKernels kNearestKernelsAvx512 = {SearchBy<Ops>, LeastKeyBy<Ops>};

}  // namespace vexakrn
