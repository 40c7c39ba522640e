// Rows in and out of every kind of storage, against a plain array of bytes.
#include "support/testing.h"

namespace vexatest {
namespace {

class RowStorage : public testing::TestWithParam<std::tuple<StorageKind, uint32_t>> {
 protected:
  void SetUp() override {
    if (layout_ == kOlderLayout && !kind_.InOlderLayout()) GTEST_SKIP() << "not in the older layout";
  }
  const StorageKind kind_ = std::get<0>(GetParam());
  const uint32_t layout_ = std::get<1>(GetParam());

 private:
  AccountBalance balance_;
};
INSTANTIATE_TEST_SUITE_P(All, RowStorage,
                         testing::Combine(testing::ValuesIn(kStorageKinds), testing::ValuesIn(kLayouts)),
                         [](const auto& test) {
                           return std::get<0>(test.param).name + std::to_string(std::get<1>(test.param));
                         });

// Random transfers that start in any pixel of any row and run over as many rows as they like.
TEST_P(RowStorage, TransfersMoveTheBytesOfAPlainArray) {
  for (const int32_t bits : kDepths) {
    if (!kind_.Holds(bits)) continue;
    const uint64_t seed = static_cast<uint64_t>(bits) * 1000 + layout_;
    Random random(seed);
    const int32_t width = random.Between(9, 60), height = random.Between(7, 14);
    SCOPED_TRACE(testing::Message() << bits << " bits, " << width << " x " << height << ", seed " << seed);
    StoredBitmap stored(kind_, layout_, width, height, bits);
    ASSERT_EQ(stored.Status(), 1);
    ASSERT_EQ(stored.Record().StorageFlags(), kind_.flags);
    const uint32_t pitch = stored->BytesPerLine;
    std::vector<uint8_t> model(pitch * static_cast<size_t>(height));
    EXPECT_EQ(ReadPixels(stored), model);  // fresh storage is zero

    Access access(stored);
    for (int step = 0; step < 150; ++step) {
      const int32_t row = random.Between(0, height - 1), column = random.Coin() ? 0 : random.Between(0, width - 1);
      const size_t offset = pitch * static_cast<size_t>(row) + ColumnByte(column, bits);
      const size_t room = model.size() - offset;
      const size_t count = random.Below(step % 5 == 0 ? room + 1 : std::min<size_t>(room, pitch) + 1);
      if (count == 0 && kind_.setup == StorageKind::kHost) continue;  // its 0 bytes mean that the engine moves them
      const bool whole = column == 0 && random.Coin();
      GuardedBytes buffer(count);
      if (random.Coin()) {
        random.Fill(buffer.data(), count);
        const int64_t moved = whole ? V_PutBitmapRow(stored, buffer.data(), row, count)
                                    : V_PutBitmapRowCol(stored, buffer.data(), row, column, count);
        ASSERT_EQ(moved, static_cast<int64_t>(count)) << "put, row " << row << ", column " << column;
        std::copy_n(buffer.data(), count, model.begin() + static_cast<ptrdiff_t>(offset));
        stored.DropPadding(model);
      } else {
        const int64_t moved = whole ? V_GetBitmapRow(stored, buffer.data(), row, count)
                                    : V_GetBitmapRowCol(stored, buffer.data(), row, column, count);
        ASSERT_EQ(moved, static_cast<int64_t>(count)) << "get, row " << row << ", column " << column;
        ASSERT_TRUE(std::equal(buffer.data(), buffer.data() + count, model.begin() + static_cast<ptrdiff_t>(offset)))
            << "get of " << count << " bytes, row " << row << ", column " << column << ", step " << step;
      }
      ASSERT_TRUE(buffer.GuardsIntact());
    }
    EXPECT_EQ(ReadPixels(stored), model);
  }
}

// What is wrong with a call moves nothing in either direction, whoever has the data.
TEST_P(RowStorage, RefusedCallsMoveNothing) {
  if (kind_.setup == StorageKind::kHost) GTEST_SKIP() << "a host judges its calls itself";
  const int32_t bits = kind_.Holds(8) ? 8 : 1, width = 320 / bits;
  StoredBitmap stored(kind_, layout_, width, 8, bits);
  ASSERT_EQ(stored.Status(), 1);
  const std::vector<uint8_t> pixels = Random(5).Bytes(320);
  WritePixels(stored, pixels);
  Access access(stored);
  GuardedBytes buffer(328);
  std::vector<std::tuple<int32_t, int32_t, uint64_t>> cases = {{-1, 0, 1},    {8, 0, 1},     {INT32_MAX, 0, 1},
                                                               {0, -1, 1},    {0, width, 1}, {0, INT32_MIN, 1},
                                                               {8, width, 1}, {-1, 0, 0},    {0, width, 0}};
  if (kind_.KnowsItsEnd())
    cases.insert(cases.end(), {{0, 0, 321}, {7, 0, 41}, {7, 8, 40}, {0, 0, UINT64_MAX}, {1, 0, uint64_t{1} << 63}});
  for (const auto& [row, column, count] : cases) {
    SCOPED_TRACE(testing::Message() << "row " << row << ", column " << column << ", " << count << " bytes");
    EXPECT_EQ(V_GetBitmapRowCol(stored, buffer.data(), row, column, count), -13);
    EXPECT_EQ(V_PutBitmapRowCol(stored, buffer.data(), row, column, count), -13);
  }
  EXPECT_EQ(V_GetBitmapRow(stored, nullptr, 0, 1), -13);
  EXPECT_EQ(V_PutBitmapRow(stored, nullptr, 0, 1), -13);
  EXPECT_TRUE(buffer.Holds(0xCD) && buffer.GuardsIntact());
  // One bad segment stops all of them.
  const std::vector<uint8_t> data(64, 0xAB);
  const BITMAPROWSEGMENT good = {0, 10, data.data()};
  for (const BITMAPROWSEGMENT& bad : {BITMAPROWSEGMENT{-1, 3, data.data()},
                                      {width, 1, data.data()},
                                      {width - 1, 2, data.data()},
                                      {0, width + 1, data.data()},
                                      {5, -1, data.data()},
                                      {INT32_MAX, INT32_MAX, data.data()},
                                      {3, 3, nullptr}}) {
    const BITMAPROWSEGMENT segments[] = {good, bad};
    EXPECT_EQ(V_PutBitmapRowSegments(stored, segments, 2, 3), -13) << bad.column << ", " << bad.pixels << " pixels";
  }
  EXPECT_EQ(V_PutBitmapRowSegments(stored, nullptr, 1, 3), -13);
  EXPECT_EQ(V_PutBitmapRowSegments(stored, &good, -1, 3), -13);
  for (const int32_t row : {-1, 8}) EXPECT_EQ(V_PutBitmapRowSegments(stored, &good, 1, row), -13) << row;
  EXPECT_EQ(ReadPixels(stored), pixels);
}

TEST(Rows, NeedABitmapWithStorage) {
  uint8_t row[8] = {};
  Bitmap garbage, empty;
  ASSERT_EQ(empty.Init(8, 8, 8), 1);
  for (const auto& [bitmap, status] :
       {std::pair<BITMAPHANDLE*, int64_t>(nullptr, -13), {garbage.get(), -789}, {empty.get(), -1}}) {
    EXPECT_EQ(V_GetBitmapRow(bitmap, row, 0, 8), status);
    EXPECT_EQ(V_PutBitmapRow(bitmap, row, 0, 8), status);
    EXPECT_EQ(V_GetBitmapRowCol(bitmap, row, 0, 0, 8), status);
    EXPECT_EQ(V_PutBitmapRowCol(bitmap, row, 0, 0, 8), status);
  }
}

TEST(HeightChange, NeedsStorageAndRoom) {
  AccountBalance balance;
  EXPECT_EQ(V_ChangeBitmapHeight(nullptr, 5), -2);
  Bitmap bitmap;
  EXPECT_EQ(V_ChangeBitmapHeight(bitmap, 5), -789);
  bitmap.Init(1000, 10, 8);
  EXPECT_EQ(V_ChangeBitmapHeight(bitmap, 5), -2);
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  const auto before = bitmap.Snapshot();
  const ScopedAccountLimit limit(1000);
  EXPECT_EQ(V_ChangeBitmapHeight(bitmap, 12), -1) << "the account has room for one more row";
  EXPECT_EQ(bitmap.Snapshot(), before);
  for (const int32_t height : {11, 10}) {
    EXPECT_EQ(V_ChangeBitmapHeight(bitmap, height), 1);
    EXPECT_EQ(balance.Taken(), static_cast<uint64_t>(1000 * height));
  }
  Bitmap older(kOlderLayout);
  ASSERT_EQ(older.Create(V_MemoryConventional, 0x10000, 2, 8), 1);
  const auto olderBefore = older.Snapshot();
  EXPECT_EQ(V_ChangeBitmapHeight(older, 0x10000), -1) << "the older layout cannot hold the size";
  EXPECT_EQ(older.Snapshot(), olderBefore);
}

// --- hosts ---

TEST(RowCallbacks, JudgeEveryCallAndTheirResultIsPassedOn) {
  StoredBitmap stored(kHostKind, kCurrentLayout, 8, 8, 8);
  HostStore& host = stored.Host();
  Access access(stored);
  uint8_t buffer[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  using Case = std::tuple<int32_t, int32_t, uint64_t>;  // also those that the engine would refuse
  for (const auto& [row, column, count] : {Case{2, 0, 8}, {-5, 99, 6}, {9, 4, UINT64_MAX}})
    for (const int32_t refusal : {-77, 5}) {
      host.refusal = refusal;
      host.refuseAt = host.calls + 1;
      EXPECT_EQ(V_GetBitmapRowCol(stored, buffer, row, column, count), refusal);
      host.refuseAt = host.calls + 1;
      EXPECT_EQ(V_PutBitmapRowCol(stored, buffer, row, column, count), refusal);
    }
  host.refusal = 0;
  host.refuseAt = host.calls + 1;
  EXPECT_EQ(V_GetBitmapRow(stored, buffer, 0, 8), -1) << "0 leaves it to the engine, which has no rows here";
  BITMAPHANDLEDATACALLBACKS table = host.Table();
  table.GetBitmapRowCol = [](BITMAPHANDLE*, void*, int32_t, int32_t, uint64_t, void*) { return uint64_t{1} << 40; };
  ASSERT_EQ(V_SetBitmapDataCallbacks(stored, &table), 1);
  EXPECT_EQ(V_GetBitmapRow(stored, buffer, 0, 8), int64_t{1} << 40);
  const int32_t calls = host.calls;
  EXPECT_EQ(V_PutBitmapRow(stored, nullptr, 0, 8), -13);
  EXPECT_EQ(host.calls, calls) << "a null buffer is refused before anybody is asked";
}

}  // namespace
}  // namespace vexatest
