// Dithering passes on bitmaps: their life, their arguments, and lines whose result is known.
#include "support/testing.h"

namespace vexatest {
namespace {

class DitherPass : public testing::TestWithParam<uint32_t> {
 protected:
  DitherPass() : bitmap_(GetParam()) {}

  void Create(int32_t width, int32_t method) {
    ASSERT_EQ(bitmap_.Create(V_MemoryConventional, width, 4, 24, V_OrderBgr), 1);
    bitmap_->DitherMethod = method;
  }
  Bitmap bitmap_;
};

INSTANTIATE_TEST_SUITE_P(BothLayouts, DitherPass, testing::ValuesIn(kLayouts));

TEST_P(DitherPass, ARefusedStartLeavesNoPassBehind) {
  const RGBQUAD barred[] = {{3, 2, 1, 1}, {6, 5, 4, 2}};
  const uint8_t line[64] = {};
  uint8_t out[64];
  Create(16, V_DitheringFloydStein);
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
  bitmap_->uStructSize = 100;
  EXPECT_EQ(V_StartDitheringExt(bitmap_, nullptr, 2, 1, nullptr), -789);
  EXPECT_EQ(V_DitherLine(bitmap_, line, out), -789);
  EXPECT_EQ(V_StopDithering(bitmap_), -789);
  bitmap_->uStructSize = GetParam();
}

TEST_P(DitherPass, StartTakesTheFewestBitsAndTheFixedPalette) {
  Create(4, V_DitheringNone);
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
  V_FreeBitmap(bitmap_);
  EXPECT_EQ(V_DitherLine(bitmap_, line, out), -13) << "a pass that nobody closes goes with its bitmap";
}

}  // namespace
}  // namespace vexatest
