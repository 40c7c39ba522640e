// Objects that other systems have of their own: logical palettes.
#include <algorithm>
#include <cstdlib>

#include "platform/posix/posix.h"

namespace vexakrn::platform {
namespace {

// Every object begins with its kind, so that one function deletes them all.
enum class ObjectKind : uint32_t { kPalette };

struct ObjectHeader {
  ObjectKind kind;
};

struct Palette {
  ObjectHeader header;
  uint32_t count;
  RGBQUAD entries[256];
};

}  // namespace

void* CreatePalette(const RGBQUAD* entries, uint32_t count) noexcept {
  auto* palette = static_cast<Palette*>(std::malloc(sizeof(Palette)));
  if (!palette) return nullptr;
  palette->header.kind = ObjectKind::kPalette;
  palette->count = count;
  std::transform(entries, entries + count, palette->entries, [](const RGBQUAD& e) {
    return RGBQUAD{e.rgbBlue, e.rgbGreen, e.rgbRed, 0};
  });
  return palette;
}

uint32_t ReadPalette(void* object, uint32_t start, uint32_t count, RGBQUAD* out) noexcept {
  const auto* header = static_cast<const ObjectHeader*>(object);
  if (!header || header->kind != ObjectKind::kPalette) return 0;
  const auto* palette = static_cast<const Palette*>(object);
  if (!out) return palette->count;
  if (start >= palette->count) return 0;
  count = std::min(count, palette->count - start);
  std::copy_n(palette->entries + start, count, out);
  return count;
}

uint32_t NearestInPalette(const RGBQUAD* entries, uint32_t count, uint32_t color) noexcept {
  const auto distance = [color](const RGBQUAD& e) {
    const auto square = [](uint32_t x, uint32_t y) { return (x - y) * (x - y); };
    return square(e.rgbRed, color & 0xFF) + square(e.rgbGreen, color >> 8 & 0xFF) +
           square(e.rgbBlue, color >> 16 & 0xFF);
  };
  const auto nearer = [&](const RGBQUAD& a, const RGBQUAD& b) { return distance(a) < distance(b); };
  return static_cast<uint32_t>(std::min_element(entries, entries + count, nearer) - entries);
}

void DeleteSystemObject(void* object) noexcept {
  if (!object) return;
  std::free(object);
  VEXAKRN_RELEASED(SystemObject);
}

}  // namespace vexakrn::platform
