// Single pixels.
//
// A pixel function finds the stored pixel of a displayed position and knows every depth; the limit beside it copies the
// pixel's bytes from a known address.
#include <cstring>
#include <memory>

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

void RegisterLeptonica() {
  for (const int32_t bits : {1, 8, 32}) {
    const std::string depth = ", " + std::to_string(bits) + "-bit";
    Compare("get pixel data" + depth, "Leptonica pixGetPixel", kNoGoal,
            [=] { return AgainstLeptonica(bits, false, GetData); });
    Compare("put pixel data" + depth, "Leptonica pixSetPixel", kNoGoal,
            [=] { return AgainstLeptonica(bits, true, PutData); });
  }
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
  RegisterLeptonica();
}

}  // namespace vexabench
