// Single pixels and the nearest palette entry.
//
// A pixel function finds the stored pixel of a displayed position and knows every depth; the limit beside it copies the
// pixel's bytes from a known address.
#include <cstring>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_LEPTONICA
#include <allheaders.h>
#endif

namespace vexabench {
namespace {

constexpr int32_t kSide = 128;
constexpr double kPixels = kSide * kSide;

// Keeps a value from being optimised away.
template <typename T>
void Keep(const T& value) {
  asm volatile("" : : "g"(value) : "memory");
}

template <typename F>
void ForEachPixel(F f) {
  for (int32_t y = 0; y < kSide; ++y)
    for (int32_t x = 0; x < kSide; ++x) f(y, x);
}

std::shared_ptr<Image> MakeImage(int32_t bits) {
  return std::make_shared<Image>(V_MemoryConventional, kSide, kSide, bits);
}

void GetData(Image& image) {
  uint64_t value = 0;
  ForEachPixel([&](int32_t y, int32_t x) {
    Require(V_GetPixelData(image.get(), &value, y, x, sizeof value) == 1, "a pixel was refused");
    Keep(value);
  });
}

void PutData(Image& image) {
  const uint64_t value = 1;
  ForEachPixel([&](int32_t y, int32_t x) {
    Require(V_PutPixelData(image.get(), &value, y, x, sizeof value) == 1, "a pixel was refused");
  });
}

void GetColor(Image& image) {
  uint32_t color = 0;
  ForEachPixel([&](int32_t y, int32_t x) {
    Require(V_GetPixelColor(image.get(), y, x, &color) == 1, "a pixel was refused");
    Keep(color);
  });
}

void PutColor(Image& image) {
  ForEachPixel(
      [&](int32_t y, int32_t x) { Require(V_PutPixelColor(image.get(), y, x, 0x204060) == 1, "a pixel was refused"); });
}

// Copies each pixel's bytes, or the byte that holds it.
void CopyPixels(Image& image, int32_t bits, bool put) {
  uint64_t value = 0;
  const size_t bytes = bits < 8 ? 1 : static_cast<size_t>(bits) / 8;
  ForEachPixel([&](int32_t y, int32_t x) {
    uint8_t* at = image.Data() + image.Pitch() * static_cast<size_t>(y) + static_cast<size_t>(x * bits / 8);
    put ? std::memcpy(at, &value, bytes) : std::memcpy(&value, at, bytes);
    Keep(value);
  });
}

Contest AgainstCopy(int32_t bits, bool put, void (*ours)(Image&)) {
  auto image = MakeImage(bits);
  return {[=] { ours(*image); }, [=] { CopyPixels(*image, bits, put); }, kPixels};
}

// --- the nearest entry of a palette ---

std::vector<RGBQUAD> ScatteredPalette() {
  std::vector<RGBQUAD> palette(256);
  uint32_t seed = 12345;
  for (RGBQUAD& entry : palette) {
    seed = seed * 1664525 + 1013904223;
    entry = {static_cast<uint8_t>(seed >> 24), static_cast<uint8_t>(seed >> 16), static_cast<uint8_t>(seed >> 8), 0};
  }
  return palette;
}

// Calls `find` with colours from all over the cube; the sum of what it finds keeps the calls alive.
constexpr int kSearches = 512;
template <typename F>
void SearchColors(F find) {
  uint32_t sum = 0;
  for (uint32_t i = 0; i < kSearches; ++i) sum += find(i * 37 & 255, i * 91 & 255, i * 153 & 255);
  Keep(sum);
}

uint32_t PlainSearch(const std::vector<RGBQUAD>& palette, uint32_t red, uint32_t green, uint32_t blue) {
  uint32_t best = 0, nearest = 0xFFFFFFFF;
  for (uint32_t i = 0; i < palette.size(); ++i) {
    const auto r = static_cast<int32_t>(red) - palette[i].rgbRed, g = static_cast<int32_t>(green) - palette[i].rgbGreen,
               b = static_cast<int32_t>(blue) - palette[i].rgbBlue;
    const auto distance = static_cast<uint32_t>(r * r + g * g + b * b);
    if (distance < nearest) nearest = distance, best = i;
  }
  return best;
}

template <typename F>
Contest NearestAgainst(const std::vector<RGBQUAD>& palette, F other) {
  return {[=] {
            SearchColors([&](uint32_t r, uint32_t g, uint32_t b) {
              return V_FindPaletteIndex(palette.data(), static_cast<uint32_t>(palette.size()), r, g, b);
            });
          },
          [=] { SearchColors(other); }, kSearches};
}

Contest NearestAgainstPlain() {
  const auto palette = ScatteredPalette();
  return NearestAgainst(palette, [=](uint32_t r, uint32_t g, uint32_t b) { return PlainSearch(palette, r, g, b); });
}

// --- peers ---

#ifdef VEXABENCH_LEPTONICA
Contest AgainstLeptonica(int32_t bits, bool put, void (*ours)(Image&)) {
  auto image = MakeImage(bits);
  const std::shared_ptr<PIX> pix(pixCreate(kSide, kSide, bits), [](PIX* p) { pixDestroy(&p); });
  return {[=] { ours(*image); },
          [=] {
            ForEachPixel([&](int32_t y, int32_t x) {
              l_uint32 value = 1;
              put ? pixSetPixel(pix.get(), x, y, value) : pixGetPixel(pix.get(), x, y, &value);
              Keep(value);
            });
          },
          kPixels};
}

Contest NearestAgainstLeptonica() {
  const auto palette = ScatteredPalette();
  const std::shared_ptr<PIXCMAP> map(pixcmapCreate(8), [](PIXCMAP* m) { pixcmapDestroy(&m); });
  for (const RGBQUAD& entry : palette) pixcmapAddColor(map.get(), entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
  return NearestAgainst(palette, [=](uint32_t r, uint32_t g, uint32_t b) {
    l_int32 index = 0;
    pixcmapGetNearestIndex(map.get(), static_cast<l_int32>(r), static_cast<l_int32>(g), static_cast<l_int32>(b),
                           &index);
    return static_cast<uint32_t>(index);
  });
}

void RegisterLeptonica() {
  for (const int32_t bits : {1, 8, 32}) {
    const std::string depth = ", " + std::to_string(bits) + "-bit";
    Compare("get pixel data" + depth, "Leptonica pixGetPixel", kNoGoal,
            [=] { return AgainstLeptonica(bits, false, GetData); });
    Compare("put pixel data" + depth, "Leptonica pixSetPixel", kNoGoal,
            [=] { return AgainstLeptonica(bits, true, PutData); });
  }
  Compare("nearest of 256 colours", "Leptonica pixcmapGetNearestIndex", kNoGoal, NearestAgainstLeptonica);
}
#else
void RegisterLeptonica() {}
#endif

}  // namespace

void RegisterFamily() {
  for (const int32_t bits : {1, 8, 24, 32}) {
    const std::string depth = ", " + std::to_string(bits) + "-bit";
    Compare("get pixel data" + depth, "memcpy", kNoGoal, [=] { return AgainstCopy(bits, false, GetData); });
    Compare("put pixel data" + depth, "memcpy", kNoGoal, [=] { return AgainstCopy(bits, true, PutData); });
  }
  for (const int32_t bits : {8, 24}) {
    const std::string depth = ", " + std::to_string(bits) + "-bit";
    Compare("get pixel colour" + depth, "memcpy", kNoGoal, [=] { return AgainstCopy(bits, false, GetColor); });
  }
  // At 8 bits the search for the nearest entry would be nearly all of it.
  Compare("put pixel colour, 24-bit", "memcpy", kNoGoal, [] { return AgainstCopy(24, true, PutColor); });
  Compare("nearest of 256 colours", "plain loop", kNoGoal, NearestAgainstPlain);
  RegisterLeptonica();
}

}  // namespace vexabench
