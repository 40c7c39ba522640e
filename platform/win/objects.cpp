// The system's own objects: logical palettes.
#include <algorithm>

#include "platform/win/win.h"

namespace vexakrn::platform {

// Flags of entries are left out: some make the system take an entry for something else than a colour.
void* NewPalette(const RGBQUAD* entries, uint32_t count) noexcept {
  struct {
    WORD version, count;
    PALETTEENTRY entries[256];
  } description = {0x300, static_cast<WORD>(count), {}};
  static_assert(offsetof(LOGPALETTE, palPalEntry) == offsetof(decltype(description), entries));
  std::transform(entries, entries + count, description.entries, [](const RGBQUAD& e) {
    return PALETTEENTRY{e.rgbRed, e.rgbGreen, e.rgbBlue, 0};
  });
  return CreatePalette(reinterpret_cast<const LOGPALETTE*>(&description));
}

uint32_t ReadPalette(void* palette, uint32_t start, uint32_t count, RGBQUAD* out) noexcept {
  const auto handle = static_cast<HPALETTE>(palette);
  if (!out) return GetPaletteEntries(handle, 0, 0, nullptr);
  uint32_t done = 0;
  for (PALETTEENTRY part[256]; done < count;) {
    const UINT got = GetPaletteEntries(handle, start + done, std::min(count - done, 256u), part);
    std::transform(part, part + got, out + done, [](const PALETTEENTRY& e) {
      return RGBQUAD{e.peBlue, e.peGreen, e.peRed, 0};
    });
    done += got;
    if (got < 256) break;
  }
  return done;
}

uint32_t NearestInPalette(const RGBQUAD* entries, uint32_t count, uint32_t color) noexcept {
  void* palette = System().createPalette(entries, count);
  if (!palette) return 0;
  const UINT index = GetNearestPaletteIndex(static_cast<HPALETTE>(palette), color & 0xFFFFFF);
  DeleteSystemObject(palette);
  return index == CLR_INVALID ? 0 : index;
}

void DeleteSystemObject(void* object) noexcept {
  if (object && DeleteObject(object)) VEXAKRN_RELEASED(SystemObject);
}

}  // namespace vexakrn::platform
