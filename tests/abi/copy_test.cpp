// Copies between all kinds of storage: rows, whole bitmaps, rectangles, overlays, and a bitmap's move into other storage.
#include "support/testing.h"

namespace vexatest {
namespace {

constexpr int32_t kWidth = 43, kHeight = 13;

// A bitmap of random pixels.
struct Source : StoredBitmap {
  Source(const StorageKind& kind, uint32_t layout, int32_t bits, uint64_t seed = 1)
      : StoredBitmap(kind, layout, kWidth, kHeight, bits) {
    pixels = Random(seed).Bytes(size_t{Record()->BytesPerLine} * kHeight);
    if (bits == 1) ZeroPadding(pixels, kWidth, Record()->BytesPerLine);
    WritePixels(*this, pixels);
  }
  std::vector<uint8_t> pixels;
};

// Padding bits are nobody's pixels, and not every storage keeps them.
void ExpectSamePixels(BITMAPHANDLE* got, BITMAPHANDLE* want, int32_t left, int32_t top) {
  const std::vector<uint8_t> a = ReadPixels(got), b = ReadPixels(want);
  for (int32_t row = 0; row < got->Height; ++row)
    for (int32_t column = 0; column < got->Width; ++column)
      ASSERT_EQ(PixelAt(a.data() + size_t{got->BytesPerLine} * static_cast<size_t>(row), column, got->BitsPerPixel),
                PixelAt(b.data() + size_t{want->BytesPerLine} * static_cast<size_t>(top + row), left + column,
                        want->BitsPerPixel))
          << "row " << row << ", column " << column;
}

TEST(Copy, RectanglesHoldTheirPixelsAndNothingElse) {
  AccountBalance balance;
  for (const StorageKind& kind : kStorageKinds)
    for (const int32_t bits : kDepths) {
      if (!kind.Holds(bits)) continue;
      Random random(static_cast<uint64_t>(bits));
      Source source(kind, kCurrentLayout, bits);
      for (int round = 0; round < 6; ++round) {
        const int32_t left = random.Between(-9, kWidth - 1), top = random.Between(-5, kHeight - 1);
        const int32_t width = random.Between(1 + std::max(0, -left), kWidth + 9);
        const int32_t height = random.Between(1 + std::max(0, -top), kHeight + 9);
        SCOPED_TRACE(testing::Message() << kind.name << ", " << bits << " bits, " << left << "," << top << " " << width
                                        << "x" << height);
        Bitmap copy(random.Coin() ? kCurrentLayout : kOlderLayout);
        const uint32_t memory = bits == 1 && random.Coin() ? V_MemoryCompressed : V_MemoryConventional;
        ASSERT_EQ(V_CopyBitmapRect2(copy, source, copy.StructSize(), left, top, width, height, memory), 1);
        const int32_t x = std::max(left, 0), y = std::max(top, 0);
        ASSERT_EQ(copy->Width, std::min(left + width, kWidth) - x);
        ASSERT_EQ(copy->Height, std::min(top + height, kHeight) - y);
        ExpectSamePixels(copy, source, x, y);
        const std::vector<uint8_t> rows = ReadPixels(copy);
        for (size_t bit = static_cast<size_t>(copy->Width * bits); bits != 12 && bit < 8 * copy->BytesPerLine; ++bit)
          ASSERT_EQ(rows[bit / 8] & (0x80u >> bit % 8), 0u) << "padding bit " << bit;
      }
      EXPECT_EQ(ReadPixels(source), source.pixels);
    }
}

// What a move into other storage was asked for is what is reported afterwards, and no other.
TEST(Move, GivesTheStorageThatWasAskedFor) {
  for (const uint32_t memory : {1u, 4u, 128u, 512u, 1024u, 9u, 265u}) {
    SCOPED_TRACE(memory);
    Source source(kConventionalKind, kCurrentLayout, memory == V_MemoryCompressed ? 1 : 8);
    ASSERT_EQ(V_SetBitmapMemoryInfo(source, memory, 24, 2, 0, 7), 1);
    uint32_t type = 0;
    int64_t tileSize = 0;
    int32_t inMemory = 0;
    ASSERT_EQ(V_GetBitmapMemoryInfo(source, &type, &tileSize, nullptr, &inMemory, nullptr), 1);
    EXPECT_EQ(type, memory == 9 || memory == 265 ? 1u : memory);
    EXPECT_EQ(std::pair(tileSize, inMemory),
              type == V_MemoryTiled ? std::pair(int64_t{24}, 2) : std::pair(int64_t{0}, 0));
    const auto record = source.Record().Snapshot();
    EXPECT_EQ(V_SetBitmapMemoryInfo(source, type, 24, 2, 0, 7), 1) << "nothing changes";
    EXPECT_EQ(V_SetBitmapMemoryInfo(source, 99, 0, 0, 0, 1), -13);
    EXPECT_EQ(V_SetBitmapMemoryInfo(source, V_MemoryUser, 0, 0, 0, 1), -13);
    EXPECT_EQ(V_SetBitmapMemoryInfo(source, 0, 0, -101, 0, V_MemorySettingConventionalTiles), -13);
    EXPECT_EQ(source.Record().Snapshot(), record);
  }
}

// Slots hold copies of bitmaps of either layout, which stay when there is new storage and go along with copies.
TEST(Overlays, AreDeepCopiesThatGoAlong) {
  for (const uint32_t layout : kLayouts) {
    AccountBalance balance;
    Bitmap bitmap(layout), copy, part;
    ASSERT_EQ(bitmap.Create(V_MemoryConventional, kWidth, kHeight, 16, V_OrderBgr, V_ViewRightTop), 1);
    for (const int32_t slot : {15, 0}) {
      Source source(kConventionalKind, slot == 0 ? kCurrentLayout : kOlderLayout, 8, static_cast<uint64_t>(slot));
      source->pPalette[2].rgbRed = static_cast<uint8_t>(slot);
      const BITMAPOVERLAY overlay = {sizeof overlay, slot, 20, 2, source};
      ASSERT_EQ(V_SetBitmapOverlay(bitmap, slot, &overlay), 1);
    }
    EXPECT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
    ASSERT_EQ(V_CopyBitmap(copy, bitmap, kCurrentLayout), 1);
    EXPECT_EQ(Differences(copy, bitmap), "");
    ASSERT_EQ(V_CopyBitmapRect(part, bitmap, kCurrentLayout, 5, 4, 20, 6), 1);
    BITMAPOVERLAY got = {};
    for (const int32_t slot : {0, 15}) {
      ASSERT_EQ(V_GetBitmapOverlay(part, slot, &got), 1);
      EXPECT_EQ(std::pair(got.x, got.y), std::pair(slot - 3, 15)) << "as displayed, from the right";
      ASSERT_EQ(V_GetBitmapOverlay(copy, slot, &got), 1);
      EXPECT_TRUE(got.uStructSize == 24 && got.x == slot && got.y == 20 && got.uFlags == 2) << slot;
      EXPECT_EQ(got.pBitmap->pPalette[2].rgbRed, slot);
      EXPECT_EQ(ReadPixels(got.pBitmap), Source(kConventionalKind, layout, 8, static_cast<uint64_t>(slot)).pixels);
    }
    EXPECT_EQ(V_FreeBitmapOverlay(bitmap, 0), 1);
    for (const auto& [slot, status] : {std::pair(-1, -13), {0, -2}, {15, 1}, {16, -13}})
      EXPECT_EQ(V_GetBitmapOverlay(bitmap, slot, &got), status) << slot;
  }
}

// Percentages of any height are those of 100 / height a row with the remainder carried; a refusal ends the copy there and is
// passed on.
TEST(Copy, ReportsWhenThePercentageChanges) {
  struct Report {
    std::vector<int32_t> told;
    size_t refuseAt;
  };
  const auto tell = [](int32_t percent, void* userData) {
    auto& report = *static_cast<Report*>(userData);
    report.told.push_back(percent);
    return report.told.size() == report.refuseAt ? -100 : 1;
  };
  for (const int32_t height : {1, 5, 7, 99, 100, 101, 333, 1250})
    for (const uint32_t memory : {1u, 128u}) {
      SCOPED_TRACE(testing::Message() << height << " rows in " << memory);
      std::vector<int32_t> expected = {0}, rowOf = {0};
      for (int32_t row = 1; row <= height; ++row)
        if (row * 100 / height != expected.back()) expected.push_back(row * 100 / height), rowOf.push_back(row);
      Bitmap source, target;
      source.Create(memory, 8, height, 8);
      target.Create(1, 8, height, 8);
      WritePixels(source, std::vector<uint8_t>(8 * static_cast<size_t>(height), 0xEE));
      Report refusing{{}, expected.size() / 2 + 1}, whole{{}, 0};
      V_SetCopyStatusCallBack(tell, &refusing, nullptr, nullptr);
      EXPECT_EQ(V_CopyBitmapData(target, source), -100);
      EXPECT_EQ(refusing.told.size(), refusing.refuseAt);
      const std::vector<uint8_t> rows = ReadPixels(target);
      EXPECT_EQ(std::count(rows.begin(), rows.end(), 0xEE), 8 * rowOf[refusing.refuseAt - 1]);
      V_SetCopyStatusCallBack(tell, &whole, nullptr, nullptr);
      EXPECT_EQ(V_CopyBitmapData(target, source), 1);
      V_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      EXPECT_EQ(whole.told, expected);
    }
}

// --- hosts ---

struct CopyHost {
  int32_t begin = 1, end = 1;
  uint32_t memory = V_MemoryConventional;  // what it changes the request to
  HostStore* keeper = nullptr;             // who keeps the copy's data
  std::vector<uint32_t> flags{};           // of all calls; 100 more at the end

  static int32_t V_CALL Begin(BITMAPHANDLE*, uint32_t flags, ALLOCATEBITMAPCALLBACKDATA* data,
                              BITMAPHANDLEDATACALLBACKS* own, void* host) {
    auto& self = *static_cast<CopyHost*>(host);
    self.flags.push_back(flags);
    data->uMemory = self.memory;
    if (self.keeper) *own = self.keeper->Table();
    return self.begin;
  }
  static int32_t V_CALL End(BITMAPHANDLE*, uint32_t flags, void* host) {
    auto& self = *static_cast<CopyHost*>(host);
    self.flags.push_back(100 + flags);
    return self.end;
  }
};

TEST(Copy, AsksTheHostAtItsBeginningAndEnd) {
  AccountBalance balance;
  CopyHost host;
  HostStore keeper;
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof table;
  table.pUserData = &host;
  table.BeginCopyBitmapData = CopyHost::Begin;
  table.EndCopyBitmapData = CopyHost::End;
  Source source(kConventionalKind, kCurrentLayout, 8);
  ASSERT_EQ(V_SetBitmapDataCallbacks(source, &table), 1);
  constexpr uint32_t kPart = V_CopyRectangle, kDiskFlags = V_FlagAllocated | V_FlagDiskMemory;
  const struct {
    int32_t begin, end;
    uint32_t memory;
    HostStore* keeper;
    uint32_t layout;
    bool isPart;
    uint32_t storage;
    int32_t status;
    std::vector<uint32_t> flags;
  } kCases[] = {{1, 1, 1, nullptr, 284, true, kInMemory, 1, {kPart, 100 + kPart}},
                {1, 1, V_MemoryDisk, nullptr, 284, false, kDiskFlags, 1, {0, 100}},
                {1, 1, 1, &keeper, 284, false, V_FlagAllocated | V_FlagMirror, 1, {0, 100}},
                {1, 1, 1, &keeper, 228, false, 0, -789, {0, 100 + V_CopyFailed}},  // no place for the callbacks
                {1, -55, 1, nullptr, 284, false, 0, -55, {0, 100}},
                {-44, 1, 1, nullptr, 284, false, 0, -44, {0}}};  // what did not begin has no end
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - kCases);
    host = {c.begin, c.end, c.memory, c.keeper};
    Bitmap copy(c.layout);
    EXPECT_EQ(
        c.isPart ? V_CopyBitmapRect2(copy, source, c.layout, 1, 1, 5, 5, 1) : V_CopyBitmap2(copy, source, c.layout, 1),
        c.status);
    EXPECT_EQ(copy.StorageFlags(), c.storage);
    EXPECT_TRUE(c.layout == 228 || (copy->DataCallbacks != nullptr) == (c.status == 1 && c.keeper));
    EXPECT_EQ(host.flags, c.flags);
  }
  EXPECT_EQ(keeper.bytes, source.pixels);
  EXPECT_EQ(ReadPixels(source), source.pixels);
}

// Callbacks may use the bitmaps that are being copied, and change them.
TEST(Copy, SurvivesWhatItsCallbacksDo) {
  AccountBalance balance;
  struct Meddler {
    BITMAPHANDLE *from, *to;
    int32_t height = 0;
    bool busy = false;  // the move that it asks for reports too
  };
  const auto meddle = [](int32_t percent, void* userData) {
    auto& self = *static_cast<Meddler*>(userData);
    if (percent < 40 || percent > 60 || std::exchange(self.busy, true)) return 1;
    EXPECT_EQ(V_ChangeBitmapHeight(self.from, self.height), 1);
    EXPECT_EQ(V_SetBitmapMemoryInfo(self.to, V_MemoryConventional, 0, 0, 0, 1), 1);
    self.busy = false;
    return 1;
  };
  for (const uint32_t memory : {1u, 4u, 512u, 1024u})
    for (const int32_t height : {1, 5, 60000}) {
      Bitmap from, to;
      from.Create(memory, 100, 50, 1);
      to.Create(memory, 100, 50, 1);
      Meddler meddler{from, to, height};
      V_SetCopyStatusCallBack(meddle, &meddler, nullptr, nullptr);
      const int32_t status = V_CopyBitmapData(to, from);
      V_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      EXPECT_TRUE(status == 1 || status == -13) << status;
    }
  // A host that reads other rows while it has been given one.
  ScopedThresholds thresholds;
  thresholds.TileSize(65536);
  thresholds.Fifth(1);
  Bitmap tiled, kept;
  tiled.Create(V_MemoryTiled, 65536, 8, 8);
  const std::vector<uint8_t> pixels = Random(5).Bytes(size_t{65536} * 8);
  WritePixels(tiled, pixels);
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof table;
  table.pUserData = tiled;
  table.PutBitmapRowCol = [](BITMAPHANDLE*, const void* buffer, int32_t row, int32_t, uint64_t, void* userData) {
    std::vector<uint8_t> other(65536), before(65536);
    std::memcpy(before.data(), buffer, before.size());
    for (int32_t at = 0; at < 8; ++at) V_GetBitmapRow(static_cast<BITMAPHANDLE*>(userData), other.data(), at, 65536);
    EXPECT_EQ(std::memcmp(buffer, before.data(), before.size()), 0) << "row " << row;
    return uint64_t{0};
  };
  ASSERT_EQ(V_CreateBitmapWithCallbacks(kept, 284, 1, 65536, 8, 8, 0, nullptr, 1, nullptr, 0, &table), 1);
  EXPECT_EQ(V_CopyBitmapData(kept, tiled), 1);
  EXPECT_EQ(ReadPixels(kept), pixels);
}

// --- bad input ---

TEST(Copy, RefusesWhatCannotBeCopied) {
  AccountBalance balance;
  Source source(kConventionalKind, kCurrentLayout, 8);
  Bitmap empty, target, lower;
  empty.Init(5, 5, 8);
  target.Init(1, 1, 1);
  lower.Create(1, kWidth, kHeight - 1, 8);
  const auto before = target.Snapshot();
  EXPECT_EQ(V_CopyBitmapData(nullptr, source), -2);
  EXPECT_EQ(V_CopyBitmapData(source, nullptr), -2);
  EXPECT_EQ(V_CopyBitmapData(empty, source), -2);
  EXPECT_EQ(V_CopyBitmapData(lower, source), -13) << "fewer rows";
  EXPECT_EQ(V_CopyBitmap(nullptr, source, 284), -13);
  EXPECT_EQ(V_CopyBitmap(target, nullptr, 284), -13);
  EXPECT_EQ(V_CopyBitmap(target, empty, 284), -13);
  EXPECT_EQ(V_CopyBitmap(source, source, 99), 1);
  EXPECT_EQ(V_CopyBitmap(target, source, 283), -789);
  EXPECT_EQ(V_CopyBitmap2(target, source, 284, V_MemoryUser), -13);
  constexpr int32_t kRectangles[][4] = {{kWidth, 0, 1, 1},
                                        {0, kHeight, 1, 1},
                                        {0, 0, 0, 5},
                                        {0, 0, 5, -1},
                                        {-3, 0, 3, 5},
                                        {INT32_MIN, 0, INT32_MAX, 1},
                                        {0, INT32_MAX, 1, INT32_MAX}};
  for (const auto& [left, top, width, height] : kRectangles)
    EXPECT_EQ(V_CopyBitmapRect(target, source, 284, left, top, width, height), -13) << left << "," << top;
  EXPECT_EQ(target.Snapshot(), before);
  source->uStructSize = 100;
  EXPECT_EQ(V_CopyBitmap(target, source, 284), -789);
  source->uStructSize = kCurrentLayout;
  for (BITMAPHANDLE* none : {static_cast<BITMAPHANDLE*>(nullptr), empty.get()})
    EXPECT_EQ(V_SetBitmapMemoryInfo(none, 1, 0, 0, 0, 1), -2);
  EXPECT_EQ(ReadPixels(source), source.pixels);
}

}  // namespace
}  // namespace vexatest
