// Single pixels at displayed positions, in all perspectives, depths and orders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/bitmap.h"
#include "support/guarded.h"
#include "support/random.h"
#include "support/storage.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

struct Position {
  int32_t row, column;
};

// Where the pixel lies that is seen at `seen`. Perspectives 1 to 4 name the corner of the first pixel with rows as rows,
// 5 to 8 with rows as columns.
Position StoredPosition(int32_t perspective, Position seen, int32_t width, int32_t height) {
  switch (perspective) {
    case V_ViewTopRight:
      return {seen.row, width - 1 - seen.column};
    case V_ViewBottomRight:
      return {height - 1 - seen.row, width - 1 - seen.column};
    case V_ViewBottomLeft:
      return {height - 1 - seen.row, seen.column};
    case V_ViewLeftTop:
      return {seen.column, seen.row};
    case V_ViewRightTop:
      return {height - 1 - seen.column, seen.row};
    case V_ViewRightBottom:
      return {height - 1 - seen.column, width - 1 - seen.row};
    case V_ViewLeftBottom:
      return {seen.column, width - 1 - seen.row};
    default:
      return seen;
  }
}

size_t PixelBytes(int32_t bits) { return bits <= 8 ? 1 : bits <= 16 ? 2 : static_cast<size_t>(bits) / 8; }
uint64_t PixelMask(int32_t bits) { return bits == 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1; }

class PixelStorage : public testing::TestWithParam<StorageKind> {};
INSTANTIATE_TEST_SUITE_P(All, PixelStorage, testing::ValuesIn(kStorageKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(PixelStorage, RawValuesAreThoseOfTheDisplayedPosition) {
  constexpr int32_t kWidth = 9, kHeight = 5;
  for (const int32_t bits : kDepths)
    for (int32_t perspective = 1; GetParam().Holds(bits) && perspective <= 8; ++perspective) {
      SCOPED_TRACE(testing::Message() << bits << " bits, perspective " << perspective);
      Random random(static_cast<uint64_t>(bits * 8 + perspective));
      StoredBitmap stored(GetParam(), kCurrentLayout, kWidth, kHeight, bits);
      ASSERT_EQ(stored.Status(), 1);
      stored->ViewPerspective = perspective;
      const uint32_t pitch = stored->BytesPerLine;
      std::vector<uint8_t> model = random.Bytes(size_t{pitch} * kHeight);
      WritePixels(stored, model);
      stored.DropPadding(model);
      const int32_t rows = perspective > 4 ? kWidth : kHeight, columns = perspective > 4 ? kHeight : kWidth;
      for (int32_t row = 0; row < rows; ++row)
        for (int32_t column = 0; column < columns; ++column) {
          const Position at = StoredPosition(perspective, {row, column}, kWidth, kHeight);
          uint8_t* line = model.data() + pitch * static_cast<size_t>(at.row);
          GuardedBytes data(8);
          ASSERT_EQ(V_GetPixelData(stored, data.data(), row, column, 8), 1);
          uint64_t value = 0;
          memcpy(&value, data.data(), PixelBytes(bits));
          ASSERT_EQ(value, PixelAt(line, at.column, bits)) << "row " << row << ", column " << column;
          ASSERT_TRUE(
              std::all_of(data.data() + PixelBytes(bits), data.data() + 8, [](uint8_t b) { return b == 0xCD; }));
          value = random.Next() & PixelMask(bits);
          ASSERT_EQ(V_PutPixelData(stored, &value, row, column, PixelBytes(bits)), 1);
          PutPixelAt(line, at.column, bits, value);
        }
      ASSERT_EQ(ReadPixels(stored), model) << "a put changes its pixel and nothing else";
      for (const Position outside : {Position{-1, 0}, {0, -1}, {rows, 0}, {0, columns}, {INT32_MAX, INT32_MIN}}) {
        uint64_t value = 0;
        uint32_t color = 0;
        EXPECT_EQ(V_GetPixelData(stored, &value, outside.row, outside.column, 8), -13);
        EXPECT_EQ(V_PutPixelData(stored, &value, outside.row, outside.column, 8), -13);
        EXPECT_EQ(V_GetPixelColor(stored, outside.row, outside.column, &color), -13);
        EXPECT_EQ(V_PutPixelColor(stored, outside.row, outside.column, 0), -13);
      }
      GuardedBytes little(PixelBytes(bits) - 1);
      EXPECT_EQ(V_GetPixelData(stored, little.data(), 0, 0, little.size()), -13);
      EXPECT_EQ(V_PutPixelData(stored, little.data(), 0, 0, little.size()), -13);
      EXPECT_TRUE(little.GuardsIntact());
      ASSERT_EQ(ReadPixels(stored), model);
    }
}

// --- colours --------------------------------------------------------------------------------------------------------

constexpr uint32_t Color(uint32_t red, uint32_t green, uint32_t blue) { return red | green << 8 | blue << 16; }
uint32_t Red(uint32_t color) { return color & 0xFF; }
uint32_t Green(uint32_t color) { return color >> 8 & 0xFF; }
uint32_t Blue(uint32_t color) { return color >> 16 & 0xFF; }
uint32_t Luminance(uint32_t color) { return (2 * Red(color) + 5 * Green(color) + Blue(color) + 4) >> 3; }
uint32_t Widen5(uint64_t x) { return static_cast<uint32_t>(x << 3 | x >> 2); }
uint32_t Widen6(uint64_t x) { return static_cast<uint32_t>(x << 2 | x >> 4); }

uint32_t GetColor(BITMAPHANDLE* bitmap, int32_t row, int32_t column) {
  uint32_t color = 0xEEEEEEEE;
  EXPECT_EQ(V_GetPixelColor(bitmap, row, column, &color), 1);
  return color;
}
uint64_t GetRaw(BITMAPHANDLE* bitmap, int32_t row, int32_t column) {
  uint64_t value = 0;
  EXPECT_EQ(V_GetPixelData(bitmap, &value, row, column, 8), 1);
  return value;
}
void PutRaw(BITMAPHANDLE* bitmap, int32_t row, int32_t column, uint64_t value) {
  EXPECT_EQ(V_PutPixelData(bitmap, &value, row, column, 8), 1);
}

TEST(PixelColor, PalettizedPixelsGoThroughThePalette) {
  Random random(21);
  for (int32_t bits = 1; bits <= 8; ++bits) {
    SCOPED_TRACE(bits);
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Create(1, 4, 3, bits), 1);
    RGBQUAD palette[256];
    random.Fill(palette, sizeof(palette));
    const uint32_t colors = 1u << bits;
    ASSERT_EQ(V_SetBitmapNewPalette(bitmap, palette, colors), 1);
    for (int step = 0; step < 50; ++step) {
      const uint64_t index = random.Below(colors);
      PutRaw(bitmap, 2, 3, index);
      const RGBQUAD& entry = palette[index];
      ASSERT_EQ(GetColor(bitmap, 2, 3), Color(entry.rgbRed, entry.rgbGreen, entry.rgbBlue))
          << "the reserved byte is no part of it";
      const auto wanted = static_cast<uint32_t>(random.Below(1 << 24));
      ASSERT_EQ(V_PutPixelColor(bitmap, 1, 1, wanted), 1);
      ASSERT_EQ(GetRaw(bitmap, 1, 1), V_FindPaletteIndex(palette, colors, Red(wanted), Green(wanted), Blue(wanted)));
      ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, 0x01000000u | static_cast<uint32_t>(index)), 1);
      ASSERT_EQ(GetRaw(bitmap, 1, 2), index) << "an index is stored as it is";
      const auto level = static_cast<uint32_t>(random.Below(256));
      ASSERT_EQ(V_PutPixelColor(bitmap, 1, 3, 0x04000000u | level << 8), 1);
      ASSERT_EQ(GetRaw(bitmap, 1, 3), V_FindPaletteIndex(palette, colors, level, level, level));
    }
    const auto before = ReadPixels(bitmap);
    EXPECT_EQ(V_PutPixelColor(bitmap, 0, 0, 0x01000000u | colors), -13) << "an index that no pixel can hold";
    for (const uint32_t kind : {0x02u, 0x03u, 0x05u, 0xFFu}) EXPECT_EQ(V_PutPixelColor(bitmap, 0, 0, kind << 24), -13);
    EXPECT_EQ(ReadPixels(bitmap), before);
    // A short palette: what lies beyond is black.
    ASSERT_EQ(V_SetBitmapNewPalette(bitmap, palette, 1), 1);
    PutRaw(bitmap, 0, 0, colors - 1);
    EXPECT_EQ(GetColor(bitmap, 0, 0), 0u);
    ASSERT_EQ(V_SetBitmapNewPalette(bitmap, nullptr, 0), 1);
    EXPECT_EQ(GetColor(bitmap, 0, 0), 0u);
  }
}

TEST(PixelColor, SixteenBitsHoldFiveOrSixBitsAComponent) {
  Random random(22);
  for (const int32_t order : {V_OrderRgb, V_OrderBgr, V_OrderRgb565}) {
    SCOPED_TRACE(order);
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Create(1, 2, 2, 16, order), 1);
    for (int step = 0; step < 200; ++step) {
      const uint64_t raw = random.Below(1 << 16);
      PutRaw(bitmap, 0, 1, raw);
      const auto wanted = static_cast<uint32_t>(random.Below(1 << 24));
      ASSERT_EQ(V_PutPixelColor(bitmap, 1, 0, wanted), 1);
      const uint64_t stored = GetRaw(bitmap, 1, 0);
      if (order == V_OrderRgb565) {
        ASSERT_EQ(GetColor(bitmap, 0, 1), Color(Widen5(raw >> 11), Widen6(raw >> 5 & 63), Widen5(raw & 31)));
        ASSERT_EQ(stored, Red(wanted) >> 3 << 11 | Green(wanted) >> 2 << 5 | Blue(wanted) >> 3);
      } else {
        ASSERT_EQ(GetColor(bitmap, 0, 1), Color(Widen5(raw >> 10 & 31), Widen5(raw >> 5 & 31), Widen5(raw & 31)));
        ASSERT_EQ(stored & 0x7FFF, Red(wanted) >> 3 << 10 | Green(wanted) >> 3 << 5 | Blue(wanted) >> 3);
      }
    }
  }
}

// 24, 32, 48 and 64 bits: three components in the order's direction, alpha behind them.
TEST(PixelColor, DeepColorsKeepTheirComponentsAndAlpha) {
  Random random(23);
  for (const int32_t bits : {24, 32, 48, 64})
    for (const int32_t order : {V_OrderRgb, V_OrderBgr}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, order " << order);
      Bitmap bitmap;
      ASSERT_EQ(bitmap.Create(1, 3, 2, bits, order), 1);
      const int32_t sample = bits >= 48 ? 16 : 8;
      const uint64_t scale = sample == 16 ? 257 : 1;
      for (int step = 0; step < 100; ++step) {
        const auto color = static_cast<uint32_t>(random.Below(1 << 24));
        const uint64_t first = (order == V_OrderRgb ? Red(color) : Blue(color)) * scale;
        const uint64_t last = (order == V_OrderRgb ? Blue(color) : Red(color)) * scale;
        const uint64_t components = first | Green(color) * scale << sample | last << 2 * sample;
        const uint64_t before = random.Next() & PixelMask(bits);
        PutRaw(bitmap, 1, 2, before);
        ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, color), 1);
        const uint64_t alpha = before & PixelMask(bits) & ~PixelMask(3 * sample);
        ASSERT_EQ(GetRaw(bitmap, 1, 2), components | alpha) << std::hex << color;
        ASSERT_EQ(GetColor(bitmap, 1, 2), color);
      }
      ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, 0x04007F00), 1);
      EXPECT_EQ(GetColor(bitmap, 1, 2), Color(0x7F, 0x7F, 0x7F)) << "a gray level";
    }
}

// Gray of 12 and 16 bits: the valid bits are LowBit to HighBit, whatever lies beside them.
TEST(PixelColor, DeepGrayIsBroughtToEightBitsFromItsRange) {
  Random random(24);
  for (const int32_t bits : {12, 16})
    for (int32_t low = 0; low < bits; low += 3)
      for (int32_t high = low; high < bits; ++high) {
        SCOPED_TRACE(testing::Message() << bits << " bits, range " << low << " to " << high);
        Bitmap bitmap;
        ASSERT_EQ(bitmap.Create(1, 3, 2, bits, V_OrderGray), 1);
        bitmap->LowBit = low;
        bitmap->HighBit = high;
        const uint64_t most = (uint64_t{1} << (high - low + 1)) - 1;
        uint32_t previous = 0;
        for (uint64_t step = 0; step <= 64; ++step) {
          const uint64_t level = most * step / 64;
          const uint64_t noise = random.Next() & PixelMask(bits) & ~(most << low);
          PutRaw(bitmap, 1, 1, level << low | noise);
          const uint32_t color = GetColor(bitmap, 1, 1);
          ASSERT_EQ(color, Color(Red(color), Red(color), Red(color))) << "it is gray";
          ASSERT_GE(Red(color), previous) << "brighter is never darker";
          previous = Red(color);
          if (step == 0) {
            ASSERT_EQ(Red(color), 0u);
          }
          if (step == 64) {
            ASSERT_EQ(Red(color), 255u);
          }
          ASSERT_NEAR(Red(color), static_cast<double>(level) * 255 / static_cast<double>(most), 1.01);
        }
        // Written, a colour takes its luminance's place in the range: as near as the range allows.
        const auto wanted = static_cast<uint32_t>(random.Below(1 << 24));
        ASSERT_EQ(V_PutPixelColor(bitmap, 0, 2, wanted), 1);
        const uint64_t stored = GetRaw(bitmap, 0, 2) >> low & most;
        ASSERT_NEAR(static_cast<double>(stored), Luminance(wanted) * static_cast<double>(most) / 255, 1.01);
        ASSERT_EQ(V_PutPixelColor(bitmap, 0, 2, 0x0400FF00), 1);
        ASSERT_EQ(GetColor(bitmap, 0, 2), Color(255, 255, 255));
      }
}

}  // namespace
}  // namespace vexatest
