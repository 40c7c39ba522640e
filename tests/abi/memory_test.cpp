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
  const uint64_t used = UsedMemory(), limit = used + 100;
  const struct {
    int32_t operation;
    uint64_t argument;
    int32_t status;
    uint64_t value, usedAfter;  // the value is 7 where none is told; the use is beyond that of the start
    const char* what;
  } kCases[] = {{V_MemorySetLimit, limit, 1, std::max<uint64_t>(used, 1), 0, "the old limit comes back"},
                {V_MemoryGetLimit, 0, 1, limit, 0, "the limit"},
                {V_MemoryReserve, 60, 1, 7, 60, "room"},
                {V_MemoryReserve, 60, -1905, 7, 60, "the second 60 of 100"},
                {V_MemoryQuery, 40, 1, 40, 60, "a query takes nothing"},
                {V_MemoryQuery, 41, -1905, 40, 60, "what is left is told also when it is not enough"},
                {V_MemoryReserve, 40, 1, 7, 100, "up to the limit itself"},
                {V_MemoryQuery, 1, -1905, 1, 100, "a limit that is used up is told as 1"},
                {V_MemoryReserve, 0, 1, 7, 100, "nothing"},
                {V_MemoryReserve, UINT64_MAX, -1905, 7, 100, "a sum that wraps is not small"},
                {V_MemoryReserve, UINT64_MAX - limit + 1, -1905, 7, 100, "a sum that wraps is not small"},
                {V_MemoryReturn, 100, 1, 7, 0, "all"},
                {V_MemorySetLimit, 0, 1, limit, 0, "none"},
                {V_MemoryQuery, uint64_t{1} << 60, 1, INT64_MAX, 0, "no limit"},
                {-1, 0, -16, 7, 0, "no operation"},
                {6, 0, -16, 7, 0, "no operation"}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.what << ", case " << &c - kCases);
    uint64_t value = 7;
    EXPECT_EQ(V_ManageMemory(c.operation, c.argument, &value), c.status);
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(UsedMemory(), used + c.usedAfter);
  }
  EXPECT_EQ(V_ManageMemory(V_MemoryGetLimit, 0, nullptr), 1);
  EXPECT_EQ(V_ManageMemory(V_MemoryGetUsed, 0, nullptr), -814);
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
    int32_t total = 0, conventional = 0;
    int64_t tileSize = 0, view = 0;
    ASSERT_EQ(V_GetBitmapMemoryInfo(bitmap, nullptr, &tileSize, &total, &conventional, &view), 1);
    EXPECT_TRUE(tileSize == 64 && total == 10 && view > 0);
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
