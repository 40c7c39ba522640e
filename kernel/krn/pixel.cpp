// Single pixels at displayed positions: raw values and colours.
#include <algorithm>
#include <cstring>

#include "common/packed.h"
#include "common/perspective.h"
#include "common/record.h"
#include "krn/access.h"
#include "krn/colorvalue.h"
#include "krn/romm.h"
#include "krn/rowcol.h"
#include "krn/samples.h"
#include "vexakrn/palette.h"

namespace vexakrn {
namespace {

// --- raw values: up to 64 bits, little-endian where a pixel has whole bytes ---

// The pixels that share bytes with the wanted one, from a pixel that starts on a byte on.
struct Window {
  int32_t column;  // its first pixel
  uint32_t index;  // the wanted one in it
  uint64_t bytes;
};

Window WindowOf(const BITMAPHANDLE& bitmap, int32_t column) noexcept {
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  const int32_t group = bits < 8 || bits == 12 ? 8 : 1;  // so many pixels fill whole bytes
  const auto index = static_cast<uint32_t>(column % group);
  return {column - column % group, index, ((index + 1) * bits + 7) / 8};
}

uint64_t RawBytes(int32_t bits) noexcept { return bits <= 8 ? 1 : bits == 12 ? 2 : static_cast<uint64_t>(bits) / 8; }

class Pixel {
 public:
  Pixel(BITMAPHANDLE& bitmap, int32_t row, int32_t column) noexcept
      : bitmap_(bitmap), row_(row), window_(WindowOf(bitmap, column)) {}

  int32_t Get(uint64_t* value) noexcept {
    V_TRY(Load());
    *value = 0;
    const bool packed = WithPacked(bitmap_.BitsPerPixel, [&](auto p) { *value = p.Get(bytes_, window_.index); });
    if (!packed) std::memcpy(value, bytes_, window_.bytes);
    return kSuccess;
  }

  int32_t Put(uint64_t value) noexcept {
    V_TRY(Load());
    const auto low = static_cast<uint32_t>(value);
    const bool packed = WithPacked(bitmap_.BitsPerPixel, [&](auto p) { p.Put(bytes_, window_.index, low); });
    if (!packed) std::memcpy(bytes_, &value, window_.bytes);
    return PutWholeRowPart(bitmap_, bytes_, {row_, window_.column, window_.bytes});
  }

 private:
  int32_t Load() noexcept { return GetWholeRowPart(bitmap_, bytes_, {row_, window_.column, window_.bytes}); }

  BITMAPHANDLE& bitmap_;
  int32_t row_;
  Window window_;
  uint8_t bytes_[16] = {};
};

// --- colours ---

struct Color {  // 0 to 255 each
  uint32_t red, green, blue;
};

bool IsGray(const BITMAPHANDLE& bitmap) noexcept { return HasGraySamples(bitmap.BitsPerPixel, bitmap.Order); }

GrayRange RangeOf(const BITMAPHANDLE& bitmap) noexcept {
  return SampleRange(bitmap.BitsPerPixel, bitmap.LowBit, bitmap.HighBit);
}

// Of a component of 24-bit colour and deeper.
uint32_t ComponentBits(const BITMAPHANDLE& bitmap) noexcept { return bitmap.BitsPerPixel <= 32 ? 8 : 16; }

// Three components in memory order: blue first but for order Rgb.
Color FromComponents(const BITMAPHANDLE& bitmap, uint32_t c0, uint32_t c1, uint32_t c2) noexcept {
  return bitmap.Order == V_OrderRgb ? Color{c0, c1, c2} : Color{c2, c1, c0};
}

Color PaletteColor(const BITMAPHANDLE& bitmap, uint64_t index) noexcept {
  if (!bitmap.pPalette || static_cast<int64_t>(index) >= bitmap.nColors) return {0, 0, 0};
  const RGBQUAD& entry = bitmap.pPalette[index];
  return {entry.rgbRed, entry.rgbGreen, entry.rgbBlue};
}

Color ColorOf(const BITMAPHANDLE& bitmap, uint64_t raw) noexcept {
  const auto field = [raw](uint32_t shift, uint32_t bits) {
    return static_cast<uint32_t>(raw >> shift & ((1u << bits) - 1));
  };
  if (bitmap.BitsPerPixel <= 8) return PaletteColor(bitmap, raw);
  if (IsGray(bitmap)) {
    const uint32_t gray = GrayOfSample(static_cast<uint32_t>(raw), RangeOf(bitmap));
    return {gray, gray, gray};
  }
  if (bitmap.BitsPerPixel == 16) {
    const uint32_t green = bitmap.Order == V_OrderRgb565 ? 6 : 5;
    return {WidenTo8(field(5 + green, 5), 5), WidenTo8(field(5, green), green), WidenTo8(field(0, 5), 5)};
  }
  const uint32_t bits = ComponentBits(bitmap);
  uint32_t c[3] = {field(0, bits), field(bits, bits), field(2 * bits, bits)};
  if (bitmap.Order == V_OrderRomm) MultiplyRomm(kFromRomm, c, (1 << bits) - 1);
  return FromComponents(bitmap, c[0] >> (bits - 8), c[1] >> (bits - 8), c[2] >> (bits - 8));
}

// The raw value of a colour; `old` gives the bits that a colour does not set (alpha, the top bit of 5-5-5).
uint64_t RawOf(const BITMAPHANDLE& bitmap, const Color& c, uint64_t old) noexcept {
  if (bitmap.BitsPerPixel <= 8) {
    const int32_t colors = bitmap.pPalette ? std::clamp<int32_t>(bitmap.nColors, 0, 1 << bitmap.BitsPerPixel)
                                           : 0;  // a longer palette has no indices
    return colors == 0 ? 0 : V_FindPaletteIndex(bitmap.pPalette, static_cast<uint32_t>(colors), c.red, c.green, c.blue);
  }
  if (IsGray(bitmap)) {
    const GrayRange range = RangeOf(bitmap);
    return uint64_t{ValueOfGray(LuminanceOf(c.red, c.green, c.blue), range.bits)} << range.low;
  }
  if (bitmap.BitsPerPixel == 16) {
    if (bitmap.Order == V_OrderRgb565) return (c.red >> 3) << 11 | (c.green >> 2) << 5 | c.blue >> 3;
    return (old & 0x8000) | (c.red >> 3) << 10 | (c.green >> 3) << 5 | c.blue >> 3;
  }
  const uint32_t bits = ComponentBits(bitmap), scale = bits == 8 ? 1 : 257;
  const Color memory = FromComponents(bitmap, c.red * scale, c.green * scale, c.blue * scale);  // its own inverse
  uint32_t pixel[3] = {memory.red, memory.green, memory.blue};
  if (bitmap.Order == V_OrderRomm) MultiplyRomm(kToRomm, pixel, (1 << bits) - 1);
  return old >> 3 * bits << 3 * bits | uint64_t{pixel[2]} << 2 * bits | uint64_t{pixel[1]} << bits | pixel[0];
}

// The raw value that a colour value of any kind stands for.
int32_t RawOfValue(const BITMAPHANDLE& bitmap, uint32_t value, uint64_t old, uint64_t* raw) noexcept {
  switch (KindOf(value)) {
    case ColorKind::Plain:
      *raw = RawOf(bitmap, {value & 0xFF, value >> 8 & 0xFF, value >> 16 & 0xFF}, old);
      return kSuccess;
    case ColorKind::Gray: {
      const uint32_t level = GrayLevelOf(value);
      *raw = RawOf(bitmap, {level, level, level}, old);
      return kSuccess;
    }
    case ColorKind::Index: {
      const uint32_t index = IndexOf(value);
      if (bitmap.BitsPerPixel > 8) {  // an index means nothing to a deeper pixel but the entry's colour
        *raw = RawOf(bitmap, PaletteColor(bitmap, index), old);
        return kSuccess;
      }
      *raw = index;
      return index >> bitmap.BitsPerPixel == 0 ? kSuccess : kInvalidParameter;
    }
  }
  return kInvalidParameter;
}

// --- the opening that all four functions share ---

// Turns the displayed position into the stored one.
int32_t CheckPosition(const BITMAPHANDLE* bitmap, const void* data, int32_t* row, int32_t* column) noexcept {
  V_TRY(CheckRecord(bitmap, kNoImage));
  if (!data) return kNullPointer;
  V_TRY(CheckAllocated(*bitmap));
  return ToStored(*bitmap, row, column) ? kSuccess : kInvalidParameter;
}

// Runs an operation on one pixel with the data accessed.
template <typename Operation>
int32_t WithPixel(BITMAPHANDLE& bitmap, int32_t row, int32_t column, Operation operation) noexcept {
  AccessGuard access(bitmap);
  V_TRY(access.Status());
  Pixel pixel(bitmap, row, column);
  V_TRY(operation(pixel));
  return access.Release();
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_GetPixelColor(BITMAPHANDLE* bitmap, int32_t row, int32_t column, uint32_t* color) noexcept {
  V_TRY(CheckPosition(bitmap, color, &row, &column));
  return WithPixel(*bitmap, row, column, [&](Pixel& pixel) -> int32_t {
    uint64_t raw = 0;
    V_TRY(pixel.Get(&raw));
    const Color c = ColorOf(*bitmap, raw);
    *color = c.red | c.green << 8 | c.blue << 16;
    return kSuccess;
  });
}

int32_t V_CALL V_PutPixelColor(BITMAPHANDLE* bitmap, int32_t row, int32_t column, uint32_t color) noexcept {
  V_TRY(CheckPosition(bitmap, &color, &row, &column));
  return WithPixel(*bitmap, row, column, [&](Pixel& pixel) -> int32_t {
    uint64_t old = 0, raw = 0;
    V_TRY(pixel.Get(&old));
    V_TRY(RawOfValue(*bitmap, color, old, &raw));
    return pixel.Put(raw);
  });
}

int32_t V_CALL V_GetPixelData(BITMAPHANDLE* bitmap, void* data, int32_t row, int32_t column, uint64_t bytes) noexcept {
  V_TRY(CheckPosition(bitmap, data, &row, &column));
  const uint64_t size = RawBytes(bitmap->BitsPerPixel);
  if (bytes < size) return kInvalidParameter;
  return WithPixel(*bitmap, row, column, [&](Pixel& pixel) -> int32_t {
    uint64_t raw = 0;
    V_TRY(pixel.Get(&raw));
    std::memcpy(data, &raw, size);
    return kSuccess;
  });
}

int32_t V_CALL V_PutPixelData(BITMAPHANDLE* bitmap, const void* data, int32_t row, int32_t column,
                              uint64_t bytes) noexcept {
  V_TRY(CheckPosition(bitmap, data, &row, &column));
  const uint64_t size = RawBytes(bitmap->BitsPerPixel);
  if (bytes < size) return kInvalidParameter;
  uint64_t raw = 0;
  std::memcpy(&raw, data, size);
  return WithPixel(*bitmap, row, column, [&](Pixel& pixel) { return pixel.Put(raw); });
}
