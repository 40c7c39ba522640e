// Source pixels of every depth as bytes of red, green and blue.
#include <cstring>

#include "common/packed.h"
#include "krn/ditherpass.h"
#include "krn/romm.h"

namespace vexakrn {
namespace {

void SetPalette(DitherSource& source, const RGBQUAD* palette, uint32_t colors) noexcept {
  if (!palette) {
    palette = FixedPalette(static_cast<uint32_t>(source.bits));
    colors = 1u << source.bits;
  }
  source.gray = true;
  source.identity = source.bits == 8;
  for (uint32_t i = 0; i < 1u << source.bits; ++i) {
    const RGBQUAD entry = i < colors ? palette[i] : RGBQUAD{};
    source.components[0][i] = entry.rgbRed;
    source.components[1][i] = entry.rgbGreen;
    source.components[2][i] = entry.rgbBlue;
    source.gray = source.gray && IsGray(entry);
    source.identity = source.identity && source.gray && entry.rgbRed == i;
  }
}

uint32_t Load16(const uint8_t* line, int32_t index) noexcept {
  uint16_t value = 0;
  std::memcpy(&value, line + 2 * static_cast<int64_t>(index), sizeof value);
  return value;
}

// A field at the bottom of a word.
template <uint32_t kBits>
uint8_t Widen(uint32_t word) noexcept {
  return static_cast<uint8_t>(WidenTo8(word & ((1u << kBits) - 1), kBits));
}

void ExpandPalette(const DitherSource& source, const uint8_t* line, int32_t width, uint8_t* const planes[3],
                   int32_t components) noexcept {
  for (int32_t c = 0; c < components; ++c) {
    const uint8_t* const table = source.components[c];
    uint8_t* const plane = planes[c];
    if (source.identity) {
      std::memcpy(plane, line, static_cast<size_t>(width));
      continue;
    }
    const bool packed = WithPacked(source.bits, [&](auto p) {
      for (int32_t x = 0; x < width; ++x) plane[x] = table[p.Get(line, static_cast<uint64_t>(x))];
    });
    if (!packed)
      for (int32_t x = 0; x < width; ++x) plane[x] = table[line[x]];
  }
}

void ExpandGray(const DitherSource& source, const uint8_t* line, int32_t width, uint8_t* plane) noexcept {
  const auto gray = [&](uint32_t sample) { return static_cast<uint8_t>(GrayOfSample(sample, source.range)); };
  if (source.bits == 12) {
    for (int32_t x = 0; x < width; ++x) plane[x] = gray(Packed<12>::Get(line, static_cast<uint64_t>(x)));
  } else {
    for (int32_t x = 0; x < width; ++x) plane[x] = gray(Load16(line, x));
  }
}

void Expand16(const DitherSource& source, const uint8_t* line, int32_t width, uint8_t* const planes[3]) noexcept {
  uint8_t *red = planes[0], *green = planes[1], *blue = planes[2];
  if (source.order == V_OrderRgb565) {
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t pixel = Load16(line, x);
      red[x] = Widen<5>(pixel >> 11), green[x] = Widen<6>(pixel >> 5), blue[x] = Widen<5>(pixel);
    }
  } else {
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t pixel = Load16(line, x);
      red[x] = Widen<5>(pixel >> 10), green[x] = Widen<5>(pixel >> 5), blue[x] = Widen<5>(pixel);
    }
  }
}

// The high bytes of 16-bit components.
void ExpandHighBytes(const uint8_t* line, int32_t pixelBytes, int32_t width, uint8_t* const planes[3]) noexcept {
  for (int32_t x = 0; x < width; ++x, line += pixelBytes)
    planes[0][x] = line[1], planes[1][x] = line[3], planes[2][x] = line[5];
}

// From the wide-gamut encoding; planes in memory order.
void FromRomm(uint8_t* const planes[3], int32_t width) noexcept {
  for (int32_t x = 0; x < width; ++x) {
    uint8_t pixel[3] = {planes[0][x], planes[1][x], planes[2][x]};
    MultiplyRomm(kFromRomm, pixel, 255);
    for (int32_t c = 0; c < 3; ++c) planes[c][x] = pixel[c];
  }
}

}  // namespace

void SetSource(DitherSource& source, const DitherRequest& request) noexcept {
  source.bits = request.sourceBits;
  source.order = request.sourceOrder;
  if (source.bits <= 8) SetPalette(source, request.sourcePalette, request.sourceColors);
  if (!HasGraySamples(source.bits, source.order)) return;
  source.gray = true;
  source.range = SampleRange(source.bits, request.lowBit, request.highBit);
}

void ExpandLine(const DitherSource& source, const uint8_t* line, int32_t width, uint8_t* const planes[3],
                int32_t components) noexcept {
  if (source.bits <= 8) return ExpandPalette(source, line, width, planes, components);
  if (HasGraySamples(source.bits, source.order)) {
    ExpandGray(source, line, width, planes[0]);
    for (int32_t c = 1; c < components; ++c) std::memcpy(planes[c], planes[0], static_cast<size_t>(width));
    return;
  }
  if (source.bits == 16) return Expand16(source, line, width, planes);
  // In memory order: blue comes first but for order Rgb.
  const bool redFirst = source.order == V_OrderRgb;
  uint8_t* const inMemory[3] = {planes[redFirst ? 0 : 2], planes[1], planes[redFirst ? 2 : 0]};
  if (source.bits <= 32) {
    ActiveDitherKernels().split(line, source.bits / 8, width, inMemory);
  } else {
    ExpandHighBytes(line, source.bits / 8, width, inMemory);
  }
  if (IsRomm(source)) FromRomm(inMemory, width);
}

}  // namespace vexakrn
