// The diagnostic comparison of two records.
#include <gtest/gtest.h>

#include <string>

#include "support/bitmap.h"
#include "support/guarded.h"
#include "support/random.h"
#include "support/storage.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

struct Comparison {
  int32_t status;
  std::string text;
};

Comparison Compare(BITMAPHANDLE* a, BITMAPHANDLE* b) {
  char text[4096] = "";
  const int32_t status = V_CompareBitmapHandles(a, b, text, sizeof(text));
  return {status, text};
}

TEST(Compare, NamesEachDifferingFieldWithItsValues) {
  struct Case {
    const char* text;
    void (*change)(BITMAPHANDLE&);
  };
  const Case cases[] = {
      {"\n ViewPerspective\t4\t6", [](BITMAPHANDLE& b) { b.ViewPerspective = 6; }},
      {"\n Order\t1\t7", [](BITMAPHANDLE& b) { b.Order = 7; }},
      {"\n XResolution\t150\t-1", [](BITMAPHANDLE& b) { b.XResolution = -1; }},
      {"\n YResolution\t150\t2", [](BITMAPHANDLE& b) { b.YResolution = 2; }},
      {"\n Left\t0\t3", [](BITMAPHANDLE& b) { b.Left = 3; }},
      {"\n Top\t0\t4", [](BITMAPHANDLE& b) { b.Top = 4; }},
      {"\n Delay\t0\t5", [](BITMAPHANDLE& b) { b.Delay = 5; }},
      {"\n Background\t0\t6", [](BITMAPHANDLE& b) { b.Background = 6; }},
      {"\n Transparency\t0\t7", [](BITMAPHANDLE& b) { b.Transparency = 7; }},
      {"\n DisposalMethod\t0\t2", [](BITMAPHANDLE& b) { b.DisposalMethod = 2; }},
      {"\n LowBit\t0\t1", [](BITMAPHANDLE& b) { b.LowBit = 1; }},
      {"\n HighBit\t15\t14", [](BITMAPHANDLE& b) { b.HighBit = 14; }},
      {"\n PaintLowBit\t0\t1", [](BITMAPHANDLE& b) { b.PaintLowBit = 1; }},
      {"\n PaintHighBit\t15\t9", [](BITMAPHANDLE& b) { b.PaintHighBit = 9; }},
      {"\n PaintGamma\t100\t220", [](BITMAPHANDLE& b) { b.PaintGamma = 220; }},
      {"\n PaintContrast\t0\t-5", [](BITMAPHANDLE& b) { b.PaintContrast = -5; }},
      {"\n PaintIntensity\t0\t8", [](BITMAPHANDLE& b) { b.PaintIntensity = 8; }},
      {"\n Flags.Interlaced\t0\t1", [](BITMAPHANDLE& b) { b.Flags |= V_FlagInterlaced; }},
      {"\n Flags.NonLinearLUT\t0\t1", [](BITMAPHANDLE& b) { b.Flags |= V_FlagNonLinearLUT; }},
      {"\n Flags.ProgressiveAvailable\t0\t1\n Flags.Signed\t0\t1",
       [](BITMAPHANDLE& b) { b.Flags |= V_FlagProgressiveAvailable | V_FlagSigned; }},
      {"\n Left\t0\t1\n LowBit\t0\t2",
       [](BITMAPHANDLE& b) {
         b.LowBit = 2;
         b.Left = 1;
       }},
  };
  for (const uint32_t layout : kLayouts)
    for (const Case& c : cases) {
      Bitmap a, b(layout);
      ASSERT_EQ(a.Init(5, 6, 16), 1);
      ASSERT_EQ(b.Init(5, 6, 16), 1);
      EXPECT_EQ(Compare(a, b).status, 1);
      EXPECT_EQ(Compare(a, b).text, "");
      c.change(*b.get());
      EXPECT_EQ(Compare(a, b).status, 0);
      EXPECT_EQ(Compare(a, b).text, c.text);
    }
  Bitmap a, b;
  ASSERT_EQ(a.Init(5, 6, 8), 1);
  ASSERT_EQ(b.Init(9, 7, 4), 1);
  EXPECT_EQ(Compare(a, b).text.find("\n Width\t5\t9\n Height\t6\t7\n BitsPerPixel\t8\t4"), 0u) << Compare(a, b).text;
  EXPECT_NE(Compare(a, b).text.find("\n nColors\t256\t16"), std::string::npos);
  b->Flags = a->Flags;
  ASSERT_EQ(b.Init(5, 6, 8), 1);
  b->Flags |= 1u << 19 | 1u << 20;
  EXPECT_EQ(Compare(a, b).status, 1) << "the unnamed flags are not compared";
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
    EXPECT_EQ(Compare(a, b).text, "");
    PutPixelAt(last, kWidth - 1, bits, 1);
    WritePixels(b, pixels);
    EXPECT_EQ(Compare(a, b).text.find("\n V_GetBitmapRow"), 0u);
  }
}

TEST(Compare, AppendsAndNeverPassesTheEndOfTheText) {
  Bitmap a, b;
  ASSERT_EQ(a.Init(5, 6, 8), 1);
  ASSERT_EQ(b.Init(5, 7, 8), 1);
  const std::string all = Compare(a, b).text;
  ASSERT_FALSE(all.empty());
  for (size_t size = 1; size < all.size() + 8; ++size) {
    GuardedBytes text(size);
    const std::string before = std::string("abc").substr(0, size - 1);
    memcpy(text.data(), before.c_str(), before.size() + 1);
    EXPECT_EQ(V_CompareBitmapHandles(a, b, reinterpret_cast<char*>(text.data()), size), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(text.data())), (before + all).substr(0, size - 1));
    EXPECT_TRUE(text.GuardsIntact()) << size;
  }
  GuardedBytes full(8, 'x');
  EXPECT_EQ(V_CompareBitmapHandles(a, b, reinterpret_cast<char*>(full.data()), 8), 0) << "a string without an end";
  EXPECT_TRUE(full.GuardsIntact());
  EXPECT_EQ(V_CompareBitmapHandles(a, b, reinterpret_cast<char*>(full.data()), 0), 0);
  EXPECT_EQ(V_CompareBitmapHandles(a, b, nullptr, 0), 0);
  EXPECT_EQ(V_CompareBitmapHandles(a, b, nullptr, 100), 0);
  EXPECT_EQ(V_CompareBitmapHandles(nullptr, b, nullptr, 0), -13);
  EXPECT_EQ(V_CompareBitmapHandles(a, nullptr, nullptr, 0), -13);
  Bitmap garbage;
  EXPECT_EQ(V_CompareBitmapHandles(a, garbage, nullptr, 0), -789);
  EXPECT_EQ(V_CompareBitmapHandles(garbage, a, nullptr, 0), -789);
}

}  // namespace
}  // namespace vexatest
