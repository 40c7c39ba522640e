// Single pixels at displayed positions, in all perspectives and depths, and their colours, which are those that a conversion of
// a line has.
#include "support/testing.h"

namespace vexatest {
namespace {

size_t PixelBytes(int32_t bits) { return bits <= 8 ? 1 : bits <= 16 ? 2 : static_cast<size_t>(bits) / 8; }

// Perspectives 1 to 4 name the corner of the first pixel with rows as rows, 5 to 8 with rows as columns.
TEST(PixelData, IsThatOfTheDisplayedPosition) {
  constexpr int32_t kWidth = 9, kHeight = 5;
  constexpr bool kFromRight[] = {false, false, true, true, false, false, false, true, true};
  constexpr bool kFromBottom[] = {false, false, false, true, true, false, true, true, false};
  for (const StorageKind& kind : kStorageKinds)
    for (const int32_t bits : kDepths)
      for (int32_t perspective = 1; kind.Holds(bits) && perspective <= 8; ++perspective) {
        SCOPED_TRACE(testing::Message() << kind.name << ", " << bits << " bits, perspective " << perspective);
        Random random(static_cast<uint64_t>(bits * 8 + perspective));
        StoredBitmap stored(kind, kCurrentLayout, kWidth, kHeight, bits);
        ASSERT_EQ(stored.Status(), 1);
        stored->ViewPerspective = perspective;
        const uint32_t pitch = stored->BytesPerLine;
        std::vector<uint8_t> model = random.Bytes(size_t{pitch} * kHeight);
        WritePixels(stored, model);
        stored.DropPadding(model);
        const int32_t rows = perspective > 4 ? kWidth : kHeight, columns = perspective > 4 ? kHeight : kWidth;
        for (int32_t row = 0; row < rows; ++row)
          for (int32_t column = 0; column < columns; ++column) {
            const int32_t across = perspective > 4 ? row : column, down = perspective > 4 ? column : row;
            const int32_t x = kFromRight[perspective] ? kWidth - 1 - across : across;
            uint8_t* line =
                model.data() + pitch * static_cast<size_t>(kFromBottom[perspective] ? kHeight - 1 - down : down);
            GuardedBytes data(PixelBytes(bits));
            ASSERT_EQ(V_GetPixelData(stored, data.data(), row, column, 8), 1);
            uint64_t value = 0;
            memcpy(&value, data.data(), data.size());
            ASSERT_EQ(value, PixelAt(line, x, bits)) << "row " << row << ", column " << column;
            ASSERT_TRUE(data.GuardsIntact());
            value = random.Next() & (~uint64_t{0} >> (64 - bits));
            ASSERT_EQ(V_PutPixelData(stored, &value, row, column, data.size()), 1);
            PutPixelAt(line, x, bits, value);
          }
        ASSERT_EQ(ReadPixels(stored), model) << "a put changes its pixel and nothing else";
        uint64_t value = 0;
        uint32_t color = 0;
        for (const auto& [row, column] : {std::pair(-1, 0), {0, -1}, {rows, 0}, {0, columns}, {INT32_MAX, INT32_MIN}}) {
          EXPECT_EQ(V_GetPixelData(stored, &value, row, column, 8), -13);
          EXPECT_EQ(V_PutPixelData(stored, &value, row, column, 8), -13);
          EXPECT_EQ(V_GetPixelColor(stored, row, column, &color), -13);
          EXPECT_EQ(V_PutPixelColor(stored, row, column, 0), -13);
        }
        EXPECT_EQ(V_GetPixelData(stored, &value, 0, 0, PixelBytes(bits) - 1), -13);
        EXPECT_EQ(V_PutPixelData(stored, &value, 0, 0, PixelBytes(bits) - 1), -13);
        ASSERT_EQ(ReadPixels(stored), model);
      }
}

// --- colours ---

uint32_t GetColor(BITMAPHANDLE* bitmap) {
  uint32_t color = 0xEEEEEEEE;
  EXPECT_EQ(V_GetPixelColor(bitmap, 1, 2, &color), 1);
  return color;
}
uint64_t GetRaw(BITMAPHANDLE* bitmap) {
  uint64_t value = 0;
  EXPECT_EQ(V_GetPixelData(bitmap, &value, 1, 2, 8), 1);
  return value;
}
void PutRaw(BITMAPHANDLE* bitmap, uint64_t value) { EXPECT_EQ(V_PutPixelData(bitmap, &value, 1, 2, 8), 1); }

// A pixel's value in another format; colours are 24 bits from red on.
uint64_t Converted(uint64_t value, int32_t bits, int32_t order, int32_t toBits, int32_t toOrder,
                   const RGBQUAD* palette = nullptr) {
  uint8_t pixel[8] = {};
  PutPixelAt(pixel, 0, bits, value);
  EXPECT_EQ(V_ConvertBuffer(pixel, 1, bits, toBits, order, toOrder, palette, palette), 1);
  return PixelAt(pixel, 0, toBits);
}

TEST(PixelColor, IsThatOfAConversion) {
  Random random(21);
  RGBQUAD palette[256];
  for (const int32_t bits : kDepths)
    for (const int32_t order : {V_OrderRgb, V_OrderBgr, V_OrderRgb565, V_OrderRomm, V_OrderGray}) {
      if (order == V_OrderGray ? bits != 12 && bits != 16 : bits == 12 || (order == V_OrderRgb565 && bits != 16))
        continue;
      if (order == V_OrderRomm && bits != 24 && bits != 48) continue;
      SCOPED_TRACE(testing::Message() << bits << " bits, order " << order);
      Bitmap bitmap;
      ASSERT_EQ(bitmap.Create(1, 4, 3, bits, order), 1);
      random.Fill(palette, sizeof(palette));
      const uint32_t colors = bits <= 8 ? 1u << bits : 0;
      ASSERT_EQ(V_SetBitmapNewPalette(bitmap, palette, colors), 1);
      const uint64_t alpha = bits == 32                          ? 0xFF000000
                             : bits == 64                        ? uint64_t{0xFFFF} << 48
                             : bits == 16 && order <= V_OrderBgr ? 0x8000
                                                                 : 0;
      for (int step = 0; step < 100; ++step) {
        const uint64_t raw = random.Next() & (~uint64_t{0} >> (64 - bits));
        const auto color = static_cast<uint32_t>(random.Below(1 << 24)), level = color >> 16;
        PutRaw(bitmap, raw);
        ASSERT_EQ(GetColor(bitmap), Converted(raw, bits, order, 24, V_OrderRgb, palette));
        ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, color), 1);
        ASSERT_EQ(GetRaw(bitmap), Converted(color, 24, V_OrderRgb, bits, order, palette) | (raw & alpha));
        ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, 0x04000000u | level << 8), 1);
        ASSERT_EQ(GetRaw(bitmap), Converted(level * 0x010101, 24, V_OrderRgb, bits, order, palette) | (raw & alpha));
        if (colors == 0) continue;
        ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, 0x01000000u | static_cast<uint32_t>(raw)), 1);
        ASSERT_EQ(GetRaw(bitmap), raw) << "an index is stored as it is";
      }
      const auto before = ReadPixels(bitmap);
      for (const uint32_t refused : {colors > 0 ? 0x01000000u | colors : 0x02000000u, 0x03000000u, 0x05000000u, ~0u})
        EXPECT_EQ(V_PutPixelColor(bitmap, 0, 0, refused), -13) << refused;
      EXPECT_EQ(ReadPixels(bitmap), before);
      if (colors == 0) continue;
      PutRaw(bitmap, colors - 1);
      for (const uint32_t entries : {colors - 1, 0u}) {  // what lies beyond a short palette is black
        ASSERT_EQ(V_SetBitmapNewPalette(bitmap, palette, entries), 1);
        EXPECT_EQ(GetColor(bitmap), 0u);
      }
    }
}

// Gray of 12 and 16 bits: the valid bits are LowBit to HighBit, whatever lies beside them.
TEST(PixelColor, DeepGrayIsBroughtToEightBitsFromItsRange) {
  Random random(24);
  for (int step = 0; step < 4000; ++step) {
    const int32_t bits = random.Coin() ? 12 : 16, low = random.Between(0, bits - 1),
                  high = random.Between(low, bits - 1);
    SCOPED_TRACE(testing::Message() << bits << " bits, range " << low << " to " << high);
    Bitmap bitmap;
    ASSERT_EQ(bitmap.Create(1, 4, 3, bits, V_OrderGray), 1);
    bitmap->LowBit = low, bitmap->HighBit = high;
    const int32_t range = high - low + 1;
    const uint64_t most = (uint64_t{1} << range) - 1, wanted = random.Below(256);
    const uint64_t raw = random.Below(uint64_t{1} << bits), level = raw >> low & most;
    PutRaw(bitmap, raw);
    ASSERT_EQ(GetColor(bitmap), (RepeatBits(static_cast<uint32_t>(level), range, 16) >> 8) * 0x010101) << raw;
    ASSERT_EQ(V_PutPixelColor(bitmap, 1, 2, 0x04000000u | static_cast<uint32_t>(wanted << 8)), 1);
    ASSERT_EQ(GetRaw(bitmap) >> low & most, range > 8 ? wanted * most / 255 : wanted >> (8 - range));
  }
}

}  // namespace
}  // namespace vexatest
