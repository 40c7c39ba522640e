// Palettes: the fixed and gray ones, those of bitmaps, the platform's, and the nearest entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/bitmap.h"
#include "support/guarded.h"
#include "support/nearestentry.h"
#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

constexpr uint32_t kFour[] = {0x00, 0x55, 0xAA, 0xFF};
constexpr uint32_t kEight[] = {0x00, 0x24, 0x49, 0x6D, 0x92, 0xB6, 0xDB, 0xFF};
constexpr uint32_t kSixteen[] = {0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0x808080,
                                 0xC0C0C0, 0xFF0000, 0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};

// Entry i of the fixed palette of 2^bits colours, as 0xRRGGBB.
uint32_t FixedEntry(uint32_t bits, uint32_t i) {
  const auto rgb = [](uint32_t r, uint32_t g, uint32_t b) { return r << 16 | g << 8 | b; };
  switch (bits) {
    case 1:
      return i * 0xFFFFFF;
    case 2:
      return kFour[i] * 0x010101;
    case 3:
      return rgb((i >> 2) * 255, (i >> 1 & 1) * 255, (i & 1) * 255);
    case 4:
      return kSixteen[i];
    case 5:
      return rgb(kFour[i >> 3], kFour[i >> 1 & 3], (i & 1) * 255);
    case 6:
      return rgb(kFour[i >> 4], kFour[i >> 2 & 3], kFour[i & 3]);
    case 7:
      return rgb(kFour[i >> 5], kEight[i >> 2 & 7], kFour[i & 3]);
    default:
      return rgb(kEight[i >> 5], kEight[i >> 2 & 7], kFour[i & 3]);
  }
}

uint32_t AsNumber(const RGBQUAD& entry) {
  return static_cast<uint32_t>(entry.rgbReserved) << 24 | static_cast<uint32_t>(entry.rgbRed) << 16 |
         static_cast<uint32_t>(entry.rgbGreen) << 8 | entry.rgbBlue;
}

TEST(Palettes, FixedAndGrayOnesFollowTheirRules) {
  for (uint32_t bits = 0; bits <= 8; ++bits) {
    RGBQUAD* fixed = V_CreateFixedPalette(bits);
    ASSERT_NE(fixed, nullptr);
    const uint32_t fixedBits = std::max(bits, 1u);
    for (uint32_t i = 0; i < 1u << fixedBits; ++i)
      EXPECT_EQ(AsNumber(fixed[i]), FixedEntry(fixedBits, i)) << bits << " bits, entry " << i;
    V_FreeBuffer(fixed);

    RGBQUAD* gray = V_CreateGrayPalette(bits);
    ASSERT_NE(gray, nullptr);
    const uint32_t count = 1u << (bits == 0 ? 8 : bits);
    for (uint32_t i = 0; i < count; ++i)
      EXPECT_EQ(AsNumber(gray[i]), i * 255 / (count - 1) * 0x010101) << bits << " bits, entry " << i;
    V_FreeBuffer(gray);
  }
  for (const uint32_t bits : {9u, 16u, 32u, UINT32_MAX}) {
    EXPECT_EQ(V_CreateFixedPalette(bits), nullptr) << bits;
    EXPECT_EQ(V_CreateGrayPalette(bits), nullptr) << bits;
  }
}

TEST(Palettes, BitmapsKeepCopies) {
  RGBQUAD colors[3] = {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 8, 9, 1}};
  BITMAPHANDLE first, second;
  ASSERT_EQ(V_InitBitmap(&first, 284, 1, 1, 4), 1);
  ASSERT_EQ(V_InitBitmap(&second, 228, 1, 1, 8), 1);
  ASSERT_EQ(V_SetBitmapNewPalette(&first, colors, 3), 1);
  EXPECT_EQ(V_SetBitmapNewPalette(&first, colors, 257), -13) << "and nothing is read or changed";
  ASSERT_EQ(V_CopyBitmapPalette(&second, &first), 1);
  colors[1] = {};
  ASSERT_EQ(V_SetBitmapNewPalette(&first, nullptr, 3), 1);
  EXPECT_TRUE(first.pPalette == nullptr);
  ASSERT_TRUE(second.nColors == 3);
  EXPECT_EQ(AsNumber(second.pPalette[1]), 0x060504u);
  ASSERT_EQ(V_CopyBitmapPalette(&second, &first), 1);
  EXPECT_TRUE(second.pPalette == nullptr);
}

TEST(Palettes, FixedOnesOfBitmapsGoByTheNumberOfColours) {
  for (uint32_t bits = 1; bits <= 8; ++bits) {
    Bitmap bitmap(bits % 2 == 0 ? kCurrentLayout : kOlderLayout);
    ASSERT_EQ(bitmap.Init(1, 1, 8), 1);
    bitmap->nColors = 1 << bits;
    ASSERT_EQ(V_CreateBitmapFixedPalette(bitmap), 1);
    constexpr uint32_t kOfFour[] = {0x000000, 0xFFFFFF, 0x000000, 0x555555};
    for (uint32_t i = 0; i < 1u << bits; ++i)
      EXPECT_EQ(AsNumber(bitmap->pPalette[i]), bits == 2 ? kOfFour[i] : FixedEntry(bits, i)) << bits << ", " << i;
    for (const int32_t colors : {0, 1, 3, 255, 257, -2}) {
      ASSERT_EQ(V_CreateBitmapGrayPalette(bitmap), 1);
      EXPECT_EQ(Field(bitmap->nColors), 256);
      bitmap->nColors = colors;
      EXPECT_EQ(V_CreateBitmapFixedPalette(bitmap), 0) << colors;
      EXPECT_TRUE(bitmap->pPalette == nullptr) << colors;
    }
  }
  Bitmap deep;
  ASSERT_EQ(deep.Init(1, 1, 12), 1);
  EXPECT_EQ(V_CreateBitmapGrayPalette(deep), -27);
}

TEST(Palettes, EntriesAreOverwrittenWithinThePalette) {
  const RGBQUAD colors[2] = {{1, 2, 3, 9}, {4, 5, 6, 9}};
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Init(3, 1, 4), 1);
  EXPECT_EQ(V_PutBitmapColors(bitmap, 0, 2, colors), -2) << "not allocated";
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  for (const auto& [index, count] : {std::pair(-1, 1), {15, 2}, {0, 17}, {1, -1}, {INT32_MAX, INT32_MAX}})
    EXPECT_EQ(V_PutBitmapColors(bitmap, index, count, colors), -13) << index << ", " << count;
  EXPECT_EQ(V_PutBitmapColors(bitmap, 0, 1, nullptr), -13);
  ASSERT_TRUE(bitmap->pPalette == nullptr) << "no palette was made for them";
  ASSERT_EQ(V_PutBitmapColors(bitmap, 14, 2, colors), 1);
  for (uint32_t i = 0; i < 14; ++i) EXPECT_EQ(AsNumber(bitmap->pPalette[i]), 0u) << i;
  EXPECT_EQ(AsNumber(bitmap->pPalette[14]), 0x09030201u);
  EXPECT_EQ(AsNumber(bitmap->pPalette[15]), 0x09060504u);

  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, bitmap->pPalette, 16), 1);
  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, bitmap->pPalette, 17), 0) << "the bitmap has no 17th entry";
  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, colors, 2), 0);
  ASSERT_EQ(V_PutBitmapColors(bitmap, 0, 2, colors), 1);
  const RGBQUAD otherReserved[2] = {{1, 2, 3, 0}, {4, 5, 6, 1}}, otherGreen[2] = {{1, 2, 3, 9}, {4, 7, 6, 9}};
  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, otherReserved, 2), 1);
  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, otherGreen, 2), 0);
  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, otherGreen, 1), 1);
  ASSERT_EQ(V_SetBitmapNewPalette(bitmap, nullptr, 0), 1);
  EXPECT_EQ(V_CompareBitmapToPalette(bitmap, otherGreen, 2), 1) << "nothing differs from no entries";

  Bitmap deep;
  ASSERT_EQ(deep.Create(V_MemoryConventional, 1, 1, 24), 1);
  deep->nColors = 2;
  EXPECT_EQ(V_PutBitmapColors(deep, 0, 1, colors), -13);
}

// --- logical palettes -----------------------------------------------------------------------------------------------

struct LogicalPalette {
  explicit LogicalPalette(HPALETTE p) : handle(p) {}
  LogicalPalette(const std::vector<RGBQUAD>& entries, uint32_t count)
      : handle(V_SysCreatePalette(entries.data(), count)) {}
  ~LogicalPalette() { V_SysDelete(handle); }
  LogicalPalette(const LogicalPalette&) = delete;
  LogicalPalette& operator=(const LogicalPalette&) = delete;
  HPALETTE handle;
};

std::vector<RGBQUAD> RandomEntries(Random& random, size_t count) {
  std::vector<RGBQUAD> entries(count);
  random.Fill(entries.data(), count * sizeof(RGBQUAD));
  return entries;
}

TEST(LogicalPalettes, HoldTheirColours) {
  Random random(5);
  const std::vector<RGBQUAD> entries = RandomEntries(random, 257);
  EXPECT_EQ(V_SysCreatePalette(entries.data(), 0), nullptr);
  EXPECT_EQ(V_SysCreatePalette(entries.data(), 257), nullptr);
  EXPECT_EQ(V_SysCreatePalette(nullptr, 2), nullptr);
  EXPECT_EQ(V_DupPalette(nullptr), nullptr);
  EXPECT_EQ(V_SysGetPaletteEntries(nullptr, 0, 1, nullptr), 0u);
  V_SysDelete(nullptr);
  for (const uint32_t count : {1u, 2u, 17u, 256u}) {
    const LogicalPalette first(entries, count);
    ASSERT_NE(first.handle, nullptr);
    const LogicalPalette copy(V_DupPalette(first.handle));
    ASSERT_NE(copy.handle, nullptr);
    for (HPALETTE palette : {first.handle, copy.handle}) {
      EXPECT_EQ(V_SysGetPaletteEntries(palette, 0, 0, nullptr), count);
      GuardedBytes out(count * sizeof(RGBQUAD));
      auto* read = reinterpret_cast<RGBQUAD*>(out.data());
      ASSERT_EQ(V_SysGetPaletteEntries(palette, 0, 400, read), count) << "no more than there are";
      EXPECT_TRUE(out.GuardsIntact());
      for (uint32_t i = 0; i < count; ++i)
        EXPECT_EQ(AsNumber(read[i]), AsNumber(entries[i]) & 0xFFFFFF) << "entry " << i << " of " << count;
      ASSERT_EQ(V_SysGetPaletteEntries(palette, count - 1, 5, read), 1u);
      EXPECT_EQ(AsNumber(read[0]), AsNumber(entries[count - 1]) & 0xFFFFFF);
      EXPECT_EQ(V_SysGetPaletteEntries(palette, count, 1, read), 0u);
    }
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Init(1, 1, 8), 1);
    EXPECT_EQ(V_SetBitmapPalette(bitmap, copy.handle), count == 1 ? -13 : 1) << count;
    if (count == 1) continue;
    ASSERT_EQ(Field(bitmap->nColors), static_cast<int32_t>(count));
    EXPECT_EQ(V_CompareBitmapToPalette(bitmap, entries.data(), count), 1);
  }
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Init(1, 1, 8), 1);
  EXPECT_EQ(V_SetBitmapPalette(bitmap, nullptr), -13);
}

// The first of the nearest, whatever the ordering of components: not the engine's own rule.
TEST(LogicalPalettes, FindTheFirstOfTheNearest) {
  Random random(6);
  for (int step = 0; step < 200; ++step) {
    const NearestCase test(random, 1 + random.Below(step % 10 == 0 ? 256 : 9));
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Init(1, 1, 8), 1);
    EXPECT_EQ(V_GetNearestPaletteIndex(bitmap, 0x0000FF), 0u) << "no palette";
    ASSERT_EQ(V_SetBitmapNewPalette(bitmap, test.palette.data(), static_cast<uint32_t>(test.palette.size())), 1);
    for (int colours = 0; colours < 5; ++colours) {
      const int r = test.Level(random), g = test.Level(random), b = test.Level(random);
      const auto distance = [&](const RGBQUAD& e) {
        return (e.rgbRed - r) * (e.rgbRed - r) + (e.rgbGreen - g) * (e.rgbGreen - g) +
               (e.rgbBlue - b) * (e.rgbBlue - b);
      };
      const auto nearest = std::min_element(test.palette.begin(), test.palette.end(),
                                            [&](const auto& x, const auto& y) { return distance(x) < distance(y); });
      EXPECT_EQ(V_GetNearestPaletteIndex(bitmap, static_cast<uint32_t>(r | g << 8 | b << 16)),
                static_cast<uint32_t>(nearest - test.palette.begin()))
          << "step " << step << ", colour " << r << ", " << g << ", " << b << ", " << test.palette.size() << " entries";
    }
  }
}

// --- the nearest entry ------------------------------------------------------------------------------------------------

class NearestEntryAtEachLevel : public testing::Test {
 protected:
  ~NearestEntryAtEachLevel() override { V_SetCpuLevel(start_); }

  template <typename Test>
  static void AtEachLevel(Test test) {
    for (int32_t level = 0; level <= 3 && V_SetCpuLevel(level) == level; ++level) {
      SCOPED_TRACE(testing::Message() << "level " << level);
      test();
    }
  }

  // The palette ends where guards begin, and starts at any entry of a vector.
  static uint32_t Find(const std::vector<RGBQUAD>& palette, uint32_t r, uint32_t g, uint32_t b) {
    const size_t skipped = palette.size() % 16 * sizeof(RGBQUAD);
    GuardedBytes room(skipped + palette.size() * sizeof(RGBQUAD));
    if (!palette.empty()) std::memcpy(room.data() + skipped, palette.data(), palette.size() * sizeof(RGBQUAD));
    return V_FindPaletteIndex(reinterpret_cast<const RGBQUAD*>(room.data() + skipped),
                              static_cast<uint32_t>(palette.size()), r, g, b);
  }

 private:
  const int32_t start_ = V_GetCpuLevel();
};

TEST_F(NearestEntryAtEachLevel, IsThatOfAPlainSearch) {
  AtEachLevel([] {
    Random random(2);
    constexpr size_t kLong[] = {257, 511, 513, 1000, 4096, 65535};
    for (size_t step = 0; step < 1200; ++step) {
      const bool isLong = step % 100 == 99;
      const NearestCase test(random, isLong          ? kLong[step / 100 % 6]
                                     : step % 4 == 0 ? step % 257
                                                     : 1 + random.Below(40));
      for (int colours = 0; colours < 6; ++colours) {
        const int r = test.Level(random), g = test.Level(random), b = test.Level(random);
        ASSERT_EQ(Find(test.palette, static_cast<uint32_t>(r), static_cast<uint32_t>(g), static_cast<uint32_t>(b)),
                  NearestEntry(test.palette, r, g, b))
            << "step " << step << ", colour " << r << ", " << g << ", " << b << ", " << test.palette.size()
            << " entries of " << test.levels << " levels";
      }
    }
  });
  EXPECT_EQ(V_FindPaletteIndex(nullptr, 3, 1, 2, 3), 0u);
}

// Outside 0 to 255 there is nothing to find, but all levels say the same and none overflows.
TEST_F(NearestEntryAtEachLevel, ComponentsOutOfRangeGiveTheSameAtAllLevels) {
  Random random(3);
  constexpr uint32_t kComponents[] = {0, 128, 255, 256, 511, 0x7FFF, 0xFFFF, 0x10000, 0x7FFFFFFF, UINT32_MAX};
  for (int step = 0; step < 300; ++step) {
    const NearestCase test(random, 1 + random.Below(60));
    const auto component = [&] { return kComponents[random.Below(10)]; };
    const uint32_t r = component(), g = component(), b = component();
    std::vector<uint32_t> found;
    AtEachLevel([&] { found.push_back(Find(test.palette, r, g, b)); });
    EXPECT_EQ(found, std::vector<uint32_t>(found.size(), found[0])) << r << ", " << g << ", " << b;
    EXPECT_LT(found[0], test.palette.size());
  }
}

}  // namespace
}  // namespace vexatest
