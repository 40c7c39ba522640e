// Run-length records with 512-bit vectors: as with AVX2, but a word gives its positions in one compression of bytes.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/runkernels.h"

namespace vexakrn {
namespace {

// Reverses the bits of each byte, so that pixels run from the least significant bit of a word on.
__m512i ReverseBits(__m512i bytes) noexcept {
  const __m512i lowNibbles = _mm512_set1_epi8(0x0F);
  const __m512i low =
      _mm512_broadcast_i32x4(_mm_setr_epi8(0, -128, 64, -64, 32, -96, 96, -32, 16, -112, 80, -48, 48, -80, 112, -16));
  const __m512i high = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15));
  return _mm512_or_si512(_mm512_shuffle_epi8(low, _mm512_and_si512(bytes, lowNibbles)),
                         _mm512_shuffle_epi8(high, _mm512_and_si512(_mm512_srli_epi16(bytes, 4), lowNibbles)));
}

__m512i BytesFrom0To63() noexcept {
  return _mm512_set_epi64(0x3F3E3D3C3B3A3938, 0x3736353433323130, 0x2F2E2D2C2B2A2928, 0x2726252423222120,
                          0x1F1E1D1C1B1A1918, 0x1716151413121110, 0x0F0E0D0C0B0A0908, 0x0706050403020100);
}

// Appends the positions of the bits set in `word`; its first bit is at `base`.
uint16_t* WritePositions(uint16_t* out, uint64_t word, uint16_t base) noexcept {
  const __m512i bits = _mm512_maskz_compress_epi8(word, BytesFrom0To63());
  const __m512i offset = _mm512_set1_epi16(static_cast<int16_t>(base));
  const auto count = static_cast<uint32_t>(_mm_popcnt_u64(word));
  _mm512_storeu_si512(out, _mm512_add_epi16(_mm512_cvtepu8_epi16(_mm512_castsi512_si256(bits)), offset));
  if (count > 32) {
    const __m256i rest = _mm512_extracti64x4_epi64(bits, 1);
    _mm512_storeu_si512(out + 32, _mm512_add_epi16(_mm512_cvtepu8_epi16(rest), offset));
  }
  return out + count;
}

// Clears the bits from bit `left` of the vector on.
__m512i KeepBits(__m512i bits, uint32_t left) noexcept {
  const __m512i firstBits = _mm512_set_epi64(448, 384, 320, 256, 192, 128, 64, 0);
  const __m512i inWord = _mm512_max_epi64(_mm512_sub_epi64(_mm512_set1_epi64(left), firstBits), _mm512_setzero_si512());
  return _mm512_andnot_si512(_mm512_sllv_epi64(_mm512_set1_epi64(-1), inWord), bits);
}

uint16_t* FindChangesAvx512(uint16_t* out, const uint8_t* source, uint32_t skipped, uint32_t bits, uint16_t base,
                            uint32_t colour) noexcept {
  const uint32_t bytes = (bits + 7) / 8;
  __m512i mask =
      _mm512_mask_set1_epi64(_mm512_set1_epi64(-1), 1, static_cast<int64_t>(~uint64_t{0} << 8 | 0xFFu >> skipped));
  __m512i before = _mm512_set1_epi64(0 - static_cast<int64_t>(colour));  // the pixels of the block before
  for (uint32_t at = 0; at < bytes; at += 64, mask = _mm512_set1_epi64(-1)) {
    const uint32_t left = bytes - at;
    const __mmask64 inside = left < 64 ? ~uint64_t{0} >> (64 - left) : ~uint64_t{0};
    const __m512i pixels = ReverseBits(_mm512_and_si512(_mm512_maskz_loadu_epi8(inside, source + at), mask));
    const __m512i wordsBefore = _mm512_alignr_epi64(pixels, before, 7);
    before = pixels;
    __m512i changes =
        _mm512_xor_si512(pixels, _mm512_or_si512(_mm512_slli_epi64(pixels, 1), _mm512_srli_epi64(wordsBefore, 63)));
    if (bits - 8 * at < 512) changes = KeepBits(changes, bits - 8 * at);
    if (_mm512_test_epi64_mask(changes, changes) == 0) continue;
    uint64_t words[8];
    _mm512_storeu_si512(words, changes);
    for (uint32_t i = 0; i < 8; ++i) out = WritePositions(out, words[i], static_cast<uint16_t>(base + 8 * at + 64 * i));
  }
  return out;
}

uint32_t Encode(uint8_t* words, const uint8_t* source, uint32_t bitOffset, uint32_t pixels) noexcept {
  return EncodeByChanges(FindChangesAvx512, words, source, bitOffset, pixels);
}

// --- summing ---

uint64_t Sum(const uint8_t* words, uint64_t count) noexcept {
  // A word is low byte + 256 * high byte: the sum of all bytes and 255 times that of the high ones.
  const __m512i zero = _mm512_setzero_si512();
  __m512i all = zero, high = zero;
  const auto add = [&](__m512i runs) noexcept {
    all = _mm512_add_epi64(all, _mm512_sad_epu8(runs, zero));
    high = _mm512_add_epi64(high, _mm512_sad_epu8(_mm512_srli_epi16(runs, 8), zero));
  };
  const uint8_t* const end = words + 2 * count;
  for (; end - words >= 64; words += 64) add(_mm512_loadu_si512(words));
  if (words < end) add(_mm512_maskz_loadu_epi8(~uint64_t{0} >> (64 - (end - words)), words));
  return static_cast<uint64_t>(_mm512_reduce_add_epi64(all)) +
         255 * static_cast<uint64_t>(_mm512_reduce_add_epi64(high));
}

}  // namespace

const RunKernels kRunKernelsAvx512 = {Encode, Sum, ExpandRunsAvx2};

}  // namespace vexakrn
