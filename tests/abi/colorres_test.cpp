// Whole bitmaps to another depth: the pixels against those of the line functions, palettes, records, failures.
#include "support/nearestentry.h"
#include "support/testing.h"

namespace vexatest {
namespace {

constexpr int32_t kWidth = 37, kHeight = 70;  // more rows than are dithered at a time

using Pixels = std::vector<uint8_t>;
using Palette = std::vector<RGBQUAD>;

Palette PaletteOf(BITMAPHANDLE* bitmap) { return {bitmap->pPalette, bitmap->pPalette + bitmap->nColors}; }

using Components = std::tuple<uint8_t, uint8_t, uint8_t>;
std::vector<Components> ColorsOf(const Palette& palette, bool sorted = false) {
  std::vector<Components> colors;
  for (const RGBQUAD& entry : palette) colors.emplace_back(entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
  if (sorted) std::sort(colors.begin(), colors.end());
  return colors;
}

Pixels Padded(BITMAPHANDLE* bitmap, Pixels pixels) {
  for (size_t row = 0; row < kHeight; ++row)
    V_PadPixelData(pixels.data() + row * bitmap->BytesPerLine, kWidth, bitmap->BitsPerPixel, bitmap->BytesPerLine);
  return pixels;
}

// Random rows with zeros behind the last pixel.
Pixels Picture(BITMAPHANDLE* bitmap, uint64_t seed) {
  return Padded(bitmap, Random(seed).Bytes(size_t{bitmap->BytesPerLine} * kHeight));
}

// The result's rows as the line functions make them from the same source.
Pixels ByLines(BITMAPHANDLE* source, BITMAPHANDLE* result) {
  const Pixels pixels = ReadPixels(source);
  Pixels expected(size_t{result->BytesPerLine} * kHeight);
  const bool dithers = result->BitsPerPixel <= 8;
  if (dithers) {
    EXPECT_EQ(V_StartDitheringExt(source, result->pPalette, static_cast<uint32_t>(result->nColors),
                                  static_cast<uint32_t>(result->BitsPerPixel), nullptr),
              1);
  }
  Pixels line(V_CalcConvertSize(kWidth, source->BitsPerPixel, kWidth, result->BitsPerPixel));
  for (size_t row = 0; row < kHeight; ++row) {
    const uint8_t* from = pixels.data() + row * source->BytesPerLine;
    uint8_t* to = expected.data() + row * result->BytesPerLine;
    if (dithers) {
      EXPECT_EQ(V_DitherLine(source, from, to), 1);
      continue;
    }
    std::copy(from, from + source->BytesPerLine, line.begin());
    EXPECT_EQ(V_ConvertBufferExt(line.data(), kWidth, source->BitsPerPixel, result->BitsPerPixel, source->Order,
                                 result->Order, source->pPalette, nullptr, V_ConvertAlphaInit, -1, -1),
              1);
    std::copy_n(line.begin(), result->BytesPerLine, to);
    EXPECT_EQ(V_PadPixelData(to, kWidth, result->BitsPerPixel, result->BytesPerLine), 1);
  }
  if (dithers) {
    EXPECT_EQ(V_StopDithering(source), 1);
  }
  return expected;
}

TEST(ColorRes, EveryStorageGivesThePixelsOfTheLineFunctions) {
  for (const StorageKind& kind : kStorageKinds)
    for (const uint32_t layout : kLayouts) {
      if (layout == kOlderLayout && !kind.InOlderLayout()) continue;
      for (const int32_t from : {1, 8, 16, 24, 64})
        for (const int32_t to : {1, 3, 8, 12, 16, 24, 32, 48}) {
          if (!kind.Holds(from)) continue;
          SCOPED_TRACE(testing::Message() << kind.name << " " << from << " to " << to);
          AccountBalance balance;
          StoredBitmap source(kind, layout, kWidth, kHeight, from, from > 8 ? V_OrderBgr : V_OrderRgb);
          ASSERT_EQ(source.Status(), 1);
          source->DitherMethod = to == 8 ? V_DitheringOrdered : V_DitheringJarvis;
          WritePixels(source, Picture(source, 5));
          Bitmap apart(layout);
          const Pixels record = source.Record().Snapshot();
          ASSERT_EQ(V_ColorResBitmap(source, apart, layout, to, 0, nullptr, nullptr, 0), 1);
          EXPECT_EQ(source.Record().Snapshot(), record);
          const Pixels expected = ByLines(source, apart);
          EXPECT_EQ(Padded(apart, ReadPixels(apart)), expected);
          ASSERT_EQ(V_ColorResBitmap(source, nullptr, 0, to, V_ColorResFixedPalette, nullptr, nullptr, 0), 1);
          EXPECT_EQ(Field(source->BitsPerPixel), to);
          EXPECT_EQ(Padded(source, ReadPixels(source)), expected);
        }
    }
}

// A picture of 24-bit pixels in memory.
struct ColorPicture {
  explicit ColorPicture(uint64_t seed = 1) {
    EXPECT_EQ(bitmap.Create(V_MemoryConventional, kWidth, kHeight, 24, V_OrderBgr), 1);
    bitmap->DitherMethod = V_DitheringNone;
    WritePixels(bitmap, Picture(bitmap, seed));
  }
  // Few colours, the same in every picture of as many.
  explicit ColorPicture(const Palette& colors) : ColorPicture() {
    Random random(colors.size());
    Pixels pixels(size_t{bitmap->BytesPerLine} * kHeight);
    for (size_t i = 0; i < size_t{kWidth} * kHeight; ++i) {
      const RGBQUAD& c = colors[i < colors.size() ? i : random.Below(colors.size())];
      uint8_t* at = pixels.data() + i / kWidth * bitmap->BytesPerLine + i % kWidth * 3;
      at[0] = c.rgbBlue, at[1] = c.rgbGreen, at[2] = c.rgbRed;
    }
    WritePixels(bitmap, pixels);
  }
  RGBQUAD At(size_t x, size_t y) {
    const uint8_t* at = bitmap->Addr.Windows.pData + y * bitmap->BytesPerLine + 3 * x;
    return {at[0], at[1], at[2], 0};
  }
  Bitmap bitmap;
};

Palette Scattered(size_t colors) {
  Random random(9);
  Palette palette(colors);
  for (RGBQUAD& entry : palette)
    entry = {static_cast<uint8_t>(random.Next()), static_cast<uint8_t>(random.Next()),
             static_cast<uint8_t>(random.Next()), 0};
  return palette;
}

TEST(ColorRes, SlowMatchFindsTheNearestEntryOfEachPixel) {
  ColorPicture picture;
  for (const size_t colors : {5u, 16u, 200u}) {
    Palette palette = Scattered(colors), allowed;
    for (size_t i = 0; i < colors; i += 5) palette[i].rgbReserved = static_cast<uint8_t>(1 + i % 3);  // never chosen
    std::vector<size_t> index;
    for (size_t i = 0; i < colors; ++i)
      if (i % 5 != 0) allowed.push_back(palette[i]), index.push_back(i);
    const int32_t bits = colors <= 8 ? 3 : colors <= 16 ? 4 : 8;
    Bitmap result;
    ASSERT_EQ(V_ColorResBitmap(picture.bitmap, result, kCurrentLayout, bits, V_ColorResUsePalette | V_ColorResSlowMatch,
                               palette.data(), nullptr, static_cast<int32_t>(colors)),
              1);
    EXPECT_EQ(ColorsOf(PaletteOf(result)), ColorsOf(palette));
    const Pixels pixels = ReadPixels(result);
    for (size_t y = 0; y < kHeight; ++y)
      for (size_t x = 0; x < kWidth; ++x) {
        const RGBQUAD c = picture.At(x, y);
        ASSERT_EQ(PixelAt(pixels.data() + y * result->BytesPerLine, static_cast<int32_t>(x), bits),
                  index[NearestEntry(allowed, c.rgbRed, c.rgbGreen, c.rgbBlue)]);
      }
  }
}

// A picture of few colours keeps them all; of many, the palette serves it better than the fixed one does.
TEST(ColorRes, OptimizedPalettes) {
  const Palette colors = Scattered(200);
  ColorPicture few(colors);
  ASSERT_EQ(V_ColorResBitmap(few.bitmap, nullptr, 0, 8, V_ColorResOptimized, nullptr, nullptr, 0), 1);
  EXPECT_EQ(ColorsOf(PaletteOf(few.bitmap), true), ColorsOf(colors, true));

  const auto error = [](uint32_t options) {
    ColorPicture picture;
    const Pixels was = ReadPixels(picture.bitmap);
    EXPECT_EQ(V_ColorResBitmap(picture.bitmap, nullptr, 0, 8, options | V_ColorResSlowMatch, nullptr, nullptr, 64), 1);
    EXPECT_LE(Field(picture.bitmap->nColors), 64);
    EXPECT_EQ(V_ColorResBitmap(picture.bitmap, nullptr, 0, 24, 0, nullptr, nullptr, 0), 1);
    const Pixels is = ReadPixels(picture.bitmap);
    uint64_t sum = 0;
    for (size_t i = 0; i < is.size(); ++i) sum += static_cast<uint64_t>((was[i] - is[i]) * (was[i] - is[i]));
    return sum;
  };
  EXPECT_LT(error(V_ColorResOptimized) * 2, error(V_ColorResFixedPalette));

  Palette pure = Scattered(60);
  pure[7] = {0, 0, 255, 0}, pure[8] = {255, 255, 255, 0};
  ColorPicture picture(pure);
  ASSERT_EQ(V_ColorResBitmap(picture.bitmap, nullptr, 0, 4, V_ColorResOptimized | V_ColorResFavorPureColors, nullptr,
                             nullptr, 0),
            1);
  const std::vector<Components> kept = ColorsOf(PaletteOf(picture.bitmap));
  for (const Components& color : {Components{255, 0, 0}, {255, 255, 255}})
    EXPECT_EQ(std::count(kept.begin(), kept.end(), color), 1);
}

// One row of more pixels than are counted: white, but for a few colours in the end.
TEST(ColorRes, TheCommonColorOfAVastPictureIsKept) {
  constexpr int32_t kVast = (1 << 24) + 5000;
  Bitmap bitmap, result;
  ASSERT_EQ(bitmap.Create(V_MemoryConventional, kVast, 1, 24, V_OrderBgr), 1);
  bitmap->DitherMethod = V_DitheringNone;
  Pixels row(bitmap->BytesPerLine, 0xFF);
  for (size_t i = 0; i < 9000; ++i) row[row.size() - 1 - i] = static_cast<uint8_t>(i * i / 7);
  WritePixels(bitmap, row);
  ASSERT_EQ(V_ColorResBitmap(bitmap, result, kCurrentLayout, 4, V_ColorResOptimized | V_ColorResSlowMatch, nullptr,
                             nullptr, 16),
            1);
  const RGBQUAD& first = result->pPalette[result->Addr.Windows.pData[0] >> 4];
  EXPECT_EQ(first.rgbRed & first.rgbGreen & first.rgbBlue, 255);
}

// Of more pixels than are counted no pattern is missed.
TEST(ColorRes, AVastPatternKeepsItsColors) {
  Bitmap stripes, result;
  ASSERT_EQ(stripes.Create(V_MemoryConventional, 4096, 4098, 1), 1);
  Pixels pixels(stripes->BytesPerLine * size_t{4098});
  for (size_t y = 1; y < 4098; y += 2) std::fill_n(&pixels[y * stripes->BytesPerLine], stripes->BytesPerLine, 0xFF);
  WritePixels(stripes, pixels);
  ASSERT_EQ(V_ColorResBitmap(stripes, result, kCurrentLayout, 1, V_ColorResOptimized, nullptr, nullptr, 2), 1);
  EXPECT_TRUE(ReadPixels(result) == pixels);
}

TEST(ColorRes, TheRecordFollowsTheNewFormat) {
  Bitmap gray;
  ASSERT_EQ(gray.Create(V_MemoryConventional, kWidth, kHeight, 16, V_OrderGray, V_ViewBottomLeft), 1);
  WritePixels(gray, Picture(gray, 3));
  gray->LowBit = 2, gray->HighBit = 11, gray->Delay = 7;
  const auto expect = [&](int32_t bits, int32_t order, int32_t high) {
    Bitmap result;
    ASSERT_EQ(V_ColorResBitmap(gray, result, kCurrentLayout, bits, 0, nullptr, nullptr, 0), 1);
    EXPECT_EQ(std::tuple(Field(result->Order), Field(result->HighBit)), std::tuple(order, high)) << bits;
    EXPECT_EQ(std::tuple(Field(result->Delay), Field(result->ViewPerspective)), std::tuple(7, int{V_ViewBottomLeft}));
    if (bits == 16) {
      EXPECT_EQ(ReadPixels(result), ReadPixels(gray));  // with its range
    } else if (bits == 12) {
      const uint64_t value = PixelAt(gray->Addr.Windows.pData, 3, 16) >> 2 & 0x3FF;
      EXPECT_EQ(PixelAt(result->Addr.Windows.pData, 3, 12) >> 4, value >> 2);
    }
  };
  expect(16, V_OrderGray, 11);
  expect(12, V_OrderGray, 11);
  expect(24, V_OrderBgr, 7);
  expect(8, V_OrderRgb, 7);

  Bitmap frame;
  ASSERT_EQ(frame.Create(V_MemoryConventional, 4, 2, 8), 1);
  ASSERT_EQ(V_CreateBitmapGrayPalette(frame), 1);
  frame->HighBit = 3, frame->Transparency = 0x01000010, frame->Background = 0x00112233;
  ASSERT_EQ(V_ColorResBitmap(frame, nullptr, 0, 8, V_ColorResFixedPalette, nullptr, nullptr, 0), 1);
  EXPECT_EQ(Field(frame->HighBit), 7);
  EXPECT_EQ(Field(frame->Background), 0x00112233);
  EXPECT_EQ(static_cast<uint32_t>(frame->Transparency), V_TranslateBitmapColor(frame, nullptr, 0x00101010));
  ASSERT_EQ(V_ColorResBitmap(frame, nullptr, 0, 16, 0, nullptr, nullptr, 0), 1);
  EXPECT_EQ(Field(frame->Order), V_OrderBgr);
  ASSERT_EQ(V_ColorResBitmap(frame, nullptr, 0, 0, 0, nullptr, nullptr, 0), 1);
  EXPECT_EQ(V_IntIsGrayScaleBitmap(frame, 0), 1);
}

// Refuses at the k-th call.
struct Refusal {
  explicit Refusal(int32_t k) : left(k) { V_SetStatusCallBack(&Call, this, nullptr, nullptr); }
  ~Refusal() { V_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr); }
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;
  static int32_t V_CALL Call(int32_t, void* self) { return --static_cast<Refusal*>(self)->left == 0 ? -100 : 1; }
  int32_t left;
};

TEST(ColorRes, RefusesWithoutAChange) {
  ColorPicture picture;
  BITMAPHANDLE* const bitmap = picture.bitmap;
  const Palette palette = Scattered(16);
  const Pixels pixels = ReadPixels(bitmap), record = picture.bitmap.Snapshot();
  Bitmap other;
  const Pixels untouched = other.Snapshot();
  struct {
    BITMAPHANDLE *source, *result;
    uint32_t structSize;
    int32_t bits;
    uint32_t options;
    const RGBQUAD* palette;
    int32_t colors, status;
  } const cases[] = {
      {nullptr, other, kCurrentLayout, 8, 0, nullptr, 0, -13},
      {bitmap, other, 100, 8, 0, nullptr, 0, -789},
      {bitmap, other, kCurrentLayout, 9, 0, nullptr, 0, -27},
      {bitmap, nullptr, 0, -1, 0, nullptr, 0, -27},
      {bitmap, nullptr, 0, 8, 128, nullptr, 0, -13},
      {bitmap, nullptr, 0, 8, V_ColorResFixedPalette | V_ColorResOptimized, nullptr, 0, -13},
      {bitmap, nullptr, 0, 8, V_ColorResUsePalette, nullptr, 16, -13},
      {bitmap, nullptr, 0, 8, V_ColorResUsePalette, palette.data(), 257, -13},
      {bitmap, nullptr, 0, 3, V_ColorResUsePalette, palette.data(), 16, -13},
      {bitmap, nullptr, 0, 8, 0, nullptr, -1, -13},
      {bitmap, other, kCurrentLayout, 8, V_ColorResIdentity, nullptr, 0, -13},  // it has no palette
  };
  for (const auto& c : cases) {
    EXPECT_EQ(V_ColorResBitmap(c.source, c.result, c.structSize, c.bits, c.options, c.palette, nullptr, c.colors),
              c.status)
        << c.bits << " bits, options " << c.options << ", " << c.colors << " colours";
    EXPECT_EQ(other.Snapshot(), untouched);
    EXPECT_EQ(picture.bitmap.Snapshot(), record);
  }
  for (const int32_t k : {1, 2, 40, 71}) {  // 71 calls: before the first row, and for each
    const Refusal refusal(k);
    EXPECT_EQ(V_ColorResBitmap(bitmap, nullptr, 0, 8, 0, nullptr, nullptr, 0), -100);
    EXPECT_EQ(picture.bitmap.Snapshot(), record);
  }
  EXPECT_EQ(ReadPixels(bitmap), pixels);
  other.Init(4, 4, 8);
  EXPECT_EQ(V_ColorResBitmap(other, nullptr, 0, 1, 0, nullptr, nullptr, 0), -2);
}

TEST(ColorRes, ListsChangeAsAWholeAndKeepTheirOverlays) {
  HBITMAPLIST list = nullptr;
  ASSERT_EQ(V_CreateBitmapList(&list), 1);
  Bitmap small;
  ASSERT_EQ(small.Create(V_MemoryConventional, 2, 2, 1), 1);
  BITMAPOVERLAY overlay = {sizeof overlay, 3, 4, 0, small};
  for (const uint64_t seed : {1u, 2u, 3u}) {
    ColorPicture picture(seed);
    ASSERT_EQ(V_SetBitmapOverlay(picture.bitmap, 2, &overlay), 1);
    ASSERT_EQ(V_InsertBitmapListItem(list, V_LIST_END, picture.bitmap), 1);
    ASSERT_EQ(picture.bitmap.Init(1, 1, 1), 1);  // the list has the storage now
  }
  const auto items = [&] {
    std::vector<std::tuple<int32_t, Pixels, std::vector<Components>>> found;
    for (uint32_t i = 0; i < 3; ++i) {
      BITMAPHANDLE item;
      EXPECT_EQ(V_GetBitmapListItem(list, i, &item, kCurrentLayout), 1);
      overlay.y = 0;
      EXPECT_TRUE(V_GetBitmapOverlay(&item, 2, &overlay) == 1 && overlay.y == 4);
      found.emplace_back(item.BitsPerPixel, ReadPixels(&item), ColorsOf(PaletteOf(&item)));
    }
    return found;
  };
  const auto before = items();
  for (const int32_t k : {1, 14, 60, 90}) {
    const Refusal refusal(k);
    EXPECT_EQ(V_ColorResBitmapListExt(list, 8, 2, nullptr, nullptr, 16), -100) << k;
    EXPECT_EQ(items(), before);
  }
  ASSERT_EQ(V_ColorResBitmapListExt(list, 8, V_ColorResOptimized, nullptr, nullptr, 16), 1);
  const auto after = items();
  for (const auto& [bits, pixels, colors] : after) {
    EXPECT_EQ(bits, 8);
    EXPECT_EQ(colors, std::get<2>(after[0])) << "one palette for all";
  }
  EXPECT_EQ(V_ColorResBitmapListExt(list, 9, 0, nullptr, nullptr, 0), -27);
  EXPECT_EQ(V_ColorResBitmapListExt(nullptr, 8, 0, nullptr, nullptr, 0), -13);
  EXPECT_EQ(V_DestroyBitmapList(list), 1);
}

}  // namespace
}  // namespace vexatest
