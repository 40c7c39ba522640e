// The codecs in this process: displayed rows, and files that are memory streams.
#include <gtest/gtest.h>

#include "codecs/upright.h"
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
  uint8_t want[8] = {}, got[8] = {};
  ASSERT_EQ(V_GetPixelData(&bitmap.Record(), want, y, x, sizeof want), 1);
  const int bits = bitmap.Bits();
  const uint8_t* row = rows.Row(y);
  if (bits < 8) {
    for (int bit = 0; bit < bits; ++bit) {
      const int64_t at = int64_t{x} * bits + bit;
      got[0] = static_cast<uint8_t>(got[0] << 1 | (row[at / 8] >> (7 - at % 8) & 1));
    }
  } else if (bits == 12) {
    const int value = x % 2 == 0 ? row[x / 2 * 3] | (row[x / 2 * 3 + 1] & 15) << 8
                                 : row[x / 2 * 3 + 1] >> 4 | row[x / 2 * 3 + 2] << 4;
    got[0] = static_cast<uint8_t>(value);
    got[1] = static_cast<uint8_t>(value >> 8);
  } else {
    std::copy(row + x * (bits / 8), row + (x + 1) * (bits / 8), got);
  }
  ASSERT_TRUE(std::equal(got, got + 8, want)) << "row " << y << ", column " << x;
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
