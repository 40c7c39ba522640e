#include "krn/lz.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vexakrn {
namespace {

static_assert(std::endian::native == std::endian::little, "the first byte of a word is its lowest");

enum Kind : uint32_t { kGiven, kAbove, kLeft, kRest };

constexpr uint64_t kShortest = 4;
constexpr uint64_t kMostLiterals = 3;  // in the first byte of a step
constexpr uint64_t kMostMatch = 15;
constexpr uint64_t kMargin = 24;  // bytes of a step without its literals, and whole words moved

template <typename T>
T Load(const uint8_t* at) noexcept {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

void Move8(uint8_t* to, const uint8_t* from) noexcept { std::memcpy(to, from, 8); }
void Move16(uint8_t* to, const uint8_t* from) noexcept { std::memcpy(to, from, 16); }

// --- encoding ---

struct Match {
  Kind kind;
  uint64_t distance;
  uint64_t length;
};

class Encoder {
 public:
  Encoder(uint8_t* coded, uint64_t capacity, const uint8_t* strip, uint64_t bytes,
          const LzDistances& distances) noexcept
      : coded_(coded),
        out_(coded),
        outEnd_(coded + capacity),
        strip_(strip),
        end_(strip + bytes),
        literals_(strip),
        distances_(distances) {}

  uint64_t Run() noexcept;

 private:
  bool Find(const uint8_t** at, Match* match) noexcept;
  bool FindEarlier(const uint8_t** at, uint64_t word, Match* match) noexcept;
  uint64_t CountEqual(const uint8_t* at, uint64_t distance) const noexcept;
  bool PutStep(const uint8_t* at, const Match& match) noexcept;
  bool PutRest() noexcept;
  bool HasRoom(uint64_t bytes) const noexcept { return static_cast<uint64_t>(outEnd_ - out_) >= bytes; }
  void PutNumber(uint64_t value) noexcept {
    for (; value >= 128; value >>= 7) *out_++ = static_cast<uint8_t>(value | 128);
    *out_++ = static_cast<uint8_t>(value);
  }

  static constexpr uint32_t kHashBits = 13;
  static constexpr uint32_t kSkipBits = 5;  // after so many misses (as a power of two) the search takes longer steps

  uint8_t* coded_;
  uint8_t* out_;
  uint8_t* outEnd_;
  const uint8_t* strip_;
  const uint8_t* end_;
  const uint8_t* literals_;  // from here on nothing has been put
  LzDistances distances_;
  uint16_t seen_[1u << kHashBits] = {};  // where four bytes of that hash were last, in the low bits of the position
};

uint64_t Encoder::CountEqual(const uint8_t* at, uint64_t distance) const noexcept {
  const uint8_t* const start = at;
  for (; end_ - at >= 8; at += 8)
    if (const uint64_t difference = Load<uint64_t>(at) ^ Load<uint64_t>(at - distance))
      return static_cast<uint64_t>(at - start) + (static_cast<uint32_t>(std::countr_zero(difference)) >> 3);
  while (at < end_ && *at == *(at - distance)) ++at;
  return static_cast<uint64_t>(at - start);
}

// Looks at the row above and at the pixel to the left, and takes the longer match.
inline bool Encoder::Find(const uint8_t** at, Match* match) noexcept {
  const uint64_t word = Load<uint64_t>(*at);
  const uint64_t left = word ^ Load<uint64_t>(*at - distances_.left);
  const bool hasAbove = static_cast<uint64_t>(*at - strip_) >= distances_.above;
  const uint64_t above = hasAbove ? word ^ Load<uint64_t>(*at - distances_.above) : ~uint64_t{0};
  if (static_cast<uint32_t>(above) != 0 && static_cast<uint32_t>(left) != 0) return FindEarlier(at, word, match);
  const int aboveBits = std::countr_zero(above), leftBits = std::countr_zero(left);  // 64 when all are equal
  match->kind = aboveBits >= leftBits ? kAbove : kLeft;
  match->distance = aboveBits >= leftBits ? distances_.above : distances_.left;
  match->length = static_cast<uint32_t>(std::max(aboveBits, leftBits)) >> 3;
  if (match->length == 8) match->length += CountEqual(*at + 8, match->distance);
  return true;
}

// Looks where the same four bytes were last. The match may begin before them.
inline bool Encoder::FindEarlier(const uint8_t** at, uint64_t word, Match* match) noexcept {
  const auto position = static_cast<uint64_t>(*at - strip_);
  uint16_t& seen = seen_[static_cast<uint32_t>(word) * 2654435761u >> (32 - kHashBits)];
  uint64_t distance = static_cast<uint16_t>(position - seen);
  seen = static_cast<uint16_t>(position);
  if (distance == 0) return false;
  if (distance < kLzNearest) distance *= (kLzNearest + distance - 1) / distance;  // so many periods
  if (distance > position || Load<uint32_t>(*at - distance) != static_cast<uint32_t>(word)) return false;
  uint64_t before = 0;
  const uint64_t most = std::min(static_cast<uint64_t>(*at - literals_), position - distance);
  while (before < most && *(*at - before - 1) == *(*at - before - 1 - distance)) ++before;
  *match = {kGiven, distance, before + kShortest + CountEqual(*at + kShortest, distance)};
  *at -= before;
  return true;
}

bool Encoder::PutStep(const uint8_t* at, const Match& match) noexcept {
  const auto literals = static_cast<uint64_t>(at - literals_);
  const uint64_t beyond = match.length - kShortest;
  if (!HasRoom(literals + kMargin)) return false;
  *out_++ =
      static_cast<uint8_t>(std::min(literals, kMostLiterals) << 6 | match.kind << 4 | std::min(beyond, kMostMatch));
  if (match.kind == kGiven) {
    *out_++ = static_cast<uint8_t>(match.distance);
    *out_++ = static_cast<uint8_t>(match.distance >> 8);
  }
  if (literals >= kMostLiterals) PutNumber(literals - kMostLiterals);
  if (beyond >= kMostMatch) PutNumber(beyond - kMostMatch);
  if (literals <= 8) {  // the match behind them has room for the rest of a word: see Run
    Move8(out_, literals_);
  } else {
    std::memcpy(out_, literals_, literals);
  }
  out_ += literals;
  literals_ = at + match.length;
  return true;
}

bool Encoder::PutRest() noexcept {
  const auto literals = static_cast<uint64_t>(end_ - literals_);
  if (literals == 0) return true;
  if (!HasRoom(literals + kMargin)) return false;
  *out_++ = kRest << 4;
  std::memcpy(out_, literals_, literals);
  out_ += literals;
  return true;
}

uint64_t Encoder::Run() noexcept {
  const auto bytes = static_cast<uint64_t>(end_ - strip_);
  const uint64_t searched = bytes > 8 ? bytes - 8 : 0;  // so far a match may begin: words are loaded there
  const uint8_t* const last = strip_ + searched;
  const uint8_t* check = strip_ + bytes / 4;
  uint32_t misses = 0;
  for (const uint8_t* at = strip_ + std::min(distances_.left, bytes); at < last;) {
    Match match;
    if (!Find(&at, &match)) {
      at += 1 + (misses++ >> kSkipBits);
      continue;
    }
    misses = 0;
    if (!PutStep(at, match)) return 0;
    at = literals_;
    if (at < check) continue;
    const auto done = static_cast<uint64_t>(at - strip_);
    if (static_cast<uint64_t>(out_ - coded_) > done - done / 16) return 0;
    check = end_ + 1;  // only once
  }
  return PutRest() ? static_cast<uint64_t>(out_ - coded_) : 0;
}

// --- decoding ---

bool GetNumber(const uint8_t** in, const uint8_t* inEnd, uint64_t* value) noexcept {
  for (uint32_t shift = 0; shift < 35 && *in < inEnd; shift += 7) {
    const uint64_t byte = *(*in)++;
    *value += (byte & 127) << shift;
    if (byte < 128) return true;
  }
  return false;
}

// A copy within the strip, front to back, over `length` bytes and, where there is room, some bytes more.
void CopyMatch(uint8_t* to, uint64_t distance, uint64_t length, const uint8_t* outEnd) noexcept {
  const uint8_t* from = to - distance;
  const uint8_t* const end = to + length;
  for (; to < end && outEnd - to >= 32; to += 32, from += 32) {
    Move16(to, from);
    Move16(to + 16, from + 16);
  }
  while (to < end) *to++ = *from++;
}

// The same at the distance of a pixel: three words hold the pattern of 1 or 3 bytes eight times.
void RepeatPixel(uint8_t* to, uint64_t left, uint64_t length, const uint8_t* outEnd) noexcept {
  const uint8_t* const end = to + length;
  const uint64_t pixel = left == 1 ? to[-1] * uint64_t{0x010101}
                                   : to[-3] | static_cast<uint64_t>(to[-2]) << 8 | static_cast<uint64_t>(to[-1]) << 16;
  const auto eightFrom = [pixel](uint32_t byte) noexcept {
    return ((pixel >> (8 * byte) | pixel << (24 - 8 * byte)) & 0xFFFFFF) * 0x0001000001000001;
  };
  const uint64_t words[3] = {eightFrom(0), eightFrom(2), eightFrom(1)};
  for (; to < end && outEnd - to >= 24; to += 24) std::memcpy(to, words, 24);
  for (; to < end; ++to) *to = *(to - left);
}

}  // namespace

uint64_t LzEncode(uint8_t* coded, uint64_t capacity, const uint8_t* strip, uint64_t bytes,
                  const LzDistances& distances) noexcept {
  return Encoder(coded, capacity, strip, bytes, distances).Run();
}

bool LzDecode(uint8_t* strip, uint64_t bytes, const uint8_t* coded, uint64_t codedBytes,
              const LzDistances& distances) noexcept {
  uint8_t* out = strip;
  uint8_t* const outEnd = strip + bytes;
  const uint8_t* in = coded;
  const uint8_t* const inEnd = coded + codedBytes;
  const uint64_t known[] = {0, distances.above, distances.left};
  while (out < outEnd) {
    if (in == inEnd) return false;
    const uint32_t first = *in++;
    auto inLeft = static_cast<uint64_t>(inEnd - in), outLeft = static_cast<uint64_t>(outEnd - out);
    const uint32_t kind = first >> 4 & 3;
    if (kind == kRest) [[unlikely]] {
      if (first != kRest << 4 || inLeft != outLeft) return false;
      std::memcpy(out, in, inLeft);
      return true;
    }
    uint64_t literals = first >> 6, length = first & 15;
    if (kind == kGiven && inLeft < 2) return false;
    const uint64_t distance = kind == kGiven ? Load<uint16_t>(in) : known[kind];
    in += kind == kGiven ? 2 : 0;
    if (literals == kMostLiterals && !GetNumber(&in, inEnd, &literals)) return false;
    if (length == kMostMatch && !GetNumber(&in, inEnd, &length)) return false;
    length += kShortest;
    inLeft = static_cast<uint64_t>(inEnd - in);
    if (literals > inLeft || literals + length > outLeft) return false;
    if (literals <= 16 && inLeft >= 16 && outLeft >= 16) [[likely]] {
      Move16(out, in);
    } else {
      std::memcpy(out, in, literals);
    }
    in += literals;
    out += literals;
    if (distance > static_cast<uint64_t>(out - strip)) return false;
    if (kind == kLeft) {
      RepeatPixel(out, distances.left, length, outEnd);
    } else {
      if (distance < kLzNearest) return false;
      CopyMatch(out, distance, length, outEnd);
    }
    out += length;
  }
  return in == inEnd;
}

}  // namespace vexakrn
