// Default type, thresholds, the account of conventional memory, storage reports, and the two block allocators.
#include "support/testing.h"

namespace vexatest {
namespace {

TEST(DefaultMemoryType, IsConventionalOrDisk) {
  uint32_t type = 0;
  ASSERT_EQ(V_GetDefaultMemoryType(&type), 1);
  EXPECT_EQ(type, 1u);
  for (const auto& [asked, status] : {std::pair(128u, 1), {0u, -13}, {2u, -13}, {4u, -13}, {129u, -13}, {1024u, -13}}) {
    EXPECT_EQ(V_SetDefaultMemoryType(asked), status) << asked;
    EXPECT_EQ(V_GetDefaultMemoryType(&type), 1);
    EXPECT_EQ(type, 128u);
  }
  EXPECT_EQ(V_GetDefaultMemoryType(nullptr), -13);
  EXPECT_EQ(V_SetDefaultMemoryType(1), 1);
}

TEST(MemoryThresholds, AreStoredInOrderUpToTheFirstRefusedOne) {
  using Values = std::array<int64_t, 5>;
  ScopedThresholds scoped;
  const auto set = [](const Values& v, uint32_t which) {
    return V_SetMemoryThresholds(static_cast<int32_t>(v[0]), v[1], v[2], static_cast<int32_t>(v[3]),
                                 static_cast<int32_t>(v[4]), which);
  };
  const struct {
    Values values;
    uint32_t which;
    int32_t status;
    Values want;  // from 10, 20, 30, 40, 50
  } kCases[] = {
      {{1, int64_t{5} << 40, int64_t{6} << 40, 4, 5}, 31, 1, {1, int64_t{5} << 40, int64_t{6} << 40, 4, 5}},
      {{-100, -100, 0, -100, -100}, 31, 1, {-100, -100, 0, -100, -100}},
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
  for (const auto& c : kCases) {
    ASSERT_EQ(set({10, 20, 30, 40, 50}, 31), 1);
    EXPECT_EQ(set(c.values, c.which), c.status);
    int32_t reserve = 0, fourth = 0, fifth = 0;
    int64_t conventional = 0, tile = 0;
    EXPECT_EQ(V_GetMemoryThresholds(&reserve, &conventional, &tile, &fourth, &fifth), 1);
    EXPECT_EQ((Values{reserve, conventional, tile, fourth, fifth}), c.want) << "case " << &c - kCases;
    EXPECT_EQ(V_GetMemoryThresholds(nullptr, nullptr, nullptr, nullptr, nullptr), 1) << "outputs may be null";
  }
}

// --- the account ---

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

// --- what storage a bitmap got ---

TEST(MemoryInfo, CountsTilesByTheFifthThreshold) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  thresholds.TileSize(64);
  for (const auto& [fifth, inMemory] :
       {std::pair(0, 10), {3, 3}, {10, 10}, {1000, 10}, {-100, 10}, {-50, 5}, {-20, 2}}) {
    thresholds.Fifth(fifth);
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Create(V_MemoryTiled, 64, 10, 8), 1);
    uint32_t type = 0;
    int32_t total = 0, conventional = 0;
    int64_t tileSize = 0, view = 0;
    ASSERT_EQ(V_GetBitmapMemoryInfo(bitmap, &type, &tileSize, &total, &conventional, &view), 1);
    EXPECT_TRUE(type == V_MemoryTiled && tileSize == 64 && total == 10 && view > 0);
    EXPECT_EQ(conventional, inMemory) << "fifth threshold " << fifth;
    // The threshold holds for tiles that a growth adds, too.
    ASSERT_EQ(V_ChangeBitmapHeight(bitmap, 30), 1);
    ASSERT_EQ(V_GetBitmapMemoryInfo(bitmap, nullptr, nullptr, &total, &conventional, nullptr), 1);
    EXPECT_EQ(total, 30);
    EXPECT_LE(conventional, fifth > 0 ? fifth : fifth == 0 ? 30 : 30 * -fifth / 100) << fifth;
  }
}

}  // namespace
}  // namespace vexatest
