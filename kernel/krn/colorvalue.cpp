// Colour values in the terms of a bitmap: translation from one to another, and the plain colours they stand for.
#include "krn/colorvalue.h"

#include <algorithm>

#include "common/record.h"
#include "krn/palettes.h"
#include "platform/platform.h"

namespace vexakrn {
namespace {

constexpr uint32_t kBlack = 0;

uint32_t PaletteLength(const BITMAPHANDLE& bitmap) noexcept {
  return bitmap.pPalette ? static_cast<uint32_t>(std::clamp<int32_t>(bitmap.nColors, 0, kMaxColors)) : 0;
}

// Finds the plain colour of an entry; false where the bitmap has no such entry.
bool EntryColor(const BITMAPHANDLE* bitmap, uint32_t index, uint32_t* color) noexcept {
  if (CheckRecord(bitmap) != kSuccess || !IsPaletteDepth(bitmap->BitsPerPixel)) return false;
  if (index >= PaletteLength(*bitmap)) return false;
  *color = PlainValue(bitmap->pPalette[index]);
  return true;
}

uint32_t NearestValue(BITMAPHANDLE& bitmap, uint32_t plain) noexcept {
  return IndexValue(V_GetNearestPaletteIndex(&bitmap, plain));
}

// --- the display look-up table of gray bitmaps ---

struct GrayTable {
  const RGBQUAD* entries;
  uint32_t length;  // 0: none in use
};

bool UsesTable(const BITMAPHANDLE& bitmap) noexcept {
  return bitmap.Order == V_OrderGray && HasFlag(bitmap, V_FlagUseLUT);
}

GrayTable TableOf(const BITMAPHANDLE& bitmap) noexcept {
  constexpr uint32_t kLongest = 65535;
  if (!UsesTable(bitmap) || !bitmap.pLUT) return {nullptr, 0};
  return {bitmap.pLUT, std::min(uint32_t{bitmap.LUTLength}, kLongest)};
}

uint32_t NearestInTable(const GrayTable& table, uint32_t level) noexcept {
  return V_FindPaletteIndex(table.entries, table.length, level, level, level);
}

// The high bytes of a 16-bit table's entry: four words, blue first.
RGBQUAD HighBytes(const uint8_t* entry) noexcept { return {entry[1], entry[3], entry[5], 0}; }

// The colour of the 16-bit table's entry nearest to a gray level; false where no such table is in use.
bool WideTableColor(const BITMAPHANDLE& bitmap, uint32_t level, uint32_t* color) noexcept {
  if (IsOldLayout(bitmap) || !UsesTable(bitmap) || bitmap.pLUT || !bitmap.pLUT16 || bitmap.LUTLength16 == 0)
    return false;
  const auto* entries = static_cast<const uint8_t*>(bitmap.pLUT16);
  uint32_t least = UINT32_MAX;
  for (uint32_t i = 0; i < bitmap.LUTLength16 && least != 0; ++i) {
    const RGBQUAD entry = HighBytes(entries + 8 * uint64_t{i});
    const auto square = [level](uint32_t x) { return (x - level) * (x - level); };
    const uint32_t distance = square(entry.rgbRed) + square(entry.rgbGreen) + square(entry.rgbBlue);
    if (distance >= least) continue;
    least = distance;
    *color = PlainValue(entry);
  }
  return true;
}

// --- translation, by kind ---

uint32_t TranslateGray(const BITMAPHANDLE& dst, uint32_t value) noexcept {
  const uint32_t level = GrayLevelOf(value);
  const GrayTable table = TableOf(dst);
  return table.length != 0 ? IndexValue(NearestInTable(table, level)) : level * 0x010101;
}

uint32_t TranslateIndex(BITMAPHANDLE& dst, const BITMAPHANDLE* src, uint32_t value) noexcept {
  uint32_t color = kBlack, own = 0;
  const bool known = EntryColor(src, IndexOf(value), &color);
  if (!IsPaletteDepth(dst.BitsPerPixel)) return color;
  const bool same = known && EntryColor(&dst, IndexOf(value), &own) && own == color;
  return same ? value : NearestValue(dst, color);
}

// A gray level shown by the table that is in use, if there is one.
uint32_t TrueColorOfGray(const BITMAPHANDLE& bitmap, uint32_t level) noexcept {
  uint32_t color = level * 0x010101;
  if (const GrayTable table = TableOf(bitmap); table.length != 0) {
    color = PlainValue(table.entries[NearestInTable(table, level)]);
  } else {
    WideTableColor(bitmap, level, &color);
  }
  return color;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

uint32_t V_CALL V_TranslateBitmapColor(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t color) noexcept {
  if (CheckRecord(dst) != kSuccess) return color;
  switch (KindOf(color)) {
    case ColorKind::Gray:
      return TranslateGray(*dst, color);
    case ColorKind::Index:
      return TranslateIndex(*dst, src, color);
    case ColorKind::Plain:
      return IsPaletteDepth(dst->BitsPerPixel) ? NearestValue(*dst, color) : color;
  }
  return color;
}

uint32_t V_CALL V_GetTrueColorValue(BITMAPHANDLE* bitmap, uint32_t color) noexcept {
  if (CheckRecord(bitmap) != kSuccess) return color;
  const bool paletted = IsPaletteDepth(bitmap->BitsPerPixel);
  if (KindOf(color) == ColorKind::Gray && !paletted) return TrueColorOfGray(*bitmap, GrayLevelOf(color));
  // An index is in the bitmap's terms as it is: translation would make one outside the palette black.
  uint32_t own = color, plain = 0;
  if (KindOf(color) != ColorKind::Index || !paletted) own = V_TranslateBitmapColor(bitmap, bitmap, color);
  return KindOf(own) == ColorKind::Index && EntryColor(bitmap, IndexOf(own), &plain) ? plain : own;
}

uint32_t V_CALL V_GetNearestPaletteIndex(BITMAPHANDLE* bitmap, uint32_t color) noexcept {
  if (CheckRecord(bitmap) != kSuccess) return 0;
  const uint32_t colors = PaletteLength(*bitmap);
  return colors == 0 ? 0 : platform::NearestInPalette(bitmap->pPalette, colors, color);
}
