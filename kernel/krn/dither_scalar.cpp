// The inner loops of dithering without vectors, the definition: what the other levels have is equal to it bit for bit.
#include <algorithm>
#include <cstring>

#include "krn/dithermap.h"

namespace vexakrn {
namespace {

void MapMatches(const DitherMap& map, uint8_t* indices) noexcept {
  const DitherMatches& matches = map.choice->matches;
  const bool gray = map.choice->rule == DitherRule::GrayMatches;
  for (int32_t x = 0; x < map.count; ++x) {
    const int32_t offset = map.offsets ? map.offsets[x % 8] : 0;
    const auto bits = [&](int32_t component) {
      return static_cast<uint32_t>(std::clamp(map.planes[gray ? 0 : component][x] + offset, 0, 255)) >> 3;
    };
    const uint32_t key = bits(0) << 10 | bits(1) << 5 | bits(2);
    const uint32_t entry = matches.entries[key];
    indices[x] = static_cast<uint8_t>((entry != matches.empty ? entry : matches.find(matches.pass, key)) >> 24);
  }
}

void Map(const DitherMap& map, uint8_t* indices) noexcept {
  const DitherRule rule = map.choice->rule;
  if (rule == DitherRule::Matches || rule == DitherRule::GrayMatches) return MapMatches(map, indices);
  (map.thresholds ? MapFixed<true> : MapFixed<false>)(map, indices);
}

// Eight indices fill `bits` bytes.
void Pack(const uint8_t* indices, int32_t count, uint32_t bits, uint8_t* destination) noexcept {
  const uint32_t mask = (1u << bits) - 1;
  for (int32_t x = 0; x < count; x += 8) {
    const int32_t pixels = std::min(count - x, 8);
    uint64_t packed = 0;
    for (int32_t i = 0; i < 8; ++i) packed = packed << bits | (i < pixels ? indices[x + i] & mask : 0);
    const uint32_t bytes = (static_cast<uint32_t>(pixels) * bits + 7) / 8;
    for (uint32_t i = 0; i < bytes; ++i) *destination++ = static_cast<uint8_t>(packed >> (8 * (bits - 1 - i)));
  }
}

void Split(const uint8_t* pixels, int32_t pixelBytes, int32_t count, uint8_t* const planes[3]) noexcept {
  uint8_t *first = planes[0], *second = planes[1], *third = planes[2];
  for (int32_t x = 0; x < count; ++x, pixels += pixelBytes)
    first[x] = pixels[0], second[x] = pixels[1], third[x] = pixels[2];
}

}  // namespace

const DitherKernels kDitherKernelsScalar = {Map, Pack, nullptr, Split, nullptr, 1, 1};

}  // namespace vexakrn
