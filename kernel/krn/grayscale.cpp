// What is gray: palettes, bitmaps, and the parameters of gray samples.
#include <algorithm>
#include <cstring>

#include "common/record.h"
#include "krn/palettes.h"
#include "vexakrn/copy.h"

namespace vexakrn {
namespace {

// Whether the levels are first, first + step, ... in 8-bit arithmetic.
bool RunsBy(const RGBQUAD* palette, uint32_t colors, uint32_t first, uint32_t step) noexcept {
  for (uint32_t i = 0; i < colors; ++i)
    if (palette[i].rgbRed != static_cast<uint8_t>(first + i * step)) return false;
  return true;
}

int32_t ClassifyPalette(const BITMAPHANDLE& bitmap) noexcept {
  const uint32_t indices = 1u << bitmap.BitsPerPixel;  // entries beyond them are never shown
  const int32_t held = bitmap.nColors;
  if (!bitmap.pPalette || held <= 0) return V_GrayscaleNone;
  const uint32_t colors = std::min(static_cast<uint32_t>(held), indices);
  const int32_t mode = V_IsGrayScalePalette(bitmap.pPalette, colors);
  return mode != V_GrayscaleNone && colors < indices ? int32_t{V_GrayscaleNotOrdered} : mode;
}

int32_t ClassifyTable(const RGBQUAD* table, uint32_t length) noexcept {
  const RGBQUAD* end = table + length;
  if (!std::all_of(table, end, IsGray)) return V_GrayscaleNone;
  const auto less = [](const RGBQUAD& a, const RGBQUAD& b) { return a.rgbRed < b.rgbRed; };
  const auto more = [](const RGBQUAD& a, const RGBQUAD& b) { return a.rgbRed > b.rgbRed; };
  if (std::is_sorted(table, end, less)) return V_GrayscaleOrderedNormal;
  return std::is_sorted(table, end, more) ? V_GrayscaleOrderedInverse : V_GrayscaleNotOrdered;
}

// Kept in words of the record that both layouts have.
struct MinMax {
  int32_t min, max;
};
static_assert(sizeof(MinMax) == sizeof(BITMAPHANDLE::reserved188));

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_IsGrayScalePalette(const RGBQUAD* palette, uint32_t colors) noexcept {
  if (!palette || colors == 0) return kInvalidParameter;
  if (!std::all_of(palette, palette + colors, IsGray)) return V_GrayscaleNone;
  const uint32_t step = colors == 1 ? 0 : 255 / (colors - 1);
  if (RunsBy(palette, colors, 0, step)) return V_GrayscaleOrderedNormal;
  return RunsBy(palette, colors, 255, 0 - step) ? V_GrayscaleOrderedInverse : V_GrayscaleNotOrdered;
}

int32_t V_CALL V_IntIsGrayScaleBitmap(BITMAPHANDLE* bitmap, uint32_t) noexcept {
  V_TRY(CheckRecord(bitmap));
  if (IsPaletteDepth(bitmap->BitsPerPixel)) return ClassifyPalette(*bitmap);
  if (bitmap->Order != V_OrderGray) return V_GrayscaleNone;
  const RGBQUAD* table = bitmap->pLUT;
  const uint32_t length = bitmap->LUTLength;
  return table && length != 0 ? ClassifyTable(table, length) : int32_t{V_GrayscaleOrderedNormal};
}

int32_t V_CALL V_GetBitmapMinMax(BITMAPHANDLE* bitmap, int32_t* min, int32_t* max) noexcept {
  V_TRY(CheckRecord(bitmap));
  MinMax values;
  std::memcpy(&values, bitmap->reserved188, sizeof values);
  if (min) *min = values.min;
  if (max) *max = values.max;
  return kSuccess;
}

int32_t V_CALL V_SetBitmapMinMax(BITMAPHANDLE* bitmap, int32_t min, int32_t max) noexcept {
  V_TRY(CheckRecord(bitmap));
  if (min > max) return kInvalidParameter;
  const MinMax values = {min, max};
  std::memcpy(bitmap->reserved188, &values, sizeof values);
  return kSuccess;
}

int32_t V_CALL V_CopyGrayParams(BITMAPHANDLE* dst, BITMAPHANDLE* src) noexcept {
  V_TRY(CheckRecord(dst));
  V_TRY(CheckRecord(src));
  dst->LowBit = src->LowBit;
  dst->HighBit = src->HighBit;
  dst->PaintLowBit = src->PaintLowBit;
  dst->PaintHighBit = src->PaintHighBit;
  dst->Flags = (dst->Flags & ~uint32_t{V_FlagSigned}) | (src->Flags & V_FlagSigned);
  std::memmove(dst->reserved188, src->reserved188, sizeof dst->reserved188);
  return kSuccess;
}
