// Palettes of bitmaps: given, copied, changed and compared.
#include "vexakrn/palette.h"

#include <algorithm>
#include <cstring>

#include "common/buffer.h"
#include "common/record.h"
#include "krn/palettes.h"
#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

// Replaces a bitmap's palette by one that it owns from here on; null for none.
void TakePalette(BITMAPHANDLE& bitmap, RGBQUAD* palette) noexcept {
  V_FreeBuffer(bitmap.pPalette);
  bitmap.pPalette = palette;
}

bool SameColor(const RGBQUAD& a, const RGBQUAD& b) noexcept {
  return a.rgbRed == b.rgbRed && a.rgbGreen == b.rgbGreen && a.rgbBlue == b.rgbBlue;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_CreateBitmapFixedPalette(BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckRecord(bitmap));
  const auto colors = static_cast<uint32_t>(bitmap->nColors);
  for (uint32_t bits = 1; bits <= 8; ++bits) {
    if (colors != 1u << bits) continue;
    RGBQUAD* fixed = CopyPalette(FixedPalette(bits == 2 ? 1 : bits), colors);
    if (!fixed) return kNoMemory;
    TakePalette(*bitmap, fixed);
    return kSuccess;
  }
  TakePalette(*bitmap, nullptr);
  return kFailure;
}

int32_t V_CALL V_CreateBitmapGrayPalette(BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckRecord(bitmap));
  const int32_t bits = bitmap->BitsPerPixel;
  if (!IsPaletteDepth(bits)) return kBitsPerPixel;
  RGBQUAD* grays = V_CreateGrayPalette(static_cast<uint32_t>(bits));
  if (!grays) return kNoMemory;
  TakePalette(*bitmap, grays);
  bitmap->nColors = 1 << bits;
  return kSuccess;
}

int32_t V_CALL V_SetBitmapNewPalette(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) noexcept {
  V_TRY(CheckRecord(bitmap));
  RGBQUAD* copy = nullptr;
  if (palette && colors != 0) {
    if (colors > kMaxColors) return kInvalidParameter;
    copy = CopyPalette(palette, colors);
    if (!copy) return kNoMemory;
  }
  TakePalette(*bitmap, copy);
  if (palette) bitmap->nColors = static_cast<int32_t>(colors);
  return kSuccess;
}

int32_t V_CALL V_CopyBitmapPalette(BITMAPHANDLE* dst, BITMAPHANDLE* src) noexcept {
  V_TRY(CheckRecord(dst));
  V_TRY(CheckRecord(src));
  if (dst == src) return kSuccess;
  const int32_t colors = src->nColors;
  return V_SetBitmapNewPalette(dst, src->pPalette, static_cast<uint32_t>(std::max(colors, 0)));
}

int32_t V_CALL V_PutBitmapColors(BITMAPHANDLE* bitmap, int32_t index, int32_t count, const RGBQUAD* colors) noexcept {
  V_TRY(CheckRecord(bitmap));
  V_TRY(CheckAllocated(*bitmap));
  const int32_t room = bitmap->nColors;
  if (!colors || bitmap->BitsPerPixel > 8 || room > static_cast<int32_t>(kMaxColors)) return kInvalidParameter;
  if (index < 0 || count < 0 || int64_t{index} + count > room) return kInvalidParameter;
  if (room == 0) return kSuccess;
  if (!bitmap->pPalette) {
    bitmap->pPalette = AllocateZeroed<RGBQUAD>(static_cast<uint64_t>(room));
    if (!bitmap->pPalette) return kNoMemory;
  }
  std::memcpy(bitmap->pPalette + index, colors, static_cast<uint64_t>(count) * sizeof(RGBQUAD));
  return kSuccess;
}

int32_t V_CALL V_CompareBitmapToPalette(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) noexcept {
  V_TRY(CheckRecord(bitmap));
  if (!palette) return kInvalidParameter;
  const RGBQUAD* own = bitmap->pPalette;
  const int32_t count = bitmap->nColors;
  if (!own || count <= 0) return 1;
  return colors <= static_cast<uint32_t>(count) && std::equal(own, own + colors, palette, SameColor) ? 1 : 0;
}
