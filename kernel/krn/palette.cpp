// Fixed and gray palettes, a bitmap's palette, and the nearest entry.
#include "vexakrn/palette.h"

#include <algorithm>
#include <cstring>

#include "common/record.h"
#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

constexpr uint32_t kMaxColors = 256;

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

RGBQUAD FixedEntry(uint32_t bits, uint32_t index) noexcept {
  if (bits <= 2) return Entry(Level(index, bits) * 0x010101);
  if (bits == 4) return Entry(kSixteenColors[index]);
  const Split& split = kSplits[bits];
  const uint32_t red = index >> (split.green + split.blue);
  const uint32_t green = (index >> split.blue) & ((1u << split.green) - 1);
  const uint32_t blue = index & ((1u << split.blue) - 1);
  return Entry(Level(red, split.red) << 16 | Level(green, split.green) << 8 | Level(blue, split.blue));
}

RGBQUAD GrayEntry(uint32_t bits, uint32_t index) noexcept { return Entry(index * 255 / ((1u << bits) - 1) * 0x010101); }

RGBQUAD* NewPalette(uint32_t bits, RGBQUAD (*entry)(uint32_t bits, uint32_t index) noexcept) noexcept {
  const uint32_t colors = 1u << bits;
  auto* palette = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, colors * sizeof(RGBQUAD)));
  for (uint32_t i = 0; palette && i < colors; ++i) palette[i] = entry(bits, i);
  return palette;
}

bool IsColor(const RGBQUAD& entry, uint32_t level) noexcept {
  return entry.rgbRed == level && entry.rgbGreen == level && entry.rgbBlue == level;
}

// How the components of a colour are ordered by size; part of the choice between equally distant entries.
uint32_t OrderingClass(uint32_t r, uint32_t g, uint32_t b) noexcept {
  const uint32_t low = std::min(r, b), high = std::max(r, b);
  return (g > high ? 1u : 0u) + (g < low ? (r < b ? 6u : 2u) : (r < b ? 4u : 0u));
}

uint32_t SquaredDistance(const RGBQUAD& entry, uint32_t r, uint32_t g, uint32_t b) noexcept {
  const auto square = [](uint32_t x, uint32_t y) { return (x - y) * (x - y); };  // wraps to the same square
  return square(entry.rgbRed, r) + square(entry.rgbGreen, g) + square(entry.rgbBlue, b);
}

uint32_t SearchNearest(const RGBQUAD* palette, uint32_t colors, uint32_t r, uint32_t g, uint32_t b) noexcept {
  const uint32_t wanted = OrderingClass(r, g, b);
  uint32_t best = 0, bestDistance = UINT32_MAX;
  for (uint32_t i = 0; i < colors && bestDistance != 0; ++i) {
    const RGBQUAD& entry = palette[i];
    const uint32_t distance = SquaredDistance(entry, r, g, b);
    if (distance > bestDistance) continue;
    if (distance == bestDistance && OrderingClass(entry.rgbRed, entry.rgbGreen, entry.rgbBlue) != wanted) continue;
    best = i;
    bestDistance = distance;
  }
  return best;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

RGBQUAD* V_CALL V_CreateFixedPalette(uint32_t bits) noexcept {
  return bits > 8 ? nullptr : NewPalette(std::max(bits, 1u), FixedEntry);
}

RGBQUAD* V_CALL V_CreateGrayPalette(uint32_t bits) noexcept {
  return bits > 8 ? nullptr : NewPalette(bits == 0 ? 8 : bits, GrayEntry);
}

int32_t V_CALL V_SetBitmapNewPalette(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) noexcept {
  V_TRY(CheckRecord(bitmap));
  RGBQUAD* copy = nullptr;
  if (palette && colors != 0) {
    if (colors > kMaxColors) return kInvalidParameter;
    copy = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, colors * sizeof(RGBQUAD)));
    if (!copy) return kNoMemory;
    std::memcpy(copy, palette, colors * sizeof(RGBQUAD));
  }
  V_FreeBuffer(bitmap->pPalette);
  bitmap->pPalette = copy;
  bitmap->nColors = copy ? static_cast<int32_t>(colors) : 0;
  return kSuccess;
}

int32_t V_CALL V_CopyBitmapPalette(BITMAPHANDLE* dst, BITMAPHANDLE* src) noexcept {
  V_TRY(CheckRecord(dst));
  V_TRY(CheckRecord(src));
  if (dst == src) return kSuccess;
  const int32_t colors = src->nColors;
  return V_SetBitmapNewPalette(dst, src->pPalette, static_cast<uint32_t>(std::max(colors, 0)));
}

uint32_t V_CALL V_FindPaletteIndex(const RGBQUAD* palette, uint32_t colors, uint32_t R, uint32_t G,
                                   uint32_t B) noexcept {
  if (!palette) return 0;
  if (colors == 0) return UINT32_MAX;
  const uint32_t last = colors - 1;
  if (R == 0 && G == 0 && B == 0) {
    if (IsColor(palette[0], 0)) return 0;
    if (IsColor(palette[last], 0)) return last;
  }
  if ((R & G & B) == 255) {
    if (IsColor(palette[last], 255)) return last;
    if (IsColor(palette[0], 255)) return 0;
  }
  return SearchNearest(palette, colors, R, G, B);
}
