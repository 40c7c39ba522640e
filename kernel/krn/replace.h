// Putting a new bitmap in the place of an old one: the last step of operations that work in place.
#ifndef VEXAKRN_KRN_REPLACE_H
#define VEXAKRN_KRN_REPLACE_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

// Frees what a record had and puts `made`, of the same layout, in its place; it stays the list item that it is, and accessed as often.
void TakePlace(BITMAPHANDLE& bitmap, const BITMAPHANDLE& made) noexcept;

}  // namespace vexakrn

#endif
