// UTF-8 at the interface: checking, and measuring in the characters of the systems.
#ifndef VEXAKRN_COMMON_UTF8_H
#define VEXAKRN_COMMON_UTF8_H

#include <cstdint>

namespace vexakrn {

// Number of UTF-16 characters of a string, or -1 when it is not well-formed UTF-8.
inline int64_t Utf16Length(const char* text) noexcept {
  const auto* at = reinterpret_cast<const uint8_t*>(text);
  int64_t length = 0;
  while (*at) {
    const uint8_t lead = *at++;
    if (lead < 0x80) {
      ++length;
      continue;
    }
    const int trailing = lead >= 0xC2 && lead < 0xE0   ? 1
                         : (lead & 0xF0) == 0xE0       ? 2
                         : lead >= 0xF0 && lead < 0xF5 ? 3
                                                       : 0;
    if (trailing == 0) return -1;
    uint32_t code = lead & (0x3Fu >> trailing);
    for (int i = 0; i < trailing; ++i, ++at) {
      if ((*at & 0xC0) != 0x80) return -1;
      code = code << 6 | (*at & 0x3Fu);
    }
    constexpr uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (code < kLeast[trailing] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return -1;
    length += code >= 0x10000 ? 2 : 1;
  }
  return length;
}

}  // namespace vexakrn

#endif
