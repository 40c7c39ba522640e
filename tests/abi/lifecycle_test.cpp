// The record from initialisation to freeing: what it holds, who may touch it, and how accesses nest.
#include "support/testing.h"

namespace vexatest {
namespace {

using Lines = std::vector<std::string>;

class RecordLayouts : public testing::TestWithParam<uint32_t> {
  AccountBalance balance_;
};
INSTANTIATE_TEST_SUITE_P(All, RecordLayouts, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return "Size" + std::to_string(layout.param); });

TEST_P(RecordLayouts, InitialisedRecordHasTheDefaultsOfItsDepth) {
  V_SetDefaultResolution(0, 96);
  for (const int32_t bits : kDepths) {
    Bitmap bitmap(GetParam());
    ASSERT_EQ(bitmap.Init(1, 3, bits), 1);
    BITMAPHANDLE want = {};
    want.uStructSize = GetParam();
    want.Width = 1, want.Height = 3, want.BitsPerPixel = bits;
    want.BytesPerLine = bits >= 48 ? 8 : 4;
    want.Size32 = 3 * want.BytesPerLine, want.Size64 = want.Size32;
    want.nColors = bits <= 8 ? 1 << bits : 0;
    want.ViewPerspective = V_ViewBottomLeft;
    want.Order = bits <= 8 ? V_OrderRgb : bits == 12 ? V_OrderGray : V_OrderBgr;
    want.XResolution = 150, want.YResolution = 96;  // a default below 1 stands for 150
    want.HighBit = want.PaintHighBit = bits == 24 ? 7 : bits == 32 ? -1 : std::min(bits - 1, 15);
    want.PaintGamma = 100;
    EXPECT_EQ(std::memcmp(bitmap, &want, GetParam()), 0) << bits << " bits";
  }
  V_SetDefaultResolution(0, 0);
}

TEST_P(RecordLayouts, WhatNoBitmapCanBeIsRefusedAndLeavesAnEmptyRecord) {
  constexpr int32_t kCases[][7] = {// memory (0: initialisation only), width, height, bits, order, perspective, status
                                   {0, 5, 5, 10, 0, 1, -27},
                                   {0, 5, 5, 0, 0, 1, -27},
                                   {0, 5, 5, 65, 0, 1, -27},
                                   {0, 0, 0, 13, 0, 1, -27},
                                   {0, -1, 5, 8, 0, 1, -11},
                                   {0, -1, 0, 8, 0, 1, -11},
                                   {0, 0, -1, 8, 0, 1, -11},
                                   {0, 0, 0, 0, 0, 1, 1},
                                   {0, -1, -1, 10, 0, 1, -11},
                                   {1, 5, 4, 10, 0, 1, -27},
                                   {1, 5, 4, 8, 0, 9, -13},
                                   {1, 5, 4, 8, 0, -1, -13},
                                   {3, 5, 4, 8, 0, 1, -13},
                                   {16, 5, 4, 8, 0, 1, -13},
                                   {1, -5, 4, 8, 0, 1, -11},
                                   {1, 0, 0, 8, 0, 1, -11},
                                   {1, 0, 0, 0, 0, 1, -11},
                                   {512, 5, 4, 8, 0, 1, -13},
                                   {1024, 5, 4, 16, 0, 1, -13},
                                   // A row whose length does not fit 32 bits; a record of it can be had.
                                   {1, INT32_MAX, 1, 2, 0, 1, -11},
                                   {1, INT32_MAX, 1, 24, 0, 1, -11},
                                   {1, 0x10000001, 1, 16, 0, 1, -11},
                                   {1, 0x20000004, 1, 8, 0, 1, -11},
                                   {1, 0x15555556, 1, 12, 0, 1, -11},
                                   {0, INT32_MAX, 1, 2, 0, 1, 1}};
  Bitmap empty(GetParam());
  ASSERT_EQ(empty.Init(0, 0, 0), 1);
  for (const auto& [memory, width, height, bits, order, perspective, status] : kCases) {
    SCOPED_TRACE(testing::Message() << memory << ", " << width << " x " << height << " x " << bits);
    Bitmap bitmap(GetParam());
    EXPECT_EQ(memory == 0 ? bitmap.Init(width, height, bits)
                          : bitmap.Create(static_cast<uint32_t>(memory), width, height, bits, order, perspective),
              status);
    EXPECT_EQ(bitmap.StorageFlags(), 0u);
    EXPECT_TRUE(memory != 0 || status == 1 || bitmap.Snapshot() == empty.Snapshot());
  }
  EXPECT_EQ(V_InitBitmap(nullptr, GetParam(), 1, 1, 1), -13);
  EXPECT_EQ(V_CreateBitmap(nullptr, GetParam(), 1, 1, 1, 1, 0, nullptr, 1, nullptr, 0), -13);
  for (const uint32_t size : {0u, 227u, 229u, 283u, 285u}) {
    EXPECT_EQ(V_InitBitmap(empty, size, 1, 1, 1), -789) << size;
    EXPECT_EQ(empty->uStructSize, GetParam());
  }
}

TEST(OlderLayout, HoldsSizesUpToItsLimitAndNoCallbacks) {
  for (const auto& [height, fits] : {std::pair(0xFFFF, true), {0x10000, false}, {0x7FFFFFFF, false}}) {
    Bitmap older(kOlderLayout), current;
    EXPECT_EQ(older.Init(0x10000, height, 8), fits ? 1 : -3) << height;
    EXPECT_EQ(older->Size32, fits ? 0xFFFF0000u : 0u);
    ASSERT_EQ(current.Init(0x10000, height, 8), 1);
    EXPECT_EQ(Field(current->Size64), uint64_t{0x10000} * static_cast<uint64_t>(height));
  }
  HostStore host;
  const BITMAPHANDLEDATACALLBACKS table = host.Table();
  Bitmap bitmap(kOlderLayout);
  EXPECT_EQ(V_CreateBitmapWithCallbacks(bitmap, kOlderLayout, 1, 5, 4, 8, 0, nullptr, 1, nullptr, 0, &table), -789);
  ASSERT_EQ(bitmap.Create(1, 5, 4, 8), 1);
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), -789);
  EXPECT_EQ(host.calls, 0);
}

// --- creation ---

// Order and palette by depth argument, order argument and palette argument.
TEST_P(RecordLayouts, CreatedBitmapGetsOrderAndPaletteByItsArguments) {
  RGBQUAD given[256];
  Random(7).Fill(given, sizeof(given));
  for (const int32_t bits : {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64})
    for (const int32_t order : {V_OrderRgb, V_OrderBgr, V_OrderGray, V_OrderRomm, V_OrderRgb565})
      for (const RGBQUAD* palette : {static_cast<const RGBQUAD*>(nullptr), static_cast<const RGBQUAD*>(given)}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, order " << order << ", palette " << (palette != nullptr));
        Bitmap bitmap(GetParam());
        const bool refused = order == V_OrderRomm && bits != 24 && bits != 48;
        ASSERT_EQ(V_CreateBitmap(bitmap, GetParam(), 1, 5, 4, bits, order, palette, 0, nullptr, 0), refused ? -27 : 1);
        EXPECT_EQ(bitmap.StorageFlags(), refused ? 0u : kInMemory);
        if (refused) continue;
        EXPECT_EQ(bitmap->ViewPerspective, V_ViewTopLeft) << "0 means top left";
        const int32_t depth = bits == 0 ? 8 : bits, colors = depth > 8 ? 0 : 1 << depth;
        EXPECT_EQ(bitmap->BitsPerPixel, depth);
        EXPECT_EQ(bitmap->Order, depth <= 8 ? V_OrderRgb : order);
        ASSERT_EQ(bitmap->nColors, colors);
        ASSERT_EQ(bitmap->pPalette == nullptr, colors == 0);
        if (colors == 0) continue;
        const bool gray = bits == 0 || (order == V_OrderGray && !palette);
        RGBQUAD* made = (gray ? V_CreateGrayPalette : V_CreateFixedPalette)(static_cast<uint32_t>(depth));
        EXPECT_NE(Field(bitmap->pPalette), given) << "the palette is copied";
        EXPECT_EQ(memcmp(bitmap->pPalette, !gray && palette ? given : made, sizeof(RGBQUAD) << depth), 0);
        V_FreeBuffer(made);
      }
}

TEST_P(RecordLayouts, UserDataStaysTheCallers) {
  AccountBalance balance;
  GuardedBytes data(8 * 4, 0x11);
  Bitmap bitmap(GetParam());
  ASSERT_EQ(V_CreateBitmap(bitmap, GetParam(), V_MemoryUser, 8, 4, 8, 0, nullptr, 1, data.data(), data.size() + 1),
            -13);
  ASSERT_EQ(V_CreateBitmap(bitmap, GetParam(), V_MemoryUser, 8, 4, 8, 0, nullptr, 1, data.data(), data.size()), 1);
  EXPECT_EQ(bitmap.StorageFlags(), kInMemory | V_FlagMirror);
  EXPECT_EQ(balance.Taken(), 0u) << "user data is not accounted";
  EXPECT_EQ(V_SetBitmapDataPointer(nullptr, data.data(), 32), -2);
  Bitmap other(GetParam());
  EXPECT_EQ(V_SetBitmapDataPointer(other, data.data(), 32), -789);
  ASSERT_EQ(other.Init(8, 4, 8), 1);
  for (const uint64_t size : {uint64_t{31}, uint64_t{33}, uint64_t{32} + (uint64_t{1} << 32), uint64_t{32}})
    EXPECT_EQ(V_SetBitmapDataPointer(other, data.data(), size), size == 32 ? 1 : -13) << size;
}

// --- access ---

// With a movable block: what an access does is seen in its lock. A callback sees the outermost level and may handle it.
TEST(Access, NestsAndWorksOnlyAtTheOutermostLevel) {
  HostStore host;
  BITMAPHANDLEDATACALLBACKS handles = host.Table(), leaves = handles;
  leaves.AccessBitmap = leaves.ReleaseBitmap = [](BITMAPHANDLE*, void*) -> int32_t { return 1; };
  StoredBitmap movable(kMovableKind, kCurrentLayout, 16, 4, 8);
  uint8_t row[16] = {};
  const BITMAPHANDLEDATACALLBACKS* const tables[] = {nullptr, &leaves, &handles};
  for (const BITMAPHANDLEDATACALLBACKS* table : tables) {
    ASSERT_EQ(V_SetBitmapDataCallbacks(movable, table), 1);
    for (const int32_t expected : {1, 2, 1, 0}) {
      EXPECT_EQ(expected > movable->nLockCount ? V_AccessBitmap(movable) : V_ReleaseBitmap(movable), 1);
      EXPECT_EQ(movable->nLockCount, expected);
      const bool locked = expected > 0 && table != &handles;
      EXPECT_EQ((movable->Flags & V_FlagLockedMemory) != 0, locked);
      EXPECT_EQ(movable->Addr.Windows.pData != nullptr, locked);
      if (table != nullptr) continue;
      EXPECT_EQ(V_GetBitmapRow(movable, row, 3, 16), locked ? 16 : -2);
    }
  }
  EXPECT_EQ(host.accessed, 1);
  EXPECT_EQ(host.released, 1);
  ASSERT_EQ(V_SetBitmapDataCallbacks(movable, nullptr), 1);
  EXPECT_EQ(V_AccessBitmap(nullptr), -814);
  EXPECT_EQ(V_ReleaseBitmap(nullptr), -814);
  EXPECT_EQ(V_ReleaseBitmap(Bitmap()), -789);
}

TEST(Access, IntFormsReleaseOnlyWhatTheyLocked) {
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 4, 4, 8), 1);
  int32_t didLock = 7;
  EXPECT_EQ(V_IntAccessBitmap(bitmap, &didLock), 1);
  EXPECT_EQ(didLock, 1);
  for (const int32_t locked : {0, didLock}) {
    EXPECT_EQ(V_IntReleaseBitmap(bitmap, locked, -55), -55);
    EXPECT_EQ(bitmap->nLockCount, 1 - locked) << "also when the operation failed, and nothing that was not locked";
  }
  EXPECT_EQ(V_IntReleaseBitmap(nullptr, 1, 1), -814);

  HostStore host;
  BITMAPHANDLEDATACALLBACKS table = host.Table();
  table.FreeBitmapData = nullptr;
  ASSERT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), 1);
  host.refuseAt = 1;
  EXPECT_EQ(V_IntAccessBitmap(bitmap, &didLock), host.refusal);
  EXPECT_EQ(didLock, 0);
  EXPECT_EQ(bitmap->nLockCount, 0) << "a refused access is not counted";
  EXPECT_EQ(V_IntAccessBitmap(bitmap, nullptr), 1);
  host.refuseAt = host.calls + 1;
  EXPECT_EQ(V_IntReleaseBitmap(bitmap, 1, 1), host.refusal) << "the release's own result";
}

TEST(Access, UnbalancedUseIsTraced) {
  ScopedTrace trace;
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 4, 4, 8), 1);
  uint8_t row[4] = {};
  const BITMAPROWSEGMENT segment = {0, 4, row};
  for (const bool balanced : {false, true}) {
    EXPECT_EQ(balanced ? V_AccessBitmap(bitmap) : 1, 1);
    EXPECT_EQ(V_GetBitmapRow(bitmap, row, 0, 4), 4);
    EXPECT_EQ(V_PutBitmapRow(bitmap, row, 0, 4), 4);
    EXPECT_EQ(V_GetBitmapRowCol(bitmap, row, 0, 0, 4), 4);
    EXPECT_EQ(V_PutBitmapRowCol(bitmap, row, 0, 0, 4), 4);
    EXPECT_EQ(V_PutBitmapRowSegments(bitmap, &segment, 1, 0), 4);
    Lines want;
    for (const char* name :
         {"GetBitmapRow", "PutBitmapRow", "GetBitmapRowCol", "PutBitmapRowCol", "PutBitmapRowSegments"})
      want.push_back(std::string("V_") + name + "|pBitmap->nLockCount = 0\r\n");
    EXPECT_EQ(trace.Take(), balanced ? Lines{} : want);
  }
  for (int i = 0; i < 2; ++i) V_ReleaseBitmap(bitmap);
  V_AccessBitmap(bitmap);
  bitmap->nLockCount = 2;
  V_FreeBitmap(bitmap);
  EXPECT_EQ(trace.Take(),
            (Lines{"V_ReleaseBitmap|pBitmap->nLockCount = 0\n", "V_AccessBitmap|pBitmap->nLockCount = -1\n",
                   "V_FreeBitmap|pBitmap->nLockCount = 2\n"}));
}

TEST(Callbacks, TableIsCopiedReplacedAndRead) {
  BITMAPHANDLEDATACALLBACKS table = HostStore().Table(), out;
  Bitmap bitmap;
  for (const auto& [size, width, status] : {std::tuple(83u, 4, -789), {84u, 0, -11}, {84u, 4, 1}}) {
    table.uStructSize = size;
    ASSERT_EQ(V_InitBitmapWithCallbacks(bitmap, kCurrentLayout, width, 4, 8, &table), 1);
    EXPECT_EQ(bitmap->DataCallbacks != nullptr, status == 1) << "else it is ignored";
    EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), status);
  }
  EXPECT_EQ(V_GetBitmapDataCallbacks(bitmap, &out), 1);
  EXPECT_EQ(memcmp(&out, &table, sizeof(table)), 0);
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, nullptr), 1);
  EXPECT_EQ(Field(bitmap->DataCallbacks), nullptr);
  EXPECT_EQ(V_SetBitmapDataCallbacks(nullptr, &table), -13);
  EXPECT_EQ(V_GetBitmapDataCallbacks(nullptr, &out), -13);
  EXPECT_EQ(V_GetBitmapDataCallbacks(bitmap, nullptr), -814);
}

// --- duplicates ---

// Attributes of every kind at values that no default has.
void Decorate(BITMAPHANDLE* b) {
  b->ViewPerspective = V_ViewRightBottom;
  b->XResolution = 301, b->YResolution = 302, b->Left = -5, b->Top = 6, b->Delay = 70, b->DisposalMethod = 2;
  b->Background = 0x0100000A, b->Transparency = 0x00112233, b->DitherMethod = 3;
  b->LowBit = 1, b->HighBit = 6, b->PaintLowBit = 2, b->PaintHighBit = 5;
  b->PaintGamma = 220, b->PaintContrast = -9, b->PaintIntensity = 11;
  b->Flags |= V_FlagTransparency | V_FlagWaitUserInput | V_FlagSigned | V_FlagUseLUT;
  b->LUTLength = 16;
  b->pLUT = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, 16 * sizeof(RGBQUAD)));
  Random(3).Fill(b->pLUT, 16 * sizeof(RGBQUAD));
  if (b->uStructSize == kOlderLayout) return;
  b->LUTLength16 = 8;
  b->pLUT16 = V_ReallocBuffer(nullptr, 8 * 8);
  Random(4).Fill(b->pLUT16, 8 * 8);
}

TEST(Duplicate, CarriesAttributesAndAtTheSameDepthWhatBelongsToThePixels) {
  AccountBalance balance;
  for (const uint32_t from : kLayouts)
    for (const uint32_t to : kLayouts)
      for (const int32_t bits : {4, 24}) {
        SCOPED_TRACE(testing::Message() << from << " to " << to << ", depth " << bits);
        Bitmap source(from), copy(to), deeper(to);
        ASSERT_EQ(source.Create(V_MemoryConventional, 9, 5, bits, V_OrderRgb), 1);
        if (bits == 4) source->pPalette[3].rgbGreen = 0x5C;
        Decorate(source);
        const auto before = source.Snapshot();
        ASSERT_EQ(V_DupBitmapNewDim(copy, source, to, 9, 5, 0), 1);
        EXPECT_EQ(source.Snapshot(), before);
        const std::string unallocated = "\n Flags.Allocated\t1\t0\n Flags.ConventionalMemory\t1\t0";
        EXPECT_EQ(Differences(source, copy),
                  unallocated + (from != to && from == kCurrentLayout ? "\n LUTLength16\t8\t0" : ""));
        EXPECT_EQ(copy->DitherMethod, 3);
        EXPECT_NE(Field(copy->pLUT), Field(source->pLUT));
        ASSERT_EQ(V_DupBitmapNewDim(deeper, source, to, 3, 2, 16), 1);
        EXPECT_EQ(deeper->Flags, uint32_t{V_FlagTransparency | V_FlagWaitUserInput});
        EXPECT_EQ(deeper.DataSize(), 16u);
        EXPECT_EQ(deeper->Transparency, 0x00112233);
        EXPECT_EQ(deeper->HighBit, 15);
        EXPECT_TRUE(deeper->pPalette == nullptr && deeper->pLUT == nullptr);
        V_FreeBitmap(source);
        EXPECT_TRUE(source->pPalette == nullptr && source->pLUT == nullptr && !(source->Flags & V_FlagAllocated));
      }
  V_FreeBitmap(nullptr);
}

}  // namespace
}  // namespace vexatest
