// A palette made for a picture: its colours are counted in a histogram, which is split where that lowers the variance
// most (Wu, "Efficient Statistical Computations for Optimal Color Quantization", Graphics Gems II, 1991); then a few
// rounds of k-means move each entry to the middle of the colours that are nearest to it.
#ifndef VEXAKRN_KRN_QUANTIZE_H
#define VEXAKRN_KRN_QUANTIZE_H

#include <cstdint>

#include "common/buffer.h"
#include "krn/palettes.h"

namespace vexakrn {

class ColorHistogram {
 public:
  // So many pixels count; what comes after them is left out.
  static constexpr uint64_t kMostPixels = 1u << 24;

  int32_t Allocate() noexcept;  // -1 without memory

  // Adds each `step`-th of `count` 24-bit pixels, blue first.
  void Add(const uint8_t* pixels, uint64_t count, uint64_t step) noexcept;

  // Makes at most `colors` (1 to 256) entries; the very colours of the picture when it has no more. With `pure`, black,
  // white and the colours of full and no components keep an entry of their own where they occur. At least one pixel
  // must have been added. -1 without memory.
  int32_t MakePalette(uint32_t colors, bool pure, RGBQUAD* palette, uint32_t* made) const noexcept;

 private:
  struct Cell {  // of 4 x 4 x 4 colours; two 32-bit sums a word
    uint64_t countAndRed;
    uint64_t greenAndBlue;
  };

  void NoteColor(uint32_t color) noexcept;
  bool HasFewColors(uint32_t colors) const noexcept { return distinct_ <= colors; }
  void ListColors(RGBQUAD* palette) const noexcept;

  static constexpr uint32_t kCellCount = 1u << 18;
  static constexpr uint32_t kSlots = 1024;  // of the table of distinct colours, which is given up when they are many

  Buffer<Cell> cells_;
  uint32_t seen_[kSlots] = {};  // a colour plus 1 << 24; 0 for none
  uint64_t room_ = kMostPixels;
  uint32_t distinct_ = 0;  // kMaxColors + 1: too many to list
  uint32_t pure_ = 0;      // a bit for each pure colour that occurs: index 4 red + 2 green + blue
};

}  // namespace vexakrn

#endif
