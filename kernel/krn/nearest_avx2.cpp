// The nearest palette entry with 256-bit vectors, eight entries a step.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/nearestvectors.h"

namespace vexakrn {
namespace {

struct Level {
  using Vector = __m256i;
};

struct Ops : Lanes<Level, int32_t> {
  static Vector Subtract16(Vector a, Vector b) noexcept { return _mm256_sub_epi16(a, b); }
  static Vector MultiplyAdd(Vector a, Vector b) noexcept { return _mm256_madd_epi16(a, b); }
  static Vector Min(Vector a, Vector b) noexcept { return _mm256_min_epi32(a, b); }

  // The first `count` lanes; of `others` the rest.
  static Vector First(Vector v, uint32_t count, Vector others) noexcept {
    return _mm256_blendv_epi8(others, v, Inside(count));
  }
  static Vector LoadFirst(const void* from, uint32_t count) noexcept {
    return _mm256_maskload_epi32(static_cast<const int*>(from), Inside(count));
  }

  static Vector Greens(Vector entries) noexcept {
    const __m128i toGreen = _mm_setr_epi8(1, -1, -1, -1, 5, -1, -1, -1, 9, -1, -1, -1, 13, -1, -1, -1);
    return _mm256_shuffle_epi8(entries, _mm256_broadcastsi128_si256(toGreen));
  }

  // The least lane, in every lane.
  static Vector LeastOf(Vector v) noexcept {
    v = Min(v, _mm256_permute2x128_si256(v, v, 1));
    v = Min(v, _mm256_shuffle_epi32(v, 0x4E));
    return Min(v, _mm256_shuffle_epi32(v, 0xB1));
  }

  // One bit for each of 64 distances: is it `least`?
  static uint64_t Hits64(const uint8_t* distances, Vector least) noexcept {
    return Hits32(distances, least) | uint64_t{Hits32(distances + 128, least)} << 32;
  }

 private:
  static Vector Inside(uint32_t count) noexcept {
    return _mm256_cmpgt_epi32(Set(static_cast<int32_t>(count)), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
  }

  static uint32_t Hits32(const uint8_t* distances, Vector least) noexcept {
    const auto hits = [&](int i) { return _mm256_cmpeq_epi32(Load(distances + 32 * i), least); };
    const Vector packed =
        _mm256_packs_epi16(_mm256_packs_epi32(hits(0), hits(1)), _mm256_packs_epi32(hits(2), hits(3)));
    const Vector inOrder = _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    return static_cast<uint32_t>(_mm256_movemask_epi8(inOrder));
  }
};

}  // namespace

const NearestKernels kNearestKernelsAvx2 = {SearchBy<Ops>, LeastKeyBy<Ops>};

}  // namespace vexakrn
