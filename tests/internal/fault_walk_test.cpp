// Every operation of the bitmap core with every call to the system failing in turn.
#include "fault_walk.h"

#include <cstring>
#include <optional>

#include "support/bitmap.h"
#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

constexpr int32_t kWidth = 40, kHeight = 11;

std::vector<uint8_t> SomePixels(BITMAPHANDLE* bitmap) {
  return Random(1).Bytes(bitmap->BytesPerLine * static_cast<size_t>(bitmap->Height));
}

// A bitmap with known pixels, and what it was before the operation. At 8 bits a row has kWidth bytes, also in storage
// for 1-bit pixels only.
struct Filled {
  Filled(const StorageKind& kind, uint32_t layout, int32_t bits = 8)
      : stored(kind, layout, kind.Holds(bits) ? kWidth : kWidth * 8, kHeight, kind.Holds(bits) ? bits : 1) {
    EXPECT_EQ(stored.Status(), 1);
    pixels = SomePixels(stored);
    WritePixels(stored, pixels);
    stored.DropPadding(pixels);
    record = stored.Record().Snapshot();
  }
  void ExpectUnchanged() {
    EXPECT_EQ(stored.Record().Snapshot(), record) << "the record changed";
    EXPECT_EQ(ReadPixels(stored), pixels) << "the pixels changed";
  }

  StoredBitmap stored;
  std::vector<uint8_t> pixels, record;
};

// Every kind in the layouts that it has.
template <typename Body>
void ForEachStorage(Body body) {
  for (const StorageKind& kind : kStorageKinds)
    for (const uint32_t layout : kLayouts)
      if (layout == kCurrentLayout || kind.InOlderLayout()) body(kind, layout);
}

std::string Name(const StorageKind& kind, uint32_t layout) {
  return std::string(kind.name) + " " + std::to_string(layout);
}

// --- lifecycle --------------------------------------------------------------------------------------------------

struct Empty {
  explicit Empty(uint32_t layout) : bitmap(layout) { thresholds.TileSize(kWidth * 3); }
  ScopedThresholds thresholds;
  HostStore host;
  Bitmap bitmap;
};

void ExpectUsable(BITMAPHANDLE* bitmap) {
  ASSERT_NE(bitmap->Flags & V_FlagAllocated, 0u);
  const std::vector<uint8_t> fresh = ReadPixels(bitmap);
  EXPECT_EQ(fresh, std::vector<uint8_t>(fresh.size(), 0));
  const std::vector<uint8_t> pixels = SomePixels(bitmap);
  WritePixels(bitmap, pixels);
  EXPECT_EQ(ReadPixels(bitmap), pixels);
}

TEST_F(FaultWalk, Create) {
  for (const uint32_t layout : kLayouts)
    for (const uint32_t memory : {1u, 4u, 8u, 9u, 128u, 256u, 257u, 260u, 264u, 265u, 768u, 1024u, 1281u}) {
      const uint64_t failures = Walk("create " + std::to_string(memory) + ", " + std::to_string(layout), [=] {
        auto state = std::make_shared<Empty>(layout);
        const bool runs = memory == (V_MemoryCompressed | V_MemoryNoDisk);
        Trial trial{state,
                    [=] { return state->bitmap.Create(memory, runs ? kWidth * 8 : kWidth, kHeight, runs ? 1 : 8); }};
        // Without a handle count there is no super-compressed store, and this request asks for nothing else.
        if (memory == V_MemorySuperCompressed) trial.failures.push_back(V_StatusInvalidParameter);
        trial.unchanged = [=] { EXPECT_EQ(state->bitmap.StorageFlags(), 0u); };
        trial.done = [=] {
          ExpectUsable(state->bitmap);
          EXPECT_NE(Field(state->bitmap->pPalette), nullptr);
        };
        return trial;
      });
      EXPECT_GE(failures, 2u) << "storage and palette are asked for";
    }
}

TEST_F(FaultWalk, CreateWithCallbacks) {
  const auto make = [] {
    auto state = std::make_shared<Empty>(kCurrentLayout);
    Trial trial{state, [=] {
                  const BITMAPHANDLEDATACALLBACKS table = state->host.Table();
                  return V_CreateBitmapWithCallbacks(state->bitmap, kCurrentLayout, V_MemoryConventional, kWidth,
                                                     kHeight, 8, V_OrderRgb, nullptr, V_ViewTopLeft, nullptr, 0,
                                                     &table);
                }};
    trial.failures.push_back(state->host.refusal);
    trial.unchanged = [=] { EXPECT_EQ(state->bitmap.StorageFlags(), 0u); };
    trial.done = [=] { ExpectUsable(state->bitmap); };
    trial.host = &state->host;
    return trial;
  };
  EXPECT_GE(Walk("create with callbacks", make), 1u);
  EXPECT_EQ(WalkRefusals("create with callbacks", make), 1);
}

TEST_F(FaultWalk, AllocateInPlaceOfOtherStorage) {
  for (const uint32_t memory : {1u, 4u, 128u, 265u, 512u, 1024u})
    ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
      if (kind.setup == StorageKind::kHost || layout != kCurrentLayout) return;
      if (kind.roomInTiles > 0 && memory > 256) return;  // there is no room for it in memory
      if ((memory & V_MemoryCompressed) != 0 && !kind.IsRuns()) return;
      Walk("allocate " + std::to_string(memory) + " over " + Name(kind, layout), [=, &kind] {
        auto state = std::make_shared<Filled>(kind, layout);
        state->stored.Thresholds().Fifth(0);
        Trial trial{state, [=] { return V_AllocateBitmap(state->stored, memory); }};
        trial.failures.push_back(V_StatusMemoryLimit);
        trial.failures.push_back(V_StatusInvalidParameter);  // super-compressed without a handle count
        trial.unchanged = [=] { EXPECT_EQ(state->stored.Record().StorageFlags(), 0u); };
        trial.done = [=] { ExpectUsable(state->stored); };
        return trial;
      });
    });
}

TEST_F(FaultWalk, Free) {
  ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
    const auto make = [=, &kind] {
      auto state = std::make_shared<Filled>(kind, layout);
      Trial trial{state, [=] {
                    V_FreeBitmap(state->stored);
                    return 1;
                  }};
      trial.done = [=] {
        EXPECT_EQ(state->stored->Flags & V_FlagAllocated, 0u);
        EXPECT_EQ(Field(state->stored->pPalette), nullptr);
      };
      trial.host = &state->stored.Host();
      return trial;
    };
    Walk("free " + Name(kind, layout), make);
    if (kind.setup == StorageKind::kHost) {
      EXPECT_EQ(WalkRefusals("free " + Name(kind, layout), make), 1);
    }
  });
}

// --- rows -------------------------------------------------------------------------------------------------------

const std::vector<int64_t> kRowFailures = {V_StatusNoMemory, V_StatusFileSeek, V_StatusFileRead, -4242};
// A read that fails says so; a write that fails has not stored the bytes.
const std::vector<int64_t> kGetFailures = {V_StatusFileSeek, V_StatusFileRead, -4242};
const std::vector<int64_t> kPutFailures = {V_StatusFileSeek, V_StatusNoMemory, -4242};

TEST_F(FaultWalk, GetRows) {
  ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
    const auto make = [=, &kind] {
      struct State : Filled {
        using Filled::Filled;
        std::vector<uint8_t> got;
      };
      auto state = std::make_shared<State>(kind, layout);
      state->got.resize(state->pixels.size());
      Trial trial{state, [=] {
                    int32_t status = V_AccessBitmap(state->stored);
                    if (status != 1) return int64_t{status};
                    const int64_t moved = V_GetBitmapRow(state->stored, state->got.data(), 0, state->got.size());
                    status = V_ReleaseBitmap(state->stored);
                    return status == 1 ? moved : int64_t{status};
                  }};
      trial.failures = kGetFailures;
      if (kind.setup == StorageKind::kMovable) trial.failures = {V_StatusNoMemory};  // its lock
      trial.success = static_cast<int64_t>(state->pixels.size());
      trial.unchanged = [=] { state->ExpectUnchanged(); };
      trial.done = [=] {
        EXPECT_EQ(state->got, state->pixels);
        state->ExpectUnchanged();
      };
      trial.host = &state->stored.Host();
      return trial;
    };
    Walk("get rows " + Name(kind, layout), make);
    if (kind.setup == StorageKind::kHost) {
      EXPECT_EQ(WalkRefusals("get rows", make), 3);
    }
  });
}

// A put inside one tile either happens or does not.
TEST_F(FaultWalk, PutRow) {
  for (const int32_t row : {0, kHeight - 1})
    ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
      const auto make = [=, &kind] {
        auto state = std::make_shared<Filled>(kind, layout);
        const std::vector<uint8_t> line = Random(9).Bytes(kWidth - 7);
        Trial trial{state, [=] {
                      int32_t status = V_AccessBitmap(state->stored);
                      if (status != 1) return int64_t{status};
                      const int64_t moved = V_PutBitmapRowCol(state->stored, line.data(), row,
                                                              state->stored->BitsPerPixel == 1 ? 40 : 5, line.size());
                      status = V_ReleaseBitmap(state->stored);
                      if (status != 1 && moved > 0)  // the row is there, its release is what failed
                        std::copy(line.begin(), line.end(), state->pixels.begin() + row * kWidth + 5);
                      return status == 1 ? moved : int64_t{status};
                    }};
        trial.failures = kPutFailures;
        trial.success = static_cast<int64_t>(line.size());
        trial.unchanged = [=] { state->ExpectUnchanged(); };
        trial.done = [=] {
          std::copy(line.begin(), line.end(), state->pixels.begin() + row * kWidth + 5);
          EXPECT_EQ(ReadPixels(state->stored), state->pixels);
        };
        trial.host = &state->stored.Host();
        return trial;
      };
      Walk("put row " + std::to_string(row) + " " + Name(kind, layout), make);
      if (kind.setup == StorageKind::kHost) {
        EXPECT_EQ(WalkRefusals("put row", make), 3);
      }
    });
}

TEST_F(FaultWalk, PutSegments) {
  for (const int32_t bits : {1, 3, 8, 12})
    ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
      if (!kind.Holds(bits)) return;
      const auto make = [=, &kind] {
        auto state = std::make_shared<Filled>(kind, layout, bits);
        const auto data = std::make_shared<std::vector<uint8_t>>(Random(9).Bytes(64));
        Trial trial{state, [=] {
                      const BITMAPROWSEGMENT segments[] = {{1, 9, data->data()}, {21, 10, data->data() + 20}};
                      Access access(state->stored);
                      return V_PutBitmapRowSegments(state->stored, segments, 2, 4) > 0 ? int64_t{1} : int64_t{-1};
                    }};
        trial.unchanged = [=, &kind] {
          if (kind.IsRuns()) return;  // the size is that of the segments that were put
          EXPECT_EQ(state->stored.Record().Snapshot(), state->record);
        };
        trial.done = [=] {
          uint8_t* line = state->pixels.data() + 4 * state->stored->BytesPerLine;
          for (int32_t p = 0; p < 9; ++p) PutPixelAt(line, 1 + p, bits, PixelAt(data->data(), p, bits));
          for (int32_t p = 0; p < 10; ++p) PutPixelAt(line, 21 + p, bits, PixelAt(data->data() + 20, p, bits));
          EXPECT_EQ(ReadPixels(state->stored), state->pixels);
        };
        return trial;
      };
      if (kind.setup != StorageKind::kMovable)
        Walk("segments " + std::to_string(bits) + " " + Name(kind, layout), make);
    });
}

TEST_F(FaultWalk, ChangeHeight) {
  struct State : Filled {
    State(const StorageKind& kind, uint32_t layout, bool accessed) : Filled(kind, layout) {
      if (accessed) access.emplace(stored);
      record = stored.Record().Snapshot();
    }
    std::optional<Access> access;
  };
  for (const bool accessed : {false, true})
    for (const int32_t height : {4, 12, 30})
      ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
        if ((kind.flags & V_FlagMirror) != 0) return;
        if (accessed && kind.IsTiled()) return;  // an access does nothing to tiles
        const std::string name = (accessed ? "accessed " : "") + Name(kind, layout) + " to " + std::to_string(height);
        const uint64_t failures = Walk(name, [=, &kind] {
          auto state = std::make_shared<State>(kind, layout, accessed);
          Trial trial{state, [=] { return V_ChangeBitmapHeight(state->stored, height); }};
          trial.unchanged = [=] { state->ExpectUnchanged(); };
          trial.done = [=] {
            state->pixels.resize(kWidth * static_cast<size_t>(height));
            EXPECT_EQ(ReadPixels(state->stored), state->pixels);
            // Rows that were cut off, or that a failed growth left behind, never come back.
            state->pixels.resize(kWidth * size_t{40});
            ASSERT_EQ(V_ChangeBitmapHeight(state->stored, 40), 1);
            EXPECT_EQ(ReadPixels(state->stored), state->pixels);
          };
          return trial;
        });
        if (height > kHeight) {
          EXPECT_GE(failures, 1u) << name;
        }
      });
}

// --- what hangs from a bitmap ---------------------------------------------------------------------------------------

TEST_F(FaultWalk, SetOverlay) {
  for (const bool replaces : {false, true})
    ForEachStorage([&](const StorageKind& kind, uint32_t layout) {
      struct State {
        State(const StorageKind& source, uint32_t size) : target(kConventionalKind, size), overlay(source, size) {}
        Filled target, overlay;
        Bitmap old;
      };
      const auto make = [=, &kind] {
        auto state = std::make_shared<State>(kind, layout);
        if (replaces) {
          state->old.Create(V_MemoryConventional, 3, 3, 8);
          const BITMAPOVERLAY old = {sizeof(old), 1, 2, 0, state->old};
          EXPECT_EQ(V_SetBitmapOverlay(state->target.stored, 2, &old), 1);
          state->target.record = state->target.stored.Record().Snapshot();
        }
        Trial trial{state, [=] {
                      const BITMAPOVERLAY overlay = {sizeof(overlay), 3, 4, 2, state->overlay.stored};
                      return V_SetBitmapOverlay(state->target.stored, 2, &overlay);
                    }};
        trial.failures = kRowFailures;
        trial.failures.push_back(V_StatusMemoryLimit);
        trial.unchanged = [=] {
          BITMAPOVERLAY old = {sizeof(old), 0, 0, 0, nullptr};
          EXPECT_EQ(V_GetBitmapOverlay(state->target.stored, 2, &old), replaces ? 1 : -2);
          if (replaces) {
            EXPECT_EQ(old.x, 1);
            EXPECT_EQ(old.pBitmap->Width, 3);
          }
          EXPECT_EQ(ReadPixels(state->target.stored), state->target.pixels);
          state->overlay.ExpectUnchanged();
        };
        trial.done = [=] {
          BITMAPOVERLAY now = {sizeof(now), 0, 0, 0, nullptr};
          ASSERT_EQ(V_GetBitmapOverlay(state->target.stored, 2, &now), 1);
          EXPECT_EQ(now.x, 3);
          EXPECT_EQ(ReadPixels(now.pBitmap), state->overlay.pixels);
          state->overlay.ExpectUnchanged();
        };
        trial.host = &state->overlay.stored.Host();
        return trial;
      };
      Walk("overlay from " + Name(kind, layout), make);
      if (kind.setup == StorageKind::kHost) {
        EXPECT_GE(WalkRefusals("overlay from a host", make), 2);
      }
    });
}

// --- settings -----------------------------------------------------------------------------------------------------

// A thread whose settings cannot be made uses the process-wide ones.
TEST_F(FaultWalk, ThreadWithoutRoomForItsSettings) {
  struct Seen {
    int32_t set, whileFailing, afterwards;
  };
  const auto onNewThread = [](int32_t resolution) {
    Seen seen{};
    std::thread([&] {
      vexakrn::platform::FailCall(1, /*onwards=*/true);
      seen.set = V_SetDefaultResolution(resolution, resolution);
      seen.whileFailing = V_GetDefaultXResolution();
      EXPECT_TRUE(vexakrn::platform::HasFailed());
      vexakrn::platform::StopFailing();
      seen.afterwards = V_GetDefaultXResolution();
    }).join();
    return seen;
  };
  const auto live = vexakrn::platform::Live();
  const Seen seen = onNewThread(77);
  EXPECT_EQ(seen.set, 1);
  EXPECT_EQ(seen.whileFailing, 77);
  EXPECT_TRUE(seen.afterwards == 77 || seen.afterwards == 0) << "its own block, or the shared one for good";
  EXPECT_EQ(V_GetDefaultXResolution(), 0) << "this thread has its own";
  EXPECT_EQ(onNewThread(0).whileFailing, 0);  // and the shared one is as it was
  EXPECT_TRUE(vexakrn::platform::Live() == live);
}

}  // namespace
}  // namespace vexatest
