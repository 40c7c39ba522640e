// Palettes: the fixed and gray ones, those of bitmaps, and the nearest entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/bitmap.h"
#include "support/guarded.h"
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

// --- the nearest entry ------------------------------------------------------------------------------------------------

int OrderingClass(int r, int g, int b) {
  const int low = std::min(r, b), high = std::max(r, b);
  return (g > high ? 1 : 0) + (g < low ? (r < b ? 6 : 2) : (r < b ? 4 : 0));
}

uint32_t NearestEntry(const std::vector<RGBQUAD>& palette, int r, int g, int b) {
  if (palette.empty()) return 0xFFFFFFFF;
  const auto last = static_cast<uint32_t>(palette.size() - 1);
  const auto is = [&](uint32_t i, uint8_t level) {
    return palette[i].rgbRed == level && palette[i].rgbGreen == level && palette[i].rgbBlue == level;
  };
  if (r == 0 && g == 0 && b == 0) {
    if (is(0, 0)) return 0;
    if (is(last, 0)) return last;
  }
  if (r == 255 && g == 255 && b == 255) {
    if (is(last, 255)) return last;
    if (is(0, 255)) return 0;
  }
  uint32_t best = 0;
  int bestDistance = INT32_MAX;
  for (uint32_t i = 0; i <= last; ++i) {
    const RGBQUAD& e = palette[i];
    const int distance =
        (e.rgbRed - r) * (e.rgbRed - r) + (e.rgbGreen - g) * (e.rgbGreen - g) + (e.rgbBlue - b) * (e.rgbBlue - b);
    const bool sameClass = OrderingClass(e.rgbRed, e.rgbGreen, e.rgbBlue) == OrderingClass(r, g, b);
    if (distance < bestDistance || (distance == bestDistance && sameClass)) {
      best = i;
      bestDistance = distance;
    }
    if (distance == 0) break;
  }
  return best;
}

// Few levels make many ties, duplicates, and blacks and whites in all places.
TEST(NearestEntry, IsThatOfAPlainSearch) {
  Random random(2);
  for (int step = 0; step < 3000; ++step) {
    const bool coarse = step % 4 != 0;
    const auto level = [&] { return static_cast<uint8_t>(coarse ? random.Below(4) * 85 : random.Below(256)); };
    std::vector<RGBQUAD> palette(random.Below(step % 10 == 0 ? 257 : 12));
    for (RGBQUAD& entry : palette) {
      entry.rgbRed = level();
      entry.rgbGreen = level();
      entry.rgbBlue = level();
      entry.rgbReserved = static_cast<uint8_t>(random.Next());
    }
    const int r = level(), g = level(), b = level();
    ASSERT_EQ(V_FindPaletteIndex(palette.empty() ? nullptr : palette.data(), static_cast<uint32_t>(palette.size()),
                                 static_cast<uint32_t>(r), static_cast<uint32_t>(g), static_cast<uint32_t>(b)),
              palette.empty() ? 0 : NearestEntry(palette, r, g, b))
        << "step " << step << ", colour " << r << ", " << g << ", " << b << ", " << palette.size() << " entries";
  }
  const GuardedBytes nothing(0);
  const auto* none = reinterpret_cast<const RGBQUAD*>(nothing.data());
  for (const uint32_t level : {0u, 128u, 255u})
    EXPECT_EQ(V_FindPaletteIndex(none, 0, level, level, level), 0xFFFFFFFFu) << "no colours, and none is read";
}

}  // namespace
}  // namespace vexatest
