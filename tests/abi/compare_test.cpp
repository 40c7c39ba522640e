// The diagnostic comparison of two records.
#include "support/testing.h"

namespace vexatest {
namespace {

TEST(Compare, NamesEachDifferingFieldWithItsValues) {
  const std::pair<const char*, void (*)(BITMAPHANDLE&)> kCases[] = {
      {"\n ViewPerspective\t4\t6\n Order\t1\t7", [](auto& b) { b.ViewPerspective = 6, b.Order = 7; }},
      {"\n XResolution\t150\t-1\n YResolution\t150\t2", [](auto& b) { b.YResolution = 2, b.XResolution = -1; }},
      {"\n Left\t0\t3\n Top\t0\t4\n Delay\t0\t5", [](auto& b) { b.Delay = 5, b.Top = 4, b.Left = 3; }},
      {"\n Background\t0\t6\n Transparency\t0\t7", [](auto& b) { b.Background = 6, b.Transparency = 7; }},
      {"\n DisposalMethod\t0\t2\n LowBit\t0\t1", [](auto& b) { b.DisposalMethod = 2, b.LowBit = 1; }},
      {"\n HighBit\t15\t14\n PaintLowBit\t0\t1", [](auto& b) { b.HighBit = 14, b.PaintLowBit = 1; }},
      {"\n PaintHighBit\t15\t9\n PaintGamma\t100\t220", [](auto& b) { b.PaintHighBit = 9, b.PaintGamma = 220; }},
      {"\n PaintContrast\t0\t-5\n PaintIntensity\t0\t8", [](auto& b) { b.PaintContrast = -5, b.PaintIntensity = 8; }},
      {"\n Flags.ProgressiveAvailable\t0\t1\n Flags.Interlaced\t0\t1\n Flags.Signed\t0\t1",
       [](auto& b) { b.Flags |= V_FlagInterlaced | V_FlagProgressiveAvailable | V_FlagSigned; }},
      {"\n Flags.NonLinearLUT\t0\t1", [](auto& b) { b.Flags |= V_FlagNonLinearLUT; }},
      {"", [](auto& b) { b.Flags |= 1u << 19 | 1u << 20; }}};  // the unnamed flags are not compared
  for (const uint32_t layout : kLayouts)
    for (const auto& [text, change] : kCases) {
      Bitmap a, b(layout);
      ASSERT_EQ(a.Init(5, 6, 16), 1);
      ASSERT_EQ(b.Init(5, 6, 16), 1);
      EXPECT_EQ(Differences(a, b), "");
      change(*b.get());
      EXPECT_EQ(Differences(a, b), text);
    }
  Bitmap a, b;
  ASSERT_EQ(a.Init(5, 6, 8), 1);
  ASSERT_EQ(b.Init(9, 7, 4), 1);
  EXPECT_EQ(
      Differences(a, b),
      "\n Width\t5\t9\n Height\t6\t7\n BitsPerPixel\t8\t4\n nColors\t256\t16\n HighBit\t7\t3\n PaintHighBit\t7\t3");
}

// Bits behind the last pixel of a row are nobody's.
TEST(Compare, RowsEndWithTheirLastPixel) {
  for (const int32_t bits : kDepths) {
    constexpr int32_t kWidth = 5;
    SCOPED_TRACE(bits);
    Bitmap a, b;
    ASSERT_EQ(a.Create(V_MemoryConventional, kWidth, 3, bits), 1);
    ASSERT_EQ(b.Create(V_MemoryConventional, kWidth, 3, bits), 1);
    std::vector<uint8_t> pixels(a->BytesPerLine * size_t{3});
    WritePixels(a, pixels);
    uint8_t* last = pixels.data() + 2 * a->BytesPerLine;
    memset(last, 0xFF, a->BytesPerLine);
    for (int32_t column = 0; column < kWidth; ++column) PutPixelAt(last, column, bits, 0);
    WritePixels(b, pixels);
    EXPECT_EQ(Differences(a, b), "");
    PutPixelAt(last, kWidth - 1, bits, 1);
    WritePixels(b, pixels);
    EXPECT_EQ(Differences(a, b).find("\n V_GetBitmapRow"), 0u);
  }
}

TEST(Compare, AppendsAndNeverPassesTheEndOfTheText) {
  Bitmap a, b;
  ASSERT_EQ(a.Init(5, 6, 8), 1);
  ASSERT_EQ(b.Init(5, 7, 8), 1);
  const std::string all = Differences(a, b);
  for (size_t size = 0; size < all.size() + 8; ++size) {
    GuardedBytes text(size, 'x');  // of no bytes, and of a string without an end, nothing is used
    auto* const chars = reinterpret_cast<char*>(text.data());
    EXPECT_EQ(V_CompareBitmapHandles(a, b, chars, size), 0);
    EXPECT_TRUE(text.Holds('x'));
    const std::string before = std::string("abc").substr(0, std::max<size_t>(size, 1) - 1);
    if (size > 0) memcpy(chars, before.c_str(), before.size() + 1);
    EXPECT_EQ(V_CompareBitmapHandles(a, b, chars, size), 0);
    EXPECT_TRUE(size == 0 || chars == (before + all).substr(0, size - 1));
    EXPECT_TRUE(text.GuardsIntact()) << size;
  }
  for (const uint64_t size : {0u, 100u}) EXPECT_EQ(V_CompareBitmapHandles(a, b, nullptr, size), 0);
  Bitmap garbage;
  for (const auto& [bad, status] : {std::pair<BITMAPHANDLE*, int32_t>(nullptr, -13), {garbage, -789}}) {
    EXPECT_EQ(V_CompareBitmapHandles(bad, b, nullptr, 0), status);
    EXPECT_EQ(V_CompareBitmapHandles(a, bad, nullptr, 0), status);
  }
}

}  // namespace
}  // namespace vexatest
