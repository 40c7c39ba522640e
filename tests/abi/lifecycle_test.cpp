// The record from initialisation to freeing: what it holds, who may touch it, and how accesses nest.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/bitmap.h"
#include "support/random.h"
#include "support/settings.h"
#include "support/storage.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

using Lines = std::vector<std::string>;

int32_t HighBitOf(int32_t bits) {
  if (bits == 24) return 7;
  if (bits == 32) return -1;
  return bits > 16 ? 15 : bits - 1;
}

// Everything but the size field is zero.
bool IsEmptyRecord(const std::vector<uint8_t>& record) {
  return std::all_of(record.begin() + 4, record.end(), [](uint8_t byte) { return byte == 0; });
}

class RecordLayouts : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(All, RecordLayouts, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return "Size" + std::to_string(layout.param); });

TEST_P(RecordLayouts, InitialisedRecordHasTheDefaultsOfItsDepth) {
  V_SetDefaultResolution(0, 96);
  for (const int32_t bits : kDepths) {
    SCOPED_TRACE(bits);
    Bitmap bitmap(GetParam());
    ASSERT_EQ(bitmap.Init(1, 3, bits), 1);
    EXPECT_EQ(bitmap->uStructSize, GetParam());
    EXPECT_EQ(bitmap->Width, 1);
    EXPECT_EQ(bitmap->Height, 3);
    EXPECT_EQ(bitmap->BitsPerPixel, bits);
    EXPECT_EQ(bitmap->BytesPerLine, bits == 64 || bits == 48 ? 8u : 4u);
    EXPECT_EQ(bitmap.DataSize(), bitmap->BytesPerLine * 3u);
    EXPECT_EQ(bitmap->Size32, bitmap->BytesPerLine * 3u);
    EXPECT_EQ(bitmap->Flags, 0u);
    EXPECT_EQ(bitmap->nColors, bits <= 8 ? 1 << bits : 0);
    EXPECT_EQ(Field(bitmap->pPalette), nullptr);
    EXPECT_EQ(bitmap->ViewPerspective, V_ViewBottomLeft);
    EXPECT_EQ(bitmap->Order, bits <= 8 ? V_OrderRgb : bits == 12 ? V_OrderGray : V_OrderBgr);
    EXPECT_EQ(bitmap->XResolution, 150) << "a default below 1 stands for 150";
    EXPECT_EQ(bitmap->YResolution, 96);
    EXPECT_EQ(bitmap->LowBit, 0);
    EXPECT_EQ(bitmap->HighBit, HighBitOf(bits));
    EXPECT_EQ(bitmap->PaintLowBit, 0);
    EXPECT_EQ(bitmap->PaintHighBit, HighBitOf(bits));
    EXPECT_EQ(bitmap->PaintGamma, 100);
  }
  V_SetDefaultResolution(0, 0);
}

TEST_P(RecordLayouts, InitialisationRefusesWhatNoBitmapCanBe) {
  struct Case {
    int32_t width, height, bits, status;
  };
  const Case cases[] = {{0, 0, 0, 1},    {5, 5, 10, -27},   {5, 5, 0, -27},        {5, 5, -1, -27}, {5, 5, 9, -27},
                        {5, 5, 65, -27}, {0, 0, 13, -27},   {-1, 5, 8, -11},       {-1, 0, 8, -11}, {0, -1, 8, -11},
                        {5, -1, 8, -11}, {-1, -1, 10, -11}, {INT32_MIN, 1, 1, -11}};
  for (const Case& c : cases) {
    Bitmap bitmap(GetParam());
    EXPECT_EQ(bitmap.Init(c.width, c.height, c.bits), c.status) << c.width << " x " << c.height << " x " << c.bits;
    EXPECT_EQ(bitmap->uStructSize, GetParam());
    EXPECT_TRUE(IsEmptyRecord(bitmap.Snapshot())) << c.width << " x " << c.height << " x " << c.bits;
  }
  EXPECT_EQ(V_InitBitmap(nullptr, GetParam(), 1, 1, 1), -13);
  Bitmap bitmap(GetParam());
  const auto before = bitmap.Snapshot();
  for (const uint32_t size : {0u, 227u, 229u, 252u, 283u, 285u}) {
    EXPECT_EQ(V_InitBitmap(bitmap, size, 1, 1, 1), -789) << size;
    EXPECT_EQ(bitmap.Snapshot(), before) << size;
  }
}

// The row length has 32 bits and wraps: such a record is filled as defined and refused when it asks for storage.
TEST_P(RecordLayouts, RowLengthThatDoesNotFit32BitsIsRefusedAtAllocation) {
  struct Case {
    int32_t width, bits;
  };
  for (const Case& c : {Case{0x7FFFFFFF, 2}, Case{0x7FFFFFFF, 24}, Case{0x10000001, 16}, Case{0x20000004, 8},
                        Case{0x7FFFFFFF, 64}, Case{0x15555556, 12}}) {
    SCOPED_TRACE(testing::Message() << c.width << " pixels of " << c.bits << " bits");
    Bitmap bitmap(GetParam());
    ASSERT_EQ(bitmap.Init(c.width, 1, c.bits), 1);
    EXPECT_EQ(bitmap->BytesPerLine, RowBytes(c.width, c.bits));
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), -11);
    EXPECT_EQ(bitmap.StorageFlags(), 0u);
  }
  Bitmap longest(GetParam());
  ASSERT_EQ(longest.Init(0x7FFFFFFF, 1, 1), 1);
  EXPECT_EQ(longest->BytesPerLine, 0x10000000u) << "a row of 2^31 - 1 pixels at 1 bit is not too long";
}

TEST(OlderLayout, HoldsSizesUpToItsLimit) {
  struct Case {
    int32_t height;
    bool fits;
  };
  for (const Case& c : {Case{0xFFFF, true}, Case{0x10000, false}, Case{0x7FFFFFFF, false}}) {
    Bitmap older(kOlderLayout);
    EXPECT_EQ(older.Init(0x10000, c.height, 8), c.fits ? 1 : -3) << c.height;
    if (c.fits)
      EXPECT_EQ(older->Size32, 0xFFFF0000u);
    else
      EXPECT_TRUE(IsEmptyRecord(older.Snapshot()));
    Bitmap current;
    ASSERT_EQ(current.Init(0x10000, c.height, 8), 1);
    const uint64_t size = uint64_t{0x10000} * static_cast<uint64_t>(c.height);
    EXPECT_EQ(Field(current->Size64), size);
    EXPECT_EQ(current->Size32, static_cast<uint32_t>(size));
  }
}

// --- creation ---------------------------------------------------------------------------------------------------

// Order and palette by depth argument, order argument and palette argument.
TEST_P(RecordLayouts, CreatedBitmapGetsOrderAndPaletteByItsArguments) {
  AccountBalance balance;
  RGBQUAD given[256];
  Random random(7);
  random.Fill(given, sizeof(given));
  for (const int32_t bits : {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64})
    for (const int32_t order : {V_OrderRgb, V_OrderBgr, V_OrderGray, V_OrderRomm, V_OrderRgb565})
      for (const bool withPalette : {false, true}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, order " << order << ", palette " << withPalette);
        Bitmap bitmap(GetParam());
        const int32_t status = V_CreateBitmap(bitmap, GetParam(), V_MemoryConventional, 5, 4, bits, order,
                                              withPalette ? given : nullptr, 0, nullptr, 0);
        if (order == V_OrderRomm && bits != 24 && bits != 48) {
          EXPECT_EQ(status, -27);
          EXPECT_EQ(bitmap.StorageFlags(), 0u);
          continue;
        }
        ASSERT_EQ(status, 1);
        EXPECT_EQ(bitmap->ViewPerspective, V_ViewTopLeft) << "0 means top left";
        const int32_t depth = bits == 0 ? 8 : bits;
        EXPECT_EQ(bitmap->BitsPerPixel, depth);
        EXPECT_EQ(bitmap->Order, depth <= 8 ? V_OrderRgb : order);
        if (depth > 8) {
          EXPECT_EQ(Field(bitmap->pPalette), nullptr);
          EXPECT_EQ(bitmap->nColors, 0);
          continue;
        }
        const bool gray = bits == 0 || (order == V_OrderGray && !withPalette);
        RGBQUAD* made = gray ? V_CreateGrayPalette(static_cast<uint32_t>(depth))
                             : V_CreateFixedPalette(static_cast<uint32_t>(depth));
        const RGBQUAD* want = !gray && withPalette ? given : made;
        ASSERT_EQ(bitmap->nColors, 1 << depth);
        ASSERT_NE(Field(bitmap->pPalette), nullptr);
        EXPECT_NE(Field(bitmap->pPalette), given) << "the palette is copied";
        EXPECT_EQ(memcmp(bitmap->pPalette, want, sizeof(RGBQUAD) << depth), 0);
        V_FreeBuffer(made);
      }
}

TEST_P(RecordLayouts, RefusedCreationLeavesNothingAllocated) {
  AccountBalance balance;
  struct Case {
    uint32_t memory;
    int32_t width, height, bits, order, perspective, status;
  };
  const Case cases[] = {
      {1, 5, 4, 8, V_OrderRomm, 1, -27}, {1, 5, 4, 64, V_OrderRomm, 1, -27}, {1, 5, 4, 10, 0, 1, -27},
      {1, 5, 4, 8, 0, 9, -13},           {1, 5, 4, 8, 0, -1, -13},           {3, 5, 4, 8, 0, 1, -13},
      {0, 5, 4, 8, 0, 1, -13},           {1, -5, 4, 8, 0, 1, -11},           {1, 0, 0, 8, 0, 1, -11},
      {1, 0, 0, 0, 0, 1, -11},           {512, 5, 4, 8, 0, 1, -13},          {1024, 5, 4, 16, 0, 1, -13},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.memory << ", " << c.width << " x " << c.height << " x " << c.bits << ", order "
                                    << c.order << ", perspective " << c.perspective);
    Bitmap bitmap(GetParam());
    EXPECT_EQ(bitmap.Create(c.memory, c.width, c.height, c.bits, c.order, c.perspective), c.status);
    EXPECT_EQ(bitmap.StorageFlags(), 0u);
  }
  EXPECT_EQ(V_CreateBitmap(nullptr, GetParam(), 1, 1, 1, 1, 0, nullptr, 1, nullptr, 0), -13);
  Bitmap bitmap(GetParam());
  EXPECT_EQ(V_CreateBitmap(bitmap, 100, 1, 1, 1, 1, 0, nullptr, 1, nullptr, 0), -789);
}

TEST(OlderLayout, TakesNoCallbacks) {
  HostStore host;
  const BITMAPHANDLEDATACALLBACKS table = host.Table();
  Bitmap bitmap(kOlderLayout);
  EXPECT_EQ(V_InitBitmapWithCallbacks(bitmap, kOlderLayout, 5, 4, 8, &table), -789);
  EXPECT_EQ(V_CreateBitmapWithCallbacks(bitmap, kOlderLayout, 1, 5, 4, 8, 0, nullptr, 1, nullptr, 0, &table), -789);
  ASSERT_EQ(bitmap.Create(1, 5, 4, 8), 1);
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), -789);
  BITMAPHANDLEDATACALLBACKS out;
  memset(&out, 0xEE, sizeof(out));
  EXPECT_EQ(V_GetBitmapDataCallbacks(bitmap, &out), 1);
  EXPECT_EQ(Field(out.GetBitmapRowCol), nullptr);
  EXPECT_EQ(Field(out.pUserData), nullptr);
  EXPECT_EQ(host.calls, 0);
}

// --- user data --------------------------------------------------------------------------------------------------

TEST_P(RecordLayouts, UserDataStaysTheCallers) {
  AccountBalance balance;
  GuardedBytes data(8 * 4, 0x11), other(8 * 4, 0x22);
  uint8_t row[8] = {};
  {
    Bitmap bitmap(GetParam());
    ASSERT_EQ(V_CreateBitmap(bitmap, GetParam(), V_MemoryUser, 8, 4, 8, 0, nullptr, 1, data.data(), data.size()), 1);
    EXPECT_EQ(bitmap.StorageFlags(), kInMemory | V_FlagMirror);
    EXPECT_EQ(balance.Taken(), 0u) << "user data is not accounted";
    Access access(bitmap);
    EXPECT_EQ(V_GetBitmapRow(bitmap, row, 3, 8), 8);
    EXPECT_EQ(row[7], 0x11);
    EXPECT_EQ(V_SetBitmapDataPointer(bitmap, other.data(), 0), 1) << "on a user bitmap the pointer is just stored";
    EXPECT_EQ(V_GetBitmapRow(bitmap, row, 0, 8), 8);
    EXPECT_EQ(row[0], 0x22);
    EXPECT_EQ(V_SetBitmapDataPointer(bitmap, nullptr, 0), 1);
    EXPECT_EQ(V_GetBitmapRow(bitmap, row, 0, 8), -2) << "no data address";
    EXPECT_EQ(V_SetBitmapDataPointer(bitmap, data.data(), data.size()), 1);
    memset(row, 0x33, sizeof(row));
    EXPECT_EQ(V_PutBitmapRow(bitmap, row, 1, 8), 8);
  }
  EXPECT_EQ(data.data()[7], 0x11);
  EXPECT_EQ(data.data()[8], 0x33);
  EXPECT_TRUE(data.GuardsIntact());
  EXPECT_TRUE(other.Holds(0x22));
}

TEST_P(RecordLayouts, DataPointerOfAnotherRecordNeedsTheDataSize) {
  AccountBalance balance;
  uint8_t data[32] = {};
  EXPECT_EQ(V_SetBitmapDataPointer(nullptr, data, sizeof(data)), -2);
  Bitmap bitmap(GetParam());
  EXPECT_EQ(V_SetBitmapDataPointer(bitmap, data, sizeof(data)), -789);
  ASSERT_EQ(bitmap.Init(8, 4, 8), 1);
  for (const uint64_t wrong : {uint64_t{0}, uint64_t{31}, uint64_t{33}, uint64_t{32} + (uint64_t{1} << 32)}) {
    const auto before = bitmap.Snapshot();
    EXPECT_EQ(V_SetBitmapDataPointer(bitmap, data, wrong), -13) << wrong;
    EXPECT_EQ(bitmap.Snapshot(), before);
  }
  EXPECT_EQ(V_SetBitmapDataPointer(bitmap, data, sizeof(data)), 1);
}

// --- access -----------------------------------------------------------------------------------------------------

TEST(Access, NestsAndWorksOnlyAtTheOutermostLevel) {
  Bitmap bitmap;
  StoredBitmap movable(kMovableKind, kCurrentLayout, 16, 4, 8);
  ASSERT_EQ(movable.Status(), 1);
  uint8_t row[16] = {};
  const auto locked = [&] { return (movable->Flags & V_FlagLockedMemory) != 0; };
  EXPECT_EQ(V_GetBitmapRow(movable, row, 0, 16), -2) << "not accessed: no address";
  EXPECT_EQ(V_PutBitmapRow(movable, row, 0, 16), -2);
  EXPECT_EQ(V_AccessBitmap(movable), 1);
  EXPECT_EQ(V_AccessBitmap(movable), 1);
  EXPECT_EQ(movable->nLockCount, 2);
  EXPECT_EQ(V_ReleaseBitmap(movable), 1);
  EXPECT_TRUE(locked()) << "two accesses and one release leave the data locked";
  EXPECT_EQ(V_GetBitmapRow(movable, row, 3, 16), 16);
  EXPECT_EQ(V_ReleaseBitmap(movable), 1);
  EXPECT_FALSE(locked());
  EXPECT_EQ(Field(movable->Addr.Windows.pData), nullptr);
  EXPECT_EQ(movable->nLockCount, 0);
  EXPECT_EQ(V_GetBitmapRow(movable, row, 0, 16), -2);

  EXPECT_EQ(V_AccessBitmap(nullptr), -814);
  EXPECT_EQ(V_ReleaseBitmap(nullptr), -814);
  EXPECT_EQ(V_ReleaseBitmap(bitmap), -789);
}

TEST(Access, IntFormsReleaseOnlyWhatTheyLocked) {
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 4, 4, 8), 1);
  int32_t didLock = 7;
  EXPECT_EQ(V_IntAccessBitmap(bitmap, &didLock), 1);
  EXPECT_EQ(didLock, 1);
  EXPECT_EQ(V_IntReleaseBitmap(bitmap, 0, -55), -55);
  EXPECT_EQ(bitmap->nLockCount, 1) << "nothing was locked, nothing is released";
  EXPECT_EQ(V_IntReleaseBitmap(bitmap, didLock, -55), -55);
  EXPECT_EQ(bitmap->nLockCount, 0) << "the release happens also when the operation failed";
  EXPECT_EQ(V_IntAccessBitmap(bitmap, nullptr), 1);
  EXPECT_EQ(V_IntReleaseBitmap(bitmap, 1, 1), 1);
  EXPECT_EQ(V_IntReleaseBitmap(nullptr, 1, 1), -814);

  HostStore host;
  host.refuseAt = 1;
  BITMAPHANDLEDATACALLBACKS table = host.Table();
  table.ReleaseBitmap = nullptr;
  ASSERT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), 1);
  EXPECT_EQ(V_IntAccessBitmap(bitmap, &didLock), host.refusal);
  EXPECT_EQ(didLock, 0);
  EXPECT_EQ(bitmap->nLockCount, 0) << "a refused access is not counted";
  table.AccessBitmap = nullptr;
  table.ReleaseBitmap = host.Table().ReleaseBitmap;
  table.FreeBitmapData = nullptr;
  ASSERT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), 1);
  EXPECT_EQ(V_AccessBitmap(bitmap), 1);
  host.refuseAt = host.calls + 1;
  EXPECT_EQ(V_IntReleaseBitmap(bitmap, 1, 1), host.refusal) << "the release's own result";
}

TEST(Access, CallbacksSeeTheOutermostLevelAndMayHandleIt) {
  HostStore host;
  BITMAPHANDLEDATACALLBACKS table = host.Table();
  StoredBitmap movable(kMovableKind, kCurrentLayout, 16, 4, 8);
  ASSERT_EQ(V_SetBitmapDataCallbacks(movable, &table), 1);
  EXPECT_EQ(V_AccessBitmap(movable), 1);
  EXPECT_EQ(V_AccessBitmap(movable), 1);
  EXPECT_EQ(host.accessed, 1);
  EXPECT_EQ(movable->Flags & V_FlagLockedMemory, 0u) << "the callback handled the access";
  EXPECT_EQ(V_ReleaseBitmap(movable), 1);
  EXPECT_EQ(host.released, 0);
  EXPECT_EQ(V_ReleaseBitmap(movable), 1);
  EXPECT_EQ(host.released, 1);
  // A result of 1 leaves the work to the engine.
  table.AccessBitmap = table.ReleaseBitmap = [](BITMAPHANDLE*, void*) -> int32_t { return 1; };
  ASSERT_EQ(V_SetBitmapDataCallbacks(movable, &table), 1);
  EXPECT_EQ(V_AccessBitmap(movable), 1);
  EXPECT_NE(movable->Flags & V_FlagLockedMemory, 0u);
  EXPECT_EQ(V_ReleaseBitmap(movable), 1);
  EXPECT_EQ(movable->Flags & V_FlagLockedMemory, 0u);
  EXPECT_EQ(V_SetBitmapDataCallbacks(movable, nullptr), 1);
}

TEST(Access, UnbalancedUseIsTraced) {
  ScopedTrace trace;
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 4, 4, 8), 1);
  uint8_t row[4] = {};
  const BITMAPROWSEGMENT segment = {0, 4, row};
  EXPECT_EQ(V_GetBitmapRow(bitmap, row, 0, 4), 4);
  EXPECT_EQ(V_PutBitmapRow(bitmap, row, 0, 4), 4);
  EXPECT_EQ(V_GetBitmapRowCol(bitmap, row, 0, 0, 4), 4);
  EXPECT_EQ(V_PutBitmapRowCol(bitmap, row, 0, 0, 4), 4);
  EXPECT_EQ(V_PutBitmapRowSegments(bitmap, &segment, 1, 0), 4);
  EXPECT_EQ(trace.Take(),
            (Lines{"V_GetBitmapRow|pBitmap->nLockCount = 0\r\n", "V_PutBitmapRow|pBitmap->nLockCount = 0\r\n",
                   "V_GetBitmapRowCol|pBitmap->nLockCount = 0\r\n", "V_PutBitmapRowCol|pBitmap->nLockCount = 0\r\n",
                   "V_PutBitmapRowSegments|pBitmap->nLockCount = 0\r\n"}));
  {
    Access access(bitmap);
    EXPECT_EQ(V_GetBitmapRow(bitmap, row, 0, 4), 4);
    EXPECT_EQ(V_PutBitmapRowSegments(bitmap, &segment, 1, 0), 4);
  }
  EXPECT_EQ(trace.Take(), Lines{}) << "balanced use is silent";
  V_ReleaseBitmap(bitmap);
  EXPECT_EQ(trace.Take(), Lines{"V_ReleaseBitmap|pBitmap->nLockCount = 0\n"});
  bitmap->nLockCount = -1;
  V_AccessBitmap(bitmap);
  EXPECT_EQ(trace.Take(), Lines{"V_AccessBitmap|pBitmap->nLockCount = -1\n"});
  bitmap->nLockCount = 2;
  V_FreeBitmap(bitmap);
  EXPECT_EQ(trace.Take(), Lines{"V_FreeBitmap|pBitmap->nLockCount = 2\n"});
}

// --- callbacks ----------------------------------------------------------------------------------------------------

TEST(Callbacks, TableIsCopiedReplacedAndRead) {
  HostStore host;
  BITMAPHANDLEDATACALLBACKS table = host.Table(), out;
  Bitmap bitmap;
  table.uStructSize = 83;
  ASSERT_EQ(V_InitBitmapWithCallbacks(bitmap, kCurrentLayout, 4, 4, 8, &table), 1);
  EXPECT_EQ(Field(bitmap->DataCallbacks), nullptr) << "a table of another size is ignored";
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), -789);
  table.uStructSize = 84;
  ASSERT_EQ(V_InitBitmapWithCallbacks(bitmap, kCurrentLayout, 0, 4, 8, &table), 1);
  EXPECT_EQ(Field(bitmap->DataCallbacks), nullptr) << "nor is one copied for a bitmap without data";
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), -11);
  ASSERT_EQ(V_InitBitmapWithCallbacks(bitmap, kCurrentLayout, 4, 4, 8, &table), 1);
  ASSERT_NE(Field(bitmap->DataCallbacks), nullptr);
  EXPECT_NE(Field(bitmap->DataCallbacks), &table);
  EXPECT_EQ(V_GetBitmapDataCallbacks(bitmap, &out), 1);
  EXPECT_EQ(memcmp(&out, &table, sizeof(table)), 0);
  table.FreeBitmapData = nullptr;
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, &table), 1);
  EXPECT_EQ(V_GetBitmapDataCallbacks(bitmap, &out), 1);
  EXPECT_EQ(Field(out.FreeBitmapData), nullptr);
  EXPECT_EQ(V_SetBitmapDataCallbacks(bitmap, nullptr), 1);
  EXPECT_EQ(Field(bitmap->DataCallbacks), nullptr);
  EXPECT_EQ(V_SetBitmapDataCallbacks(nullptr, &table), -13);
  EXPECT_EQ(V_GetBitmapDataCallbacks(nullptr, &out), -13);
  EXPECT_EQ(V_GetBitmapDataCallbacks(bitmap, nullptr), -814);
}

// --- duplicates -----------------------------------------------------------------------------------------------------

// Attributes of every kind at values that no default has.
void Decorate(Bitmap& bitmap, bool currentLayout) {
  bitmap->ViewPerspective = V_ViewRightBottom;
  bitmap->XResolution = 301;
  bitmap->YResolution = 302;
  bitmap->DitherMethod = 3;
  bitmap->Left = -5;
  bitmap->Top = 6;
  bitmap->Delay = 70;
  bitmap->Background = 0x0100000A;
  bitmap->Transparency = 0x00112233;
  bitmap->DisposalMethod = 2;
  bitmap->LowBit = 1;
  bitmap->HighBit = 6;
  bitmap->PaintLowBit = 2;
  bitmap->PaintHighBit = 5;
  bitmap->PaintGamma = 220;
  bitmap->PaintContrast = -9;
  bitmap->PaintIntensity = 11;
  bitmap->Flags |= V_FlagTransparency | V_FlagWaitUserInput | V_FlagSigned;
  bitmap->LUTLength = 16;
  bitmap->pLUT = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, 16 * sizeof(RGBQUAD)));
  Random(3).Fill(bitmap->pLUT, 16 * sizeof(RGBQUAD));
  if (currentLayout) {
    bitmap->LUTLength16 = 8;
    bitmap->pLUT16 = V_ReallocBuffer(nullptr, 8 * 8);
    Random(4).Fill(bitmap->pLUT16, 8 * 8);
  }
}

TEST(Duplicate, CarriesAttributesAndAtTheSameDepthWhatBelongsToThePixels) {
  AccountBalance balance;
  for (const uint32_t from : kLayouts)
    for (const uint32_t to : kLayouts)
      for (const int32_t bits : {0, 16, 24}) {
        SCOPED_TRACE(testing::Message() << from << " to " << to << ", depth " << bits);
        Bitmap source(from), copy(to);
        const bool deep = bits == 24;
        ASSERT_EQ(source.Create(V_MemoryConventional, 9, 5, deep ? 24 : 4, V_OrderRgb), 1);
        if (!deep) source->pPalette[3].rgbGreen = 0x5C;
        Decorate(source, from == kCurrentLayout);
        const auto before = source.Snapshot();
        ASSERT_EQ(V_DupBitmapNewDim(copy, source, to, 3, 2, bits), 1);
        EXPECT_EQ(source.Snapshot(), before);
        EXPECT_EQ(copy.StorageFlags(), 0u) << "it is not allocated";
        EXPECT_EQ(copy->Width, 3);
        EXPECT_EQ(copy->Height, 2);
        EXPECT_EQ(copy.DataSize(), copy->BytesPerLine * 2u);
        EXPECT_EQ(copy->ViewPerspective, V_ViewRightBottom);
        EXPECT_EQ(copy->XResolution, 301);
        EXPECT_EQ(copy->YResolution, 302);
        EXPECT_EQ(copy->DitherMethod, 3);
        EXPECT_EQ(copy->Left, -5);
        EXPECT_EQ(copy->Top, 6);
        EXPECT_EQ(copy->Delay, 70);
        EXPECT_EQ(copy->Background, 0x0100000A);
        EXPECT_EQ(copy->Transparency, 0x00112233);
        EXPECT_EQ(copy->DisposalMethod, 2);
        EXPECT_EQ(copy->PaintGamma, 220);
        EXPECT_EQ(copy->PaintContrast, -9);
        EXPECT_EQ(copy->PaintIntensity, 11);
        EXPECT_EQ(copy->Flags & (V_FlagTransparency | V_FlagWaitUserInput), V_FlagTransparency | V_FlagWaitUserInput);
        if (bits == 16) {
          EXPECT_EQ(copy->BitsPerPixel, 16);
          EXPECT_EQ(Field(copy->pPalette), nullptr);
          EXPECT_EQ(Field(copy->pLUT), nullptr);
          EXPECT_EQ(copy->HighBit, 15);
          continue;
        }
        EXPECT_EQ(copy->BitsPerPixel, source->BitsPerPixel);
        EXPECT_EQ(copy->Order, source->Order);
        EXPECT_EQ(copy->LowBit, 1);
        EXPECT_EQ(copy->HighBit, 6);
        EXPECT_NE(copy->Flags & V_FlagSigned, 0u);
        EXPECT_EQ(copy->nColors, source->nColors);
        if (!deep) {
          ASSERT_NE(Field(copy->pPalette), nullptr);
          EXPECT_NE(Field(copy->pPalette), Field(source->pPalette));
          EXPECT_EQ(copy->pPalette[3].rgbGreen, 0x5C);
        }
        ASSERT_EQ(copy->LUTLength, 16u);
        EXPECT_NE(Field(copy->pLUT), Field(source->pLUT));
        EXPECT_EQ(memcmp(copy->pLUT, source->pLUT, 16 * sizeof(RGBQUAD)), 0);
        if (from == kCurrentLayout && to == kCurrentLayout) {
          ASSERT_EQ(copy->LUTLength16, 8u);
          EXPECT_NE(Field(copy->pLUT16), Field(source->pLUT16));
          EXPECT_EQ(memcmp(copy->pLUT16, source->pLUT16, 8 * 8), 0);
        }
        EXPECT_EQ(V_AllocateBitmap(copy, V_MemoryConventional), 1);
      }
}

TEST_P(RecordLayouts, FreedRecordOwnsNothingAndCanBeFreedAgain) {
  AccountBalance balance;
  V_FreeBitmap(nullptr);
  Bitmap bitmap(GetParam());
  const auto garbage = bitmap.Snapshot();
  V_FreeBitmap(bitmap);
  EXPECT_EQ(bitmap.Snapshot(), garbage) << "a record with a bad size is left alone";
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, 9, 5, 8), 1);
  Decorate(bitmap, GetParam() == kCurrentLayout);
  for (int i = 0; i < 2; ++i) {
    V_FreeBitmap(bitmap);
    EXPECT_EQ(bitmap->Flags & V_FlagAllocated, 0u);
    EXPECT_EQ(Field(bitmap->pPalette), nullptr);
    EXPECT_EQ(Field(bitmap->pLUT), nullptr);
    EXPECT_EQ(balance.Taken(), 0u);
  }
  EXPECT_EQ(bitmap.Create(V_MemoryConventional, 9, 5, 8), 1);
}

}  // namespace
}  // namespace vexatest
