// Overlays: the bitmap keeps copies of its own.
#include <gtest/gtest.h>

#include "support/bitmap.h"
#include "support/random.h"
#include "support/settings.h"
#include "support/storage.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

BITMAPOVERLAY Overlay(BITMAPHANDLE* bitmap, int32_t x = 0, int32_t y = 0, uint32_t flags = 0) {
  return {sizeof(BITMAPOVERLAY), x, y, flags, bitmap};
}

BITMAPOVERLAY Read(BITMAPHANDLE* bitmap, int32_t slot) {
  BITMAPOVERLAY overlay{};
  overlay.uStructSize = sizeof(overlay);
  EXPECT_EQ(V_GetBitmapOverlay(bitmap, slot, &overlay), 1) << "slot " << slot;
  return overlay;
}

class OverlayLayouts : public testing::TestWithParam<uint32_t> {
  AccountBalance balance_;
};
INSTANTIATE_TEST_SUITE_P(All, OverlayLayouts, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return "Size" + std::to_string(layout.param); });

TEST_P(OverlayLayouts, SlotsHoldDeepCopies) {
  Bitmap bitmap(GetParam());
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 20, 20, 24, V_OrderBgr), 1);
  std::vector<std::vector<uint8_t>> pixels(16);
  for (int32_t slot = 15; slot >= 0; --slot) {  // in no particular order
    Bitmap source(slot % 2 == 0 ? kCurrentLayout : kOlderLayout);
    ASSERT_EQ(source.Create(slot % 3 == 0 ? V_MemoryDisk : V_MemoryConventional, 3 + slot, 5, 4), 1);
    const auto at = static_cast<size_t>(slot);
    pixels[at] = Random(at).Bytes(source->BytesPerLine * size_t{5});
    WritePixels(source, pixels[at]);
    source->pPalette[2].rgbRed = static_cast<uint8_t>(slot);
    source->XResolution = 400 + slot;
    const BITMAPOVERLAY overlay = Overlay(source, slot, -slot, slot % 2 == 0 ? 2 : 0);
    ASSERT_EQ(V_SetBitmapOverlay(bitmap, slot, &overlay), 1);
    // What happens to the caller's bitmap from here on is its own business: it is freed at once.
    WritePixels(source, std::vector<uint8_t>(pixels[at].size(), 0));
  }
  for (int32_t slot = 0; slot < 16; ++slot) {
    SCOPED_TRACE(slot);
    const BITMAPOVERLAY got = Read(bitmap, slot);
    EXPECT_EQ(got.uStructSize, 24u);
    EXPECT_EQ(got.x, slot);
    EXPECT_EQ(got.y, -slot);
    EXPECT_EQ(got.uFlags, slot % 2 == 0 ? 2u : 0u);
    ASSERT_NE(Field(got.pBitmap), nullptr);
    EXPECT_EQ(got.pBitmap->Width, 3 + slot);
    EXPECT_EQ(got.pBitmap->XResolution, 400 + slot);
    EXPECT_EQ(got.pBitmap->pPalette[2].rgbRed, slot);
    EXPECT_EQ(ReadPixels(got.pBitmap), pixels[static_cast<size_t>(slot)]);
  }
  // The copy may be written, and is what the next get sees.
  WritePixels(Read(bitmap, 4).pBitmap, std::vector<uint8_t>(pixels[4].size(), 0x3C));
  EXPECT_EQ(ReadPixels(Read(bitmap, 4).pBitmap), std::vector<uint8_t>(pixels[4].size(), 0x3C));
  // Slots are freed one by one; the rest goes with the bitmap.
  BITMAPOVERLAY out = Overlay(bitmap);
  EXPECT_EQ(V_FreeBitmapOverlay(bitmap, 4), 1);
  EXPECT_EQ(V_GetBitmapOverlay(bitmap, 4, &out), -2);
  EXPECT_EQ(Field(out.pBitmap), nullptr);
  EXPECT_EQ(V_FreeBitmapOverlay(bitmap, 4), 1) << "an empty slot is no error";
  EXPECT_EQ(ReadPixels(Read(bitmap, 5).pBitmap), pixels[5]);
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1) << "new storage of the bitmap";
  EXPECT_EQ(ReadPixels(Read(bitmap, 5).pBitmap), pixels[5]) << "is not new storage of its overlays";
}

}  // namespace
}  // namespace vexatest
