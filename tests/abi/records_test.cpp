// Rows as run-length records: what is refused, and bitmaps that hold them.
#include "support/testing.h"

namespace vexatest {
namespace {

std::vector<uint8_t> Record(const std::vector<uint16_t>& runs) {
  std::vector<uint8_t> bytes(4 + 2 * runs.size());
  const auto count = static_cast<uint32_t>(runs.size());
  std::memcpy(bytes.data(), &count, 4);
  std::copy_n(reinterpret_cast<const uint8_t*>(runs.data()), 2 * runs.size(), bytes.begin() + 4);
  return bytes;
}

TEST(Records, MalformedOnesAndArgumentsChangeNothing) {
  for (const StorageKind& kind : kStorageKinds) {
    SCOPED_TRACE(kind.name);
    StoredBitmap stored(kind, kCurrentLayout, 20, 3, 1);
    const std::vector<uint8_t> pixels = {1, 2, 0x30, 0, 4, 5, 0x60, 0, 7, 8, 0x90, 0};
    WritePixels(stored, pixels);
    const Access access(stored);
    const std::vector<uint8_t> good = Record({5, 15});
    std::vector<uint8_t> lies = good, huge = good;
    lies[0] = 200;
    std::memset(huge.data(), 0xFF, 4);
    for (const std::vector<uint8_t>& record :
         {Record({}), Record({19}), Record({21}), Record({5, 5, 5}), Record({65535, 65535, 20}), lies, huge,
          Record(std::vector<uint16_t>(22, 0)), std::vector<uint8_t>(3)}) {
      GuardedBytes bytes(record.size());
      std::copy(record.begin(), record.end(), bytes.data());
      EXPECT_EQ(V_PutBitmapRowCompressed(stored, bytes.data(), 1, record.size()), -13);
    }
    EXPECT_EQ(V_PutBitmapRowCompressed(stored, good.data(), 1, good.size() - 1), -13);
    EXPECT_EQ(V_PutBitmapRowCompressed(stored, nullptr, 1, 8), -13);
    EXPECT_EQ(V_PutBitmapRowCompressed(nullptr, good.data(), 1, 8), -13);
    for (const int32_t row : {-1, 3})
      EXPECT_TRUE(kind.setup == StorageKind::kHost || V_PutBitmapRowCompressed(stored, good.data(), row, 8) == -13);
    uint8_t record[64] = {};
    for (const int32_t column : {-1, 20}) {
      EXPECT_EQ(V_GetBitmapRowColCompressed(stored, record, 0, column, 1), -13);
      EXPECT_EQ(V_PutBitmapRowColCompressed(stored, good.data(), 0, column, 20), -13);
    }
    for (const uint64_t count : {uint64_t{0}, uint64_t{19}, UINT64_MAX})
      EXPECT_EQ(V_GetBitmapRowColCompressed(stored, record, 0, 2, count), -13);
    EXPECT_EQ(V_GetBitmapRowCompressed(stored, record, 0, 7), -13) << "no room";
    EXPECT_EQ(record[0], 0);
    EXPECT_EQ(ReadPixels(stored), pixels);
  }
}

// The size of a bitmap of compressed rows is that of its records, kept current by puts and height changes; the next
// storage is as large as the rows are.
TEST(CompressedBitmap, KnowsWhatItHolds) {
  AccountBalance balance;
  for (const uint32_t layout : kLayouts) {
    Bitmap bitmap(layout);
    ASSERT_EQ(bitmap.Create(V_MemoryCompressed, 70000, 40000, 1), 1);
    std::vector<uint8_t> row(bitmap->BytesPerLine);
    ASSERT_EQ(V_PutBitmapRow(bitmap, row.data(), 39999, row.size()), static_cast<int64_t>(row.size()));
    EXPECT_EQ(bitmap.DataSize(), 10u) << "65528, 0, 4472";
    row[0] = 0xF0;
    ASSERT_EQ(V_PutBitmapRow(bitmap, row.data(), 100, row.size()), static_cast<int64_t>(row.size()));
    EXPECT_EQ(bitmap.DataSize(), 10u + 14u);  // 0, 4, then 65532, 0, 4464
    ASSERT_EQ(V_ChangeBitmapHeight(bitmap, 32768), 1);
    EXPECT_EQ(bitmap.DataSize(), 14u);
    ASSERT_EQ(V_ChangeBitmapHeight(bitmap, 7), 1);
    EXPECT_EQ(bitmap.DataSize(), 0u);
    ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
    EXPECT_EQ(bitmap.DataSize(), 7 * row.size());
  }
}

}  // namespace
}  // namespace vexatest
