// The nearest entry of a palette, one search a call, for colours from all over the cube.
//
// Leptonica looks through a table of its own in the same way; a plain loop is what one writes without a library. Neither
// has a rule for equal distances: the answers differ there. The grid is the fixed palette, where ties are frequent.
#include <memory>
#include <string>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_LEPTONICA
#include <allheaders.h>
#endif

namespace vexabench {
namespace {

using Palette = std::vector<RGBQUAD>;

Palette Scattered(size_t colors) {
  Palette palette(colors);
  uint32_t seed = 12345;
  for (RGBQUAD& entry : palette) {
    seed = seed * 1664525 + 1013904223;
    entry = {static_cast<uint8_t>(seed >> 24), static_cast<uint8_t>(seed >> 16), static_cast<uint8_t>(seed >> 8), 0};
  }
  return palette;
}

Palette Grid() {
  const std::unique_ptr<RGBQUAD, void (*)(void*)> fixed(V_CreateFixedPalette(8), [](void* p) { V_FreeBuffer(p); });
  Require(fixed != nullptr, "no memory for a palette");
  return {fixed.get(), fixed.get() + 256};
}

// Calls `find` for each colour; the sum of what it finds keeps the calls alive.
constexpr int kSearches = 4096;
template <typename F>
void SearchColors(F find) {
  uint32_t sum = 0, seed = 1;
  for (int i = 0; i < kSearches; ++i) {
    seed = seed * 1664525 + 1013904223;
    sum += find(seed >> 24, seed >> 16 & 255, seed >> 8 & 255);
  }
  asm volatile("" : : "g"(sum) : "memory");
}

uint32_t PlainSearch(const Palette& palette, uint32_t red, uint32_t green, uint32_t blue) {
  uint32_t best = 0, nearest = 0xFFFFFFFF;
  for (uint32_t i = 0; i < palette.size(); ++i) {
    const auto r = static_cast<int32_t>(red) - palette[i].rgbRed, g = static_cast<int32_t>(green) - palette[i].rgbGreen,
               b = static_cast<int32_t>(blue) - palette[i].rgbBlue;
    const auto distance = static_cast<uint32_t>(r * r + g * g + b * b);
    if (distance < nearest) nearest = distance, best = i;
  }
  return best;
}

// What `other` finds must be as near as what the engine finds.
template <typename F>
Contest Against(const Palette& palette, F other) {
  const auto ours = [=](uint32_t r, uint32_t g, uint32_t b) {
    return V_FindPaletteIndex(palette.data(), static_cast<uint32_t>(palette.size()), r, g, b);
  };
  SearchColors([&](uint32_t r, uint32_t g, uint32_t b) {
    const auto distance = [&](const RGBQUAD& e) {
      const auto square = [](uint32_t x, uint32_t y) { return (x - y) * (x - y); };
      return square(e.rgbRed, r) + square(e.rgbGreen, g) + square(e.rgbBlue, b);
    };
    Require(distance(palette[ours(r, g, b)]) == distance(palette[other(r, g, b)]), "something else was found");
    return 0u;
  });
  return {[=] { SearchColors(ours); }, [=] { SearchColors(other); }, kSearches};
}

Contest AgainstPlain(const Palette& palette) {
  return Against(palette, [=](uint32_t r, uint32_t g, uint32_t b) { return PlainSearch(palette, r, g, b); });
}

#ifdef VEXABENCH_LEPTONICA
Contest AgainstLeptonica(const Palette& palette) {
  const std::shared_ptr<PIXCMAP> map(pixcmapCreate(8), [](PIXCMAP* m) { pixcmapDestroy(&m); });
  for (const RGBQUAD& entry : palette) pixcmapAddColor(map.get(), entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
  return Against(palette, [=](uint32_t r, uint32_t g, uint32_t b) {
    l_int32 index = 0;
    pixcmapGetNearestIndex(map.get(), static_cast<l_int32>(r), static_cast<l_int32>(g), static_cast<l_int32>(b),
                           &index);
    return static_cast<uint32_t>(index);
  });
}
#endif

void RegisterPalette(const std::string& operation, const std::function<Palette()>& make, Goal goal) {
  Compare(operation, "plain loop", kNoGoal, [=] { return AgainstPlain(make()); });
#ifdef VEXABENCH_LEPTONICA
  Compare(operation, "Leptonica pixcmapGetNearestIndex", goal, [=] { return AgainstLeptonica(make()); });
#else
  static_cast<void>(goal);
#endif
}

}  // namespace

void RegisterFamily() {
  RegisterPalette(
      "nearest of 256 colours", [] { return Scattered(256); }, SpeedAtLeast(10));
  RegisterPalette("nearest of 256 colours in a grid", Grid, kNoGoal);
  RegisterPalette(
      "nearest of 16 colours", [] { return Scattered(16); }, kNoGoal);
}

}  // namespace vexabench
