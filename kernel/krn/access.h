// Holding a bitmap's data: locking of movable blocks, and a guard for operations.
#ifndef VEXAKRN_KRN_ACCESS_H
#define VEXAKRN_KRN_ACCESS_H

#include <utility>

#include "common/record.h"

namespace vexakrn {

// Locks a movable block and stores its address; nothing to do for other kinds and for one already locked.
int32_t LockData(BITMAPHANDLE& bitmap) noexcept;

// Undoes it; nothing to do when it is not locked.
void UnlockData(BITMAPHANDLE& bitmap) noexcept;

// Accesses a bitmap and releases it on every path; Release() when the release's own status matters.
class AccessGuard {
 public:
  explicit AccessGuard(BITMAPHANDLE& bitmap) noexcept {
    // The older layout counts no accesses: what its caller has locked must not be released here.
    if (IsOldLayout(bitmap) && HasFlag(bitmap, V_FlagLockedMemory)) return;
    bitmap_ = &bitmap;
    status_ = V_AccessBitmap(&bitmap);
  }
  ~AccessGuard() {
    if (bitmap_ && status_ == kSuccess) V_ReleaseBitmap(bitmap_);
  }
  AccessGuard(const AccessGuard&) = delete;
  AccessGuard& operator=(const AccessGuard&) = delete;

  int32_t Status() const noexcept { return status_; }
  int32_t Release() noexcept { return bitmap_ ? V_ReleaseBitmap(std::exchange(bitmap_, nullptr)) : int32_t{kSuccess}; }

 private:
  BITMAPHANDLE* bitmap_ = nullptr;
  int32_t status_ = kSuccess;
};

}  // namespace vexakrn

#endif
