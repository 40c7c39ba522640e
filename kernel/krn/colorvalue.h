// Colour values: what the top byte says about the other three.
#ifndef VEXAKRN_KRN_COLORVALUE_H
#define VEXAKRN_KRN_COLORVALUE_H

#include <cstdint>

#include "vexakrn/types.h"

namespace vexakrn {

enum class ColorKind : uint32_t { Plain = 0x00, Index = 0x01, Gray = 0x04 };  // others mean nothing

inline ColorKind KindOf(uint32_t value) noexcept { return static_cast<ColorKind>(value >> 24); }
inline uint32_t IndexOf(uint32_t value) noexcept { return value & 0xFFFF; }
inline uint32_t GrayLevelOf(uint32_t value) noexcept { return value >> 8 & 0xFF; }

inline uint32_t IndexValue(uint32_t index) noexcept { return static_cast<uint32_t>(ColorKind::Index) << 24 | index; }
inline uint32_t PlainValue(const RGBQUAD& entry) noexcept {
  return static_cast<uint32_t>(entry.rgbRed | entry.rgbGreen << 8 | entry.rgbBlue << 16);
}

}  // namespace vexakrn

#endif
