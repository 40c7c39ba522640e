#include "krn/changes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

namespace vexakrn {
namespace {

static_assert(std::endian::native == std::endian::little, "byte i of a word is its bits from 8 i on");

constexpr uint64_t kWords = kChangesBlock / 8;
constexpr uint64_t kMostCoded = 1 + kWords * 9;  // of one block
constexpr uint64_t kMargin = kMostCoded + 8;     // so far may whole words be moved from the start of a block
constexpr uint32_t kMostEqual = 256;             // blocks in one count
constexpr uint8_t kZeros[kChangesBlock] = {};

using Block = std::array<uint64_t, kWords>;

// How the bytes of a word that a mask names are brought together at its lower end, and apart again: three steps that
// move some bytes by one, by two and by four places.
struct Shuffle {
  std::array<uint64_t, 3> moved;  // the bytes that each step moves, where they are before it
  uint64_t kept;                  // the bytes that the mask names
};

struct ShuffleTable {
  std::array<Shuffle, 256> shuffles;
  std::array<uint8_t, 256> counts;  // bits of the mask
};

constexpr ShuffleTable MakeShuffles() noexcept {
  ShuffleTable table{};
  for (uint32_t mask = 0; mask < 256; ++mask) {
    uint32_t count = 0;
    for (uint32_t byte = 0; byte < 8; ++byte) {
      if (!(mask >> byte & 1)) continue;
      Shuffle& shuffle = table.shuffles[mask];
      const uint32_t distance = byte - count++;
      shuffle.kept |= uint64_t{0xFF} << (8 * byte);
      for (uint32_t step = 0, place = byte; step < 3; ++step) {
        if (!(distance >> step & 1)) continue;
        shuffle.moved[step] |= uint64_t{0xFF} << (8 * place);
        place -= 1u << step;
      }
    }
    table.counts[mask] = static_cast<uint8_t>(count);
  }
  return table;
}

constexpr ShuffleTable kShuffles = MakeShuffles();

uint64_t Gather(uint64_t word, const Shuffle& shuffle) noexcept {
  for (uint32_t step = 0; step < 3; ++step) {
    const uint64_t moving = word & shuffle.moved[step];
    word = (word ^ moving) | moving >> (8u << step);
  }
  return word;
}

uint64_t Scatter(uint64_t word, const Shuffle& shuffle) noexcept {
  for (uint32_t step = 3; step-- > 0;) {
    const uint64_t moved = shuffle.moved[step];
    word = (word & ~moved) | (word << (8u << step) & moved);
  }
  return word & shuffle.kept;
}

// Bit i: byte i is not 0.
uint32_t ByteMask(uint64_t word) noexcept {
  constexpr uint64_t kLow = 0x7F7F7F7F7F7F7F7F;
  const uint64_t top = (((word & kLow) + kLow) | word) & ~kLow;
  return static_cast<uint32_t>((top >> 7) * 0x0102040810204080 >> 56);
}

// The 64 bytes one row before position `at` of a strip, of which all before `at` is known.
class RowAbove {
 public:
  RowAbove(const uint8_t* strip, uint64_t above) noexcept : strip_(strip), above_(above) {}

  const uint8_t* At(uint64_t at) noexcept {
    if (at >= above_) [[likely]]
      return strip_ + (at - above_);
    const uint64_t zeros = above_ - at;
    if (zeros >= kChangesBlock) return kZeros;
    std::memset(edge_, 0, zeros);
    std::memcpy(edge_ + zeros, strip_, kChangesBlock - zeros);
    return edge_;
  }

 private:
  const uint8_t* strip_;
  uint64_t above_;
  uint8_t edge_[kChangesBlock];
};

Block Difference(const uint8_t* a, const uint8_t* b) noexcept {
  Block left, right;
  std::memcpy(left.data(), a, kChangesBlock);
  std::memcpy(right.data(), b, kChangesBlock);
  for (uint64_t i = 0; i < kWords; ++i) left[i] ^= right[i];
  return left;
}

bool IsZero(const Block& block) noexcept {
  uint64_t any = 0;
  for (const uint64_t word : block) any |= word;
  return any == 0;
}

// Reads a strip block by block; behind its end it goes on like the row above.
class BlockReader {
 public:
  BlockReader(const uint8_t* strip, uint64_t bytes, uint64_t above) noexcept
      : strip_(strip), bytes_(bytes), above_(strip, above) {}

  Block DifferenceAt(uint64_t at) noexcept {
    const uint8_t* above = above_.At(at);
    if (bytes_ - at >= kChangesBlock) [[likely]]
      return Difference(strip_ + at, above);
    uint8_t last[kChangesBlock];
    std::memcpy(last, above, kChangesBlock);
    std::memcpy(last, strip_ + at, bytes_ - at);
    return Difference(last, above);
  }

 private:
  const uint8_t* strip_;
  uint64_t bytes_;
  RowAbove above_;
};

uint8_t* EncodeBlock(uint8_t* out, const Block& difference) noexcept {
  uint32_t words = 0;
  for (uint32_t i = 0; i < kWords; ++i) words |= uint32_t{difference[i] != 0} << i;
  *out++ = static_cast<uint8_t>(words);
  for (; words; words &= words - 1) {
    const uint64_t word = difference[static_cast<uint32_t>(std::countr_zero(words))];
    const uint32_t mask = ByteMask(word);
    *out++ = static_cast<uint8_t>(mask);
    const uint64_t gathered = Gather(word, kShuffles.shuffles[mask]);
    std::memcpy(out, &gathered, sizeof gathered);
    out += kShuffles.counts[mask];
  }
  return out;
}

// Changes the words that `words` names; returns the end of what it read, which is within kMostCoded.
const uint8_t* DecodeBlock(Block& block, uint32_t words, const uint8_t* in) noexcept {
  for (; words; words &= words - 1) {
    const uint32_t mask = *in++;
    uint64_t gathered = 0;
    std::memcpy(&gathered, in, sizeof gathered);
    block[static_cast<uint32_t>(std::countr_zero(words))] ^= Scatter(gathered, kShuffles.shuffles[mask]);
    in += kShuffles.counts[mask];
  }
  return in;
}

// The coded bytes; their last ones are moved to a place with room behind them when the end comes near.
class CodedReader {
 public:
  CodedReader(const uint8_t* coded, uint64_t bytes) noexcept : at(coded), end_(coded + bytes) {}

  // Whether there is a block's first byte; then a whole block can be read without looking at the end.
  bool Prepare() noexcept {
    if (end_ - at >= static_cast<ptrdiff_t>(kMargin)) [[likely]]
      return true;
    if (at >= end_) return false;
    if (moved_) return true;
    const auto left = static_cast<uint64_t>(end_ - at);
    std::memset(last_, 0, sizeof last_);
    std::memcpy(last_, at, left);
    at = last_;
    end_ = last_ + left;
    moved_ = true;
    return true;
  }
  bool AtEnd() const noexcept { return at == end_; }

  const uint8_t* at;

 private:
  const uint8_t* end_;
  bool moved_ = false;
  uint8_t last_[2 * kMargin];
};

}  // namespace

uint64_t EncodeChanges(uint8_t* coded, uint64_t capacity, const uint8_t* strip, uint64_t bytes,
                       uint64_t above) noexcept {
  BlockReader reader(strip, bytes, above);
  uint8_t* out = coded;
  for (uint64_t at = 0; at < bytes;) {
    if (capacity - static_cast<uint64_t>(out - coded) < kMargin) return 0;
    const Block difference = reader.DifferenceAt(at);
    at += kChangesBlock;
    if (!IsZero(difference)) {
      out = EncodeBlock(out, difference);
      continue;
    }
    uint32_t equal = 1;
    for (; equal < kMostEqual && at < bytes && IsZero(reader.DifferenceAt(at)); at += kChangesBlock) ++equal;
    *out++ = 0;
    *out++ = static_cast<uint8_t>(equal - 1);
  }
  return static_cast<uint64_t>(out - coded);
}

bool DecodeChanges(uint8_t* strip, uint64_t bytes, const uint8_t* coded, uint64_t codedBytes, uint64_t above) noexcept {
  CodedReader reader(coded, codedBytes);
  RowAbove rowAbove(strip, above);
  for (uint64_t at = 0; at < bytes;) {
    if (!reader.Prepare()) return false;
    const uint32_t words = *reader.at++;
    Block block;
    if (words != 0) {
      std::memcpy(block.data(), rowAbove.At(at), kChangesBlock);
      reader.at = DecodeBlock(block, words, reader.at);
      std::memcpy(strip + at, block.data(), std::min(bytes - at, kChangesBlock));
      at += kChangesBlock;
      continue;
    }
    for (uint32_t equal = *reader.at++ + 1u; equal > 0; --equal, at += kChangesBlock) {
      if (at >= bytes) return false;
      std::memcpy(block.data(), rowAbove.At(at), kChangesBlock);
      std::memcpy(strip + at, block.data(), std::min(bytes - at, kChangesBlock));
    }
  }
  return reader.AtEnd();
}

}  // namespace vexakrn
