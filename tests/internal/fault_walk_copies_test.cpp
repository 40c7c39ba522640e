// Copies, moves into other storage, records and lists with every call to the system failing in turn.
#include <cstring>

#include "fault_walk.h"
#include "support/bitmap.h"
#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

constexpr int32_t kWidth = 320, kHeight = 11;  // 1-bit pixels: every kind of storage holds them

// A page with known pixels.
struct Page {
  explicit Page(const StorageKind& kind, uint32_t layout = kCurrentLayout) : stored(kind, layout, kWidth, kHeight, 1) {
    pixels = Random(1).Bytes(stored->BytesPerLine * size_t{kHeight});
    WritePixels(stored, pixels);
    stored.Thresholds().Fifth(0);
    record = stored.Record().Snapshot();
  }
  void ExpectUnchanged() {
    EXPECT_EQ(stored.Record().Snapshot(), record) << "the record changed";
    EXPECT_EQ(ReadPixels(stored), pixels) << "the pixels changed";
  }
  StoredBitmap stored;
  std::vector<uint8_t> pixels, record;
};

const std::vector<int64_t> kCopyFailures = {V_StatusNoMemory,
                                            V_StatusFileSeek,
                                            V_StatusFileRead,
                                            V_StatusMemoryLimit,
                                            V_StatusInvalidParameter,  // super-compressed without a handle count
                                            -4242};

TEST_F(FaultWalk, Copies) {
  struct State {
    explicit State(const StorageKind& kind) : source(kind), small(kConventionalKind) {
      const BITMAPOVERLAY overlay = {sizeof overlay, 1, 1, 0, small.stored};
      EXPECT_EQ(V_SetBitmapOverlay(source.stored, 0, &overlay), 1);
      source.record = source.stored.Record().Snapshot();
    }
    Page source, small;
    Bitmap copy;
  };
  for (const StorageKind& kind : kStorageKinds)
    for (const uint32_t memory : {1u, 512u, 1024u}) {
      const bool rectangle = memory == V_MemoryCompressed;
      const auto make = [&] {
        auto state = std::make_shared<State>(kind);
        Trial trial{state, [=] {
                      return rectangle ? V_CopyBitmapRect2(state->copy, state->source.stored, kCurrentLayout, 3, 2,
                                                           kWidth, kHeight, memory)
                                       : V_CopyBitmap2(state->copy, state->source.stored, kCurrentLayout, memory);
                    }};
        trial.failures = kCopyFailures;
        trial.unchanged = [=] {
          EXPECT_EQ(state->copy.StorageFlags(), 0u);
          state->source.ExpectUnchanged();
        };
        trial.done = [=] {
          EXPECT_EQ(state->copy->Height, kHeight - 2 * rectangle);
          if (rectangle) return;
          EXPECT_EQ(ReadPixels(state->copy), state->source.pixels);
        };
        trial.host = &state->source.stored.Host();
        return trial;
      };
      const std::string name = std::string("copy of ") + kind.name + " to " + std::to_string(memory);
      EXPECT_GE(Walk(name, make), 4u) << "records, storage, palette and overlay are asked for";
      if (kind.setup == StorageKind::kHost) {
        EXPECT_GE(WalkRefusals(name, make), 2);
      }
    }
}

TEST_F(FaultWalk, MovesIntoOtherStorage) {
  for (const StorageKind& kind : kStorageKinds)
    for (const uint32_t memory : {1u, 4u, 128u, 512u, 1024u}) {
      if (kind.setup == StorageKind::kHost) continue;  // keeps what it moves, too
      Walk(std::string("move of ") + kind.name + " to " + std::to_string(memory), [&] {
        auto state = std::make_shared<Page>(kind);
        Trial trial{state, [=] { return V_SetBitmapMemoryInfo(state->stored, memory, 100, 0, 0, 3); }};
        trial.failures = kCopyFailures;
        trial.unchanged = [=] { state->ExpectUnchanged(); };
        trial.done = [=] { EXPECT_EQ(ReadPixels(state->stored), state->pixels); };
        return trial;
      });
    }
}

TEST_F(FaultWalk, RowsAsRecords) {
  for (const StorageKind& kind : kStorageKinds) {
    const auto make = [&] {
      auto state = std::make_shared<Page>(kind);
      const auto record = std::make_shared<std::vector<uint8_t>>(V_RECORD_BYTES(kWidth));
      std::vector<uint8_t> row(kWidth / 8, 0x55);  // a long record: it fits no place that another had
      V_CompressRow(record->data(), row.data(), 0, kWidth);
      Trial trial{state, [=] {
                    const Access access(state->stored);
                    const int64_t put = V_PutBitmapRowCompressed(state->stored, record->data(), 4, record->size());
                    if (put < 0) return put;
                    std::copy(row.begin(), row.end(), state->pixels.begin() + 4 * kWidth / 8);
                    std::vector<uint8_t> got(record->size());
                    const int64_t bytes =
                        V_GetBitmapRowCompressed(state->stored, got.data(), 4, got.size() - 2);  // it just fits
                    return bytes < 0 ? bytes : V_PutBitmapRowColCompressed(state->stored, got.data(), 4, 0, kWidth);
                  }};
      trial.failures = {V_StatusNoMemory, V_StatusFileSeek, V_StatusFileRead, -4242};
      trial.success = 4 + 2 * kWidth;
      trial.unchanged = [=] { EXPECT_EQ(ReadPixels(state->stored), state->pixels); };
      trial.done = trial.unchanged;
      return trial;
    };
    if (kind.setup != StorageKind::kMovable) Walk(std::string("records of ") + kind.name, make);
  }
}

// One step of each kind of list work on a list of four; a failure leaves its names as they were.
TEST_F(FaultWalk, Lists) {
  struct State {
    State() {
      V_CreateBitmapList(&list);
      for (int32_t name = 0; name < 4; ++name) {
        BITMAPHANDLE named;
        V_CreateBitmap(&named, kCurrentLayout, 1, 4, 2, 8, 0, nullptr, 1, nullptr, 0);
        named.Delay = name;
        V_InsertBitmapListItem(list, V_LIST_END, &named);
      }
    }
    ~State() {
      for (const HBITMAPLIST each : {list, made})
        if (each) V_DestroyBitmapList(each);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    uint32_t Count() const {
      uint32_t count = 0;
      V_GetBitmapListCount(list, &count);
      return count;
    }
    HBITMAPLIST list = nullptr, made = nullptr;
    Bitmap item;
  };
  struct Operation {
    const char* name;
    int32_t (*run)(State&);
    uint32_t countAfter;
  };
  const Operation operations[] = {
      {"insert", [](State& s) { return V_InsertBitmapListItem(s.list, 1, s.item); }, 5},
      {"copy", [](State& s) { return V_CopyBitmapListItems(&s.made, s.list, 1, 3); }, 4},
      {"move", [](State& s) { return V_MoveBitmapListItems(&s.made, s.list, 1, 3); }, 1},
      {"delete", [](State& s) { return V_DeleteBitmapListItems(s.list, 0, 3); }, 1},
      {"create", [](State& s) { return V_CreateBitmapList(&s.made); }, 4},
  };
  for (const Operation& operation : operations)
    Walk(operation.name, [&] {
      auto state = std::make_shared<State>();
      state->item.Init(0, 0, 0);
      Trial trial{state, [=, run = operation.run] { return run(*state); }};
      trial.unchanged = [=] {
        EXPECT_EQ(state->Count(), 4u);
        EXPECT_EQ(state->made, nullptr);
      };
      trial.done = [=, &operation] { EXPECT_EQ(state->Count(), operation.countAfter); };
      return trial;
    });
}

}  // namespace
}  // namespace vexatest
