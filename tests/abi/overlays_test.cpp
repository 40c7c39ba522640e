// Overlays: the bitmap keeps copies of its own.
#include "support/testing.h"

namespace vexatest {
namespace {

TEST(Overlays, SlotsHoldDeepCopies) {
  for (const uint32_t layout : kLayouts) {
    AccountBalance balance;
    Bitmap bitmap(layout);
    ASSERT_EQ(bitmap.Create(V_MemoryConventional, 20, 20, 24, V_OrderBgr), 1);
    for (int32_t slot = 15; slot >= 0; --slot) {
      Bitmap source(slot % 2 == 0 ? kCurrentLayout : kOlderLayout);
      ASSERT_EQ(source.Create(slot % 3 == 0 ? V_MemoryDisk : V_MemoryConventional, 3 + slot, 5, 4), 1);
      WritePixels(source, std::vector<uint8_t>(source->BytesPerLine * size_t{5}, static_cast<uint8_t>(slot)));
      source->pPalette[2].rgbRed = static_cast<uint8_t>(slot);
      const BITMAPOVERLAY overlay = {sizeof overlay, slot, -slot, 2, source};
      ASSERT_EQ(V_SetBitmapOverlay(bitmap, slot, &overlay), 1);
      // The caller's bitmap is freed at once.
    }
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1) << "new storage, but not of its overlays";
    BITMAPOVERLAY got = {};
    for (int32_t slot = 0; slot < 16; ++slot) {
      EXPECT_EQ(V_FreeBitmapOverlay(bitmap, slot - 1), slot == 0 ? -13 : 1);
      EXPECT_EQ(V_GetBitmapOverlay(bitmap, slot - 1, &got), slot == 0 ? -13 : -2);
      ASSERT_EQ(V_GetBitmapOverlay(bitmap, slot, &got), 1);
      EXPECT_TRUE(got.uStructSize == 24 && got.x == slot && got.y == -slot && got.uFlags == 2) << slot;
      EXPECT_EQ(got.pBitmap->Width, 3 + slot);
      EXPECT_EQ(got.pBitmap->pPalette[2].rgbRed, slot);
      const std::vector<uint8_t> pixels = ReadPixels(got.pBitmap);
      EXPECT_EQ(pixels, std::vector<uint8_t>(pixels.size(), static_cast<uint8_t>(slot)));
    }
    EXPECT_EQ(V_GetBitmapOverlay(bitmap, 16, &got), -13);
  }
}

}  // namespace
}  // namespace vexatest
