// The palettes that the engine knows by heart: fixed ones of 2 to 256 colours, the colour cube, and grays.
#include "krn/palettes.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

constexpr RGBQUAD Entry(uint32_t rgb) noexcept {
  return {static_cast<uint8_t>(rgb), static_cast<uint8_t>(rgb >> 8), static_cast<uint8_t>(rgb >> 16), 0};
}

// A component of `bits` bits spread over 0 to 255; eight levels are 00, 24, 49, 6D, 92, B6, DB, FF.
constexpr uint32_t Level(uint32_t value, uint32_t bits) noexcept {
  switch (bits) {
    case 1:
      return value * 0xFF;
    case 2:
      return value * 0x55;
    default:
      return (value << 5) | (value << 2) | (value >> 1);
  }
}

// The fixed palettes but that of 16 colours: the index's bits are red, green and blue from the top, or one gray.
struct Split {
  uint32_t red, green, blue;
};
constexpr Split kSplits[] = {{}, {}, {}, {1, 1, 1}, {}, {2, 2, 1}, {2, 2, 2}, {2, 3, 2}, {3, 3, 2}};

constexpr uint32_t kSixteenColors[] = {0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0x808080,
                                       0xC0C0C0, 0xFF0000, 0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};

constexpr RGBQUAD FixedEntry(uint32_t bits, uint32_t index) noexcept {
  if (bits <= 2) return Entry(Level(index, bits) * 0x010101);
  if (bits == 4) return Entry(kSixteenColors[index]);
  const Split& split = kSplits[bits];
  const uint32_t red = index >> (split.green + split.blue);
  const uint32_t green = (index >> split.blue) & ((1u << split.green) - 1);
  const uint32_t blue = index & ((1u << split.blue) - 1);
  return Entry(Level(red, split.red) << 16 | Level(green, split.green) << 8 | Level(blue, split.blue));
}

// All fixed palettes, one after the other; that of n colours follows n - 2 entries. Four entries from the start are
// black, white, black, 0x555555: what V_CreateBitmapFixedPalette gives a bitmap of four colours.
constexpr auto kFixedPalettes = [] {
  std::array<RGBQUAD, 510> all{};
  for (uint32_t bits = 1; bits <= 8; ++bits)
    for (uint32_t i = 0; i < 1u << bits; ++i) all[(1u << bits) - 2 + i] = FixedEntry(bits, i);
  return all;
}();

constexpr auto kCubePalette = [] {
  std::array<RGBQUAD, kMaxColors> cube{};
  for (uint32_t i = 0; i < 216; ++i) cube[i] = Entry((i / 36 << 16 | i / 6 % 6 << 8 | i % 6) * 0x33);
  return cube;
}();

}  // namespace

const RGBQUAD* FixedPalette(uint32_t bits) noexcept { return &kFixedPalettes[(1u << bits) - 2]; }
const RGBQUAD* CubePalette() noexcept { return kCubePalette.data(); }

RGBQUAD* CopyPalette(const RGBQUAD* palette, uint32_t colors) noexcept {
  auto* copy = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, colors * sizeof(RGBQUAD)));
  if (copy) std::memcpy(copy, palette, colors * sizeof(RGBQUAD));
  return copy;
}

}  // namespace vexakrn

using namespace vexakrn;

RGBQUAD* V_CALL V_CreateFixedPalette(uint32_t bits) noexcept {
  const uint32_t depth = std::max(bits, 1u);
  return bits > 8 ? nullptr : CopyPalette(FixedPalette(depth), 1u << depth);
}

RGBQUAD* V_CALL V_CreateGrayPalette(uint32_t bits) noexcept {
  if (bits > 8) return nullptr;
  const uint32_t colors = bits == 0 ? kMaxColors : 1u << bits;
  RGBQUAD grays[kMaxColors];
  for (uint32_t i = 0; i < colors; ++i) grays[i] = Entry(i * 255 / (colors - 1) * 0x010101);
  return CopyPalette(grays, colors);
}
