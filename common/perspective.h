// View perspectives: where the stored rows and pixels lie in the displayed picture.
//
// Each of the eight is a start corner and two directions: whether stored rows run along displayed columns, and from
// which ends rows and pixels are counted.
#ifndef VEXAKRN_COMMON_PERSPECTIVE_H
#define VEXAKRN_COMMON_PERSPECTIVE_H

#include <cstdint>
#include <utility>

#include "vexakrn/bitmap.h"

namespace vexakrn {

struct Corner {
  bool turned;      // stored rows are displayed columns
  bool rowsBack;    // the first stored row is the last displayed one (turned: the right column)
  bool pixelsBack;  // the first stored pixel is the last displayed one (turned: the bottom one)
};

inline constexpr Corner kCorners[] = {
    {},  // no such value; treated like top left
    {false, false, false},
    {false, false, true},
    {false, true, true},
    {false, true, false},
    {true, false, false},
    {true, true, false},
    {true, true, true},
    {true, false, true},
};

inline const Corner& CornerOf(const BITMAPHANDLE& bitmap) noexcept {
  const int32_t value = bitmap.ViewPerspective;
  return kCorners[value >= V_ViewTopLeft && value <= V_ViewLeftBottom ? value : 0];
}

// Turns a displayed position into the stored one. False when it lies outside.
inline bool ToStored(const BITMAPHANDLE& bitmap, int32_t* row, int32_t* column) noexcept {
  const Corner& corner = CornerOf(bitmap);
  int32_t r = *row, c = *column;
  if (corner.turned) std::swap(r, c);
  if (r < 0 || r >= bitmap.Height || c < 0 || c >= bitmap.Width) return false;
  *row = corner.rowsBack ? bitmap.Height - 1 - r : r;
  *column = corner.pixelsBack ? bitmap.Width - 1 - c : c;
  return true;
}

// The top left corner, as displayed, of a rectangle of stored pixels.
inline POINT DisplayedCorner(const BITMAPHANDLE& bitmap, int32_t left, int32_t top, int32_t width,
                             int32_t height) noexcept {
  const Corner& corner = CornerOf(bitmap);
  const int32_t along = corner.pixelsBack ? bitmap.Width - left - width : left;
  const int32_t across = corner.rowsBack ? bitmap.Height - top - height : top;
  return corner.turned ? POINT{across, along} : POINT{along, across};
}

}  // namespace vexakrn

#endif
