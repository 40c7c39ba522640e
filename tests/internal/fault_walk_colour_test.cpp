// Conversion, dithering and whole bitmaps to another depth with every call to the system failing in turn.
#include "fault_walk.h"
#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

constexpr int32_t kWidth = 64, kHeight = 9;

const std::vector<RGBQUAD> kPalette = {{1, 2, 3, 0}, {200, 10, 90, 0}, {40, 250, 100, 0}, {0, 0, 0, 0}};

struct Source {
  explicit Source(const StorageKind& kind, int32_t bits) : stored(kind, kCurrentLayout, kWidth, kHeight, bits) {
    pixels = Random(1).Bytes(size_t{stored->BytesPerLine} * kHeight);
    WritePixels(stored, pixels);
    stored->DitherMethod = V_DitheringStucki;
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

TEST_F(FaultWalk, DitheringPasses) {
  for (const int32_t bits : {1, 8, 24}) {
    const auto make = [&] {
      auto state = std::make_shared<Source>(kConventionalKind, bits);
      Trial trial{state, [=]() -> int64_t {
                    std::vector<uint8_t> line(kWidth);
                    const int32_t started = V_StartDitheringExt(state->stored, kPalette.data(), 4, 2, nullptr);
                    const int32_t dithered = V_DitherLine(state->stored, state->pixels.data(), line.data());
                    EXPECT_EQ(dithered, started == 1 ? 1 : V_StatusInvalidParameter) << "a pass, or none";
                    EXPECT_EQ(V_StopDithering(state->stored), 1);
                    return started;
                  }};
      trial.unchanged = trial.done = [=] { state->ExpectUnchanged(); };
      return trial;
    };
    EXPECT_GE(Walk("pass from " + std::to_string(bits), make), 3u) << "the context, its table and its rows";
  }
}

TEST_F(FaultWalk, LinesAndPalettes) {
  const auto make = [] {
    Trial trial{nullptr, []() -> int64_t {
                  uint8_t line[4 * kWidth] = {};
                  uint32_t* table = V_CreateUserMatchTable(kPalette.data(), 4);
                  V_FreeUserMatchTable(table);
                  RGBQUAD* gray = V_CreateGrayPalette(3);
                  V_FreeBuffer(gray);
                  if (!table || !gray) return V_StatusNoMemory;
                  for (const auto& [from, to] : {std::pair(24, 8), std::pair(5, 4), std::pair(64, 1)})
                    if (const int32_t status = V_ConvertBuffer(line, 8, from, to, 0, 0, nullptr, kPalette.data());
                        status != 1)
                      return status;
                  return 1;
                }};
    return trial;
  };
  EXPECT_GE(Walk("lines and palettes", make), 3u);
}

const std::vector<int64_t> kFailures = {V_StatusNoMemory,
                                        V_StatusFileSeek,
                                        V_StatusFileRead,
                                        V_StatusMemoryLimit,
                                        V_StatusInvalidParameter,  // super-compressed without a handle count
                                        -4242};

TEST_F(FaultWalk, WholeBitmapsToAnotherDepth) {
  struct State {
    State(const StorageKind& kind, int32_t bits) : source(kind, bits) {}
    Source source;
    Bitmap apart;
  };
  struct {
    int32_t from, to;
    uint32_t options;
    bool inPlace;
  } const cases[] = {{1, 4, V_ColorResFixedPalette, true},
                     {24, 4, V_ColorResOptimized, false},
                     {24, 2, V_ColorResUsePalette, true},
                     {8, 24, V_ColorResFixedPalette, false}};
  for (const StorageKind& kind : kStorageKinds)
    for (const auto& c : cases) {
      if (!kind.Holds(c.from)) continue;
      const auto make = [&] {
        auto state = std::make_shared<State>(kind, c.from);
        Trial trial{state, [=] {
                      return V_ColorResBitmap(state->source.stored, c.inPlace ? nullptr : state->apart.get(),
                                              kCurrentLayout, c.to, c.options, kPalette.data(), nullptr, 4);
                    }};
        trial.failures = kFailures;
        trial.unchanged = [=] { state->source.ExpectUnchanged(); };
        trial.done = [=] {
          EXPECT_EQ(Field(c.inPlace ? state->source.stored->BitsPerPixel : state->apart->BitsPerPixel), c.to);
          if (!c.inPlace) state->source.ExpectUnchanged();
        };
        trial.host = &state->source.stored.Host();
        return trial;
      };
      const std::string name = std::string(kind.name) + " " + std::to_string(c.from) + " to " + std::to_string(c.to);
      EXPECT_GE(Walk(name, make), 2u);
      if (kind.setup == StorageKind::kHost) {
        EXPECT_GE(WalkRefusals(name, make), 3);
      }
    }
}

TEST_F(FaultWalk, ListsToAnotherDepth) {
  struct State {
    State() {
      V_CreateBitmapList(&list);
      for (int32_t i = 0; i < 3; ++i) {
        BITMAPHANDLE item;
        V_CreateBitmap(&item, kCurrentLayout, 1, 8, 2, 24, V_OrderBgr, nullptr, 1, nullptr, 0);
        V_InsertBitmapListItem(list, V_LIST_END, &item);
      }
    }
    ~State() { V_DestroyBitmapList(list); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    void ExpectDepth(int32_t bits) const {
      for (uint32_t i = 0; i < 3; ++i) {
        BITMAPHANDLE item;
        EXPECT_EQ(V_GetBitmapListItem(list, i, &item, kCurrentLayout), 1);
        EXPECT_EQ(Field(item.BitsPerPixel), bits);
      }
    }
    HBITMAPLIST list = nullptr;
  };
  const auto make = [] {
    auto state = std::make_shared<State>();
    Trial trial{state,
                [=] { return V_ColorResBitmapListExt(state->list, 4, V_ColorResOptimized, nullptr, nullptr, 0); }};
    trial.unchanged = [=] { state->ExpectDepth(24); };
    trial.done = [=] { state->ExpectDepth(4); };
    return trial;
  };
  EXPECT_GE(Walk("list", make), 8u);
}

}  // namespace
}  // namespace vexatest
