// Source pixels of every depth as bytes of red, green and blue.
#include <algorithm>
#include <cstring>

#include "common/packed.h"
#include "krn/ditherpass.h"

namespace vexakrn {
namespace {

bool IsGraySample(const DitherSource& source) noexcept {
  return source.bits == 12 || (source.bits == 16 && source.order == V_OrderGray);
}

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
    source.gray = source.gray && entry.rgbRed == entry.rgbGreen && entry.rgbGreen == entry.rgbBlue;
    source.identity = source.identity && source.gray && entry.rgbRed == i;
  }
}

uint8_t GrayOfSample(const DitherSource& source, uint32_t sample) noexcept {
  const uint32_t top = (1u << source.rangeBits) - 1, value = sample >> source.lowBit & top;
  return static_cast<uint8_t>(source.rangeBits >= 8 ? value >> (source.rangeBits - 8) : value * 255 / top);
}

uint32_t Load16(const uint8_t* line, int32_t index) noexcept {
  uint16_t value = 0;
  std::memcpy(&value, line + 2 * static_cast<int64_t>(index), sizeof value);
  return value;
}

// Widens a field by repeating its top bits.
template <uint32_t kBits>
uint8_t Widen(uint32_t value) noexcept {
  const uint32_t field = value & ((1u << kBits) - 1);
  return static_cast<uint8_t>(field << (8 - kBits) | field >> (2 * kBits - 8));
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
  if (source.bits == 12) {
    for (int32_t x = 0; x < width; ++x)
      plane[x] = GrayOfSample(source, Packed<12>::Get(line, static_cast<uint64_t>(x)));
  } else {
    for (int32_t x = 0; x < width; ++x) plane[x] = GrayOfSample(source, Load16(line, x));
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

// From the wide-gamut encoding, in fixed point; planes in memory order.
void FromRomm(uint8_t* const planes[3], int32_t width) noexcept {
  const auto component = [](int32_t sum) { return static_cast<uint8_t>(std::clamp((sum + 4095) / 8192, 0, 255)); };
  for (int32_t x = 0; x < width; ++x) {
    const int32_t c0 = planes[0][x], c1 = planes[1][x], c2 = planes[2][x];
    planes[0][x] = component(9467 * c0 - 1151 * c1 - 125 * c2);
    planes[1][x] = component(-305 * c0 + 10232 * c1 - 1735 * c2);
    planes[2][x] = component(-2156 * c0 - 6498 * c1 + 16846 * c2);
  }
}

}  // namespace

void SetSource(DitherSource& source, const DitherRequest& request) noexcept {
  source.bits = request.sourceBits;
  source.order = request.sourceOrder;
  if (source.bits <= 8) SetPalette(source, request.sourcePalette, request.sourceColors);
  if (!IsGraySample(source)) return;
  source.gray = true;
  const int32_t low = request.lowBit, high = request.highBit;
  const bool whole = low < 0 || high < low || high >= source.bits;  // a range that makes no sense is the whole sample
  source.lowBit = whole ? 0 : static_cast<uint32_t>(low);
  source.rangeBits = static_cast<uint32_t>(whole ? source.bits : high - low + 1);
}

void ExpandLine(const DitherSource& source, const uint8_t* line, int32_t width, uint8_t* const planes[3],
                int32_t components) noexcept {
  if (source.bits <= 8) return ExpandPalette(source, line, width, planes, components);
  if (IsGraySample(source)) {
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
