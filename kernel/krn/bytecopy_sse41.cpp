// Streaming copies with a quarter of a cache line a store.
#include <emmintrin.h>

#include "krn/bytecopy.h"

namespace vexakrn {

void StreamLinesSse41(uint8_t* destination, const uint8_t* source, uint64_t lines) noexcept {
  constexpr uint64_t kLine = 64, kAhead = 1024;  // bytes that are asked for before they are read
  for (; lines > 0; --lines, destination += kLine, source += kLine) {
    _mm_prefetch(reinterpret_cast<const char*>(source + kAhead), _MM_HINT_T0);
    __m128i part[4];
    for (int i = 0; i < 4; ++i) part[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source) + i);
    for (int i = 0; i < 4; ++i) _mm_stream_si128(reinterpret_cast<__m128i*>(destination) + i, part[i]);
  }
  _mm_sfence();
}

}  // namespace vexakrn
