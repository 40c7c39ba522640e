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

TEST(Codecs, ReadAndWriteMemoryStreamsAsFiles) {
  for (const std::string& name : SampleNames()) {
    SCOPED_TRACE(name);
    const vexa::Format* format = vexa::FormatOfExtension(name);
    Decoded fromFile, fromStream, again;
    Decode(SamplePath(name), &fromFile);
    std::string content = Load(SamplePath(name));
    void* state = nullptr;
    ASSERT_EQ(V_StartRedirectToBuffer(&state, nullptr, V_StreamHeap, content.data(), content.size(), 0), 1);
    Decode("any name", &fromStream);
    ASSERT_EQ(V_StopRedirectToBuffer(state, nullptr, nullptr, nullptr), 1);
    ASSERT_EQ(fromFile.pages, fromStream.pages);
    for (int32_t y = 0; y < fromFile.bitmap.Height(); ++y) ASSERT_EQ(fromFile.Row(y), fromStream.Row(y)) << y;

    void* block = nullptr;
    ASSERT_EQ(V_StartRedirectToBuffer(&state, nullptr, V_StreamGrow | V_StreamWrite | V_StreamHeap, nullptr, 0, 0), 1);
    {
      vexa::File file("any name", vexa::File::Mode::kRewrite);
      const std::unique_ptr<vexa::Writer> writer = format->create(file, vexa::Document{});
      vexa::Progress progress(1);
      writer->Write(fromFile.bitmap, progress);
      writer->Finish();
      file.Close();
    }
    Decode("any name", &again);
    ASSERT_EQ(V_StopRedirectToBuffer(state, &block, nullptr, nullptr), 1);
    V_FreeBuffer(block);
    if (format->name == "JPEG") continue;  // loses detail
    EXPECT_EQ(again.bitmap.Bits(), fromFile.bitmap.Bits());
    EXPECT_TRUE(DisplayedColors(again.bitmap) == DisplayedColors(fromFile.bitmap));
  }
}

}  // namespace
}  // namespace tool
