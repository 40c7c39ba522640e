// Logical palettes: the platform's objects behind the interface.
#include "common/record.h"
#include "krn/palettes.h"
#include "platform/platform.h"

using namespace vexakrn;

HPALETTE V_CALL V_SysCreatePalette(const RGBQUAD* entries, uint32_t count) noexcept {
  if (!entries || count == 0 || count > kMaxColors) return nullptr;
  return static_cast<HPALETTE>(platform::System().createPalette(entries, count));
}

uint32_t V_CALL V_SysGetPaletteEntries(HPALETTE palette, uint32_t start, uint32_t count, RGBQUAD* out) noexcept {
  return palette ? platform::ReadPalette(palette, start, count, out) : 0;
}

void V_CALL V_SysDelete(void* handle) noexcept { platform::DeleteSystemObject(handle); }

HPALETTE V_CALL V_DupPalette(HPALETTE palette) noexcept {
  const uint32_t count = V_SysGetPaletteEntries(palette, 0, 0, nullptr);
  RGBQUAD entries[kMaxColors];
  if (count > kMaxColors || V_SysGetPaletteEntries(palette, 0, count, entries) != count) return nullptr;
  return V_SysCreatePalette(entries, count);
}

int32_t V_CALL V_SetBitmapPalette(BITMAPHANDLE* bitmap, HPALETTE palette) noexcept {
  V_TRY(CheckRecord(bitmap));
  const uint32_t count = V_SysGetPaletteEntries(palette, 0, 0, nullptr);
  RGBQUAD entries[kMaxColors];
  if (count < 2 || count > kMaxColors) return kInvalidParameter;
  if (V_SysGetPaletteEntries(palette, 0, count, entries) != count) return kInvalidParameter;
  return V_SetBitmapNewPalette(bitmap, entries, count);
}
