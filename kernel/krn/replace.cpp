// Putting a new bitmap in the place of an old one.
#include "krn/replace.h"

#include <cstring>

#include "common/record.h"

namespace vexakrn {

void TakePlace(BITMAPHANDLE& bitmap, const BITMAPHANDLE& made) noexcept {
  const int32_t lockCount = LockCount(bitmap);
  const uint64_t number = ItemNumber(bitmap);
  if (!IsOldLayout(bitmap)) bitmap.nLockCount = 0;
  V_FreeBitmap(&bitmap);
  std::memcpy(&bitmap, &made, bitmap.uStructSize);
  SetItemNumber(bitmap, number);
  if (!IsOldLayout(bitmap)) bitmap.nLockCount = lockCount;
}

}  // namespace vexakrn
