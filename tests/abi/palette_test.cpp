// Palettes: the fixed and gray ones, those of bitmaps, the platform's, and the nearest entry.
#include "support/nearestentry.h"
#include "support/testing.h"

namespace vexatest {
namespace {

constexpr uint32_t kSixteen[] = {0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0x808080,
                                 0xC0C0C0, 0xFF0000, 0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF};

// Entry i of the fixed palette of 2^bits colours, as 0xRRGGBB.
uint32_t FixedEntry(uint32_t bits, uint32_t i) {
  if (bits <= 2) return i * 255 / ((1u << bits) - 1) * 0x010101;
  if (bits == 4) return kSixteen[i];
  constexpr uint32_t kBits[][3] = {{1, 1, 1}, {}, {2, 2, 1}, {2, 2, 2}, {2, 3, 2}, {3, 3, 2}};  // of red, green, blue
  const auto& [red, green, blue] = kBits[bits - 3];
  const auto level = [](uint32_t value, uint32_t of) {
    return ((value & ((1u << of) - 1)) * 510 / ((1u << of) - 1) + 1) / 2;
  };
  return level(i >> (green + blue), red) << 16 | level(i >> blue, green) << 8 | level(i, blue);
}

uint32_t AsNumber(const RGBQUAD& entry) {
  return static_cast<uint32_t>(entry.rgbReserved) << 24 | static_cast<uint32_t>(entry.rgbRed) << 16 |
         static_cast<uint32_t>(entry.rgbGreen) << 8 | entry.rgbBlue;
}

TEST(Palettes, FixedAndGrayOnesFollowTheirRules) {
  for (uint32_t bits = 0; bits <= 8; ++bits) {
    RGBQUAD *fixed = V_CreateFixedPalette(bits), *gray = V_CreateGrayPalette(bits);
    ASSERT_TRUE(fixed && gray);
    const uint32_t fixedBits = std::max(bits, 1u), count = 1u << (bits == 0 ? 8 : bits);
    for (uint32_t i = 0; i < 1u << fixedBits; ++i)
      EXPECT_EQ(AsNumber(fixed[i]), FixedEntry(fixedBits, i)) << bits << " bits, entry " << i;
    V_FreeBuffer(fixed);
    for (uint32_t i = 0; i < count; ++i)
      EXPECT_EQ(AsNumber(gray[i]), i * 255 / (count - 1) * 0x010101) << bits << " bits, entry " << i;
    V_FreeBuffer(gray);
  }
  for (const uint32_t bits : {9u, 16u, 32u, UINT32_MAX}) {
    EXPECT_EQ(V_CreateFixedPalette(bits), nullptr) << bits;
    EXPECT_EQ(V_CreateGrayPalette(bits), nullptr) << bits;
  }
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
  Bitmap bitmap, deep;
  ASSERT_EQ(bitmap.Init(3, 1, 4), 1);
  EXPECT_EQ(V_PutBitmapColors(bitmap, 0, 2, colors), -2) << "not allocated";
  ASSERT_EQ(V_AllocateBitmap(bitmap, V_MemoryConventional), 1);
  for (const auto& [index, count] : {std::pair(-1, 1), {15, 2}, {0, 17}, {1, -1}, {INT32_MAX, INT32_MAX}})
    EXPECT_EQ(V_PutBitmapColors(bitmap, index, count, colors), -13) << index << ", " << count;
  EXPECT_EQ(V_PutBitmapColors(bitmap, 0, 1, nullptr), -13);
  EXPECT_EQ(V_SetBitmapNewPalette(bitmap, colors, 257), -13) << "and nothing is read";
  ASSERT_TRUE(bitmap->pPalette == nullptr) << "no palette was made for them";
  ASSERT_EQ(V_PutBitmapColors(bitmap, 14, 2, colors), 1);
  for (uint32_t i = 0; i < 16; ++i)
    EXPECT_EQ(AsNumber(bitmap->pPalette[i]), i < 14 ? 0u : i == 14 ? 0x09030201u : 0x09060504u) << i;
  ASSERT_EQ(deep.Create(V_MemoryConventional, 1, 1, 24), 1);
  deep->nColors = 2;
  EXPECT_EQ(V_PutBitmapColors(deep, 0, 1, colors), -13);

  ASSERT_EQ(V_PutBitmapColors(bitmap, 0, 2, colors), 1);
  const RGBQUAD otherReserved[2] = {{1, 2, 3, 0}, {4, 5, 6, 1}}, otherGreen[2] = {{1, 2, 3, 9}, {4, 7, 6, 9}};
  const auto compare = [&](const RGBQUAD* with, uint32_t count) {
    return V_CompareBitmapToPalette(bitmap, with, count);
  };
  EXPECT_EQ(compare(bitmap->pPalette, 16), 1);
  EXPECT_EQ(compare(bitmap->pPalette, 17), 0) << "the bitmap has no 17th entry";
  EXPECT_EQ(compare(otherReserved, 2), 1);
  EXPECT_EQ(compare(otherGreen, 2), 0);
  EXPECT_EQ(compare(otherGreen, 1), 1);
  ASSERT_EQ(V_SetBitmapNewPalette(bitmap, nullptr, 0), 1);
  EXPECT_EQ(compare(otherGreen, 2), 1) << "nothing differs from no entries";
}

// --- logical palettes ---

TEST(LogicalPalettes, HoldTheirColours) {
  std::vector<RGBQUAD> entries(257);
  Random(5).Fill(entries.data(), entries.size() * sizeof(RGBQUAD));
  EXPECT_EQ(V_SysCreatePalette(entries.data(), 0), nullptr);
  EXPECT_EQ(V_SysCreatePalette(entries.data(), 257), nullptr);
  EXPECT_EQ(V_SysCreatePalette(nullptr, 2), nullptr);
  EXPECT_EQ(V_DupPalette(nullptr), nullptr);
  EXPECT_EQ(V_SysGetPaletteEntries(nullptr, 0, 1, nullptr), 0u);
  V_SysDelete(nullptr);
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Init(1, 1, 8), 1);
  EXPECT_EQ(V_SetBitmapPalette(bitmap, nullptr), -13);
  for (const uint32_t count : {1u, 2u, 17u, 256u}) {
    const HPALETTE first = V_SysCreatePalette(entries.data(), count), copy = V_DupPalette(first);
    for (HPALETTE palette : {first, copy}) {
      GuardedBytes out(count * sizeof(RGBQUAD));
      auto* read = reinterpret_cast<RGBQUAD*>(out.data());
      for (const auto& [start, asked, got] : {std::tuple(count - 1, 5u, 1u), {count, 1, 0}, {0, 400, count}})
        EXPECT_EQ(V_SysGetPaletteEntries(palette, start, asked, read), got) << "no more than there are";
      EXPECT_EQ(V_SysGetPaletteEntries(palette, 0, 0, nullptr), count);
      for (uint32_t i = 0; i < count; ++i)
        EXPECT_EQ(AsNumber(read[i]), AsNumber(entries[i]) & 0xFFFFFF) << "entry " << i << " of " << count;
      EXPECT_TRUE(out.GuardsIntact());
      EXPECT_EQ(V_SetBitmapPalette(bitmap, palette), count == 1 ? -13 : 1) << count;
      EXPECT_EQ(V_CompareBitmapToPalette(bitmap, entries.data(), count), 1);
      V_SysDelete(palette);
    }
  }
}

// The first of the nearest, whatever the ordering of components: not the engine's own rule.
TEST(LogicalPalettes, FindTheFirstOfTheNearest) {
  Random random(6);
  for (int step = 0; step < 1000; ++step) {
    const NearestCase test(random, 1 + random.Below(step % 10 == 0 ? 256 : 9));
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Init(1, 1, 8), 1);
    EXPECT_EQ(V_GetNearestPaletteIndex(bitmap, 0x0000FF), 0u) << "no palette";
    ASSERT_EQ(V_SetBitmapNewPalette(bitmap, test.palette.data(), static_cast<uint32_t>(test.palette.size())), 1);
    const int r = test.Level(random), g = test.Level(random), b = test.Level(random);
    const auto less = [&](const RGBQUAD& x, const RGBQUAD& y) { return Distance(x, r, g, b) < Distance(y, r, g, b); };
    const auto nearest = std::min_element(test.palette.begin(), test.palette.end(), less) - test.palette.begin();
    EXPECT_EQ(V_GetNearestPaletteIndex(bitmap, static_cast<uint32_t>(r | g << 8 | b << 16)), nearest) << step;
  }
}

}  // namespace
}  // namespace vexatest
