// Palettes inside the engine: the fixed ones as constants, and the search for the nearest entry.
#ifndef VEXAKRN_KRN_PALETTES_H
#define VEXAKRN_KRN_PALETTES_H

#include <cstdint>

#include "vexakrn/palette.h"

namespace vexakrn {

inline constexpr uint32_t kMaxColors = 256;
inline constexpr uint32_t kNoEntry = UINT32_MAX;

// Whether a bitmap of this depth has a palette.
inline bool IsPaletteDepth(int32_t bitsPerPixel) noexcept { return bitsPerPixel >= 1 && bitsPerPixel <= 8; }

inline bool IsGray(const RGBQUAD& entry) noexcept {
  return entry.rgbRed == entry.rgbGreen && entry.rgbGreen == entry.rgbBlue;
}

// Whether an entry is never chosen for a colour: its reserved byte says so.
inline bool IsBarred(const RGBQUAD& entry) noexcept { return (entry.rgbReserved & 3) != 0; }

// The fixed palette of 2^bits colours, 1 to 8 bits; and the 6 x 6 x 6 cube with 40 black entries behind it.
const RGBQUAD* FixedPalette(uint32_t bits) noexcept;
const RGBQUAD* CubePalette() noexcept;

// A copy for V_FreeBuffer to free; null without memory.
RGBQUAD* CopyPalette(const RGBQUAD* palette, uint32_t colors) noexcept;

// How the components of a colour are ordered by size: 0 to 6, but never 3. Decides between equally distant entries. For a
// colour after the other that is a coin toss, so nothing here branches.
inline uint32_t OrderingClass(uint32_t r, uint32_t g, uint32_t b) noexcept {
  const auto one = [](bool condition) { return static_cast<uint32_t>(condition); };
  return (one(g > r) & one(g > b)) | (one(g < r) & one(g < b)) << 1 | one(r < b) << 2;
}

// A palette laid out for many searches; the answers are those of V_FindPaletteIndex. Needs Set before Find.
class PaletteSearch {
 public:
  PaletteSearch() noexcept = default;
  PaletteSearch(const RGBQUAD* palette, uint32_t colors) noexcept { Set(palette, colors); }
  PaletteSearch(const PaletteSearch&) = delete;  // what it holds is laid out by its address
  PaletteSearch& operator=(const PaletteSearch&) = delete;

  void Set(const RGBQUAD* palette, uint32_t colors) noexcept;  // 1 to 256 colours, copied
  uint32_t Find(uint32_t r, uint32_t g, uint32_t b) const noexcept;

 private:
  static constexpr uint32_t kClasses = 7;  // ordering classes of colours, and kNoClass
  static constexpr uint32_t kNoClass = 3;  // one that no colour has

  struct Columns {  // nearestkernels.h
    int16_t redGreen[2 * kMaxColors], blueNone[2 * kMaxColors];
    int32_t keys[kClasses][kMaxColors];
  };
  static constexpr uintptr_t kLine = 64;  // vectors that straddle cache lines cost a third

  const Columns& Laid() const noexcept {
    return *reinterpret_cast<const Columns*>((reinterpret_cast<uintptr_t>(room_) + kLine - 1) / kLine * kLine);
  }
  uint32_t Nearest(uint32_t orderingClass, uint32_t r, uint32_t g, uint32_t b, int32_t* distance) const noexcept;

  RGBQUAD entries_[kMaxColors];
  uint32_t colors_ = 0;
  uint32_t black_, white_;  // entries that these colours prefer
  uint8_t room_[sizeof(Columns) + kLine - 1];
};

}  // namespace vexakrn

#endif
