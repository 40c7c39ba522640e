// Copies between all kinds of storage: rows, whole bitmaps, rectangles, and a bitmap's move into other storage.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/bitmap.h"
#include "support/random.h"
#include "support/storage.h"
#include "vexakrn.h"

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
void ExpectSamePixels(BITMAPHANDLE* got, BITMAPHANDLE* want, int32_t left = 0, int32_t top = 0) {
  const std::vector<uint8_t> a = ReadPixels(got), b = ReadPixels(want);
  for (int32_t row = 0; row < got->Height; ++row)
    for (int32_t column = 0; column < got->Width; ++column)
      ASSERT_EQ(PixelAt(a.data() + size_t{got->BytesPerLine} * static_cast<size_t>(row), column, got->BitsPerPixel),
                PixelAt(b.data() + size_t{want->BytesPerLine} * static_cast<size_t>(top + row), left + column,
                        want->BitsPerPixel))
          << "row " << row << ", column " << column;
}

// The callback of a copy: what it was told, and the call at which it refuses.
struct Report {
  std::vector<int32_t> told;
  size_t refuseAt = 0;
  int32_t refusal = -100;

  Report() { V_SetCopyStatusCallBack(&Tell, this, nullptr, nullptr); }
  ~Report() { V_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr); }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

 private:
  static int32_t V_CALL Tell(int32_t percent, void* self) {
    auto& report = *static_cast<Report*>(self);
    report.told.push_back(percent);
    return report.told.size() == report.refuseAt ? report.refusal : 1;
  }
};

class CopyKinds : public testing::TestWithParam<StorageKind> {
  AccountBalance balance_;
};
INSTANTIATE_TEST_SUITE_P(All, CopyKinds, testing::ValuesIn(kStorageKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(CopyKinds, RowsReachEveryOtherKind) {
  for (const StorageKind& kind : kStorageKinds)
    for (const int32_t bits : {1, 8, 12, 24}) {
      if (!kind.Holds(bits) || !GetParam().Holds(bits)) continue;
      SCOPED_TRACE(testing::Message() << "to " << kind.name << ", " << bits << " bits");
      Source source(GetParam(), kCurrentLayout, bits);
      StoredBitmap target(kind, kCurrentLayout, kWidth, kHeight + 2, bits);
      std::vector<uint8_t> expected = Random(2).Bytes(size_t{target->BytesPerLine} * (kHeight + 2));
      WritePixels(target, expected);
      ASSERT_EQ(V_CopyBitmapData(target, source), 1);
      std::copy(source.pixels.begin(), source.pixels.end(), expected.begin());
      target.DropPadding(expected);
      ASSERT_EQ(ReadPixels(target), expected) << "further rows stay";
      EXPECT_EQ(V_CopyBitmapData(source, target), -13) << "fewer rows";
      EXPECT_EQ(ReadPixels(source), source.pixels);
    }
}

TEST_P(CopyKinds, RectanglesHoldTheirPixelsAndNothingElse) {
  for (const int32_t bits : kDepths) {
    if (!GetParam().Holds(bits)) continue;
    Random random(static_cast<uint64_t>(bits));
    Source source(GetParam(), kCurrentLayout, bits);
    for (int round = 0; round < 6; ++round) {
      const int32_t left = random.Between(-9, kWidth - 1), top = random.Between(-5, kHeight - 1);
      const int32_t width = random.Between(1 + std::max(0, -left), kWidth + 9);
      const int32_t height = random.Between(1 + std::max(0, -top), kHeight + 9);
      SCOPED_TRACE(testing::Message() << bits << " bits, " << left << "," << top << " " << width << "x" << height);
      Bitmap copy(random.Coin() ? kCurrentLayout : kOlderLayout);
      const uint32_t memory = bits == 1 && random.Coin() ? V_MemoryCompressed : V_MemoryConventional;
      ASSERT_EQ(V_CopyBitmapRect2(copy, source, copy.StructSize(), left, top, width, height, memory), 1);
      const int32_t x = std::max(left, 0), y = std::max(top, 0);
      ASSERT_EQ(copy->Width, std::min(left + width, kWidth) - x);
      ASSERT_EQ(copy->Height, std::min(top + height, kHeight) - y);
      ExpectSamePixels(copy, source, x, y);
      const std::vector<uint8_t> rows = ReadPixels(copy);
      for (size_t bit = static_cast<size_t>(copy->Width * bits); bit < 8 * size_t{copy->BytesPerLine}; ++bit)
        ASSERT_EQ(bits == 12 && bit % 12 >= 4 ? 0 : rows[bit / 8] & (0x80u >> bit % 8) & (bits == 12 ? 0u : 255u), 0u)
            << "padding bit " << bit;
    }
    EXPECT_EQ(ReadPixels(source), source.pixels);
  }
}

TEST_P(CopyKinds, InPlaceTheRectangleReplacesTheBitmap) {
  if (GetParam().setup == StorageKind::kMovable) GTEST_SKIP() << "the block is the test's own";
  for (const uint32_t layout : kLayouts) {
    if (layout == kOlderLayout && !GetParam().InOlderLayout()) continue;
    const int32_t bits = GetParam().Holds(8) ? 8 : 1;
    Source source(GetParam(), layout, bits), original(kConventionalKind, kCurrentLayout, bits);
    V_AccessBitmap(source);
    for (BITMAPHANDLE* target : {static_cast<BITMAPHANDLE*>(nullptr), source.Record().get()}) {
      ASSERT_EQ(V_CopyBitmapRect2(target, source, kCurrentLayout, 3, 2, source->Width - 5, source->Height - 4, 1), 1);
      EXPECT_EQ(Field(source->uStructSize), layout);
      EXPECT_NE(source.Record().StorageFlags(), 0u);
    }
    V_ReleaseBitmap(source);
    ExpectSamePixels(source, original, 6, 4);
    if (GetParam().setup == StorageKind::kHost) {
      EXPECT_EQ(source.Host().freed, 1);
    }
  }
}

// From every kind to every request, in both layouts: the pixels and the rest of the record stay.
TEST_P(CopyKinds, DataMovesIntoOtherStorage) {
  for (const uint32_t layout : kLayouts)
    for (const uint32_t memory : {1u, 4u, 128u, 512u, 1024u, 9u, 265u}) {
      if (GetParam().setup == StorageKind::kHost || GetParam().roomInTiles > 0) continue;  // keep what they are given
      if (layout == kOlderLayout && !GetParam().InOlderLayout()) continue;
      const int32_t bits = memory == V_MemoryCompressed || GetParam().IsRuns() ? 1 : 8;
      SCOPED_TRACE(testing::Message() << "to " << memory << ", layout " << layout);
      Source source(GetParam(), layout, bits);
      Bitmap before(layout);
      ASSERT_EQ(V_CopyBitmap2(before, source, layout, V_MemoryConventional), 1);
      ASSERT_EQ(V_SetBitmapMemoryInfo(source, memory, 24, 2, 0, 7), 1);
      uint32_t type = 0;
      int64_t tileSize = 0;
      int32_t inMemory = 0;
      ASSERT_EQ(V_GetBitmapMemoryInfo(source, &type, &tileSize, nullptr, &inMemory, nullptr), 1);
      EXPECT_EQ(type, memory == 9 || memory == 265 ? 1u : memory);
      if (type == V_MemoryTiled) {
        EXPECT_EQ(tileSize, 24);
        EXPECT_EQ(inMemory, 2);
      }
      char text[400] = "";
      V_CompareBitmapHandles(source, before, text, sizeof text);
      for (const char* line = text; (line = std::strchr(line, '\n')) != nullptr; ++line)
        EXPECT_EQ(std::strncmp(line, "\n Flags.", 8), 0) << text;
      ExpectSamePixels(source, before);
      const auto record = source.Record().Snapshot();
      EXPECT_EQ(V_SetBitmapMemoryInfo(source, type, 24, 2, 0, 7), 1) << "nothing changes";
      EXPECT_EQ(V_SetBitmapMemoryInfo(source, 99, 0, 0, 0, 1), -13);
      EXPECT_EQ(V_SetBitmapMemoryInfo(source, V_MemoryUser, 0, 0, 0, 1), -13);
      EXPECT_EQ(V_SetBitmapMemoryInfo(source, 0, 0, -101, 0, V_MemorySettingConventionalTiles), -13);
      EXPECT_EQ(source.Record().Snapshot(), record);
    }
}

// --- what a copy takes along ------------------------------------------------------------------------------------------

TEST(Copy, TakesTheAttributesAlong) {
  AccountBalance balance;
  for (const uint32_t layout : kLayouts) {
    Source source(kConventionalKind, kCurrentLayout, 16);
    source->Order = V_OrderGray;
    source->Flags |= V_FlagSigned | V_FlagTransparency | V_FlagUseLUT;
    source->LowBit = 2, source->HighBit = 13, source->PaintLowBit = 3, source->PaintHighBit = 12;
    source->ViewPerspective = 6, source->XResolution = 203, source->Left = 4, source->Delay = 55;
    source->pLUT = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, 8));
    std::memset(static_cast<void*>(source->pLUT), 7, 8);
    source->LUTLength = 2;
    Source small(kConventionalKind, layout, 8);
    const BITMAPOVERLAY overlay = {sizeof overlay, 10, 20, 2, small};
    ASSERT_EQ(V_SetBitmapOverlay(source, 5, &overlay), 1);

    Bitmap copy(layout), part(layout);
    ASSERT_EQ(V_CopyBitmap(copy, source, layout), 1);
    char text[200] = "";
    EXPECT_EQ(V_CompareBitmapHandles(copy, source, text, sizeof text), 1) << text;
    EXPECT_NE(Field(copy->pLUT), Field(source->pLUT));
    ASSERT_EQ(V_CopyBitmapRect(part, source, layout, 3, 4, 20, 6), 1);
    BITMAPOVERLAY got = {sizeof got, 0, 0, 0, nullptr};
    ASSERT_EQ(V_GetBitmapOverlay(part, 5, &got), 1);
    EXPECT_EQ(got.x, 7);
    EXPECT_EQ(got.y, 17) << "as displayed, from the right";
    EXPECT_EQ(ReadPixels(got.pBitmap), small.pixels);
    EXPECT_EQ(part->HighBit, 13);
  }
}

// Percentages of any height are those of 100 / height a row with the remainder carried; a refusal ends the copy there.
TEST(Copy, ReportsWhenThePercentageChanges) {
  AccountBalance balance;
  for (const int32_t height : {1, 5, 7, 99, 100, 101, 333, 1250}) {
    std::vector<int32_t> expected = {0}, rowOf = {0};
    for (int32_t row = 1, percent = 0, carried = 0; row <= height; ++row) {
      int32_t now = percent + 100 / height;
      carried += 100 % height;
      if (carried >= height) carried -= height, ++now;
      if (now != percent) expected.push_back(now), rowOf.push_back(row);
      percent = now;
    }
    EXPECT_EQ(expected.back(), 100);
    for (const uint32_t memory : {1u, 128u}) {
      Bitmap source, target;
      source.Create(memory, 8, height, 8);
      target.Create(1, 8, height, 8);
      WritePixels(source, std::vector<uint8_t>(8 * static_cast<size_t>(height), 0xEE));
      Report report;
      ASSERT_EQ(V_CopyBitmapData(target, source), 1);
      EXPECT_EQ(report.told, expected) << height;
      const size_t call = expected.size() / 2 + 1;
      Bitmap second;
      second.Create(1, 8, height, 8);
      report.told.clear();
      report.refuseAt = call;
      EXPECT_EQ(V_CopyBitmapData(second, source), -100);
      EXPECT_EQ(report.told.size(), call);
      const std::vector<uint8_t> rows = ReadPixels(second);
      EXPECT_EQ(std::count(rows.begin(), rows.end(), 0xEE), 8 * rowOf[call - 1]) << "rows before the refusal";
      Bitmap refused;
      report.told.clear();
      report.refusal = 7;
      EXPECT_EQ(V_CopyBitmap2(refused, source, kCurrentLayout, 1), 7) << "passed on unchanged";
      EXPECT_EQ(refused.StorageFlags(), 0u);
    }
  }
}

// --- hosts ------------------------------------------------------------------------------------------------------------

struct CopyHost {
  int32_t begin = 1, end = 1;
  uint32_t memory = 0;            // what it changes the request to
  HostStore* keeper = nullptr;    // who keeps the copy's data
  std::vector<uint32_t> flags{};  // of all calls; 100 more at the end
};

TEST(Copy, AsksTheHostAtItsBeginningAndEnd) {
  AccountBalance balance;
  CopyHost host;
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof table;
  table.pUserData = &host;
  table.BeginCopyBitmapData = [](BITMAPHANDLE*, uint32_t flags, ALLOCATEBITMAPCALLBACKDATA* data,
                                 BITMAPHANDLEDATACALLBACKS* own, void* userData) {
    auto& self = *static_cast<CopyHost*>(userData);
    self.flags.push_back(flags);
    if (self.memory != 0) data->uMemory = self.memory;
    if (self.keeper) *own = self.keeper->Table();
    return self.begin;
  };
  table.EndCopyBitmapData = [](BITMAPHANDLE*, uint32_t flags, void* userData) {
    auto& self = *static_cast<CopyHost*>(userData);
    self.flags.push_back(100 + flags);
    return self.end;
  };
  Source source(kConventionalKind, kCurrentLayout, 8);
  ASSERT_EQ(V_SetBitmapDataCallbacks(source, &table), 1);
  const auto copy = [&](Bitmap& to, bool rectangle = false) {
    host.flags.clear();
    return rectangle ? V_CopyBitmapRect2(to, source, to.StructSize(), 1, 1, 5, 5, 1)
                     : V_CopyBitmap2(to, source, to.StructSize(), 1);
  };
  {
    HostStore keeper;
    Bitmap plain, disk, kept;
    EXPECT_EQ(copy(plain, true), 1);
    EXPECT_EQ(host.flags, (std::vector<uint32_t>{V_CopyRectangle, 100 + V_CopyRectangle}));
    EXPECT_EQ(Field(plain->DataCallbacks), nullptr) << "the host of a bitmap is not that of its copy";
    host.memory = V_MemoryDisk;
    EXPECT_EQ(copy(disk), 1);
    EXPECT_EQ(disk.StorageFlags(), V_FlagAllocated | V_FlagDiskMemory);
    host.keeper = &keeper;
    EXPECT_EQ(copy(kept), 1);
    EXPECT_EQ(keeper.bytes, source.pixels);
    Bitmap older(kOlderLayout);
    EXPECT_EQ(copy(older), -789) << "no place for the callbacks";
    EXPECT_EQ(host.flags, (std::vector<uint32_t>{0, 100 + V_CopyFailed}));
  }
  host = {};
  host.end = -55;
  Bitmap undone;
  EXPECT_EQ(copy(undone), -55);
  EXPECT_EQ(undone.StorageFlags(), 0u);
  host.begin = -44;
  EXPECT_EQ(copy(undone), -44);
  EXPECT_EQ(host.flags, std::vector<uint32_t>{0}) << "what did not begin has no end";
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
  ASSERT_EQ(V_SetBitmapMemoryInfo(tiled, V_MemoryTiled, 65536, 1, 1, 15), 1);
  const std::vector<uint8_t> pixels = Random(5).Bytes(size_t{65536} * 8);
  WritePixels(tiled, pixels);
  BITMAPHANDLEDATACALLBACKS table{};
  table.uStructSize = sizeof table;
  table.pUserData = tiled;
  table.PutBitmapRowCol = [](BITMAPHANDLE*, const void* buffer, int32_t row, int32_t, uint64_t, void* userData) {
    std::vector<uint8_t> other(65536);
    const std::vector<uint8_t> before(static_cast<const uint8_t*>(buffer), static_cast<const uint8_t*>(buffer) + 65536);
    for (int32_t at = 0; at < 8; ++at) V_GetBitmapRow(static_cast<BITMAPHANDLE*>(userData), other.data(), at, 65536);
    EXPECT_EQ(std::memcmp(buffer, before.data(), before.size()), 0) << "row " << row;
    return uint64_t{0};
  };
  ASSERT_EQ(V_CreateBitmapWithCallbacks(kept, 284, 1, 65536, 8, 8, 0, nullptr, 1, nullptr, 0, &table), 1);
  EXPECT_EQ(V_CopyBitmapData(kept, tiled), 1);
  EXPECT_EQ(ReadPixels(kept), pixels);
}

// --- bad input --------------------------------------------------------------------------------------------------------

TEST(Copy, RefusesWhatCannotBeCopied) {
  AccountBalance balance;
  Source source(kConventionalKind, kCurrentLayout, 8);
  Bitmap empty, target;
  empty.Init(5, 5, 8);
  target.Init(1, 1, 1);
  const auto before = target.Snapshot();
  EXPECT_EQ(V_CopyBitmapData(nullptr, source), -2);
  EXPECT_EQ(V_CopyBitmapData(source, nullptr), -2);
  EXPECT_EQ(V_CopyBitmapData(empty, source), -2);
  EXPECT_EQ(V_CopyBitmapData(source, source), 1);
  EXPECT_EQ(V_CopyBitmap(nullptr, source, 284), -13);
  EXPECT_EQ(V_CopyBitmap(target, nullptr, 284), -13);
  EXPECT_EQ(V_CopyBitmap(target, empty, 284), -13);
  EXPECT_EQ(V_CopyBitmap(source, source, 99), 1);
  EXPECT_EQ(V_CopyBitmap(target, source, 283), -789);
  EXPECT_EQ(V_CopyBitmap2(target, source, 284, V_MemoryUser), -13);
  struct Rectangle {
    int32_t left, top, width, height;
  };
  for (const Rectangle& r : {Rectangle{kWidth, 0, 1, 1},
                             {0, kHeight, 1, 1},
                             {0, 0, 0, 5},
                             {0, 0, 5, -1},
                             {-3, 0, 3, 5},
                             {INT32_MIN, 0, INT32_MAX, 1},
                             {0, INT32_MAX, 1, INT32_MAX}})
    EXPECT_EQ(V_CopyBitmapRect(target, source, 284, r.left, r.top, r.width, r.height), -13) << r.left << "," << r.top;
  EXPECT_EQ(V_CopyBitmapRect(nullptr, source, 284, kWidth, 0, 1, 1), -13);
  EXPECT_EQ(target.Snapshot(), before);
  source->uStructSize = 100;
  EXPECT_EQ(V_CopyBitmap(target, source, 284), -789);
  EXPECT_EQ(V_CopyBitmapData(target, source), -2);
  source->uStructSize = kCurrentLayout;
  EXPECT_EQ(V_SetBitmapMemoryInfo(nullptr, 1, 0, 0, 0, 1), -2);
  EXPECT_EQ(V_SetBitmapMemoryInfo(empty, 1, 0, 0, 0, 1), -2);
  EXPECT_EQ(ReadPixels(source), source.pixels);
}

}  // namespace
}  // namespace vexatest
