// The nearest palette entry by a plain search: what every other way of finding it is held against.
#ifndef VEXAKRN_TESTS_SUPPORT_NEARESTENTRY_H
#define VEXAKRN_TESTS_SUPPORT_NEARESTENTRY_H

#include <algorithm>
#include <vector>

#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {

inline int OrderingClass(int r, int g, int b) {
  const int low = std::min(r, b), high = std::max(r, b);
  return (g > high ? 1 : 0) + (g < low ? (r < b ? 6 : 2) : (r < b ? 4 : 0));
}

inline int Distance(const RGBQUAD& e, int r, int g, int b) {
  return (e.rgbRed - r) * (e.rgbRed - r) + (e.rgbGreen - g) * (e.rgbGreen - g) + (e.rgbBlue - b) * (e.rgbBlue - b);
}

inline uint32_t NearestEntry(const std::vector<RGBQUAD>& palette, int r, int g, int b) {
  const auto last = static_cast<uint32_t>(palette.size() - 1);
  const auto is = [&](uint32_t i, uint8_t level) {
    return palette[i].rgbRed == level && palette[i].rgbGreen == level && palette[i].rgbBlue == level;
  };
  if (r == 0 && g == 0 && b == 0) {
    if (is(0, 0)) return 0;
    if (is(last, 0)) return last;
  }
  if (r == 255 && g == 255 && b == 255) {
    if (is(last, 255)) return last;
    if (is(0, 255)) return 0;
  }
  uint32_t best = 0;
  int bestDistance = INT32_MAX;
  for (uint32_t i = 0; i <= last; ++i) {
    const RGBQUAD& e = palette[i];
    const int distance = Distance(e, r, g, b);
    const bool sameClass = OrderingClass(e.rgbRed, e.rgbGreen, e.rgbBlue) == OrderingClass(r, g, b);
    if (distance < bestDistance || (distance == bestDistance && sameClass)) {
      best = i;
      bestDistance = distance;
    }
    if (distance == 0) break;
  }
  return best;
}

// A palette and colours to look for in it. Few levels make many ties and duplicates, and blacks and whites in all places.
struct NearestCase {
  std::vector<RGBQUAD> palette;
  uint32_t levels;  // of a component

  NearestCase(Random& random, size_t entries) : palette(entries), levels(kLevels[random.Below(4)]) {
    for (RGBQUAD& entry : palette)
      entry = {Level(random), Level(random), Level(random), static_cast<uint8_t>(random.Next())};
  }
  uint8_t Level(Random& random) const { return static_cast<uint8_t>(random.Below(levels) * 255 / (levels - 1)); }

 private:
  static constexpr uint32_t kLevels[] = {2, 4, 18, 256};
};

}  // namespace vexatest

#endif
