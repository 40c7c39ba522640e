// Default type, thresholds, the account of conventional memory, storage reports, and the two block allocators.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "support/bitmap.h"
#include "support/random.h"
#include "support/settings.h"
#include "support/storage.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

struct Thresholds {
  int32_t reserve = -1;
  int64_t maxConventional = -1, tileSize = -1;
  int32_t fourth = -1, fifth = -1;
  bool operator==(const Thresholds&) const = default;
};
void PrintTo(const Thresholds& t, std::ostream* out) {
  *out << t.reserve << ", " << t.maxConventional << ", " << t.tileSize << ", " << t.fourth << ", " << t.fifth;
}

Thresholds ReadThresholds() {
  Thresholds t;
  EXPECT_EQ(V_GetMemoryThresholds(&t.reserve, &t.maxConventional, &t.tileSize, &t.fourth, &t.fifth), 1);
  return t;
}

TEST(DefaultMemoryType, IsConventionalOrDisk) {
  uint32_t type = 0;
  ASSERT_EQ(V_GetDefaultMemoryType(&type), 1);
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(V_SetDefaultMemoryType(128), 1);
  for (const uint32_t refused : {0u, 2u, 4u, 129u, 256u, 512u, 1024u})
    EXPECT_EQ(V_SetDefaultMemoryType(refused), -13) << refused;
  ASSERT_EQ(V_GetDefaultMemoryType(&type), 1);
  EXPECT_EQ(type, 128u);
  EXPECT_EQ(V_GetDefaultMemoryType(nullptr), -13);
  EXPECT_EQ(V_SetDefaultMemoryType(1), 1);
}

TEST(MemoryThresholds, AreStoredInOrderUpToTheFirstRefusedOne) {
  ScopedThresholds scoped;
  constexpr int64_t kLarge = int64_t{5} << 40;
  EXPECT_EQ(V_SetMemoryThresholds(1, kLarge, kLarge + 1, 4, 5, 31), 1);
  EXPECT_EQ(ReadThresholds(), (Thresholds{1, kLarge, kLarge + 1, 4, 5}));
  EXPECT_EQ(V_SetMemoryThresholds(-100, -100, 0, -100, -100, 31), 1) << "the floors themselves";
  EXPECT_EQ(ReadThresholds(), (Thresholds{-100, -100, 0, -100, -100}));
  struct Case {
    Thresholds values;
    uint32_t which;
    int32_t status;
    Thresholds want;  // from 10, 20, 30, 40, 50
  };
  const Case cases[] = {
      {{1, 2, 3, 4, 5}, 0, 1, {10, 20, 30, 40, 50}},
      {{1, 2, 3, 4, 5}, 1 | 4, 1, {1, 20, 3, 40, 50}},
      {{1, 2, 3, 4, 5}, 2 | 8 | 16, 1, {10, 2, 30, 4, 5}},
      {{-101, 2, 3, 4, 5}, 31, -13, {10, 20, 30, 40, 50}},
      {{1, -101, 3, 4, 5}, 31, -13, {1, 20, 30, 40, 50}},
      {{1, 2, -1, 4, 5}, 31, -13, {1, 2, 30, 40, 50}},
      {{1, 2, 3, -101, 5}, 31, -13, {1, 2, 3, 40, 50}},
      {{1, 2, 3, 4, INT32_MIN}, 31, -13, {1, 2, 3, 4, 50}},
      {{-101, INT64_MIN, -1, -101, 5}, 16, 1, {10, 20, 30, 40, 5}},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(V_SetMemoryThresholds(10, 20, 30, 40, 50, 31), 1);
    EXPECT_EQ(V_SetMemoryThresholds(c.values.reserve, c.values.maxConventional, c.values.tileSize, c.values.fourth,
                                    c.values.fifth, c.which),
              c.status);
    EXPECT_EQ(ReadThresholds(), c.want) << "selected " << c.which;
  }
  int64_t tileSize = 0;
  EXPECT_EQ(V_GetMemoryThresholds(nullptr, nullptr, &tileSize, nullptr, nullptr), 1) << "outputs may be null";
  EXPECT_EQ(tileSize, 30);
}

// --- the account ----------------------------------------------------------------------------------------------------

TEST(MemoryAccount, ReservesUpToItsLimit) {
  AccountBalance balance;
  ScopedAccountLimit restore(0);
  const uint64_t used = UsedMemory();
  uint64_t value = 0;
  ASSERT_EQ(V_ManageMemory(0, used + 100, nullptr), 1);
  EXPECT_EQ(V_ManageMemory(1, 0, &value), 1);
  EXPECT_EQ(value, used + 100);
  EXPECT_EQ(V_ManageMemory(1, 0, nullptr), 1);
  EXPECT_EQ(V_ManageMemory(2, 60, nullptr), 1);
  EXPECT_EQ(V_ManageMemory(2, 60, nullptr), -1905) << "the second 60 of 100";
  EXPECT_EQ(UsedMemory(), used + 60) << "a refused reservation takes nothing";
  EXPECT_EQ(V_ManageMemory(5, 40, &value), 1);
  EXPECT_EQ(value, 40u);
  EXPECT_EQ(V_ManageMemory(5, 41, &value), -1905);
  EXPECT_EQ(value, 40u) << "what is left is told also when it is not enough";
  EXPECT_EQ(V_ManageMemory(5, 40, nullptr), 1);
  EXPECT_EQ(UsedMemory(), used + 60) << "a query takes nothing";
  EXPECT_EQ(V_ManageMemory(2, 40, nullptr), 1) << "up to the limit itself";
  EXPECT_EQ(V_ManageMemory(5, 1, &value), -1905);
  EXPECT_EQ(value, 1u) << "a limit that is used up is told as 1";
  EXPECT_EQ(V_ManageMemory(2, 0, nullptr), 1);
  EXPECT_EQ(V_ManageMemory(2, UINT64_MAX, nullptr), -1905) << "a sum that wraps is not small";
  EXPECT_EQ(V_ManageMemory(2, UINT64_MAX - (used + 100) + 1, nullptr), -1905);
  EXPECT_EQ(V_ManageMemory(3, 100, nullptr), 1);
  EXPECT_EQ(UsedMemory(), used);

  EXPECT_EQ(V_ManageMemory(0, 0, &value), 1);
  EXPECT_EQ(value, used + 100) << "the old limit comes back";
  EXPECT_EQ(V_ManageMemory(5, uint64_t{1} << 60, &value), 1);
  EXPECT_EQ(value, static_cast<uint64_t>(INT64_MAX)) << "no limit";
  EXPECT_EQ(V_ManageMemory(4, 0, nullptr), -814);
  for (const int32_t operation : {-1, 6, 100}) EXPECT_EQ(V_ManageMemory(operation, 0, &value), -16) << operation;
}

// Tiles take what the account leaves them: never more, and the rows are right all the same.
TEST(MemoryAccount, TiledBitmapsStayBelowItsLimit) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  constexpr uint32_t kTile = 1024;
  thresholds.TileSize(kTile);
  for (const uint64_t room :
       {uint64_t{0}, uint64_t{kTile - 1}, uint64_t{kTile}, uint64_t{2 * kTile + 1}, uint64_t{5 * kTile}}) {
    SCOPED_TRACE(testing::Message() << "room for " << room << " bytes");
    ScopedAccountLimit limit(room);
    const uint64_t most = UsedMemory() + std::max<uint64_t>(room, 1);
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Create(V_MemoryTiled, 128, 37, 8), 1);
    EXPECT_LE(UsedMemory(), most);
    Random random(room);
    std::vector<uint8_t> model(128 * 37);
    Access access(bitmap);
    for (int step = 0; step < 200; ++step) {
      const int32_t row = random.Between(0, 36);
      uint8_t* at = model.data() + 128 * row;
      uint8_t got[128];
      if (random.Coin()) {
        random.Fill(at, 128);
        ASSERT_EQ(V_PutBitmapRow(bitmap, at, row, 128), 128);
      } else {
        ASSERT_EQ(V_GetBitmapRow(bitmap, got, row, 128), 128);
        ASSERT_EQ(memcmp(got, at, 128), 0) << "row " << row << ", step " << step;
      }
      ASSERT_LE(UsedMemory(), most) << "step " << step;
    }
  }
}

// --- what storage a bitmap got ----------------------------------------------------------------------------------------

struct MemoryInfo {
  uint32_t type = 99;
  int64_t tileSize = 99;
  int32_t totalTiles = 99, conventionalTiles = 99;
  int64_t maxView = 99;
};

int32_t ReadInfo(BITMAPHANDLE* bitmap, MemoryInfo& info) {
  return V_GetBitmapMemoryInfo(bitmap, &info.type, &info.tileSize, &info.totalTiles, &info.conventionalTiles,
                               &info.maxView);
}

class MemoryInfoKinds : public testing::TestWithParam<StorageKind> {};
INSTANTIATE_TEST_SUITE_P(All, MemoryInfoKinds, testing::ValuesIn(kStorageKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(MemoryInfoKinds, ReportNamesTheStorage) {
  const StorageKind& kind = GetParam();
  AccountBalance balance;
  StoredBitmap stored(kind, kCurrentLayout, kind.IsRuns() ? 256 : 32, 20, kind.IsRuns() ? 1 : 8);
  ASSERT_EQ(stored.Status(), 1);
  EXPECT_EQ(stored.Record().StorageFlags(), kind.flags);
  MemoryInfo info;
  ASSERT_EQ(ReadInfo(stored, info), 1);
  const bool others = (kind.flags & V_FlagMirror) != 0;
  EXPECT_EQ(info.type, others ? uint32_t{V_MemoryUser} : kind.memory);
  if (!kind.IsTiled()) {
    EXPECT_EQ(info.tileSize, 0);
    EXPECT_EQ(info.totalTiles, 0);
    EXPECT_EQ(info.conventionalTiles, 0);
    EXPECT_EQ(info.maxView, 0);
    return;
  }
  const int32_t rows = std::max(1, kind.tileRows);
  EXPECT_EQ(std::max(int64_t{1}, info.tileSize / 32), rows) << "tiles hold whole rows";
  EXPECT_EQ(info.totalTiles, (20 + rows - 1) / rows);
  if (kind.fifth > 0) {
    EXPECT_EQ(info.conventionalTiles, kind.fifth);  // 20 rows are more tiles than that
    EXPECT_GT(info.maxView, 0);
  } else if (kind.roomInTiles > 0) {
    EXPECT_LE(info.conventionalTiles, kind.roomInTiles);
  } else {
    EXPECT_EQ(info.conventionalTiles, info.totalTiles) << "there is memory for all";
  }
}

TEST(MemoryInfoReport, CountsTilesByTheFifthThreshold) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  thresholds.TileSize(64);
  struct Case {
    int32_t fifth, inMemory;
  };
  for (const Case& c :
       {Case{0, 10}, Case{3, 3}, Case{10, 10}, Case{1000, 10}, Case{-100, 10}, Case{-50, 5}, Case{-20, 2}}) {
    thresholds.Fifth(c.fifth);
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Create(V_MemoryTiled, 64, 10, 8), 1);
    MemoryInfo info;
    ASSERT_EQ(ReadInfo(bitmap, info), 1);
    EXPECT_EQ(info.totalTiles, 10);
    EXPECT_EQ(info.conventionalTiles, c.inMemory) << "fifth threshold " << c.fifth;
    // The threshold holds for tiles that a growth adds, too.
    ASSERT_EQ(V_ChangeBitmapHeight(bitmap, 3 * static_cast<BITMAPHANDLE*>(bitmap)->Height), 1);
    ASSERT_EQ(ReadInfo(bitmap, info), 1);
    EXPECT_EQ(info.totalTiles, 30);
    EXPECT_LE(info.conventionalTiles, c.fifth > 0 ? c.fifth : c.fifth == 0 ? 30 : 30 * -c.fifth / 100) << c.fifth;
  }
}

}  // namespace
}  // namespace vexatest
