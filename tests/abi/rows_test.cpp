// Rows in and out of every kind of storage, against a plain array of bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>

#include "support/bitmap.h"
#include "support/guarded.h"
#include "support/random.h"
#include "support/storage.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

std::string KindAndLayoutName(const testing::TestParamInfo<std::tuple<StorageKind, uint32_t>>& info) {
  return std::string(std::get<0>(info.param).name) + std::to_string(std::get<1>(info.param));
}

class RowStorage : public testing::TestWithParam<std::tuple<StorageKind, uint32_t>> {
 protected:
  void SetUp() override {
    if (Layout() == kOlderLayout && !Kind().InOlderLayout()) GTEST_SKIP() << "not in the older layout";
  }
  const StorageKind& Kind() const { return kind_; }
  uint32_t Layout() const { return std::get<1>(GetParam()); }

  // The kind's rows as bytes, compared with `model` through whole-row gets.
  void ExpectHolds(StoredBitmap& stored, const std::vector<uint8_t>& model) { EXPECT_EQ(ReadPixels(stored), model); }

 private:
  StorageKind kind_ = std::get<0>(GetParam());
  AccountBalance balance_;
};
INSTANTIATE_TEST_SUITE_P(All, RowStorage,
                         testing::Combine(testing::ValuesIn(kStorageKinds), testing::ValuesIn(kLayouts)),
                         KindAndLayoutName);

// Random transfers that start in any pixel of any row and run over as many rows as they like.
TEST_P(RowStorage, TransfersMoveTheBytesOfAPlainArray) {
  for (const int32_t bits : kDepths) {
    if (!Kind().Holds(bits)) continue;
    const uint64_t seed = static_cast<uint64_t>(bits) * 1000 + Layout();
    Random random(seed);
    const int32_t width = random.Between(9, 60), height = random.Between(7, 14);
    SCOPED_TRACE(testing::Message() << bits << " bits, " << width << " x " << height << ", seed " << seed);
    StoredBitmap stored(Kind(), Layout(), width, height, bits);
    ASSERT_EQ(stored.Status(), 1);
    ASSERT_EQ(stored.Record().StorageFlags(), Kind().flags);
    const uint32_t pitch = stored->BytesPerLine;
    std::vector<uint8_t> model(pitch * static_cast<size_t>(height));
    ExpectHolds(stored, model);  // fresh storage is zero

    Access access(stored);
    for (int step = 0; step < 150; ++step) {
      const int32_t row = random.Between(0, height - 1), column = random.Coin() ? 0 : random.Between(0, width - 1);
      const size_t offset = pitch * static_cast<size_t>(row) + ColumnByte(column, bits);
      const size_t room = model.size() - offset;
      const size_t count = random.Below(step % 5 == 0 ? room + 1 : std::min<size_t>(room, pitch) + 1);
      if (count == 0 && Kind().setup == StorageKind::kHost) continue;  // its 0 bytes mean that the engine moves them
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
    ExpectHolds(stored, model);
  }
}

// Whatever is wrong with a call, nothing moves in either direction.
TEST_P(RowStorage, RefusedTransfersMoveNothing) {
  if (Kind().setup == StorageKind::kHost) GTEST_SKIP() << "a host judges its calls itself";
  constexpr int32_t kWidth = 21, kHeight = 8;
  for (const int32_t bits : {1, 5, 8, 12, 24, 64}) {
    if (!Kind().Holds(bits)) continue;
    SCOPED_TRACE(bits);
    StoredBitmap stored(Kind(), Layout(), kWidth, kHeight, bits);
    ASSERT_EQ(stored.Status(), 1);
    const uint32_t pitch = stored->BytesPerLine;
    std::vector<uint8_t> pixels = Random(5).Bytes(size_t{pitch} * kHeight);
    WritePixels(stored, pixels);
    stored.DropPadding(pixels);
    Access access(stored);
    GuardedBytes buffer(pixels.size() + 8);
    struct Case {
      int32_t row, column;
      uint64_t count;
    };
    std::vector<Case> cases = {{-1, 0, 1},           {kHeight, 0, 1}, {INT32_MAX, 0, 1}, {INT32_MIN, 0, 1},
                               {0, -1, 1},           {0, kWidth, 1},  {0, INT32_MAX, 1}, {0, INT32_MIN, 1},
                               {kHeight, kWidth, 1}, {-1, 0, 0},      {0, kWidth, 0}};
    if (Kind().KnowsItsEnd())
      for (const Case& c :
           {Case{0, 0, pixels.size() + 1}, Case{kHeight - 1, 0, pitch + 1u}, Case{kHeight - 1, 1, pitch + 1u},
            Case{0, 0, UINT64_MAX}, Case{kHeight - 1, 20, UINT64_MAX - 1}, Case{1, 0, uint64_t{1} << 63}})
        cases.push_back(c);
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::Message() << "row " << c.row << ", column " << c.column << ", " << c.count << " bytes");
      EXPECT_EQ(V_GetBitmapRowCol(stored, buffer.data(), c.row, c.column, c.count), -13);
      EXPECT_EQ(V_PutBitmapRowCol(stored, buffer.data(), c.row, c.column, c.count), -13);
      if (c.column != 0) continue;
      EXPECT_EQ(V_GetBitmapRow(stored, buffer.data(), c.row, c.count), -13);
      EXPECT_EQ(V_PutBitmapRow(stored, buffer.data(), c.row, c.count), -13);
    }
    EXPECT_EQ(V_GetBitmapRow(stored, nullptr, 0, 1), -13);
    EXPECT_EQ(V_PutBitmapRow(stored, nullptr, 0, 1), -13);
    EXPECT_EQ(V_GetBitmapRowCol(stored, nullptr, 0, 0, 1), -13);
    EXPECT_EQ(V_PutBitmapRowCol(stored, nullptr, 0, 0, 1), -13);
    EXPECT_TRUE(buffer.Holds(0xCD) && buffer.GuardsIntact());
    ExpectHolds(stored, pixels);
  }
}

// Tiles end a transfer quietly: the bytes that exist are moved, and the count that was asked for comes back.
TEST_P(RowStorage, TransferPastTheLastTileMovesWhatThereIs) {
  if (!Kind().IsTiled()) GTEST_SKIP() << "tiles only";
  StoredBitmap stored(Kind(), Layout(), 20, 8, 8);
  ASSERT_EQ(stored.Status(), 1);
  std::vector<uint8_t> pixels = Random(6).Bytes(160);
  WritePixels(stored, pixels);
  Access access(stored);
  GuardedBytes buffer(200);
  EXPECT_EQ(V_GetBitmapRow(stored, buffer.data(), 6, 200), 200);
  EXPECT_TRUE(std::equal(buffer.data(), buffer.data() + 40, pixels.data() + 120));
  EXPECT_TRUE(std::all_of(buffer.data() + 40, buffer.data() + 200, [](uint8_t byte) { return byte == 0xCD; }));
  EXPECT_EQ(V_GetBitmapRowCol(stored, buffer.data(), 7, 19, uint64_t{1} << 40), int64_t{1} << 40);
  EXPECT_EQ(buffer.data()[0], pixels[159]);
  Random(8).Fill(buffer.data(), 200);
  EXPECT_EQ(V_PutBitmapRow(stored, buffer.data(), 5, 200), 200);
  std::copy_n(buffer.data(), 60, pixels.begin() + 100);
  EXPECT_TRUE(buffer.GuardsIntact());
  ExpectHolds(stored, pixels);
}

// Random stretches of a row at unaligned columns, against single pixels of a model.
TEST_P(RowStorage, SegmentsReplaceExactlyTheirPixels) {
  for (const int32_t bits : kDepths) {
    if (!Kind().Holds(bits)) continue;
    const uint64_t seed = static_cast<uint64_t>(bits) * 77 + Layout();
    Random random(seed);
    const int32_t width = random.Between(20, 70), height = 9;
    SCOPED_TRACE(testing::Message() << bits << " bits, width " << width << ", seed " << seed);
    StoredBitmap stored(Kind(), Layout(), width, height, bits);
    ASSERT_EQ(stored.Status(), 1);
    const uint32_t pitch = stored->BytesPerLine;
    std::vector<uint8_t> model = random.Bytes(size_t{pitch} * static_cast<size_t>(height));
    WritePixels(stored, model);
    stored.DropPadding(model);
    Access access(stored);
    for (int step = 0; step < 25; ++step) {
      const int32_t row = random.Between(0, height - 1);
      uint8_t* line = model.data() + pitch * static_cast<size_t>(row);
      std::vector<BITMAPROWSEGMENT> segments(1 + random.Below(3));
      std::vector<std::vector<uint8_t>> data(segments.size());
      int64_t touched = 0;
      for (size_t i = 0; i < segments.size(); ++i) {
        const int32_t column = random.Between(0, width - 1), pixels = random.Between(1, width - column);
        data[i] = random.Bytes((static_cast<size_t>(pixels) * static_cast<size_t>(bits) + 7) / 8);
        segments[i] = {column, pixels, data[i].data()};
        for (int32_t p = 0; p < pixels; ++p) PutPixelAt(line, column + p, bits, PixelAt(data[i].data(), p, bits));
        touched += (int64_t{column + pixels} * bits + 7) / 8 - int64_t{column} * bits / 8;
      }
      ASSERT_EQ(V_PutBitmapRowSegments(stored, segments.data(), static_cast<int32_t>(segments.size()), row), touched)
          << segments.size() << " segments, step " << step;
    }
    ExpectHolds(stored, model);
  }
}

TEST_P(RowStorage, OneBadSegmentStopsAllOfThem) {
  if (!Kind().Holds(8)) GTEST_SKIP() << "other depths";
  StoredBitmap stored(Kind(), Layout(), 40, 8, 8);
  ASSERT_EQ(stored.Status(), 1);
  const std::vector<uint8_t> pixels = Random(9).Bytes(320);
  WritePixels(stored, pixels);
  Access access(stored);
  const std::vector<uint8_t> data(64, 0xAB);
  const BITMAPROWSEGMENT good = {0, 10, data.data()};
  const BITMAPROWSEGMENT bad[] = {{-1, 3, data.data()},        {40, 1, data.data()},
                                  {39, 2, data.data()},        {0, 41, data.data()},
                                  {5, -1, data.data()},        {INT32_MAX, INT32_MAX, data.data()},
                                  {INT32_MIN, 1, data.data()}, {3, 3, nullptr}};
  for (const BITMAPROWSEGMENT& segment : bad) {
    const BITMAPROWSEGMENT segments[] = {good, segment};
    EXPECT_EQ(V_PutBitmapRowSegments(stored, segments, 2, 3), -13)
        << "column " << segment.column << ", " << segment.pixels << " pixels";
  }
  EXPECT_EQ(V_PutBitmapRowSegments(stored, nullptr, 1, 3), -13);
  EXPECT_EQ(V_PutBitmapRowSegments(stored, &good, -1, 3), -13);
  EXPECT_EQ(V_PutBitmapRowSegments(nullptr, &good, 1, 3), -13);
  for (const int32_t row : {-1, 8, INT32_MAX}) EXPECT_EQ(V_PutBitmapRowSegments(stored, &good, 1, row), -13) << row;
  ExpectHolds(stored, pixels);
}

// --- heights ----------------------------------------------------------------------------------------------------------

TEST_P(RowStorage, HeightChangesKeepTheRowsAndAddZeroedOnes) {
  if ((Kind().flags & V_FlagMirror) != 0) GTEST_SKIP() << "data of others";
  for (const int32_t bits : {1, 7, 12, 24}) {
    if (!Kind().Holds(bits)) continue;
    Random random(static_cast<uint64_t>(bits));
    SCOPED_TRACE(bits);
    StoredBitmap stored(Kind(), Layout(), 33, 11, bits);
    ASSERT_EQ(stored.Status(), 1);
    const uint32_t pitch = stored->BytesPerLine;
    std::vector<uint8_t> model = random.Bytes(size_t{pitch} * 11);
    WritePixels(stored, model);
    stored.DropPadding(model);
    for (const int32_t height : {12, 12, 4, 25, 1, 3, 40, 39, 2, 9, 64}) {
      SCOPED_TRACE(testing::Message() << "to " << height << " rows");
      ASSERT_EQ(V_ChangeBitmapHeight(stored, height), 1);
      EXPECT_EQ(stored->Height, height);
      EXPECT_EQ(stored.Record().StorageFlags(), Kind().flags);
      model.resize(pitch * static_cast<size_t>(height));
      // A movable block counts the bytes before its first row as well.
      const uint64_t extra = Kind().setup == StorageKind::kMovable ? stored->DataOffset + 0 : 0;
      const uint64_t size = stored.Record().DataSize();
      const bool packed = Kind().Holds(12);  // else the size is that of what is held
      EXPECT_TRUE(size == model.size() || size == model.size() + extra || !packed) << size;
      ASSERT_EQ(ReadPixels(stored), model);
      const auto row = static_cast<size_t>(random.Between(0, height - 1));
      random.Fill(model.data() + row * pitch, pitch);
      Access access(stored);
      ASSERT_EQ(V_PutBitmapRow(stored, model.data() + row * pitch, static_cast<int32_t>(row), pitch), pitch);
      stored.DropPadding(model);
    }
  }
}

// The data may move under an access that is held: rows are right all the same.
TEST_P(RowStorage, HeightMayChangeDuringAnAccess) {
  if ((Kind().flags & V_FlagMirror) != 0 || !Kind().Holds(24)) GTEST_SKIP() << "data of others, other depths";
  StoredBitmap stored(Kind(), Layout(), 500, 10, 24);
  ASSERT_EQ(stored.Status(), 1);
  std::vector<uint8_t> model = Random(4).Bytes(1500 * 10);
  WritePixels(stored, model);
  Access access(stored);
  for (const int32_t height : {300, 5, 120}) {
    ASSERT_EQ(V_ChangeBitmapHeight(stored, height), 1);
    model.resize(1500 * static_cast<size_t>(height));
    ASSERT_EQ(ReadPixels(stored), model);
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
  const std::vector<uint8_t> pixels = Random(3).Bytes(10000);
  WritePixels(bitmap, pixels);
  const auto before = bitmap.Snapshot();
  {
    ScopedAccountLimit limit(1000);
    EXPECT_EQ(V_ChangeBitmapHeight(bitmap, 12), -1) << "the account has room for one more row";
    EXPECT_EQ(bitmap.Snapshot(), before);
    EXPECT_EQ(V_ChangeBitmapHeight(bitmap, 11), 1);
    EXPECT_EQ(balance.Taken(), 11000u);
    EXPECT_EQ(V_ChangeBitmapHeight(bitmap, 10), 1);
    EXPECT_EQ(balance.Taken(), 10000u) << "a smaller bitmap gives back what it no longer holds";
  }
  EXPECT_EQ(ReadPixels(bitmap), pixels);
  Bitmap older(kOlderLayout);
  ASSERT_EQ(older.Create(V_MemoryConventional, 0x10000, 2, 8), 1);
  const auto olderBefore = older.Snapshot();
  EXPECT_EQ(V_ChangeBitmapHeight(older, 0x10000), -1) << "the older layout cannot hold the size";
  EXPECT_EQ(older.Snapshot(), olderBefore);
}

// --- hosts ------------------------------------------------------------------------------------------------------------

struct RowCall {
  void* buffer;
  int32_t row, column;
  uint64_t count;
  bool put;
};
struct RowHost {
  uint64_t result = 0;
  std::vector<RowCall> calls;
};

TEST(RowCallbacks, SeeEveryCallFirstAndTheirResultIsPassedOn) {
  AccountBalance balance;
  RowHost host;
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof(table);
  table.pUserData = &host;
  table.GetBitmapRowCol = [](BITMAPHANDLE*, void* buffer, int32_t row, int32_t column, uint64_t count, void* userData) {
    auto& self = *static_cast<RowHost*>(userData);
    self.calls.push_back({buffer, row, column, count, false});
    return self.result;
  };
  table.PutBitmapRowCol = [](BITMAPHANDLE*, const void* buffer, int32_t row, int32_t column, uint64_t count,
                             void* userData) {
    auto& self = *static_cast<RowHost*>(userData);
    self.calls.push_back({const_cast<void*>(buffer), row, column, count, true});
    return self.result;
  };
  Bitmap bitmap;
  ASSERT_EQ(V_CreateBitmapWithCallbacks(bitmap, kCurrentLayout, 1, 8, 8, 8, 0, nullptr, 1, nullptr, 0, &table), 1);
  Access access(bitmap);
  uint8_t buffer[16] = {1, 2, 3, 4, 5, 6, 7, 8};
  const std::vector<uint8_t> original(buffer, buffer + 16);
  // Any result but 0 ends the call, the engine's own rows stay as they are.
  for (const int64_t result : {int64_t{5}, int64_t{-77}, int64_t{1} << 40, int64_t{1}}) {
    host.result = static_cast<uint64_t>(result);
    host.calls.clear();
    EXPECT_EQ(V_GetBitmapRow(bitmap, buffer, 2, 8), result);
    EXPECT_EQ(V_PutBitmapRow(bitmap, buffer, 3, 7), result);
    EXPECT_EQ(V_GetBitmapRowCol(bitmap, buffer, -5, 99, 6), result) << "calls that the engine would refuse too";
    EXPECT_EQ(V_PutBitmapRowCol(bitmap, buffer, 9, 4, UINT64_MAX), result);
    ASSERT_EQ(host.calls.size(), 4u);
    EXPECT_EQ(host.calls[0].row, 2);
    EXPECT_EQ(host.calls[0].column, 0);
    EXPECT_EQ(host.calls[0].count, 8u);
    EXPECT_EQ(host.calls[0].buffer, buffer);
    EXPECT_TRUE(host.calls[1].put);
    EXPECT_EQ(host.calls[2].row, -5);
    EXPECT_EQ(host.calls[2].column, 99);
    EXPECT_FALSE(host.calls[2].put);
    EXPECT_EQ(host.calls[3].column, 4);
    EXPECT_EQ(host.calls[3].count, UINT64_MAX);
  }
  EXPECT_TRUE(std::equal(original.begin(), original.end(), buffer));
  // 0 leaves the transfer, and the judgement, to the engine.
  host.result = 0;
  EXPECT_EQ(V_GetBitmapRow(bitmap, buffer + 8, 3, 8), 8);
  EXPECT_EQ(std::count(buffer + 8, buffer + 16, 0), 8);
  EXPECT_EQ(V_PutBitmapRow(bitmap, buffer, 3, 8), 8);
  EXPECT_EQ(V_GetBitmapRowCol(bitmap, buffer + 8, 3, 4, 4), 4);
  EXPECT_EQ(buffer[8], 5);
  EXPECT_EQ(V_GetBitmapRow(bitmap, buffer, 8, 8), -13);
  const size_t calls = host.calls.size();
  EXPECT_EQ(V_GetBitmapRow(bitmap, nullptr, 0, 8), -13);
  EXPECT_EQ(host.calls.size(), calls) << "a null buffer is refused before anybody is asked";
}

TEST(Rows, NeedABitmapWithStorage) {
  uint8_t buffer[8] = {};
  EXPECT_EQ(V_GetBitmapRow(nullptr, buffer, 0, 1), -13);
  EXPECT_EQ(V_PutBitmapRow(nullptr, buffer, 0, 1), -13);
  EXPECT_EQ(V_GetBitmapRowCol(nullptr, buffer, 0, 0, 1), -13);
  EXPECT_EQ(V_PutBitmapRowCol(nullptr, buffer, 0, 0, 1), -13);
  Bitmap bitmap;
  EXPECT_EQ(V_GetBitmapRow(bitmap, buffer, 0, 1), -789);
  EXPECT_EQ(V_PutBitmapRow(bitmap, buffer, 0, 1), -789);
  EXPECT_EQ(V_GetBitmapRowCol(bitmap, buffer, 0, 0, 1), -789);
  EXPECT_EQ(V_PutBitmapRowCol(bitmap, buffer, 0, 0, 1), -789);
  ASSERT_EQ(bitmap.Init(8, 8, 8), 1);
  EXPECT_EQ(V_GetBitmapRow(bitmap, buffer, 0, 8), -1);
  EXPECT_EQ(V_PutBitmapRow(bitmap, buffer, 0, 8), -1);
}

}  // namespace
}  // namespace vexatest
