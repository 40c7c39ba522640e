#include "krn/convertmatch.h"

#include <array>
#include <cstring>

#include "krn/convertkernels.h"

namespace vexakrn {
namespace {

// The nearest of 2^bits equal levels to each value of a component; kHalfway where two are as near.
constexpr uint8_t kHalfway = 0xFF;

template <uint32_t bits>
constexpr auto kNearestLevel = [] {
  std::array<uint8_t, 256> nearest{};
  constexpr int kLast = (1 << bits) - 1;
  for (int value = 0; value < 256; ++value) {
    int best = 256;
    for (int level = 0; level <= kLast; ++level) {
      const int from = (2 * level * 255 + kLast) / (2 * kLast);
      const int distance = from < value ? value - from : from - value;
      if (distance > best) continue;
      nearest[static_cast<size_t>(value)] = distance == best ? kHalfway : static_cast<uint8_t>(level);
      best = distance;
    }
  }
  return nearest;
}();

bool SameColors(const RGBQUAD* a, const RGBQUAD* b, uint32_t colors) noexcept {
  for (uint32_t i = 0; i < colors; ++i)
    if (std::memcmp(a + i, b + i, 3) != 0) return false;  // the reserved byte is no colour
  return true;
}

}  // namespace

void IndexMatch::Set(const RGBQUAD* source, const RGBQUAD* destination, uint32_t colors) noexcept {
  source_ = source;
  destination_ = destination;
  colors_ = colors;
  std::memset(entries_, 0xFF, sizeof entries_);
}

uint16_t IndexMatch::Search(uint8_t value) const noexcept {
  const RGBQUAD color = source_ ? source_[value] : RGBQUAD{value, value, value, 0};
  return static_cast<uint16_t>(V_FindPaletteIndex(destination_, colors_, color.rgbRed, color.rgbGreen, color.rgbBlue));
}

ColorMatch::ColorMatch(const RGBQUAD* palette, uint32_t colors) noexcept
    : search_(palette, colors), fixed_(colors == kMaxColors && SameColors(palette, FixedPalette(8), colors)) {
  std::memset(keys_, 0xFF, sizeof keys_);
}

uint8_t ColorMatch::Find(uint32_t r, uint32_t g, uint32_t b) noexcept {
  if (fixed_) {
    const uint8_t red = kNearestLevel<3>[r], green = kNearestLevel<3>[g], blue = kNearestLevel<2>[b];
    if (red != kHalfway && green != kHalfway)  // four levels have no halfway values
      return static_cast<uint8_t>(red << 5 | green << 2 | blue);
  }
  const uint32_t key = r << 16 | g << 8 | b;
  const uint32_t slot = key * 0x9E3779B1u >> (32 - kSlotBits);
  if (keys_[slot] != key) {
    entries_[slot] = static_cast<uint8_t>(search_.Find(r, g, b));
    keys_[slot] = key;
  }
  return entries_[slot];
}

void MatchIndices(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = 0; i < pixels; ++i) destination[i] = context.indexMatch->Find(source[i]);
}

void MatchColors(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  for (size_t i = 0; i < pixels; ++i, source += 4)
    destination[i] = context.colorMatch->Find(source[2], source[1], source[0]);
}

}  // namespace vexakrn
