// The inner loops of dithering without vectors, the definition: what the other levels have is equal to it bit for bit.
#include <algorithm>

#include "krn/dithermap.h"

namespace vexakrn {
namespace {

// Eight indices fill `bits` bytes.
void Pack(const uint8_t* indices, int32_t count, uint32_t bits, uint8_t* destination) noexcept {
  const uint32_t mask = (1u << bits) - 1;
  for (ptrdiff_t x = 0; x < count; x += 8) {
    const auto pixels = static_cast<int32_t>(std::min<ptrdiff_t>(count - x, 8));
    uint64_t packed = 0;
    for (int32_t i = 0; i < 8; ++i) packed = packed << bits | (i < pixels ? indices[x + i] & mask : 0);
    const uint32_t bytes = (static_cast<uint32_t>(pixels) * bits + 7) / 8;
    for (uint32_t i = 0; i < bytes; ++i) *destination++ = static_cast<uint8_t>(packed >> (8 * (bits - 1 - i)));
  }
}

void SplitBlock(const uint8_t* pixels, int32_t pixelBytes, uint8_t* const planes[3]) noexcept {
  uint8_t *first = planes[0], *second = planes[1], *third = planes[2];
  for (int32_t i = 0; i < kMapBlock; ++i, pixels += pixelBytes)
    first[i] = pixels[0], second[i] = pixels[1], third[i] = pixels[2];
}

}  // namespace

const DitherKernels kDitherKernelsScalar = {Map<SplitBlock>, Pack, nullptr, SplitLine<SplitBlock>, nullptr, 1, 1};

}  // namespace vexakrn
