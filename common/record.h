// The bitmap record's two layouts: checks, and the fields that only the current layout has.
//
// Fields of the packed record may be misaligned: read them into locals, never take their address.
#ifndef VEXAKRN_COMMON_RECORD_H
#define VEXAKRN_COMMON_RECORD_H

#include <cstring>

#include "common/checked.h"
#include "common/status.h"
#include "vexakrn/bitmap.h"

namespace vexakrn {

// The bits of Flags that say where the data is.
inline constexpr uint32_t kStorageFlags = 0xD517;

inline bool IsStructSize(uint32_t size) noexcept {
  return size == V_BITMAPHANDLE_SIZE || size == V_BITMAPHANDLE_OLD_SIZE;
}

// The older layout ends with a private word where LUTLength16 is in the current one: nothing from there on is used.
inline bool IsOldLayout(const BITMAPHANDLE& bitmap) noexcept { return bitmap.uStructSize < 253; }

// The first check of every function: null, then the size field; nothing else is readable before.
inline int32_t CheckRecord(const BITMAPHANDLE* bitmap, int32_t ifNull = kInvalidParameter) noexcept {
  if (!bitmap) return ifNull;
  return IsStructSize(bitmap->uStructSize) ? kSuccess : kInvalidStructSize;
}

inline bool HasFlag(const BITMAPHANDLE& bitmap, uint32_t flag) noexcept { return (bitmap.Flags & flag) != 0; }

inline int32_t CheckAllocated(const BITMAPHANDLE& bitmap) noexcept {
  return HasFlag(bitmap, V_FlagAllocated) ? kSuccess : kNoImage;
}

inline uint64_t DataSize(const BITMAPHANDLE& bitmap) noexcept {
  return IsOldLayout(bitmap) ? bitmap.Size32 : bitmap.Size64;
}

// Records the data size in the fields of the layout. The older one holds sizes up to 0xFFFF0000; a larger one is stored
// as that, and refused.
inline int32_t SetDataSize(BITMAPHANDLE& bitmap, uint64_t size) noexcept {
  constexpr uint64_t kOldLayoutMaximum = 0xFFFF0000;
  if (IsOldLayout(bitmap)) {
    bitmap.Size32 = static_cast<uint32_t>(size > kOldLayoutMaximum ? kOldLayoutMaximum : size);
    return size > kOldLayoutMaximum ? kMemoryTooLow : kSuccess;
  }
  bitmap.Size64 = size;
  bitmap.Size32 = static_cast<uint32_t>(size);
  return kSuccess;
}

inline BITMAPHANDLEDATACALLBACKS* DataCallbacks(const BITMAPHANDLE& bitmap) noexcept {
  return IsOldLayout(bitmap) ? nullptr : bitmap.DataCallbacks;
}

inline int32_t LockCount(const BITMAPHANDLE& bitmap) noexcept { return IsOldLayout(bitmap) ? 0 : bitmap.nLockCount; }

// The number of the list item that a record is, or is a copy of; 0 for none.
inline uint64_t ItemNumber(const BITMAPHANDLE& bitmap) noexcept {
  uint64_t number = 0;
  std::memcpy(&number, bitmap.reserved36, sizeof number);
  return number;
}
inline void SetItemNumber(BITMAPHANDLE& bitmap, uint64_t number) noexcept {
  std::memcpy(bitmap.reserved36, &number, sizeof number);
}

// Row pitch, in 32-bit arithmetic as its contract asks: it wraps for widths whose rows cannot be stored.
inline uint32_t RowPitch(int32_t width, int32_t bitsPerPixel) noexcept {
  return ((static_cast<uint32_t>(width) * static_cast<uint32_t>(bitsPerPixel) + 31) >> 3) & ~3u;
}

// Whether the recorded pitch really holds a row.
inline bool PitchHoldsRow(const BITMAPHANDLE& bitmap) noexcept {
  const int64_t bits = static_cast<int64_t>(bitmap.Width) * bitmap.BitsPerPixel;
  return bits >= 0 && (bits + 7) / 8 <= static_cast<int64_t>(bitmap.BytesPerLine);
}

inline bool IsSupportedDepth(int32_t bits) noexcept {
  return (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 || bits == 64;
}

// Byte that holds a pixel, from the start of its row; rounds down where a pixel straddles bytes. 32-bit arithmetic.
inline uint32_t ColumnOffset(int32_t column, int32_t bitsPerPixel) noexcept {
  const auto c = static_cast<uint32_t>(column);
  switch (bitsPerPixel) {
    case 1:
      return c / 8;
    case 2:
      return c / 4;
    case 3:
      return 3 * c / 8;
    case 4:
      return c / 2;
    case 5:
      return 5 * c / 8;
    case 6:
      return 3 * c / 4;
    case 7:
      return 7 * c / 8;
    case 12:
      return c + c / 2;
    case 16:
      return 2 * c;
    case 24:
      return 3 * c;
    case 32:
      return 4 * c;
    case 48:
      return 6 * c;
    case 64:
      return 8 * c;
    default:
      return c;
  }
}

}  // namespace vexakrn

#endif
