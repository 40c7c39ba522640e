// Nearest entries of a destination's palette, found once for each value that occurs.
#ifndef VEXAKRN_KRN_CONVERTMATCH_H
#define VEXAKRN_KRN_CONVERTMATCH_H

#include <cstdint>

#include "krn/palettes.h"

namespace vexakrn {

// For lines of up to 256 different values: indices into a palette, or gray levels.
class IndexMatch {
 public:
  // A null `source` means gray levels. Both palettes must live on.
  void Set(const RGBQUAD* source, const RGBQUAD* destination, uint32_t colors) noexcept;

  uint8_t Find(uint8_t value) noexcept {
    if (entries_[value] == kUnknown) entries_[value] = Search(value);
    return static_cast<uint8_t>(entries_[value]);
  }

 private:
  static constexpr uint16_t kUnknown = 0xFFFF;

  uint16_t Search(uint8_t value) const noexcept;

  const RGBQUAD *source_, *destination_;
  uint32_t colors_;
  uint16_t entries_[256];
};

// For colours. Answers are kept in a cache of exact colours; the fixed palette of 256 entries is mostly answered without
// a search: its levels are nearest for each component alone, unless a component lies halfway between two of them.
class ColorMatch {
 public:
  ColorMatch(const RGBQUAD* palette, uint32_t colors) noexcept;

  uint8_t Find(uint32_t r, uint32_t g, uint32_t b) noexcept;

 private:
  static constexpr uint32_t kSlotBits = 12, kEmpty = 0xFFFFFFFF;

  PaletteSearch search_;
  bool fixed_;
  uint32_t keys_[1u << kSlotBits];
  uint8_t entries_[1u << kSlotBits];
};

}  // namespace vexakrn

#endif
