// The nearest palette entry, plainly: what the other levels must agree with.
#include <algorithm>

#include "krn/nearestkernels.h"
#include "krn/palettes.h"

namespace vexakrn {
namespace {

// Components above 255 wrap to the square of their difference, modulo 2^32.
uint32_t SquaredDistance(const uint8_t* entry, uint32_t r, uint32_t g, uint32_t b) noexcept {
  const auto square = [](uint32_t x, uint32_t y) { return (x - y) * (x - y); };
  return square(entry[2], r) + square(entry[1], g) + square(entry[0], b);
}

uint32_t SearchScalar(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b) noexcept {
  const uint32_t wanted = OrderingClass(r, g, b);
  uint32_t best = 0, bestDistance = UINT32_MAX;
  for (uint32_t i = 0; i < count && bestDistance != 0; ++i) {
    const uint8_t* entry = entries + 4 * uint64_t{i};
    const uint32_t distance = SquaredDistance(entry, r, g, b);
    if (distance > bestDistance) continue;
    if (distance == bestDistance && OrderingClass(entry[2], entry[1], entry[0]) != wanted) continue;
    best = i;
    bestDistance = distance;
  }
  return best;
}

int32_t LeastKeyScalar(const NearestColumns& columns, uint32_t r, uint32_t g, uint32_t b) noexcept {
  const auto red = static_cast<int32_t>(r), green = static_cast<int32_t>(g), blue = static_cast<int32_t>(b);
  int32_t least = INT32_MAX;
  for (uint32_t i = 0; i < columns.count; ++i) {
    const int32_t product =
        columns.redGreen[2 * i] * red + columns.redGreen[2 * i + 1] * green + columns.blueNone[2 * i] * blue;
    least = std::min(least, columns.keys[i] - product * (2 << kKeyShift));
  }
  return least;
}

}  // namespace

const NearestKernels kNearestKernelsScalar = {SearchScalar, LeastKeyScalar};

}  // namespace vexakrn
