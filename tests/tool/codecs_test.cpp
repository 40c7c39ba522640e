// The codecs in this process: displayed rows, and files that are memory streams.
#include <gtest/gtest.h>

#include "codecs/upright.h"
#include "support/pixelmodel.h"
#include "support/random.h"
#include "tool/tool.h"

namespace tool {
namespace {

void FillRandomly(vexa::Bitmap& bitmap, vexatest::Random& random) {
  std::vector<uint8_t> row(bitmap.RowBytes());
  for (int32_t y = 0; y < bitmap.Height(); ++y) {
    random.Fill(row.data(), row.size());
    bitmap.PutRow(y, row.data());
  }
}

// The engine's pixel function maps displayed positions on its own.
void ExpectPixel(vexa::Bitmap& bitmap, vexa::UprightRows& rows, int32_t y, int32_t x) {
  uint64_t want = 0;
  ASSERT_EQ(V_GetPixelData(&bitmap.Record(), &want, y, x, sizeof want), 1);
  ASSERT_EQ(vexatest::PixelAt(rows.Row(y), x, bitmap.Bits()), want) << "row " << y << ", column " << x;
}

TEST(UprightRows, ShowWhatTheEngineShowsAtEveryDepthAndPerspective) {
  vexatest::Random random(0x5eed);
  for (const int bits : {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64}) {
    vexa::Bitmap bitmap;
    bitmap.Describe(19, 13, bits);
    bitmap.Allocate(V_MemoryConventional);
    FillRandomly(bitmap, random);
    for (int perspective = 1; perspective <= 8; ++perspective) {
      SCOPED_TRACE(std::to_string(bits) + " bits, perspective " + std::to_string(perspective));
      bitmap.Record().ViewPerspective = perspective;
      vexa::UprightRows rows(bitmap);
      for (int32_t y = 0; y < rows.Height(); ++y)
        for (int32_t x = 0; x < rows.Width(); ++x) ExpectPixel(bitmap, rows, y, x);
    }
  }
}

// So tall that a band holds only a few of its columns.
TEST(UprightRows, BandsMeetWithoutGaps) {
  vexatest::Random random(0x5eed);
  vexa::Bitmap bitmap;
  bitmap.Describe(35, 150000, 24);
  bitmap.Allocate(V_MemoryConventional);
  FillRandomly(bitmap, random);
  for (int perspective = 5; perspective <= 8; ++perspective) {
    SCOPED_TRACE(perspective);
    bitmap.Record().ViewPerspective = perspective;
    vexa::UprightRows rows(bitmap);
    for (int32_t y = 0; y < rows.Height(); ++y)
      for (int i = 0; i < 50; ++i) ExpectPixel(bitmap, rows, y, random.Between(0, rows.Width() - 1));
  }
}

}  // namespace
}  // namespace tool
