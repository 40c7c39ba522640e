// Streaming copies with a whole cache line a store.
#include <immintrin.h>

#include "krn/bytecopy.h"

namespace vexakrn {

void StreamLinesAvx512(uint8_t* destination, const uint8_t* source, uint64_t lines) noexcept {
  constexpr uint64_t kLine = 64;
  for (; lines > 0; --lines, destination += kLine, source += kLine)
    _mm512_stream_si512(reinterpret_cast<__m512i*>(destination), _mm512_loadu_si512(source));
  _mm_sfence();
}

}  // namespace vexakrn
