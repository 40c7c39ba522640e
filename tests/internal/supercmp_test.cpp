// How often the super-compressed store codes a strip, and what size it tells. Its bytes, with and without memory, are held against
// plain ones by the fuzz target of live bitmaps, whose inputs the suite replays.
#include "krn/storage.h"
#include "platform/fault.h"
#include "support/testing.h"

namespace {

using namespace vexatest;
namespace platform = vexakrn::platform;
const vexakrn::Storage& storage = vexakrn::kSuperCompressedStorage;

// Every coding of a strip asks for memory twice: for its work and for its result.
uint64_t CodingsIn(const std::function<void()>& work) {
  platform::FailCall(UINT64_MAX, false);
  work();
  return platform::StopFailing() / 2;
}

TEST(SuperCompressed, RowsInOrderAndExchangedRowsCodeEachStripOnceAndASizeIsRightAtOnce) {
  constexpr int32_t kWidth = 2000, kHeight = 2600;
  for (const int32_t bits : {1, 8, 24}) {
    SCOPED_TRACE(testing::Message() << bits << " bits");
    Bitmap page;
    ASSERT_EQ(page.Create(V_MemorySuperCompressed, kWidth, kHeight, bits), 1);
    const size_t pitch = page->BytesPerLine, packed = pitch * kHeight, stripRows = 65536 / pitch;
    const uint64_t strips = (kHeight + stripRows - 1) / stripRows;
    Random random(1);
    const std::vector<uint8_t> noise = random.Bytes(packed), line(pitch, 0x33);

    const auto putAll = [&](auto rowOf) {
      for (int32_t row = 0; row < kHeight; ++row)
        ASSERT_EQ(V_PutBitmapRow(page, rowOf(static_cast<size_t>(row)), row, pitch), static_cast<int64_t>(pitch));
    };
    EXPECT_LE(CodingsIn([&] { putAll([&](size_t) { return line.data(); }); }), strips + 1);
    EXPECT_LT(page.DataSize(), packed / 50) << "equal rows";
    V_PutBitmapRow(page, noise.data(), 1, pitch);
    EXPECT_GE(page.DataSize(), stripRows * pitch) << "a strip that was changed counts as it is";
    EXPECT_LT(page.DataSize(), stripRows * pitch + packed / 50);
    ASSERT_EQ(storage.resize(*page, kHeight - 1), 1);
    ASSERT_EQ(storage.resize(*page, kHeight), 1);
    EXPECT_LT(storage.heldBytes(*page), stripRows * pitch + packed / 50) << "a strip that was cut is coded again";
    EXPECT_LE(CodingsIn([&] { putAll([&](size_t row) { return noise.data() + row * pitch; }); }), strips + 1);
    EXPECT_EQ(page.DataSize(), packed) << "what cannot be coded is held as it is";

    // Rows of two strips at a time, whichever comes first.
    std::vector<uint8_t> a(pitch), b(pitch);
    for (const bool upwards : {false, true}) {
      const auto flip = [&] {
        for (int32_t i = 0; i < kHeight / 2; ++i) {
          const int32_t row = upwards ? kHeight - 1 - i : i, other = kHeight - 1 - row;
          V_GetBitmapRow(page, a.data(), row, pitch);
          V_GetBitmapRow(page, b.data(), other, pitch);
          V_PutBitmapRow(page, b.data(), row, pitch);
          V_PutBitmapRow(page, a.data(), other, pitch);
        }
      };
      EXPECT_LE(CodingsIn(flip), 2 * strips + 2);
    }
    EXPECT_EQ(ReadPixels(page), noise);
  }
}

}  // namespace
