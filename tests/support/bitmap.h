// An image record of either layout that frees what it owns, and what tests ask of records.
#ifndef VEXAKRN_TESTS_SUPPORT_BITMAP_H
#define VEXAKRN_TESTS_SUPPORT_BITMAP_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/guarded.h"
#include "vexakrn.h"

namespace vexatest {

inline constexpr uint32_t kCurrentLayout = V_BITMAPHANDLE_SIZE;
inline constexpr uint32_t kOlderLayout = V_BITMAPHANDLE_OLD_SIZE;
inline constexpr uint32_t kLayouts[] = {kCurrentLayout, kOlderLayout};
inline constexpr int32_t kDepths[] = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};

inline constexpr uint32_t kStorageBits = V_FlagAllocated | V_FlagConventionalMemory | V_FlagDiskMemory |
                                         V_FlagLockedMemory | V_FlagCompressed | V_FlagMirror | V_FlagGlobal |
                                         V_FlagTiled | V_FlagSuperCompressed;

// A field of a packed record as a value: the assertions bind references, and a field may be misaligned.
template <typename T>
T Field(T value) {
  return value;
}

inline uint32_t RowBytes(int32_t width, int32_t bits) {
  return ((static_cast<uint32_t>(width) * static_cast<uint32_t>(bits) + 31) >> 3) & ~3u;
}

// The record has exactly the bytes of its layout; canaries follow at once. It starts as garbage without a valid size.
class Bitmap {
 public:
  explicit Bitmap(uint32_t structSize = kCurrentLayout) : structSize_(structSize), record_(structSize, 0xA5) {}
  ~Bitmap() {
    V_FreeBitmap(get());
    EXPECT_TRUE(record_.GuardsIntact()) << "bytes around a record of " << structSize_ << " bytes were written";
  }
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  BITMAPHANDLE* get() { return reinterpret_cast<BITMAPHANDLE*>(record_.data()); }
  operator BITMAPHANDLE*() { return get(); }  // NOLINT: a test passes it where the interface takes a record
  BITMAPHANDLE* operator->() { return get(); }

  uint32_t StructSize() const { return structSize_; }
  uint64_t DataSize() { return structSize_ == kOlderLayout ? uint64_t{get()->Size32} : uint64_t{get()->Size64}; }
  uint32_t StorageFlags() { return get()->Flags & kStorageBits; }

  // The bytes of the record, to see that a refused call changed none.
  std::vector<uint8_t> Snapshot() const { return {record_.data(), record_.data() + structSize_}; }

  int32_t Init(int32_t width, int32_t height, int32_t bits) {
    return V_InitBitmap(get(), structSize_, width, height, bits);
  }
  int32_t Create(uint32_t memory, int32_t width, int32_t height, int32_t bits, int32_t order = V_OrderRgb,
                 int32_t perspective = V_ViewTopLeft) {
    return V_CreateBitmap(get(), structSize_, memory, width, height, bits, order, nullptr, perspective, nullptr, 0);
  }

 private:
  uint32_t structSize_;
  GuardedBytes record_;
};

class Access {
 public:
  explicit Access(BITMAPHANDLE* bitmap) : bitmap_(bitmap) { EXPECT_EQ(V_AccessBitmap(bitmap), 1); }
  ~Access() { EXPECT_EQ(V_ReleaseBitmap(bitmap_), 1); }
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

 private:
  BITMAPHANDLE* bitmap_;
};

// The lines that tell two bitmaps apart; none when nothing does.
inline std::string Differences(BITMAPHANDLE* a, BITMAPHANDLE* b) {
  char text[4096] = "";
  const int32_t status = V_CompareBitmapHandles(a, b, text, sizeof text);
  EXPECT_EQ(status, text[0] == 0 ? 1 : 0);
  return text;
}

// All stored rows, each with its padding.
inline std::vector<uint8_t> ReadPixels(BITMAPHANDLE* bitmap) {
  Access access(bitmap);
  const uint32_t pitch = bitmap->BytesPerLine;
  std::vector<uint8_t> pixels(size_t{pitch} * static_cast<size_t>(bitmap->Height));
  for (int32_t row = 0; row < bitmap->Height; ++row)
    EXPECT_EQ(V_GetBitmapRow(bitmap, pixels.data() + size_t{pitch} * static_cast<size_t>(row), row, pitch), pitch);
  return pixels;
}

inline void WritePixels(BITMAPHANDLE* bitmap, const std::vector<uint8_t>& pixels) {
  Access access(bitmap);
  const uint32_t pitch = bitmap->BytesPerLine;
  ASSERT_EQ(pixels.size(), size_t{pitch} * static_cast<size_t>(bitmap->Height));
  for (int32_t row = 0; row < bitmap->Height; ++row)
    ASSERT_EQ(V_PutBitmapRow(bitmap, pixels.data() + size_t{pitch} * static_cast<size_t>(row), row, pitch), pitch);
}

}  // namespace vexatest

#endif
