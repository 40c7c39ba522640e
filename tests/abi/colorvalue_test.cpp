// What is gray, and colour values in the terms of bitmaps.
#include "support/nearestentry.h"
#include "support/testing.h"

namespace vexatest {
namespace {

enum Mode { kNone, kNormal, kInverse, kNotOrdered };

std::vector<RGBQUAD> Grays(const std::vector<int>& levels) {
  std::vector<RGBQUAD> entries;
  for (const int level : levels) {
    const auto l = static_cast<uint8_t>(level);
    entries.push_back({l, l, l, 7});  // the reserved byte is no colour
  }
  return entries;
}

std::vector<int> Ramp(int count, int first, int step) {
  std::vector<int> levels;
  for (int i = 0; i < count; ++i) levels.push_back(first + i * step);
  return levels;
}

int32_t ModeOf(const std::vector<RGBQUAD>& entries) {
  return V_IsGrayScalePalette(entries.data(), static_cast<uint32_t>(entries.size()));
}

void GiveTable(BITMAPHANDLE* bitmap, const std::vector<RGBQUAD>& entries) {
  V_FreeBuffer(bitmap->pLUT);
  bitmap->pLUT = static_cast<RGBQUAD*>(V_ReallocBuffer(nullptr, entries.size() * sizeof(RGBQUAD)));
  std::memcpy(bitmap->pLUT, entries.data(), entries.size() * sizeof(RGBQUAD));
  bitmap->LUTLength = static_cast<uint32_t>(entries.size());
}

TEST(Grayscale, PalettesAreOrderedByEqualSteps) {
  EXPECT_EQ(V_IsGrayScalePalette(nullptr, 2), -13);
  const std::pair<Mode, std::vector<std::vector<int>>> kCases[] = {
      {kNormal, {{0}, {0, 255}, {0, 127, 254}, Ramp(256, 0, 1), Ramp(200, 0, 1), Ramp(8, 0, 36), Ramp(300, 0, 0)}},
      {kInverse, {{255}, {255, 0}, {255, 128, 1}, Ramp(256, 255, -1)}},
      {kNotOrdered, {{128}, {0, 254}, {254, 0}, {0, 128, 255}, Ramp(16, 255, -16)}}};
  for (const auto& [mode, palettes] : kCases)
    for (const std::vector<int>& levels : palettes)
      EXPECT_EQ(ModeOf(Grays(levels)), mode) << levels.size() << " levels from " << levels[0];
  for (const size_t component : {0u, 1u, 2u}) {
    std::vector<RGBQUAD> entries = Grays(Ramp(256, 0, 1));
    reinterpret_cast<uint8_t*>(&entries[255])[component] ^= 1;
    EXPECT_EQ(ModeOf(entries), kNone) << "component " << component;
  }
}

TEST(Grayscale, BitmapsAreClassifiedByPaletteOrTable) {
  Bitmap bitmap;
  ASSERT_EQ(bitmap.Init(1, 1, 4), 1);
  const auto withPalette = [&](const std::vector<RGBQUAD>& entries) {
    EXPECT_EQ(V_SetBitmapNewPalette(bitmap, entries.data(), static_cast<uint32_t>(entries.size())), 1);
    return V_IntIsGrayScaleBitmap(bitmap, 0);
  };
  EXPECT_EQ(V_IntIsGrayScaleBitmap(bitmap, 0), kNone) << "no palette";
  EXPECT_EQ(withPalette(Grays(Ramp(16, 255, -17))), kInverse);
  EXPECT_EQ(withPalette(Grays(Ramp(15, 0, 18))), kNotOrdered) << "an index without entry";
  EXPECT_EQ(withPalette(Grays(Ramp(256, 0, 1))), kNotOrdered) << "the entries that can be shown are no ramp";
  EXPECT_EQ(withPalette({{1, 2, 3, 0}, {0, 0, 0, 0}}), kNone);

  Bitmap gray;
  ASSERT_EQ(gray.Init(1, 1, 16), 1);
  EXPECT_EQ(V_IntIsGrayScaleBitmap(gray, 0), kNone) << "not of gray order";
  gray->Order = V_OrderGray;
  EXPECT_EQ(V_IntIsGrayScaleBitmap(gray, 0), kNormal);
  const auto withTable = [&](const std::vector<RGBQUAD>& entries) {
    GiveTable(gray, entries);
    return V_IntIsGrayScaleBitmap(gray, 0);
  };
  EXPECT_EQ(withTable(Grays({3, 3, 9, 200})), kNormal);
  EXPECT_EQ(withTable(Grays({200, 9, 9, 3})), kInverse);
  EXPECT_EQ(withTable(Grays({3, 9, 3})), kNotOrdered);
  EXPECT_EQ(withTable({{3, 3, 3, 0}, {4, 4, 5, 0}}), kNone);
}

// In both layouts, through copies of the same depth, and gone with the bitmap.
TEST(Grayscale, MinAndMaxStayWithTheSamples) {
  for (const uint32_t layout : kLayouts) {
    Bitmap bitmap(layout), same(layout), deeper(layout), other(layout);
    ASSERT_EQ(bitmap.Create(V_MemoryConventional, 2, 2, 12, V_OrderGray), 1);
    EXPECT_EQ(V_SetBitmapMinMax(bitmap, 5, 4), -13);
    const auto expect = [](BITMAPHANDLE* of, int32_t wantMin, int32_t wantMax) {
      int32_t min = 1, max = 1;
      EXPECT_TRUE(V_GetBitmapMinMax(of, &min, nullptr) == 1 && V_GetBitmapMinMax(of, nullptr, &max) == 1);
      EXPECT_EQ(std::pair(min, max), std::pair(wantMin, wantMax));
    };
    ASSERT_EQ(V_SetBitmapMinMax(bitmap, -1000, 70000), 1);
    ASSERT_EQ(V_DupBitmapNewDim(same, bitmap, layout, 4, 4, 0), 1);
    ASSERT_EQ(V_DupBitmapNewDim(deeper, bitmap, layout, 2, 2, 16), 1);
    bitmap->LowBit = 2;
    bitmap->PaintHighBit = 9;
    bitmap->Flags |= V_FlagSigned;
    ASSERT_EQ(other.Init(1, 1, 12), 1);
    ASSERT_EQ(V_CopyGrayParams(other, bitmap), 1);
    EXPECT_TRUE(other->LowBit == 2 && other->PaintHighBit == 9 && other->Flags == uint32_t{V_FlagSigned});
    for (BITMAPHANDLE* kept : {bitmap.get(), same.get(), other.get()}) expect(kept, -1000, 70000);
    V_FreeBitmap(bitmap);
    for (BITMAPHANDLE* without : {bitmap.get(), deeper.get()}) expect(without, 0, 0);
  }
}

// --- colour values ---

constexpr uint32_t kIndex = 0x01000000, kGray = 0x04000000;

// Red, green, blue, dark gray, and nothing more: of 16 indices 4 have an entry.
struct ColorValues : testing::Test {
  ColorValues() {
    const RGBQUAD colors[] = {{0, 0, 255, 1}, {0, 255, 0, 2}, {255, 0, 0, 3}, {10, 10, 10, 0}};
    const RGBQUAD others[] = {{0, 0, 255, 0}, {90, 90, 90, 0}, {250, 0, 0, 0}};
    EXPECT_EQ(four.Init(1, 1, 4), 1);
    EXPECT_EQ(V_SetBitmapNewPalette(four, colors, 4), 1);
    EXPECT_EQ(three.Init(1, 1, 8), 1);
    EXPECT_EQ(V_SetBitmapNewPalette(three, others, 3), 1);
    EXPECT_EQ(bare.Init(1, 1, 8), 1);
    EXPECT_EQ(deep.Init(1, 1, 24), 1);
    EXPECT_EQ(wide.Init(1, 1, 16), 1);
    wide->Order = V_OrderGray;
  }

  Bitmap four, three, bare, deep, wide;
};

TEST_F(ColorValues, AreTranslatedBetweenBitmaps) {
  const struct {
    BITMAPHANDLE *dst, *src;
    uint32_t value, want;
    const char* what;
  } cases[] = {
      {nullptr, four, kIndex | 1, kIndex | 1, "no destination"},
      {deep, four, kIndex | 1, 0x00FF00, "the entry's colour"},
      {deep, four, kIndex | 0x00990002, 0xFF0000, "an index has 16 bits"},
      {deep, four, kIndex | 4, 0, "no such entry"},
      {deep, deep, kIndex | 1, 0, "no palette"},
      {deep, bare, kIndex | 1, 0, "no entries"},
      {deep, nullptr, kIndex | 1, 0, "no source"},
      {three, four, kIndex | 0, kIndex | 0, "the same colour at the same index"},
      {three, four, kIndex | 2, kIndex | 2, "the nearest"},
      {three, four, kIndex | 9, kIndex | 1, "the nearest to black"},
      {three, nullptr, kIndex | 0, kIndex | 1, "the nearest to black"},
      {bare, four, kIndex | 1, kIndex | 0, "nothing to choose from"},
      {deep, four, 0x123456, 0x123456, "plain stays plain"},
      {four, deep, 0x00F011, kIndex | 1, "the nearest"},
      {four, nullptr, 0xFF0000, kIndex | 2, "the nearest"},
      {four, four, kGray | 0x998012, 0x808080, "gray without a table"},
      {wide, nullptr, kGray | 0x1000, 0x101010, "gray without a table"},
      {four, four, 0x02000001, 0x02000001, "a kind that means nothing"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(V_TranslateBitmapColor(c.dst, c.src, c.value), c.want) << c.what << ", case " << &c - cases;
  const std::tuple<BITMAPHANDLE*, uint32_t, uint32_t> kPlain[] = {
      {four, kIndex | 2, 0xFF0000}, {four, kIndex | 4, kIndex | 4},   {bare, kIndex | 0, kIndex | 0},
      {four, 0x00F011, 0x00FF00},   {four, kGray | 0x5500, 0x555555}, {deep, 0x123456, 0x123456},
      {deep, kIndex | 1, 0},        {nullptr, kIndex | 1, kIndex | 1}};
  for (const auto& [bitmap, value, want] : kPlain) EXPECT_EQ(V_GetTrueColorValue(bitmap, value), want) << value;
  Bitmap broken;
  EXPECT_EQ(V_TranslateBitmapColor(broken, four, kIndex | 1), kIndex | 1);
  EXPECT_EQ(V_TranslateBitmapColor(deep, broken, kIndex | 1), 0u);
  EXPECT_EQ(V_GetTrueColorValue(broken, kGray), kGray);
}

TEST_F(ColorValues, OfGrayBitmapsGoThroughTheTableInUse) {
  GiveTable(wide, Grays({0, 100, 200, 100}));
  wide->Flags |= V_FlagUseLUT;
  EXPECT_EQ(V_TranslateBitmapColor(wide, nullptr, kGray | 0xC000), kIndex | 2);
  EXPECT_EQ(V_TranslateBitmapColor(wide, nullptr, kGray | 0x6300), kIndex | 3) << "the later of equals, both are gray";
  EXPECT_EQ(V_GetTrueColorValue(wide, kGray | 0xC000), 0xC8C8C8u);
  EXPECT_EQ(V_GetTrueColorValue(wide, kIndex | 1), 0u) << "no palette, no colour";
  wide->Flags &= ~uint32_t{V_FlagUseLUT};
  EXPECT_EQ(V_TranslateBitmapColor(wide, nullptr, kGray | 0xC000), 0xC0C0C0u) << "not in use";
  wide->Flags |= V_FlagUseLUT;
  std::vector<RGBQUAD> entries(65536, RGBQUAD{0, 0, 0, 0});
  entries[65534] = {99, 99, 99, 0};
  entries[65535] = {100, 100, 100, 0};
  GiveTable(wide, entries);
  EXPECT_EQ(V_TranslateBitmapColor(wide, nullptr, kGray | 0x6400), kIndex | 65534) << "the last one cannot be named";
}

TEST_F(ColorValues, OfAWideTableAreItsHighBytes) {
  constexpr uint16_t kEntries[][4] = {{0, 0, 0, 0}, {0x10FF, 0x2000, 0x30AB, 0}, {0xF0FF, 0xF000, 0xF0FF, 0}};
  wide->pLUT16 = V_ReallocBuffer(nullptr, sizeof kEntries);
  std::memcpy(wide->pLUT16, kEntries, sizeof kEntries);
  wide->LUTLength16 = 3;
  EXPECT_EQ(V_GetTrueColorValue(wide, kGray | 0x2500), 0x252525u) << "not in use";
  wide->Flags |= V_FlagUseLUT;
  EXPECT_EQ(V_GetTrueColorValue(wide, kGray | 0x2500), 0x102030u);
  EXPECT_EQ(V_GetTrueColorValue(wide, kGray | 0xFF00), 0xF0F0F0u);
}

}  // namespace
}  // namespace vexatest
