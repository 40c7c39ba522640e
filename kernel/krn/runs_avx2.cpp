// Run-length records with AVX2 and BMI2.
//
// Encoding: the colour changes where a word differs from itself shifted by a pixel. The positions of those bits are
// written out through a table of bytes, without a branch that would depend on the picture, and runs are the differences
// of neighbouring positions. Expanding: one bit is turned over where each run ends; then every pixel is the parity of
// the bits up to it.
//
// Nothing here relies on an aligned stack (see kernel/CMakeLists.txt).
#include <immintrin.h>

#include "krn/runkernels.h"

namespace vexakrn {
namespace {

constexpr uint64_t kMaxRun = 65535;

uint64_t LoadWord(const uint8_t* at) noexcept {
  uint64_t word = 0;
  __builtin_memcpy(&word, at, sizeof word);
  return word;
}

// --- encoding ---

// The numbers of the bits that are set in a byte, from the least significant on.
struct BitsOfByte {
  uint16_t at[256][8];
};

alignas(64) constexpr BitsOfByte kBitsOfByte = [] {
  BitsOfByte bits{};
  for (uint32_t byte = 0; byte < 256; ++byte)
    for (uint32_t bit = 0, count = 0; bit < 8; ++bit)
      if ((byte >> bit & 1) != 0) bits.at[byte][count++] = static_cast<uint16_t>(bit);
  return bits;
}();

// Reverses the bits of each byte, so that pixels run from the least significant bit of a word on.
__m256i ReverseBits(__m256i bytes) noexcept {
  const __m256i lowNibbles = _mm256_set1_epi8(0x0F);
  const __m256i low = _mm256_setr_epi8(0, -128, 64, -64, 32, -96, 96, -32, 16, -112, 80, -48, 48, -80, 112, -16,  //
                                       0, -128, 64, -64, 32, -96, 96, -32, 16, -112, 80, -48, 48, -80, 112, -16);
  const __m256i high = _mm256_setr_epi8(0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15,  //
                                        0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15);
  return _mm256_or_si256(_mm256_shuffle_epi8(low, _mm256_and_si256(bytes, lowNibbles)),
                         _mm256_shuffle_epi8(high, _mm256_and_si256(_mm256_srli_epi16(bytes, 4), lowNibbles)));
}

// Appends the positions of the bits set in `word`; its first bit is at `base`.
uint16_t* WritePositions(uint16_t* out, uint64_t word, uint16_t base) noexcept {
  __m128i offset = _mm_set1_epi16(static_cast<int16_t>(base));
  for (int i = 0; i < 8; ++i, word >>= 8) {
    const __m128i bits = _mm_load_si128(reinterpret_cast<const __m128i*>(kBitsOfByte.at[word & 0xFF]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_add_epi16(bits, offset));
    offset = _mm_add_epi16(offset, _mm_set1_epi16(8));
    out += _mm_popcnt_u32(static_cast<uint32_t>(word & 0xFF));
  }
  return out;
}

// The colour changes of 64 pixels in reversed bits. `*colour` (all ones or 0) is that of the pixel before, then that of
// the last one.
uint64_t Changes(uint64_t pixels, uint64_t* colour) noexcept {
  const uint64_t changes = pixels ^ (pixels << 1 | (*colour & 1));
  *colour = static_cast<uint64_t>(static_cast<int64_t>(pixels) >> 63);
  return changes;
}

// The bytes of the segment from `at` on, up to 8 of them; the others are 0.
uint64_t LoadEnd(const uint8_t* source, uint32_t at, uint32_t bytes) noexcept {
  const uint32_t left = bytes - at;
  if (left >= 8) return LoadWord(source + at);
  if (bytes >= 8) return LoadWord(source + bytes - 8) >> (64 - 8 * left);
  uint64_t word = 0;
  for (uint32_t i = 0; i < left; ++i) word |= uint64_t{source[at + i]} << (8 * i);
  return word;
}

uint16_t* FindChangesAvx2(uint16_t* out, const uint8_t* source, uint32_t skipped, uint32_t bits, uint16_t base,
                          uint32_t colour) noexcept {
  const uint32_t wholeBytes = bits / 256 * 32, bytes = (bits + 7) / 8;
  uint64_t before = 0 - uint64_t{colour};
  const uint64_t keep = ~uint64_t{0} << 8 | 0xFFu >> skipped;  // of the first word
  __m256i mask = _mm256_set_epi64x(-1, -1, -1, static_cast<int64_t>(keep));
  uint32_t at = 0;
  for (; at < wholeBytes; at += 32, mask = _mm256_set1_epi64x(-1)) {
    const __m256i raw = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + at)), mask);
    const __m256i blank = _mm256_cmpeq_epi8(raw, _mm256_set1_epi64x(static_cast<int64_t>(before)));
    if (_mm256_movemask_epi8(blank) == -1) continue;
    const __m256i pixels = ReverseBits(raw);
    const auto write = [&, first = base + 8 * at](int64_t word, uint32_t bit) noexcept {
      out = WritePositions(out, Changes(static_cast<uint64_t>(word), &before), static_cast<uint16_t>(first + bit));
    };
    write(_mm256_extract_epi64(pixels, 0), 0);
    write(_mm256_extract_epi64(pixels, 1), 64);
    write(_mm256_extract_epi64(pixels, 2), 128);
    write(_mm256_extract_epi64(pixels, 3), 192);
  }
  for (; at < bytes; at += 8) {
    const uint64_t raw = LoadEnd(source, at, bytes) & (at == 0 ? keep : ~uint64_t{0});
    const auto pixels = ReverseBits(_mm256_set_epi64x(0, 0, 0, static_cast<int64_t>(raw)));
    uint64_t changes = Changes(static_cast<uint64_t>(_mm256_extract_epi64(pixels, 0)), &before);
    if (const uint32_t left = bits - 8 * at; left < 64) changes = _bzhi_u64(changes, left);
    if (changes != 0) out = WritePositions(out, changes, static_cast<uint16_t>(base + 8 * at));
  }
  return out;
}

void PutRun(uint8_t* words, uint64_t run) noexcept {
  const auto word = static_cast<uint16_t>(run);
  __builtin_memcpy(words, &word, sizeof word);
}

// Writes `count` differences of neighbouring positions, and not a byte more: what is left of the last vector is
// written by one that overlaps the others.
void PutDifferences(uint8_t* words, const uint16_t* positions, uint32_t count) noexcept {
  const auto put16 = [=](uint32_t i) noexcept {
    const __m256i from = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(positions + i));
    const __m256i to = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(positions + i + 1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(words + 2 * i), _mm256_sub_epi16(to, from));
  };
  const auto put8 = [=](uint32_t i) noexcept {
    const __m128i from = _mm_loadu_si128(reinterpret_cast<const __m128i*>(positions + i));
    const __m128i to = _mm_loadu_si128(reinterpret_cast<const __m128i*>(positions + i + 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(words + 2 * i), _mm_sub_epi16(to, from));
  };
  if (count >= 16) {
    for (uint32_t i = 0; i + 16 <= count; i += 16) put16(i);
    put16(count - 16);
  } else if (count >= 8) {
    put8(0);
    put8(count - 8);
  } else {
    for (uint32_t i = 0; i < count; ++i) PutRun(words + 2 * i, static_cast<uint16_t>(positions[i + 1] - positions[i]));
  }
}

// Writes the pieces of a run that is too long, but for the last: they end at whole bytes. Returns their end, and moves
// `*start` there.
uint8_t* CutRun(uint8_t* words, uint64_t* start, uint64_t end) noexcept {
  while (end - *start > kMaxRun) {
    const uint64_t cut = (*start + kMaxRun) & ~uint64_t{7};
    PutRun(words, cut - *start);
    PutRun(words + 2, 0);
    words += 4;
    *start = cut;
  }
  return words;
}

uint32_t EncodeAvx2(uint8_t* words, const uint8_t* source, uint32_t bitOffset, uint32_t pixels) noexcept {
  return EncodeByChanges(FindChangesAvx2, words, source, bitOffset, pixels);
}

// --- summing ---

uint64_t SumOfLanes(__m256i lanes) noexcept {
  const __m128i pair = _mm_add_epi64(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
  return static_cast<uint64_t>(_mm_extract_epi64(pair, 0)) + static_cast<uint64_t>(_mm_extract_epi64(pair, 1));
}

uint32_t RunAt(const uint8_t* words, uint64_t index) noexcept {
  uint16_t run = 0;
  __builtin_memcpy(&run, words + 2 * index, sizeof run);
  return run;
}

uint64_t Sum(const uint8_t* words, uint64_t count) noexcept {
  // A word is low byte + 256 * high byte: the sum of all bytes and 255 times that of the high ones.
  const __m256i zero = _mm256_setzero_si256();
  __m256i all = zero, high = zero;
  uint64_t i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m256i runs = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + 2 * i));
    all = _mm256_add_epi64(all, _mm256_sad_epu8(runs, zero));
    high = _mm256_add_epi64(high, _mm256_sad_epu8(_mm256_srli_epi16(runs, 8), zero));
  }
  uint64_t sum = SumOfLanes(all) + 255 * SumOfLanes(high);
  for (; i < count; ++i) sum += RunAt(words, i);
  return sum;
}

// --- expanding ---

// Turns over the bit at the end of each run. The first run starts at `position`, which may lie before the row
// (modulo 2^64); ends from `limit` on do not count.
void TurnOverEnds(uint8_t* row, uint64_t limit, const uint8_t* words, uint64_t count, uint64_t position) noexcept {
  uint64_t i = 0;
  for (; i + 8 <= count; i += 8) {
    uint64_t ends[8];
    ends[0] = position + RunAt(words, i);
    for (uint32_t k = 1; k < 8; ++k) ends[k] = ends[k - 1] + RunAt(words, i + k);
    if (ends[7] >= limit) break;
    position = ends[7];
    for (const uint64_t end : ends) row[end / 8] = static_cast<uint8_t>(row[end / 8] ^ 0x80u >> end % 8);
  }
  for (; i < count; ++i) {
    position += RunAt(words, i);
    if (position >= limit) return;
    row[position / 8] = static_cast<uint8_t>(row[position / 8] ^ 0x80u >> position % 8);
  }
}

// The parity of the bits from the most significant one on, in each bit of a word.
uint64_t Parities(uint64_t word) noexcept {
  for (int shift = 1; shift < 64; shift *= 2) word ^= word >> shift;
  return word;
}

// What four words are to be turned over by: bit 4 of the index is the parity of all bits before them, bits 0 to 3 are
// their own parities.
struct WordMasks {
  uint64_t mask[32][4];
};

alignas(32) constexpr WordMasks kWordMasks = [] {
  WordMasks masks{};
  for (uint32_t index = 0; index < 32; ++index) {
    uint32_t odd = index >> 4;
    for (uint32_t word = 0; word < 4; odd ^= index >> word++ & 1) masks.mask[index][word] = 0 - uint64_t{odd};
  }
  return masks;
}();

// Replaces each bit by the parity of the bits up to it, and of `odd`.
void FillFromTurns(uint8_t* row, uint64_t bytes, uint32_t odd) noexcept {
  const __m256i swap = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,  //
                                        7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  uint64_t at = 0;
  for (; at + 32 <= bytes; at += 32) {
    auto* const block = reinterpret_cast<__m256i*>(row + at);
    __m256i bits = _mm256_shuffle_epi8(_mm256_loadu_si256(block), swap);
    bits = _mm256_xor_si256(bits, _mm256_srli_epi64(bits, 1));
    bits = _mm256_xor_si256(bits, _mm256_srli_epi64(bits, 2));
    bits = _mm256_xor_si256(bits, _mm256_srli_epi64(bits, 4));
    bits = _mm256_xor_si256(bits, _mm256_srli_epi64(bits, 8));
    bits = _mm256_xor_si256(bits, _mm256_srli_epi64(bits, 16));
    bits = _mm256_xor_si256(bits, _mm256_srli_epi64(bits, 32));
    const __m256d signs = _mm256_castsi256_pd(_mm256_slli_epi64(bits, 63));
    const auto parities = static_cast<uint32_t>(_mm256_movemask_pd(signs));
    const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(kWordMasks.mask[odd << 4 | parities]));
    odd ^= static_cast<uint32_t>(_mm_popcnt_u32(parities)) & 1;
    _mm256_storeu_si256(block, _mm256_shuffle_epi8(_mm256_xor_si256(bits, mask), swap));
  }
  for (; at + 8 <= bytes; at += 8) {
    const uint64_t bits = Parities(__builtin_bswap64(LoadWord(row + at))) ^ (0 - uint64_t{odd});
    const uint64_t word = __builtin_bswap64(bits);
    __builtin_memcpy(row + at, &word, sizeof word);
    odd = static_cast<uint32_t>(bits & 1);
  }
  for (; at < bytes; ++at) {
    const uint64_t bits = Parities(row[at]) ^ (0 - uint64_t{odd});
    row[at] = static_cast<uint8_t>(bits);
    odd = static_cast<uint32_t>(bits & 1);
  }
}

}  // namespace

uint32_t EncodeByChanges(FindChanges* find, uint8_t* words, const uint8_t* source, uint32_t bitOffset,
                         uint32_t pixels) noexcept {
  uint16_t changes[1 + kChangesRoom];  // behind the start of the current run
  uint64_t start = bitOffset;
  uint32_t colour = 0;
  const uint64_t end = start + pixels;
  uint8_t* out = words;
  for (uint64_t at = 0; at < end; at += kSegmentBits) {
    const uint64_t bits = end - at < kSegmentBits ? end - at : kSegmentBits;
    const auto base = static_cast<uint16_t>(at);
    changes[0] = static_cast<uint16_t>(start);
    const uint16_t* const found =
        find(changes + 1, source + at / 8, at == 0 ? bitOffset : 0, static_cast<uint32_t>(bits), base, colour);
    const auto count = static_cast<uint32_t>(found - (changes + 1));
    if (count == 0) continue;
    colour ^= count & 1;
    if (const uint64_t first = at + static_cast<uint16_t>(changes[1] - base); first - start > kMaxRun) {
      out = CutRun(out, &start, first);
      changes[0] = static_cast<uint16_t>(start);
    }
    PutDifferences(out, changes, count);
    out += 2 * count;
    start = at + static_cast<uint16_t>(changes[count] - base);
  }
  out = CutRun(out, &start, end);
  PutRun(out, end - start);
  return static_cast<uint32_t>((out - words) / 2) + 1;
}

void ExpandRunsAvx2(const uint8_t* words, uint64_t count, uint64_t firstPixel, uint8_t* destination,
                    uint64_t bytes) noexcept {
  __builtin_memset(destination, 0, bytes);
  uint64_t i = 0, position = 0;  // the run that holds the first pixel, and where it starts
  for (; i + 16 <= count; i += 16) {
    const uint64_t next = position + Sum(words + 2 * i, 16);
    if (next > firstPixel) break;
    position = next;
  }
  for (; i < count && position + RunAt(words, i) <= firstPixel; ++i) position += RunAt(words, i);
  if (i == count) return;
  // The end of the last run matters where its colour is 1, for the bits behind it are 0: an even number of ends.
  TurnOverEnds(destination, 8 * bytes, words + 2 * i, count / 2 * 2 - i, position - firstPixel);
  FillFromTurns(destination, bytes, static_cast<uint32_t>(i % 2));
}

const RunKernels kRunKernelsAvx2 = {EncodeAvx2, Sum, ExpandRunsAvx2};

}  // namespace vexakrn
