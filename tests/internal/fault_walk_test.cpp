// Every operation on bitmaps with every call to the system failing in turn.
#include "fault_walk.h"

namespace vexatest {
namespace {

constexpr int32_t kWidth = 40, kHeight = 11;

std::vector<uint8_t> SomePixels(BITMAPHANDLE* bitmap) {
  return Random(1).Bytes(bitmap->BytesPerLine * static_cast<size_t>(bitmap->Height));
}

// A bitmap with known pixels, and what it was before the operation. A row has kWidth bytes at 1 bit and at 8.
struct Filled {
  Filled(const StorageKind& kind, uint32_t layout, int32_t bits)
      : stored(kind, layout, bits == 1 ? kWidth * 8 : kWidth, kHeight, bits) {
    EXPECT_EQ(stored.Status(), 1);
    pixels = SomePixels(stored);
    WritePixels(stored, pixels);
    stored.Thresholds().Fifth(0);
    record = stored.Record().Snapshot();
  }
  StoredBitmap stored;
  std::vector<uint8_t> pixels, record;
  Bitmap other;
};

void ExpectUsable(BITMAPHANDLE* bitmap) {
  ASSERT_NE(bitmap->Flags & V_FlagAllocated, 0u);
  const std::vector<uint8_t> fresh = ReadPixels(bitmap), pixels = SomePixels(bitmap);
  EXPECT_EQ(fresh, std::vector<uint8_t>(fresh.size(), 0));
  WritePixels(bitmap, pixels);
  EXPECT_EQ(ReadPixels(bitmap), pixels);
}

// --- making ---

TEST_F(FaultWalk, Create) {
  for (const uint32_t layout : kLayouts)
    for (const uint32_t memory : {0u, 1u, 4u, 8u, 9u, 128u, 256u, 257u, 260u, 264u, 265u, 768u, 1024u, 1281u}) {
      const bool hosted = memory == 0, runs = memory == (V_MemoryCompressed | V_MemoryNoDisk);
      if (hosted && layout == kOlderLayout) continue;
      struct State {
        explicit State(uint32_t size) : bitmap(size) { thresholds.TileSize(kWidth * 3); }
        ScopedThresholds thresholds;
        HostStore host;
        Bitmap bitmap;
      };
      const auto make = [=] {
        auto state = std::make_shared<State>(layout);
        Trial trial{state, [=] {
                      const BITMAPHANDLEDATACALLBACKS table = state->host.Table();
                      return V_CreateBitmapWithCallbacks(state->bitmap, layout, hosted ? 1 : memory,
                                                         runs ? kWidth * 8 : kWidth, kHeight, runs ? 1 : 8, V_OrderRgb,
                                                         nullptr, V_ViewTopLeft, nullptr, 0, hosted ? &table : nullptr);
                    }};
        // Without a handle count there is no super-compressed store, and this request asks for nothing else.
        if (memory == V_MemorySuperCompressed) trial.failures.push_back(V_StatusInvalidParameter);
        trial.failures.push_back(state->host.refusal);
        trial.unchanged = [=] { EXPECT_EQ(state->bitmap.StorageFlags(), 0u); };
        trial.done = [=] {
          ExpectUsable(state->bitmap);
          EXPECT_NE(Field(state->bitmap->pPalette), nullptr);
        };
        trial.host = &state->host;
        return trial;
      };
      const std::string name = "create " + std::to_string(memory) + ", " + std::to_string(layout);
      EXPECT_GE(Walk(name, make), 2u) << "storage and palette are asked for";
      EXPECT_EQ(hosted ? WalkRefusals(name, make) : 1, 1);
    }
}

// --- what is done to a bitmap ---

struct Operation {
  std::string name;
  std::function<int64_t(Filled&)> run;                 // positive for a success
  bool accessed = false;                               // with the data accessed
  std::function<void(Filled&)> done = [](Filled&) {};  // looks at more; the pixels are then those of plain memory
  int32_t refusals = 0;                                // callbacks of a host that are asked
  std::vector<int64_t> failures = {V_StatusNoMemory};  // besides those of its host
  std::function<void(Filled&)> prepare = [](Filled&) {};
  std::function<void(Filled&)> failed = [](Filled& f) {
    EXPECT_EQ(f.stored.Record().Snapshot(), f.record) << "the record changed";
    EXPECT_EQ(ReadPixels(f.stored), f.pixels) << "the pixels changed";
  };
  bool keepsPixels = true;  // else there are none afterwards
};

bool IsEngines(const StorageKind& kind) { return kind.setup != StorageKind::kHost; }
bool CanGrow(const StorageKind& kind) { return (kind.flags & V_FlagMirror) == 0; }

class Operations : public FaultWalk {
 protected:
  // On every kind of storage that holds so many bits, in the layouts that it has.
  void Run(const Operation& operation, int32_t bits, bool (*suits)(const StorageKind&) = nullptr) {
    std::vector<uint8_t> expected;
    if (Filled plain(kConventionalKind, kCurrentLayout, bits); operation.keepsPixels) {
      operation.prepare(plain);
      EXPECT_GT(operation.run(plain), 0);
      operation.done(plain);
      expected = ReadPixels(plain.stored);
    }
    for (const StorageKind& kind : kStorageKinds)
      for (const uint32_t layout : kLayouts) {
        if (!kind.Holds(bits) || (suits && !suits(kind)) || (layout == kOlderLayout && !kind.InOlderLayout())) continue;
        const auto make = [&] {
          auto state = std::make_shared<Filled>(kind, layout, bits);
          operation.prepare(*state);
          state->record = state->stored.Record().Snapshot();
          Trial trial{state, [&, state]() -> int64_t {
                        const int32_t access = operation.accessed ? V_AccessBitmap(state->stored) : 1;
                        if (access != 1) return access;
                        const int64_t done = operation.run(*state);
                        if (operation.accessed) V_ReleaseBitmap(state->stored);
                        return std::min<int64_t>(done, 1);
                      }};
          trial.failures = operation.failures;
          trial.failures.push_back(state->stored.Host().refusal);
          if (kind.setup == StorageKind::kMovable) trial.failures.push_back(V_StatusNoMemory);  // its lock
          trial.unchanged = [&, state] { operation.failed(*state); };
          trial.done = [&, state] {
            operation.done(*state);
            EXPECT_TRUE(!operation.keepsPixels || ReadPixels(state->stored) == expected);
          };
          trial.host = &state->stored.Host();
          return trial;
        };
        const std::string name =
            operation.name + ", " + kind.name + " " + std::to_string(layout) + ", " + std::to_string(bits) + " bits";
        Walk(name, make);
        EXPECT_EQ(IsEngines(kind) ? operation.refusals : WalkRefusals(name, make), operation.refusals) << name;
      }
  }

  // Super-compressed storage is refused as invalid without a handle count.
  const std::vector<int64_t> copyFailures_ = {V_StatusNoMemory, V_StatusFileSeek, V_StatusFileRead, V_StatusMemoryLimit,
                                              V_StatusInvalidParameter};
};

// --- rows ---

TEST_F(Operations, OnRows) {
  std::vector<uint8_t> line = Random(9).Bytes(kWidth - 7), got(kWidth * kHeight);
  for (const int32_t bits : {1, 8}) {
    Run({.name = "get rows",
         .run = [&](Filled& f) { return V_GetBitmapRow(f.stored, got.data(), 0, got.size()); },
         .accessed = true,
         .done = [&](Filled& f) { EXPECT_EQ(got, f.pixels); },
         .refusals = 3,
         .failures = {V_StatusFileSeek, V_StatusFileRead}},
        bits);
    const int32_t column = bits == 1 ? 40 : 5;
    for (const int32_t row : {0, kHeight - 1})  // a put inside one tile either happens or does not
      Run({.name = "put row " + std::to_string(row),
           .run = [&](Filled& f) { return V_PutBitmapRowCol(f.stored, line.data(), row, column, line.size()); },
           .accessed = true,
           .refusals = 3,
           .failures = {V_StatusNoMemory, V_StatusFileSeek}},
          bits);
  }
  const std::vector<uint8_t> samples = Random(8).Bytes(15 + 10 * sizeof(uint64_t));
  const BITMAPROWSEGMENT segments[] = {{8, 9, samples.data()}, {21, 10, samples.data() + 15}};
  for (const int32_t bits : kDepths)
    Run({.name = "segments",
         .run = [&](Filled& f) { return V_PutBitmapRowSegments(f.stored, segments, 2, 4); },
         .accessed = true,
         .refusals = bits % 8 == 0 ? 4 : 6,
         .failures = {V_StatusNoMemory, V_StatusFileSeek, V_StatusFileRead},
         .failed = [](Filled&) {}},  // the first may have been put
        bits);
  std::vector<uint8_t> record(V_RECORD_BYTES(kWidth * 8)), row(kWidth, 0x55);  // a long record: it fits no old place
  V_CompressRow(record.data(), row.data(), 0, kWidth * 8);
  const auto useRecords = [&](Filled& f) {
    const int64_t put = V_PutBitmapRowCompressed(f.stored, record.data(), 4, record.size());
    if (put < 0) return put;
    std::copy(row.begin(), row.end(), f.pixels.begin() + 4 * kWidth);
    std::vector<uint8_t> out(record.size());
    const int64_t bytes = V_GetBitmapRowCompressed(f.stored, out.data(), 4, out.size() - 2);  // it just fits
    return bytes < 0 ? bytes : V_PutBitmapRowColCompressed(f.stored, out.data(), 4, 0, kWidth * 8);
  };
  Run({.name = "records",
       .run = useRecords,
       .accessed = true,
       .refusals = 5,
       .failures = {V_StatusNoMemory, V_StatusFileSeek, V_StatusFileRead},
       .failed = [](Filled& f) { EXPECT_EQ(ReadPixels(f.stored), f.pixels); }},
      1);
}

// --- storage ---

TEST_F(Operations, OnTheStorage) {
  for (const int32_t bits : {1, 8}) {
    for (const int32_t height : {4, 12, 30})
      Run({.name = "height " + std::to_string(height),
           .run = [=](Filled& f) { return V_ChangeBitmapHeight(f.stored, height); },
           // Rows that were cut off, or that a failed growth left behind, never come back.
           .done = [](Filled& f) { EXPECT_EQ(V_ChangeBitmapHeight(f.stored, 40), 1); }},
          bits, CanGrow);
    for (const uint32_t memory : {1u, 4u, 128u, 512u, 1024u}) {
      if (memory == V_MemoryCompressed && bits != 1) continue;
      Run({.name = "move to " + std::to_string(memory),
           .run = [=](Filled& f) { return V_SetBitmapMemoryInfo(f.stored, memory, 100, 0, 0, 3); },
           .failures = copyFailures_},
          bits, IsEngines);
      Run({.name = "allocate " + std::to_string(memory),
           .run = [=](Filled& f) { return V_AllocateBitmap(f.stored, memory); },
           .done = [](Filled& f) { ExpectUsable(f.stored); },
           .failures = copyFailures_,
           .failed = [](Filled& f) { EXPECT_EQ(f.stored.Record().StorageFlags(), 0u); },
           .keepsPixels = false},
          bits, [](const StorageKind& kind) { return IsEngines(kind) && kind.roomInTiles == 0; });
    }
    const auto free = [](Filled& f) {
      V_FreeBitmap(f.stored);
      return 1;
    };
    Run({.name = "free",
         .run = free,
         .done = [](Filled& f) { EXPECT_TRUE((f.stored->Flags & V_FlagAllocated) == 0 && !f.stored->pPalette); },
         .refusals = 1,
         .keepsPixels = false},
        bits);
  }
}

// --- copies and overlays ---

TEST_F(Operations, OfCopies) {
  const auto setOverlay = [](BITMAPHANDLE* on, BITMAPHANDLE* overlay, int32_t x) {
    const BITMAPOVERLAY given = {sizeof given, x, 1, 0, overlay};
    return V_SetBitmapOverlay(on, 2, &given);
  };
  const auto overlayOf = [](BITMAPHANDLE* bitmap) {
    BITMAPOVERLAY overlay = {sizeof overlay, 0, 0, 0, nullptr};
    V_GetBitmapOverlay(bitmap, 2, &overlay);
    return overlay;
  };
  for (const uint32_t memory : {1u, 512u, 1024u}) {
    const bool isPart = memory == V_MemoryCompressed;
    Run({.name = "copy to " + std::to_string(memory),
         .run =
             [=](Filled& f) {
               return isPart ? V_CopyBitmapRect2(f.other, f.stored, kCurrentLayout, 3, 2, 900, 900, memory)
                             : V_CopyBitmap2(f.other, f.stored, kCurrentLayout, memory);
             },
         .done =
             [=](Filled& f) {
               EXPECT_TRUE(isPart || ReadPixels(f.other) == f.pixels);
               EXPECT_EQ(overlayOf(f.other).x, isPart ? 4 : 7);
             },
         .refusals = isPart ? kHeight : kHeight + 2,
         .failures = copyFailures_,
         .prepare =
             [=](Filled& f) {
               Bitmap overlay;
               overlay.Create(V_MemoryConventional, 3, 3, 8);
               EXPECT_EQ(setOverlay(f.stored, overlay, 7), 1);
             }},
        1);
  }
  for (const bool replaces : {false, true})
    Run({.name = "overlay",
         .run = [=](Filled& f) { return setOverlay(f.other, f.stored, 3); },
         .done = [=](Filled& f) { EXPECT_EQ(ReadPixels(overlayOf(f.other).pBitmap), f.pixels); },
         .refusals = kHeight + 2,
         .failures = copyFailures_,
         .prepare =
             [=](Filled& f) {
               f.other.Create(V_MemoryConventional, 3, 3, 8);
               EXPECT_EQ(replaces ? setOverlay(f.other, f.other, 1) : 1, 1);
             },
         .failed = [=](Filled& f) { EXPECT_EQ(overlayOf(f.other).x, replaces ? 1 : 0); }},
        8);
}

// --- other depths ---

TEST_F(Operations, OfColorResolution) {
  const RGBQUAD palette[] = {{1, 2, 3, 0}, {200, 10, 90, 0}, {40, 250, 100, 0}, {0, 0, 0, 0}};
  struct {
    int32_t from, to;
    uint32_t options;
    bool inPlace;
    int32_t refusals;
  } const cases[] = {{1, 4, V_ColorResFixedPalette, true, kHeight + 3},
                     {24, 4, V_ColorResOptimized, false, 2 * kHeight + 4},
                     {24, 8, V_ColorResFixedPalette, false, kHeight + 2},
                     {24, 1, V_ColorResFixedPalette, false, kHeight + 2},
                     {24, 2, V_ColorResUsePalette | V_ColorResSlowMatch, true, kHeight + 3},
                     {8, 24, V_ColorResFixedPalette, false, kHeight + 2}};
  for (const auto& c : cases)
    Run({.name = "to " + std::to_string(c.to) + " bits",
         .run =
             [&](Filled& f) {
               return V_ColorResBitmap(f.stored, c.inPlace ? nullptr : f.other.get(), kCurrentLayout, c.to, c.options,
                                       palette, nullptr, 1 << std::min(c.to, 8));
             },
         .done = [&](Filled& f) { EXPECT_EQ(Field((c.inPlace ? f.stored.Record() : f.other)->BitsPerPixel), c.to); },
         .refusals = c.refusals,
         .failures = copyFailures_,
         .prepare =
             [&](Filled& f) { f.stored->DitherMethod = c.options & V_ColorResSlowMatch ? 0 : V_DitheringStucki; },
         .keepsPixels = !c.inPlace},
        c.from);
}

// A search for many colours needs memory, which goes again.
TEST_F(FaultWalk, ConversionToAPalette) {
  const auto make = [] {
    auto line = std::make_shared<std::vector<uint8_t>>(size_t{300});
    return Trial{line, [=]() -> int64_t { return V_ConvertBuffer(line->data(), 100, 24, 8, 1, 1, nullptr, nullptr); }};
  };
  EXPECT_EQ(Walk("a buffer", make), 2u);
}

TEST_F(FaultWalk, ListsToAnotherDepth) {
  const auto expectDepth = [](HBITMAPLIST list, int32_t bits) {
    for (uint32_t i = 0; i < 3; ++i) {
      BITMAPHANDLE item;
      EXPECT_EQ(V_GetBitmapListItem(list, i, &item, kCurrentLayout), 1);
      EXPECT_EQ(Field(item.BitsPerPixel), bits);
    }
  };
  const auto make = [=] {
    HBITMAPLIST list = nullptr;
    V_CreateBitmapList(&list);
    for (int32_t i = 0; i < 3; ++i) {
      BITMAPHANDLE item;
      V_CreateBitmap(&item, kCurrentLayout, 1, 8, 2, 24, V_OrderBgr, nullptr, 1, nullptr, 0);
      V_InsertBitmapListItem(list, V_LIST_END, &item);
    }
    Trial trial{std::shared_ptr<void>(list, [=](void*) { V_DestroyBitmapList(list); }),
                [=] { return V_ColorResBitmapListExt(list, 4, V_ColorResOptimized, nullptr, nullptr, 0); }};
    trial.unchanged = [=] { expectDepth(list, 24); };
    trial.done = [=] { expectDepth(list, 4); };
    return trial;
  };
  EXPECT_GE(Walk("list", make), 8u);
}

// --- settings ---

// A thread whose settings cannot be made uses the process-wide ones.
TEST_F(FaultWalk, ThreadWithoutRoomForItsSettings) {
  const auto live = vexakrn::platform::Live();
  for (const int32_t resolution : {77, 0}) {  // afterwards the shared one is as it was
    std::thread([=] {
      vexakrn::platform::FailCall(1, /*onwards=*/true);
      EXPECT_EQ(V_SetDefaultResolution(resolution, resolution), 1);
      EXPECT_EQ(V_GetDefaultXResolution(), resolution);
      EXPECT_TRUE(vexakrn::platform::HasFailed());
      vexakrn::platform::StopFailing();
    }).join();
    EXPECT_EQ(V_GetDefaultXResolution(), 0) << "this thread has its own";
  }
  for (const uint64_t n : {1u, 2u})  // a stream needs settings of the thread's own, and memory
    std::thread([=] {
      void* stream = nullptr;
      vexakrn::platform::FailCall(n, /*onwards=*/false);
      EXPECT_EQ(V_StartRedirectToBuffer(&stream, nullptr, V_StreamHeap, nullptr, 0, 0), V_StatusNoMemory);
      vexakrn::platform::StopFailing();
    }).join();
  EXPECT_TRUE(vexakrn::platform::Live() == live);
}

}  // namespace
}  // namespace vexatest
