// Which storage a request gets, by request, depth, size, thresholds, account, callbacks and handles.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "support/bitmap.h"
#include "support/handles.h"
#include "support/settings.h"
#include "support/storage.h"
#include "support/tempdir.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

constexpr uint32_t kConventional = kInMemory;
constexpr uint32_t kUser = kInMemory | V_FlagMirror;
constexpr uint32_t kTiled = kInMemory | V_FlagTiled;
constexpr uint32_t kDisk = V_FlagAllocated | V_FlagDiskMemory;

// What a request becomes before it is looked at.
uint32_t AdjustRequest(uint32_t request, int32_t bits, bool diskForbidden) {
  constexpr uint32_t kUserBit = 2, kNoTiled = 8, kDiskBit = 128, kNoDisk = 256, kCompressed = 512, kSuper = 1024;
  if ((request & kUserBit) != 0)
    request &= ~(kNoTiled | kNoDisk);
  else if (diskForbidden)
    request = (request & ~kDiskBit) | kNoDisk;
  if ((request & kCompressed) != 0) request = bits == 1 ? kCompressed | kNoDisk : request & ~kCompressed;
  if (bits != 1 && bits != 8 && bits != 24) request &= ~kSuper;
  return request;
}

bool IsValidRequest(uint32_t request) {
  constexpr uint32_t kValid[] = {1, 2, 4, 8, 9, 128, 256, 257, 260, 264, 265, 768, 769, 1024, 1025, 1280, 1281};
  return std::find(std::begin(kValid), std::end(kValid), request) != std::end(kValid);
}

struct Outcome {
  int32_t status;
  uint32_t flags;
};

// The outcome for a bitmap far below every limit.
Outcome SmallBitmapOutcome(uint32_t adjusted) {
  if (!IsValidRequest(adjusted)) return {-13, 0};
  if ((adjusted & V_MemoryCompressed) != 0) return {1, kConventional | V_FlagCompressed};
  if ((adjusted & V_MemorySuperCompressed) != 0) return {1, kConventional | V_FlagSuperCompressed};
  if (adjusted == V_MemoryUser) return {1, kUser};
  if (adjusted == V_MemoryDisk) return {1, kDisk};
  return {1, kConventional};
}

class AllocationLayouts : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(All, AllocationLayouts, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return "Size" + std::to_string(layout.param); });

// All combinations of the request bits, on a record that already has storage of another kind.
TEST_P(AllocationLayouts, EveryRequestIsAcceptedOrRefusedByItsAdjustedValue) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  for (const uint32_t mode : {uint32_t{V_TempFileEither}, uint32_t{V_TempFileMemory}}) {
    ScopedTempFileMode scoped(mode);
    for (const int32_t bits : {1, 4, 8, 12, 16, 24, 32}) {
      Bitmap bitmap(GetParam());
      ASSERT_EQ(bitmap.Init(9, 3, bits), 1);
      for (uint32_t i = 0; i < 512; ++i) {  // bits 0-3 and 7-10 are requests, bit 4 is none
        const uint32_t request = (i & 0x1F) | (i >> 5 << 7);
        ASSERT_EQ(V_AllocateBitmap(bitmap, i % 2 == 0 ? V_MemoryConventional : V_MemoryUser), 1);
        const Outcome want =
            SmallBitmapOutcome(AdjustRequest(request, bits, /*diskForbidden=*/mode == V_TempFileMemory));
        ASSERT_EQ(V_AllocateBitmap(bitmap, request), want.status)
            << "request " << request << ", " << bits << " bits, mode " << mode;
        ASSERT_EQ(bitmap.StorageFlags(), want.flags) << "request " << request << ", " << bits << " bits";
      }
      for (const uint32_t request : {0x10u, 0x20u, 0x40u, 0x800u, 0x80000000u, 0x1001u, 0xFFFFF1FFu})
        EXPECT_EQ(V_AllocateBitmap(bitmap, request), -13) << request;
    }
  }
}

TEST(Allocation, RefusalsNameTheirReason) {
  EXPECT_EQ(V_AllocateBitmap(nullptr, 1), -13);
  Bitmap garbage;
  EXPECT_EQ(V_AllocateBitmap(garbage, 1), -789);
}

// --- the decision by size -----------------------------------------------------------------------------------------

struct Decision {
  const char* name;
  uint32_t request;
  int32_t reserve;
  int64_t maxConventional;
  int64_t tileSize;
  int32_t status;
  uint32_t flags;
};
void PrintTo(const Decision& decision, std::ostream* out) { *out << decision.name; }

constexpr int64_t kSize = 4096;  // data size of the bitmap below
constexpr int64_t kAbove32Bits = int64_t{1} << 32;
constexpr Decision kDecisions[] = {
    {"RoomForAll", 1, 0, 0, 0, 1, kConventional},
    {"SizeAtTheMaximum", 1, 0, kSize, 0, 1, kConventional},
    {"SizeAboveTheMaximum", 1, 0, kSize - 1, 0, 1, kDisk},
    {"SizeAboveTheMaximumWithoutTiles", 8, 0, kSize - 1, 0, 1, kDisk},
    {"SizeAboveTheMaximumWithoutDisk", 257, 0, kSize - 1, 1024, 1, kTiled},
    {"SizeAboveTheMaximumNoDiskAlone", 256, 0, kSize - 1, 1024, 1, kTiled},
    {"SizeAboveTheMaximumWithoutBoth", 265, 0, kSize - 1, 1024, -1, 0},
    {"TilesIgnoreTheMaximum", 4, 0, kSize - 1, 1024, 1, kTiled},
    {"MaximumIsCutTo32BitsForTheLimit", 1, 0, kAbove32Bits + 100, 1024, 1, kTiled},
    {"PercentageOfAvailable", 1, 0, -100, 0, 1, kConventional},
    {"AllReserved", 1, -100, 0, 1024, 1, kTiled},
    {"AllReservedWithoutTiles", 8, -100, 0, 1024, 1, kDisk},
    {"AllReservedWithoutTilesExplicit", 9, -100, 0, 1024, 1, kDisk},
    {"AllReservedWithoutDisk", 257, -100, 0, 1024, 1, kTiled},
    {"AllReservedWithoutBoth", 265, -100, 0, 1024, -1, 0},
    {"AllReservedWithoutBoth264", 264, -100, 0, 1024, -1, 0},
    {"SmallReserve", 265, 4096, 0, 0, 1, kConventional},
    {"Tiles", 4, 0, 0, 1024, 1, kTiled},
    {"TilesWithoutDisk", 260, 0, 0, 1024, 1, kTiled},
    {"TilesOfAlmostAll", 4, 0, 0, kSize - 1, 1, kTiled},
    {"OneTileIsNoTile", 4, 0, 0, kSize, 1, kConventional},
    {"DefaultTileIsLarge", 4, 0, 0, 0, 1, kConventional},
    {"DiskWhatever", 128, 0, 0, 1024, 1, kDisk},
    {"DiskWhateverTheReserve", 128, -100, 0, 1024, 1, kDisk},
};

class AllocationDecisions : public testing::TestWithParam<Decision> {};
INSTANTIATE_TEST_SUITE_P(Table, AllocationDecisions, testing::ValuesIn(kDecisions),
                         [](const auto& decision) { return std::string(decision.param.name); });

TEST_P(AllocationDecisions, FollowSizeAndThresholds) {
  const Decision& decision = GetParam();
  AccountBalance balance;
  ScopedThresholds thresholds;
  for (const uint32_t layout : kLayouts) {
    thresholds.Reserve(decision.reserve);
    thresholds.MaxConventional(decision.maxConventional);
    thresholds.TileSize(decision.tileSize);
    Bitmap bitmap(layout);
    ASSERT_EQ(bitmap.Init(64, 64, 8), 1);
    EXPECT_EQ(V_AllocateBitmap(bitmap, decision.request), decision.status);
    EXPECT_EQ(bitmap.StorageFlags(), decision.flags) << "layout " << layout;
    if (decision.flags == kConventional) {
      EXPECT_EQ(balance.Taken(), uint64_t{kSize});
    }
    V_FreeBitmap(bitmap);
    EXPECT_EQ(balance.Taken(), 0u);
  }
}

TEST(Allocation, TemporaryFilesInMemoryOnlyForbidDisk) {
  AccountBalance balance;
  TempDirectory directory;
  ScopedTempFileMode mode(V_TempFileMemory);
  ScopedThresholds thresholds;
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryDisk, 64, 64, 8), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kConventional);
  thresholds.MaxConventional(100);
  thresholds.TileSize(1024);
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kTiled);
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryNoTiled), -1);
  EXPECT_EQ(bitmap.StorageFlags(), 0u);
  EXPECT_EQ(directory.Names(), std::vector<std::string>{});
}

// The account says no: tiles in a file and disk are the ways out, where they are allowed.
TEST(Allocation, FullAccountIsNotTheEnd) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  thresholds.TileSize(1024);
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Init(64, 64, 8), 1);
  {
    ScopedAccountLimit limit(2048);
    const uint64_t start = UsedMemory();
    for (const uint32_t request : {1u, 4u, 8u, 9u, 128u}) {
      ASSERT_EQ(V_AllocateBitmap(bitmap, request), 1) << request;
      EXPECT_TRUE(bitmap.StorageFlags() == kDisk || (bitmap.StorageFlags() == kTiled && (request & 8) == 0)) << request;
      EXPECT_LE(UsedMemory(), start + 2048) << request;
      std::vector<uint8_t> pixels(kSize);
      for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 7 + request);
      WritePixels(bitmap, pixels);
      EXPECT_EQ(ReadPixels(bitmap), pixels) << request;
      EXPECT_LE(UsedMemory(), start + 2048) << request;
    }
    for (const uint32_t request : {264u, 265u}) {
      const int32_t status = V_AllocateBitmap(bitmap, request);
      EXPECT_TRUE(status == -1905 || status == -1) << request << " gave " << status;
      EXPECT_EQ(bitmap.StorageFlags(), 0u);
      EXPECT_EQ(UsedMemory(), start);
    }
  }
  EXPECT_EQ(V_AllocateBitmap(bitmap, 265), 1);
}

TEST(Allocation, StorageThatIsAllocatedAgainIsReplacedAndZero) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  thresholds.TileSize(1024);
  for (const uint32_t layout : kLayouts) {
    Bitmap bitmap(layout);
    ASSERT_EQ(bitmap.Create(V_MemoryConventional, 64, 64, 8), 1);
    bitmap->Flags |= V_FlagSigned | V_FlagInterlaced | (1u << 25);
    const uint32_t others = bitmap->Flags & ~kStorageBits;
    for (const uint32_t first : {1u, 4u, 128u, 2u})
      for (const uint32_t second : {1u, 4u, 128u, 2u, 1u}) {
        SCOPED_TRACE(testing::Message() << first << " then " << second << ", layout " << layout);
        ASSERT_EQ(V_AllocateBitmap(bitmap, first), 1);
        if (first != 2) WritePixels(bitmap, std::vector<uint8_t>(kSize, 0xEE));
        ASSERT_EQ(V_AllocateBitmap(bitmap, second), 1);
        EXPECT_EQ(bitmap.StorageFlags(), second == 1   ? kConventional
                                         : second == 4 ? kTiled
                                         : second == 2 ? kUser
                                                       : kDisk);
        EXPECT_EQ(bitmap->Flags & ~kStorageBits, others) << "other flags are not allocation's business";
        if (second != 2) {
          EXPECT_EQ(ReadPixels(bitmap), std::vector<uint8_t>(kSize, 0));
        }
      }
    EXPECT_EQ(V_AllocateBitmap(bitmap, 1), 1);
    EXPECT_EQ(balance.Taken(), uint64_t{kSize});
  }
}

// --- near the handle limit ------------------------------------------------------------------------------------------

TEST(Allocation, TilesAndSuperCompressionAreDroppedNearTheHandleLimit) {
  bool reached = false;
  Outcome tiled{}, plain{}, super{}, superOrPlain{};
  {
    const ManyHandles handles(18050);
    reached = handles.Reached();
    // A thread of its own has no older reading of the count.
    std::thread([&] {
      const auto allocate = [](uint32_t request) {
        V_SetMemoryThresholds(0, 0, 1024, 0, 0, V_ThresholdTileSize);
        Bitmap bitmap;
        bitmap.Init(64, 64, 8);
        const int32_t status = V_AllocateBitmap(bitmap, request);
        return Outcome{status, bitmap.StorageFlags()};
      };
      tiled = allocate(V_MemoryTiled);
      plain = allocate(V_MemoryConventional);
      super = allocate(V_MemorySuperCompressed);
      superOrPlain = allocate(V_MemorySuperCompressed | V_MemoryConventional);
    }).join();
  }
  if (!reached) GTEST_SKIP() << "this system does not give a process that many handles";
  EXPECT_EQ(tiled.status, 1);
  EXPECT_EQ(tiled.flags, kConventional);
  EXPECT_EQ(plain.flags, kConventional);
  EXPECT_EQ(super.status, -13) << "nothing is left of the request";
  EXPECT_EQ(superOrPlain.status, 1);
  EXPECT_EQ(superOrPlain.flags, kConventional);
}

// --- hook and callback ------------------------------------------------------------------------------------------------

struct HookState {
  int32_t result = 1;
  uint32_t request = 0;  // 0 keeps the request
  int32_t calls = 0;
  ALLOCATEBITMAPCALLBACKDATA seen{};
  void* seenPointer = nullptr;  // the record's data pointer during the call
};

int32_t V_CALL AllocationSeen(BITMAPHANDLE* bitmap, ALLOCATEBITMAPCALLBACKDATA* data, void* userData) {
  auto& state = *static_cast<HookState*>(userData);
  ++state.calls;
  state.seen = *data;
  state.seenPointer = bitmap->Addr.Windows.pData;
  if (state.request != 0) data->uMemory = state.request;
  return state.result;
}

TEST(AllocationHook, SeesTheRecordAndDecides) {
  AccountBalance balance;
  HookState state;
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 40, 30, 16, V_OrderRgb565, V_ViewRightTop), 1);
  ScopedAllocateHook hook(&AllocationSeen, &state);
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryNoTiled), 1);
  EXPECT_EQ(state.calls, 1);
  EXPECT_EQ(state.seen.uStructSize, 52u);
  EXPECT_EQ(state.seen.uMemory, uint32_t{V_MemoryNoTiled});
  EXPECT_EQ(state.seen.Width, 40u);
  EXPECT_EQ(state.seen.Height, 30u);
  EXPECT_EQ(state.seen.BitsPerPixel, 16u);
  EXPECT_EQ(state.seen.BytesPerLine, 0u) << "the hook is told 0";
  EXPECT_EQ(state.seen.Order, uint32_t{V_OrderRgb565});
  EXPECT_EQ(state.seen.ViewPerspective, uint32_t{V_ViewRightTop});
  EXPECT_EQ(state.seen.Size, 80u * 30u);

  WritePixels(bitmap, std::vector<uint8_t>(2400, 0xEE));
  const auto before = bitmap.Snapshot();
  for (const int32_t result : {2, 0, -55, 7}) {
    state.result = result;
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), result);
    EXPECT_EQ(bitmap.Snapshot(), before) << "a hook's refusal leaves the record as it was";
  }
  EXPECT_EQ(ReadPixels(bitmap), std::vector<uint8_t>(2400, 0xEE));

  state.result = 1;
  state.request = V_MemoryDisk;
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kDisk);
  state.request = V_MemoryConventional | V_MemoryTiled;
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), -13) << "the changed request is checked";
  state.request = 0;
  Bitmap other;
  state.result = -55;
  EXPECT_EQ(other.Create(V_MemoryConventional, 4, 4, 8), -55);
  EXPECT_EQ(other.StorageFlags(), 0u);
}

TEST(AllocationCallback, MayKeepTheDataChangeTheRequestOrRefuse) {
  AccountBalance balance;
  HookState state;
  HostStore host;
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof(table);
  table.pUserData = &state;
  table.AllocateBitmapData = &AllocationSeen;
  Bitmap bitmap;
  uint8_t data[64];
  // Handled.
  state.result = 2;
  ASSERT_EQ(V_CreateBitmapWithCallbacks(bitmap, kCurrentLayout, V_MemoryConventional, 8, 8, 8, 0, nullptr, 3, data,
                                        sizeof(data), &table),
            1);
  EXPECT_EQ(bitmap.StorageFlags(), V_FlagAllocated | V_FlagMirror);
  EXPECT_EQ(state.seen.BytesPerLine, 8u) << "the callback is told the row length";
  EXPECT_EQ(state.seen.Size, 64u);
  EXPECT_EQ(state.seen.ViewPerspective, 3u);
  EXPECT_EQ(Field(state.seen.pData), data) << "the caller's data pointer";
  EXPECT_EQ(balance.Taken(), 0u);
  Access access(bitmap);
  EXPECT_EQ(V_GetBitmapRow(bitmap, data, 0, 8), -1) << "nobody has these rows";
  EXPECT_EQ(V_PutBitmapRow(bitmap, data, 0, 8), -1);
  // Left to the engine, with another request.
  state.result = 1;
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kConventional);
  EXPECT_EQ(state.seenPointer, nullptr) << "the data pointer is cleared beforehand";
  state.request = V_MemoryDisk;
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kDisk);
  // Refused: the old storage is gone by then.
  state.request = 0;
  for (const int32_t result : {0, -55, 3}) {
    state.result = 1;
    ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
    state.result = result;
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), result);
    EXPECT_EQ(bitmap.StorageFlags(), 0u);
    EXPECT_EQ(balance.Taken(), 0u);
  }
  state.result = 1;
  const int32_t calls = state.calls;
  EXPECT_EQ(V_AllocateBitmap(bitmap, 3), -13);
  EXPECT_EQ(state.calls, calls) << "an invalid request never reaches the callback";
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
}

TEST(FreeCallback, MayTakeTheFreeingOver) {
  AccountBalance balance;
  HostStore host;
  {
    StoredBitmap stored(kHostKind, kCurrentLayout, 8, 8, 8);
    ASSERT_EQ(stored.Status(), 1);
    EXPECT_EQ(stored.Host().allocated, 1);
    V_FreeBitmap(stored);
    EXPECT_EQ(stored.Host().freed, 1);
    EXPECT_EQ(stored.Record().StorageFlags(), 0u);
    EXPECT_EQ(Field(stored->DataCallbacks), nullptr);
    V_FreeBitmap(stored);
    EXPECT_EQ(stored.Host().freed, 1) << "there is nothing left to free";
  }
  // A result of 1 leaves the freeing of the engine's own storage to the engine.
  int32_t calls = 0;
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof(table);
  table.pUserData = &calls;
  table.FreeBitmapData = [](BITMAPHANDLE*, void* userData) -> int32_t {
    ++*static_cast<int32_t*>(userData);
    return 1;
  };
  Bitmap bitmap;
  ASSERT_EQ(V_CreateBitmapWithCallbacks(bitmap, kCurrentLayout, 1, 8, 8, 8, 0, nullptr, 1, nullptr, 0, &table), 1);
  EXPECT_EQ(balance.Taken(), 64u);
  V_FreeBitmap(bitmap);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(balance.Taken(), 0u);
}

}  // namespace
}  // namespace vexatest
