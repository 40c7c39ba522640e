// Dithering passes on bitmaps: their life, their arguments, and lines whose result is known.
#include "support/testing.h"

namespace vexatest {
namespace {

RGBQUAD Entry(uint8_t r, uint8_t g, uint8_t b, uint8_t reserved = 0) {
  RGBQUAD entry = {};
  entry.rgbRed = r;
  entry.rgbGreen = g;
  entry.rgbBlue = b;
  entry.rgbReserved = reserved;
  return entry;
}

class DitherPass : public testing::TestWithParam<uint32_t> {
 protected:
  DitherPass() : bitmap_(GetParam()) {}

  void Create(int32_t width, int32_t bits, int32_t method, int32_t order = V_OrderBgr) {
    ASSERT_EQ(bitmap_.Create(V_MemoryConventional, width, 4, bits, order), 1);
    bitmap_->DitherMethod = method;
  }

  Bitmap bitmap_;
};

INSTANTIATE_TEST_SUITE_P(BothLayouts, DitherPass, testing::ValuesIn(kLayouts));

TEST_P(DitherPass, ARefusedStartLeavesNoPassBehind) {
  const RGBQUAD barred[] = {Entry(1, 2, 3, 1), Entry(4, 5, 6, 2)};
  const uint8_t line[64] = {};
  uint8_t out[64];
  Create(16, 24, V_DitheringFloydStein);
  const auto refused = [&](const RGBQUAD* palette, uint32_t colors, uint32_t bits) {
    EXPECT_EQ(V_StartDitheringExt(bitmap_, palette, colors, bits, nullptr), -13) << colors << " colours, " << bits;
    EXPECT_EQ(V_DitherLine(bitmap_, line, out), -13);
  };
  refused(nullptr, 0, 1);
  refused(nullptr, 257, 8);
  refused(nullptr, 2, 9);
  refused(barred, 2, 1);
  EXPECT_EQ(V_StartDithering(bitmap_, nullptr, 257), -13);
  for (const int32_t method : {9, -1}) {
    bitmap_->DitherMethod = method;
    refused(nullptr, 2, 1);
  }
  bitmap_->DitherMethod = V_DitheringNone;
  bitmap_->BitsPerPixel = 9;
  refused(nullptr, 2, 1);
  bitmap_->BitsPerPixel = 24;

  EXPECT_EQ(V_StartDithering(bitmap_, nullptr, 2), 1);
  EXPECT_EQ(V_DitherLine(bitmap_, nullptr, out), -13);
  EXPECT_EQ(V_DitherLine(bitmap_, line, nullptr), -13);
  EXPECT_EQ(V_DitherLine(nullptr, line, out), -13);
  refused(nullptr, 0, 1);  // it also closes the pass that was open
  EXPECT_EQ(V_StopDithering(bitmap_), 1);
  EXPECT_EQ(V_StartDithering(nullptr, nullptr, 2), -13);
  EXPECT_EQ(V_StopDithering(nullptr), -13);
  const uint32_t size = bitmap_->uStructSize;
  bitmap_->uStructSize = 100;
  EXPECT_EQ(V_StartDitheringExt(bitmap_, nullptr, 2, 1, nullptr), -789);
  EXPECT_EQ(V_DitherLine(bitmap_, line, out), -789);
  EXPECT_EQ(V_StopDithering(bitmap_), -789);
  bitmap_->uStructSize = size;
}

TEST_P(DitherPass, StartTakesTheFewestBitsAndTheFixedPalette) {
  Create(4, 24, V_DitheringNone);
  const uint8_t line[] = {0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255};  // red, green, blue, white
  uint8_t out[4] = {};
  ASSERT_EQ(V_StartDithering(bitmap_, nullptr, 8), 1);
  ASSERT_EQ(V_DitherLine(bitmap_, line, out), 1);
  EXPECT_EQ(out[0] << 8 | out[1], 0b1000100011110000);   // 4, 2, 1, 7 in three bits each
  ASSERT_EQ(V_StartDithering(bitmap_, nullptr, 16), 1);  // a second start ends the first pass
  ASSERT_EQ(V_DitherLine(bitmap_, line, out), 1);
  EXPECT_EQ(out[0] << 8 | out[1], 0x9ACF);
  ASSERT_EQ(V_StartDithering(bitmap_, nullptr, 200), 1);
  ASSERT_EQ(V_DitherLine(bitmap_, line, out), 1);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 4), (std::vector<uint8_t>{0xE0, 0x1C, 0x03, 0xFF}));
}

// A pass that nobody closes goes with its bitmap (the sanitizer looks for what is left).
TEST_P(DitherPass, FreeingTheBitmapClosesItsPass) {
  Create(300, 8, V_DitheringStevensonArce);
  ASSERT_EQ(V_StartDithering(bitmap_, nullptr, 2), 1);
  V_FreeBitmap(bitmap_);
  EXPECT_EQ(Field(bitmap_->DitherState), nullptr);
  uint8_t line[300] = {};
  EXPECT_EQ(V_DitherLine(bitmap_, line, line), -13);
}

}  // namespace
}  // namespace vexatest
