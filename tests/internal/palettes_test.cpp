// Prepared palettes and the engine's own ones.
#include "krn/palettes.h"

#include <gtest/gtest.h>

#include "common/cpu.h"
#include "internal/fault_walk.h"
#include "support/nearestentry.h"

namespace vexatest {
namespace {

using vexakrn::PaletteSearch;

class PreparedPalette : public testing::Test {
 protected:
  ~PreparedPalette() override { vexakrn::SetCpuLevel(start_); }

 private:
  const int32_t start_ = static_cast<int32_t>(vexakrn::ActiveCpuLevel());
};

// One object all the time: a shorter palette after a longer one leaves none of its entries behind.
TEST_F(PreparedPalette, FindsWhatAPlainSearchFindsAtEachLevel) {
  static PaletteSearch search;
  for (int32_t level = 0; level <= 3 && static_cast<int32_t>(vexakrn::SetCpuLevel(level)) == level; ++level) {
    Random random(4);
    for (size_t step = 0; step < 1500; ++step) {
      const NearestCase test(random, step % 3 == 0 ? 1 + step % 256 : 1 + random.Below(40));
      const auto colors = static_cast<uint32_t>(test.palette.size());
      search.Set(test.palette.data(), colors);
      for (int colours = 0; colours < 8; ++colours) {
        const int r = test.Level(random), g = test.Level(random), b = test.Level(random);
        ASSERT_EQ(search.Find(static_cast<uint32_t>(r), static_cast<uint32_t>(g), static_cast<uint32_t>(b)),
                  NearestEntry(test.palette, r, g, b))
            << "level " << level << ", step " << step << ", colour " << r << ", " << g << ", " << b << ", " << colors
            << " entries of " << test.levels << " levels";
      }
      const auto any = [&] { return static_cast<uint32_t>(random.Next() >> random.Below(64)); };
      const uint32_t r = any(), g = any(), b = any();
      ASSERT_EQ(search.Find(r, g, b), V_FindPaletteIndex(test.palette.data(), colors, r, g, b))
          << "level " << level << ", step " << step << ", colour " << r << ", " << g << ", " << b;
    }
  }
}

TEST(CubePalette, HasSixLevelsAndBlack) {
  const RGBQUAD* cube = vexakrn::CubePalette();
  for (int i = 0; i < 256; ++i) {
    const auto level = [i](int divisor) { return i < 216 ? i / divisor % 6 * 51 : 0; };
    EXPECT_EQ(cube[i].rgbRed, level(36)) << i;
    EXPECT_EQ(cube[i].rgbGreen, level(6)) << i;
    EXPECT_EQ(cube[i].rgbBlue, level(1)) << i;
    EXPECT_EQ(cube[i].rgbReserved, 0) << i;
  }
}

// --- failures -----------------------------------------------------------------------------------------------------

class PaletteFaults : public FaultWalk {
 protected:
  struct State {
    Bitmap bitmap;
    HPALETTE palette = nullptr, made = nullptr;
    ~State() {
      V_SysDelete(made);
      V_SysDelete(palette);
    }
  };

  // An 8-bit bitmap that begins with a palette of three entries, and a logical palette.
  static Trial Make(const std::function<int32_t(State&)>& run, bool losesPalette = false) {
    constexpr RGBQUAD kEntries[] = {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 8, 9, 0}};
    auto state = std::make_shared<State>();
    EXPECT_EQ(state->bitmap.Create(V_MemoryConventional, 2, 2, 8), 1);
    EXPECT_EQ(V_SetBitmapNewPalette(state->bitmap, kEntries, 3), 1);
    if (losesPalette) state->bitmap->nColors = 16;
    state->palette = V_SysCreatePalette(kEntries, 2);
    EXPECT_NE(state->palette, nullptr);
    Trial trial;
    trial.state = state;
    trial.run = [state, run] { return run(*state); };
    trial.unchanged = [state, before = state->bitmap.Snapshot(), losesPalette] {
      if (losesPalette) {
        EXPECT_TRUE(state->bitmap->pPalette == nullptr);
        EXPECT_EQ(Field(state->bitmap->nColors), 16);
      } else {
        EXPECT_EQ(state->bitmap.Snapshot(), before);
      }
    };
    return trial;
  }
};

TEST_F(PaletteFaults, LeaveThePaletteThatWasThere) {
  const auto each = [](auto run) { return [run] { return Make(run); }; };
  EXPECT_EQ(Walk("gray", each([](State& s) { return V_CreateBitmapGrayPalette(s.bitmap); })), 2u);
  EXPECT_EQ(Walk("logical", each([](State& s) { return V_SetBitmapPalette(s.bitmap, s.palette); })), 2u);
  EXPECT_EQ(Walk("fixed", [] { return Make([](State& s) { return V_CreateBitmapFixedPalette(s.bitmap); }, true); }),
            2u);
  EXPECT_EQ(Walk("duplicate", each([](State& s) {
                   s.made = V_DupPalette(s.palette);
                   return s.made ? 1 : -1;
                 })),
            2u);
}

TEST_F(PaletteFaults, LeaveABitmapWithoutPaletteAsItIs) {
  EXPECT_EQ(Walk("colours",
                 [] {
                   Trial trial = Make([](State& s) {
                     const RGBQUAD entry = {1, 2, 3, 0};
                     return V_PutBitmapColors(s.bitmap, 4, 1, &entry);
                   });
                   auto& bitmap = std::static_pointer_cast<State>(trial.state)->bitmap;
                   EXPECT_EQ(V_SetBitmapNewPalette(bitmap, nullptr, 0), 1);
                   bitmap->nColors = 5;
                   trial.unchanged = [&bitmap] { EXPECT_TRUE(bitmap->pPalette == nullptr); };
                   return trial;
                 }),
            2u);
}

}  // namespace
}  // namespace vexatest
