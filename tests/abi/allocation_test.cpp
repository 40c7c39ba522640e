// Which storage a request gets, by request, depth, size, thresholds, account, callbacks and handles.
#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <sys/resource.h>
#endif

#include "support/testing.h"

namespace vexatest {
namespace {

constexpr uint32_t kConventional = kInMemory;
constexpr uint32_t kUser = kInMemory | V_FlagMirror;
constexpr uint32_t kTiled = kInMemory | V_FlagTiled;
constexpr uint32_t kDisk = V_FlagAllocated | V_FlagDiskMemory;
constexpr uint32_t kCompressed = kInMemory | V_FlagCompressed, kSuper = kInMemory | V_FlagSuperCompressed, kNone = 0;

// For a bitmap far below every limit, on a record that already has storage of another kind.
TEST(Allocation, RequestsAreAcceptedOrRefusedByWhatTheDepthAndTheFilesLeaveOfThem) {
  const struct {
    std::vector<uint32_t> requests;
    std::vector<int32_t> depths;
    uint32_t flags, inMemoryOnly;  // 0: refused; the latter where temporary files are in memory only
  } kCases[] = {{{1, 4, 8, 9, 256, 257, 260, 264, 265}, {1, 4, 8, 12, 24}, kConventional, kConventional},
                {{2, 2 | 8, 2 | 256, 2 | 8 | 256}, {1, 8, 24}, kUser, kUser},
                {{128}, {1, 8, 24}, kDisk, kConventional},
                {{128 | 1, 128 | 256, 128 | 8}, {8}, kNone, kConventional},
                {{0}, {8}, kNone, kConventional},
                {{3, 5, 6, 7, 12, 16, 32, 64, 2048, 0x1001, 0x80000000, 0xFFFFF1FF, 2 | 128}, {1, 8, 24}, kNone, kNone},
                {{512, 768, 769, 512 | 128, 512 | 1024, 512 | 3}, {1}, kCompressed, kCompressed},
                {{512 | 1, 768, 769, 512 | 8}, {2, 8, 24}, kConventional, kConventional},
                {{512, 512 | 1024}, {2, 16}, kNone, kConventional},
                {{1024, 1025, 1280, 1281}, {1, 8, 24}, kSuper, kSuper},
                {{1025, 1280, 1281}, {4, 12, 16, 32}, kConventional, kConventional},
                {{1024 | 4, 1024 | 8}, {8}, kNone, kNone}};
  AccountBalance balance;
  ScopedThresholds thresholds;
  for (const uint32_t layout : kLayouts)
    for (const auto& c : kCases)
      for (const uint32_t mode : {uint32_t{V_TempFileEither}, uint32_t{V_TempFileMemory}})
        for (const int32_t bits : c.depths)
          for (const uint32_t request : c.requests) {
            const ScopedTempFileMode scoped(mode);
            const uint32_t flags = mode == V_TempFileMemory ? c.inMemoryOnly : c.flags;
            Bitmap bitmap(layout);
            ASSERT_EQ(bitmap.Init(9, 3, bits), 1);
            ASSERT_EQ(V_AllocateBitmap(bitmap, bits == 8 ? V_MemoryConventional : V_MemoryUser), 1);
            EXPECT_EQ(V_AllocateBitmap(bitmap, request), flags == kNone ? -13 : 1)
                << "request " << request << ", " << bits << " bits, mode " << mode;
            EXPECT_EQ(bitmap.StorageFlags(), flags) << "request " << request << ", " << bits << " bits, mode " << mode;
          }
}

// --- the decision by size ---

constexpr int64_t kSize = 4096;  // data size of the bitmap below
constexpr int64_t kAbove32Bits = int64_t{1} << 32;

TEST(Allocation, FollowsSizeAndThresholds) {
  const struct {
    uint32_t request;
    int32_t reserve;
    int64_t maxConventional, tileSize;
    uint32_t flags;
    uint32_t mode = V_TempFileEither;
    uint64_t room = kSize;  // in the account
  } kCases[] = {{1, 0, 0, 0, kConventional},
                {1, 0, kSize, 0, kConventional},
                {1, 0, kSize - 1, 0, kDisk},
                {8, 0, kSize - 1, 0, kDisk},
                {257, 0, kSize - 1, 1024, kTiled},
                {256, 0, kSize - 1, 1024, kTiled},
                {265, 0, kSize - 1, 1024, kNone},
                {4, 0, kSize - 1, 1024, kTiled},
                {1, 0, kAbove32Bits + 100, 1024, kTiled},  // the maximum is cut to 32 bits for the limit
                {1, 0, -100, 0, kConventional},
                {1, -100, 0, 1024, kTiled},
                {8, -100, 0, 1024, kDisk},
                {9, -100, 0, 1024, kDisk},
                {257, -100, 0, 1024, kTiled},
                {265, -100, 0, 1024, kNone},
                {264, -100, 0, 1024, kNone},
                {265, 4096, 0, 0, kConventional},
                {4, 0, 0, 1024, kTiled},
                {260, 0, 0, 1024, kTiled},
                {4, 0, 0, kSize - 1, kTiled},
                {4, 0, 0, kSize, kConventional},  // one tile is none
                {4, 0, 0, 0, kConventional},      // the default tile is large
                {128, 0, 0, 1024, kDisk},
                {128, -100, 0, 1024, kDisk},
                {1, 0, kSize - 1, 1024, kTiled, V_TempFileMemory},
                {4, 0, kSize - 1, 1024, kTiled, V_TempFileMemory},
                {8, 0, kSize - 1, 1024, kNone, V_TempFileMemory},
                {1, 0, 0, 1024, kTiled, V_TempFileEither, 2048},
                {4, 0, 0, 1024, kTiled, V_TempFileEither, 2048},
                {9, 0, 0, 1024, kDisk, V_TempFileEither, 2048},
                {264, 0, 0, 1024, kNone, V_TempFileEither, 2048}};
  AccountBalance balance;
  ScopedThresholds thresholds;
  for (const uint32_t layout : kLayouts)
    for (const auto& c : kCases) {
      SCOPED_TRACE(testing::Message() << "case " << &c - kCases << ", layout " << layout);
      const ScopedTempFileMode mode(c.mode);
      const ScopedAccountLimit limit(c.room);
      ASSERT_EQ(V_SetMemoryThresholds(c.reserve, c.maxConventional, c.tileSize, 0, 0, 7), 1);
      Bitmap bitmap(layout);
      ASSERT_EQ(bitmap.Init(64, 64, 8), 1);
      EXPECT_EQ(V_AllocateBitmap(bitmap, c.request), c.flags != kNone ? 1 : c.room < kSize ? -1905 : -1);
      EXPECT_EQ(bitmap.StorageFlags(), c.flags);
      EXPECT_TRUE(c.flags == kConventional ? balance.Taken() == c.room : balance.Taken() <= c.room);
    }
}

// --- near the handle limit ---

TEST(Allocation, TilesAndSuperCompressionAreDroppedNearTheHandleLimit) {
  constexpr size_t kHandles = 18050;
#ifndef _WIN32
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
#endif
  const Folder folder;
  WriteAll(folder / "file", "");
  std::vector<intptr_t> handles;
  while (handles.size() < kHandles && (handles.empty() || handles.back() != -1))
    handles.push_back(V_RedirectedOpen((folder / "file").c_str(), V_OpenRead));
  bool reached = handles.back() != -1;
#ifdef _WIN32
  DWORD counted = 0;  // stays 0 on compatible systems that never count
  reached = GetProcessHandleCount(GetCurrentProcess(), &counted) && counted >= kHandles;
#endif
  // A thread of its own has no older reading of the count.
  std::thread([=] {
    if (!reached) return;
    V_SetMemoryThresholds(0, 0, 1024, 0, 0, V_ThresholdTileSize);
    Bitmap bitmap;
    bitmap.Init(64, 64, 8);
    for (const auto& [request, status] : {std::pair(4u, 1), {1u, 1}, {1024u, -13}, {1025u, 1}}) {
      EXPECT_EQ(V_AllocateBitmap(bitmap, request), status) << request;
      EXPECT_EQ(bitmap.StorageFlags(), status == 1 ? kConventional : 0u) << request;
    }
  }).join();
  for (const intptr_t handle : handles) V_RedirectedClose(handle);
  if (!reached) GTEST_SKIP() << "this system does not give a process that many handles";
}

// --- hook and callback ---

struct HookState {
  int32_t result = 1;
  uint32_t request = 0;  // 0 keeps the request
  ALLOCATEBITMAPCALLBACKDATA seen{};
  void* seenPointer = nullptr;  // the record's data pointer during the call
};

int32_t V_CALL AllocationSeen(BITMAPHANDLE* bitmap, ALLOCATEBITMAPCALLBACKDATA* data, void* userData) {
  auto& state = *static_cast<HookState*>(userData);
  state.seen = *data;
  state.seenPointer = bitmap->Addr.Windows.pData;
  if (state.request != 0) data->uMemory = state.request;
  return state.result;
}

// What a call is told of the bitmap below.
void ExpectSeen(const ALLOCATEBITMAPCALLBACKDATA& seen, uint32_t memory, uint32_t bytesPerLine, void* data) {
  const ALLOCATEBITMAPCALLBACKDATA want = {
      52, 0, memory, 40, 30, 16, bytesPerLine, uint32_t{V_OrderRgb565}, uint32_t{V_ViewRightTop}, 80 * 30, data};
  EXPECT_EQ(memcmp(&seen, &want, sizeof want), 0);
}

TEST(AllocationHook, SeesTheRecordAndDecides) {
  AccountBalance balance;
  HookState state;
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 40, 30, 16, V_OrderRgb565, V_ViewRightTop), 1);
  V_SetAllocateBitmapHook(&AllocationSeen, &state);
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryNoTiled), 1);
  ExpectSeen(state.seen, V_MemoryNoTiled, 0, nullptr);  // the hook is told a row length of 0
  const auto before = bitmap.Snapshot();
  for (const int32_t result : {2, 0, -55, 7}) {
    state.result = result;
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), result);
    EXPECT_EQ(bitmap.Snapshot(), before) << "a hook's refusal leaves the record as it was";
  }
  state = {1, V_MemoryDisk};
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kDisk);
  state.request = V_MemoryConventional | V_MemoryTiled;
  EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), -13) << "the changed request is checked";
  V_SetAllocateBitmapHook(nullptr, nullptr);
}

TEST(AllocationCallback, MayKeepTheDataChangeTheRequestOrRefuse) {
  AccountBalance balance;
  HookState state;
  int32_t freed = 0;
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof(table);
  table.pUserData = &state;
  table.AllocateBitmapData = &AllocationSeen;
  Bitmap bitmap;
  uint8_t data[80];
  state.result = 2;  // handled
  ASSERT_EQ(V_CreateBitmapWithCallbacks(bitmap, kCurrentLayout, V_MemoryConventional, 40, 30, 16, V_OrderRgb565,
                                        nullptr, V_ViewRightTop, data, sizeof(data), &table),
            1);
  EXPECT_EQ(bitmap.StorageFlags(), V_FlagAllocated | V_FlagMirror);
  ExpectSeen(state.seen, V_MemoryConventional, 80, data);
  EXPECT_EQ(V_GetBitmapRow(bitmap, data, 0, 8), -1) << "nobody has these rows";
  EXPECT_EQ(V_PutBitmapRow(bitmap, data, 0, 8), -1);
  // Left to the engine, perhaps with another request, or refused: the old storage is gone by then.
  for (const auto& [result, request, flags] : {std::tuple(1, 0u, kConventional),
                                               {1, uint32_t{V_MemoryDisk}, kDisk},
                                               {0, 0u, 0u},
                                               {-55, 0u, 0u},
                                               {3, 0u, 0u}}) {
    state = {};
    ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
    EXPECT_EQ(state.seenPointer, nullptr) << "the data pointer is cleared beforehand";
    state = {result, request};
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), result);
    EXPECT_EQ(bitmap.StorageFlags(), flags);
    EXPECT_EQ(balance.Taken(), flags == kConventional ? 2400u : 0u);
  }
  // A result of 1 leaves the freeing of the engine's own storage to the engine.
  table.pUserData = &freed;
  table.AllocateBitmapData = nullptr;
  table.FreeBitmapData = [](BITMAPHANDLE*, void* count) -> int32_t { return ++*static_cast<int32_t*>(count); };
  ASSERT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), 1);
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  V_FreeBitmap(bitmap);
  EXPECT_EQ(freed, 1);
}

}  // namespace
}  // namespace vexatest
