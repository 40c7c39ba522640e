// The nearest entry, in palettes as they are and prepared, and palettes without memory.
#include "krn/palettes.h"

#include "fault_walk.h"
#include "support/nearestentry.h"

namespace vexatest {
namespace {

// The palette ends where guards begin, and starts at any entry of a vector. One prepared object all the time: a shorter
// palette after a longer one leaves none of its entries behind.
TEST(NearestEntry, IsThatOfAPlainSearchAtEachLevel) {
  static vexakrn::PaletteSearch search;
  constexpr size_t kLong[] = {257, 511, 513, 1000, 4096, 65535};
  constexpr uint32_t kComponents[] = {0, 128, 255, 256, 511, 0x7FFF, 0xFFFF, 0x10000, 0x7FFFFFFF, UINT32_MAX};
  std::vector<uint32_t> outside;  // what is found for components out of range: the same at all levels
  AtEachLevel([&] {
    Random random(4);
    std::vector<uint32_t> found;
    for (size_t step = 0; step < 2000; ++step) {
      const NearestCase test(random, step % 100 == 99 ? kLong[step / 100 % 6]
                                     : step % 3 == 0  ? 1 + step % 256
                                                      : 1 + random.Below(40));
      const size_t bytes = test.palette.size() * sizeof(RGBQUAD), skipped = test.palette.size() % 16 * sizeof(RGBQUAD);
      GuardedBytes room(skipped + bytes);
      std::memcpy(room.data() + skipped, test.palette.data(), bytes);
      const auto* entries = reinterpret_cast<const RGBQUAD*>(room.data() + skipped);
      const auto colors = static_cast<uint32_t>(test.palette.size());
      if (colors <= 256) search.Set(entries, colors);
      for (int colours = 0; colours < 8; ++colours) {
        const uint32_t r = test.Level(random), g = test.Level(random), b = test.Level(random);
        const uint32_t want = NearestEntry(test.palette, static_cast<int>(r), static_cast<int>(g), static_cast<int>(b));
        ASSERT_EQ(V_FindPaletteIndex(entries, colors, r, g, b), want)
            << "step " << step << ", colour " << r << ", " << g << ", " << b << ", " << colors << " entries";
        ASSERT_EQ(colors <= 256 ? search.Find(r, g, b) : want, want) << "prepared, step " << step;
      }
      const auto any = [&] { return kComponents[random.Below(10)]; };
      const uint32_t r = any(), g = any(), b = any();
      found.push_back(V_FindPaletteIndex(entries, colors, r, g, b));
      ASSERT_LT(found.back(), colors);
      ASSERT_EQ(colors <= 256 ? search.Find(r, g, b) : found.back(), found.back()) << r << ", " << g << ", " << b;
    }
    if (outside.empty()) outside = found;
    ASSERT_EQ(found, outside);
  });
  EXPECT_EQ(V_FindPaletteIndex(nullptr, 0, 1, 2, 3), 0u) << "no palette";
  EXPECT_EQ(V_FindPaletteIndex(vexakrn::CubePalette(), 0, 1, 2, 3), UINT32_MAX);
}

TEST(CubePalette, HasSixLevelsAndBlack) {
  for (int i = 0; i < 256; ++i) {
    const auto level = [i](int divisor) { return static_cast<uint8_t>(i < 216 ? i / divisor % 6 * 51 : 0); };
    const RGBQUAD want = {level(1), level(6), level(36), 0};
    EXPECT_EQ(std::memcmp(&vexakrn::CubePalette()[i], &want, sizeof want), 0) << i;
  }
}

// A failure leaves the palette that was there, or none where none was or the old one goes first.
TEST_F(FaultWalk, Palettes) {
  struct State {
    Bitmap bitmap;
    HPALETTE palette = nullptr, made = nullptr;
    ~State() { V_SysDelete(made), V_SysDelete(palette); }
  };
  static constexpr RGBQUAD kEntries[] = {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 8, 9, 0}};
  const struct {
    const char* name;
    int32_t (*run)(State&);
    int32_t colors;  // of a bitmap without a palette; 0 for one with three entries
  } kCases[] = {
      {"gray", [](State& s) { return V_CreateBitmapGrayPalette(s.bitmap); }, 0},
      {"logical", [](State& s) { return V_SetBitmapPalette(s.bitmap, s.palette); }, 0},
      {"duplicate", [](State& s) { return (s.made = V_DupPalette(s.palette)) ? 1 : -1; }, 0},
      {"fixed", [](State& s) { return V_CreateBitmapFixedPalette(s.bitmap); }, 16},
      {"colours", [](State& s) { return V_PutBitmapColors(s.bitmap, 4, 1, kEntries); }, 5},
  };
  for (const auto& c : kCases) {
    const auto make = [&c] {
      auto state = std::make_shared<State>();
      EXPECT_EQ(state->bitmap.Create(V_MemoryConventional, 2, 2, 8), 1);
      EXPECT_EQ(V_SetBitmapNewPalette(state->bitmap, c.colors > 0 ? nullptr : kEntries, 3), 1);
      if (c.colors > 0) state->bitmap->nColors = c.colors;
      state->palette = V_SysCreatePalette(kEntries, 2);
      Trial trial{state, [state, &c] { return c.run(*state); }};
      trial.unchanged = [state, before = state->bitmap.Snapshot()] { EXPECT_EQ(state->bitmap.Snapshot(), before); };
      return trial;
    };
    EXPECT_EQ(Walk(c.name, make), 2u) << c.name;
  }
}

}  // namespace
}  // namespace vexatest
