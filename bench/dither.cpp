// Pictures of 4096 x 4096 pixels dithered to palettes, in nanoseconds a pixel: whole bitmaps, and the same through passes
// that are given one line after the other.
//
// The picture is a ramp with noise in each component. The libraries differ in how they round, in the weights
// (Leptonica's error diffusion has three neighbours) and in what they hold to be gray; the plain loops do the same work.
#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_LEPTONICA
#include <allheaders.h>
#endif
#ifdef VEXABENCH_SWSCALE
extern "C" {
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}
#endif

namespace vexabench {
namespace {

constexpr int32_t kSide = 4096;
constexpr double kPixels = double{kSide} * kSide;
constexpr size_t kPixelCount = size_t{kSide} * kSide;

std::shared_ptr<Image> MakePicture(int32_t bits, int32_t method) {
  auto image = std::make_shared<Image>(V_MemoryConventional, kSide, kSide, bits);
  const auto components = static_cast<size_t>(bits) / 8;
  uint64_t state = 1;
  for (size_t y = 0; y < kSide; ++y)
    for (size_t x = 0; x < kSide; ++x)
      for (size_t c = 0; c < components; ++c) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        const size_t ramp = c == 0 ? x : c == 1 ? y : (x + y) / 2;
        image->Data()[y * image->Pitch() + x * components + c] =
            static_cast<uint8_t>(ramp * 240 / kSide + (state >> 60));
      }
  image->get()->DitherMethod = method;
  if (bits == 8) V_CreateBitmapGrayPalette(image->get());
  return image;
}

// 256 colours that are no fixed palette.
std::vector<RGBQUAD> AnyPalette() {
  std::vector<RGBQUAD> palette(256);
  uint64_t state = 2;
  for (RGBQUAD& entry : palette) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    entry.rgbRed = static_cast<uint8_t>(state >> 32);
    entry.rgbGreen = static_cast<uint8_t>(state >> 40);
    entry.rgbBlue = static_cast<uint8_t>(state >> 48);
  }
  return palette;
}

// What a picture is dithered to; no palette means the fixed one.
struct Target {
  int32_t bits;
  std::vector<RGBQUAD> palette;
  uint32_t Colors() const { return palette.empty() ? 1u << bits : static_cast<uint32_t>(palette.size()); }
};

std::function<void()> Lines(const std::shared_ptr<Image>& image, const Target& target) {
  const size_t pitch = static_cast<size_t>(kSide) * static_cast<size_t>(target.bits) / 8;
  auto out = std::make_shared<Memory>(pitch * kSide);
  return [=] {
    const RGBQUAD* palette = target.palette.empty() ? nullptr : target.palette.data();
    Require(V_StartDithering(image->get(), palette, target.Colors()) == 1, "no pass");
    for (size_t y = 0; y < kSide; ++y)
      V_DitherLine(image->get(), image->Data() + y * image->Pitch(), out->data() + y * pitch);
    V_StopDithering(image->get());
  };
}

std::function<void()> Whole(const std::shared_ptr<Image>& image, const Target& target) {
  return [=] {
    BITMAPHANDLE result = {};
    const bool fixed = target.palette.empty();
    const int32_t status =
        V_ColorResBitmap(image->get(), &result, sizeof result, target.bits,
                         fixed ? V_ColorResFixedPalette : V_ColorResUsePalette | V_ColorResFastMatch,
                         fixed ? nullptr : target.palette.data(), nullptr, static_cast<int32_t>(target.Colors()));
    V_FreeBitmap(&result);
    Require(status == 1, "the picture was refused");
  };
}

using Ours = std::function<void()> (*)(const std::shared_ptr<Image>& image, const Target& target);

// Half of the bytes that are read and written.
Contest AgainstCopy(int32_t bits, int32_t method, const Target& target) {
  auto image = MakePicture(bits, method);
  const size_t bytes = kPixelCount * static_cast<size_t>(bits + target.bits) / 16;
  auto from = std::make_shared<Memory>(bytes), to = std::make_shared<Memory>(bytes);
  return {Whole(image, target), [=] { std::memcpy(to->data(), from->data(), bytes); }, kPixels};
}

Contest AgainstFloydSteinberg(int32_t bits, int32_t method, const Target& target) {
  return {Whole(MakePicture(bits, method), target), Whole(MakePicture(bits, V_DitheringFloydStein), target), kPixels};
}

// --- the same work in plain loops ---

// Nearest entries by the top five bits, each found when it is first asked for; with Floyd-Steinberg's weights or without.
void PlainMatch(const Image& image, const std::vector<RGBQUAD>& palette, bool diffuse, uint8_t* out) {
  std::vector<int16_t> table(32768, -1);
  std::vector<std::array<int32_t, 3>> here(kSide + 2), below(kSide + 2);
  for (size_t y = 0; y < kSide; ++y) {
    const uint8_t* line = image.Data() + y * image.Pitch();
    std::swap(here, below);
    if (diffuse) std::fill(below.begin(), below.end(), std::array<int32_t, 3>{});
    std::array<int32_t, 3> right = {};
    for (size_t x = 0; x < kSide; ++x) {
      std::array<int32_t, 3> value;
      for (size_t c = 0; c < 3; ++c) {
        value[c] = line[3 * x + c];
        if (diffuse) value[c] = std::clamp(value[c] + (right[c] + here[x + 1][c]) / 16, 0, 255);
      }
      int16_t& found = table[static_cast<size_t>(value[2] >> 3 << 10 | value[1] >> 3 << 5 | value[0] >> 3)];
      if (found < 0) {
        const auto cut = [&](size_t c) { return static_cast<uint32_t>(value[c]) & 0xF8; };
        found = static_cast<int16_t>(V_FindPaletteIndex(palette.data(), 256, cut(2), cut(1), cut(0)));
      }
      out[y * kSide + x] = static_cast<uint8_t>(found);
      if (!diffuse) continue;
      const RGBQUAD& entry = palette[static_cast<size_t>(found)];
      const std::array<int32_t, 3> error = {value[0] - entry.rgbBlue, value[1] - entry.rgbGreen,
                                            value[2] - entry.rgbRed};
      for (size_t c = 0; c < 3; ++c) {
        right[c] = 7 * error[c];
        below[x][c] += 3 * error[c];
        below[x + 1][c] += 5 * error[c];
        below[x + 2][c] += error[c];
      }
    }
  }
}

Contest AgainstPlainMatch(int32_t method) {
  auto image = MakePicture(24, method);
  const Target target = {8, AnyPalette()};
  auto out = std::make_shared<Memory>(kPixelCount);
  return {Whole(image, target), [=] { PlainMatch(*image, target.palette, method != V_DitheringNone, out->data()); },
          kPixels};
}

// --- peers ---

#ifdef VEXABENCH_LEPTONICA
std::shared_ptr<PIX> ToPix(const Image& image, int32_t bits) {
  std::shared_ptr<PIX> pix(pixCreate(kSide, kSide, bits == 8 ? 8 : 32), [](PIX* p) { pixDestroy(&p); });
  for (int32_t y = 0; y < kSide; ++y) {
    auto* line = pixGetData(pix.get()) + static_cast<size_t>(y) * static_cast<size_t>(pixGetWpl(pix.get()));
    const uint8_t* from = image.Data() + static_cast<size_t>(y) * image.Pitch();
    for (int32_t x = 0; x < kSide; ++x, from += bits / 8)
      if (bits == 8) {
        SET_DATA_BYTE(line, x, from[0]);
      } else {
        composeRGBPixel(from[2], from[1], from[0], line + x);
      }
  }
  return pix;
}

using PixOperation = PIX* (*)(PIX*);

Contest AgainstLeptonica(int32_t bits, int32_t method, const Target& target, Ours ours, PixOperation operation) {
  auto image = MakePicture(bits, method);
  const std::shared_ptr<PIX> pix = ToPix(*image, bits);
  return {ours(image, target),
          [=] {
            PIX* result = operation(pix.get());
            Require(result != nullptr, "Leptonica refused");
            pixDestroy(&result);
          },
          kPixels};
}

PIX* GrayThenDither(PIX* pix) {
  PIX* gray = pixConvertRGBToGray(pix, 0.25f, 0.625f, 0.125f);
  PIX* result = pixDitherToBinary(gray);
  pixDestroy(&gray);
  return result;
}

void RegisterLeptonica() {
  const auto add = [](const std::string& operation, Goal goal, int32_t bits, int32_t method, const Target& target,
                      Ours ours, const std::string& function, PixOperation peer) {
    Compare(
        operation, "Leptonica " + function, goal, [=] { return AgainstLeptonica(bits, method, target, ours, peer); },
        11);
  };
  add("gray to 1 bit, Floyd-Steinberg", SpeedAtLeast(8), 8, V_DitheringFloydStein, {1, {}}, Whole, "pixDitherToBinary",
      pixDitherToBinary);
  add("gray to 1 bit, Floyd-Steinberg, line by line", SpeedAtLeast(1.3), 8, V_DitheringFloydStein, {1, {}}, Lines,
      "pixDitherToBinary", pixDitherToBinary);
  add("24 to 1 bit, Floyd-Steinberg", SpeedAtLeast(3.5), 24, V_DitheringFloydStein, {1, {}}, Whole,
      "gray, then pixDitherToBinary", GrayThenDither);
  add("24 to 1 bit, Floyd-Steinberg, line by line", SpeedAtLeast(1), 24, V_DitheringFloydStein, {1, {}}, Lines,
      "gray, then pixDitherToBinary", GrayThenDither);
  add("24 to 3-3-2, no dithering", SpeedAtLeast(7), 24, V_DitheringNone, {8, {}}, Whole, "pixFixedOctcubeQuant256",
      [](PIX* pix) { return pixFixedOctcubeQuant256(pix, 0); });
  add("24 to 3-3-2, Floyd-Steinberg", SpeedAtLeast(8), 24, V_DitheringFloydStein, {8, {}}, Whole,
      "pixFixedOctcubeQuant256, dithered", [](PIX* pix) { return pixFixedOctcubeQuant256(pix, 1); });
}
#else
void RegisterLeptonica() {}
#endif

#ifdef VEXABENCH_SWSCALE
constexpr int64_t kBayer = 2, kErrorDiffusion = 3;  // of its option, which no header names

Contest AgainstSwscale(int32_t bits, int32_t method, const Target& target, Ours ours) {
  auto image = MakePicture(bits, method);
  const std::shared_ptr<SwsContext> context(sws_alloc_context(), sws_freeContext);
  const auto set = [&](const char* name, int64_t value) {
    Require(av_opt_set_int(context.get(), name, value, 0) >= 0, "swscale does not know an option");
  };
  for (const char* side : {"srcw", "srch", "dstw", "dsth"}) set(side, kSide);
  set("src_format", bits == 8 ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_BGR24);
  set("dst_format", target.bits == 1 ? AV_PIX_FMT_MONOBLACK : AV_PIX_FMT_RGB8);
  set("sws_flags", SWS_POINT);
  set("sws_dither", method == V_DitheringOrdered ? kBayer : kErrorDiffusion);
  Require(sws_init_context(context.get(), nullptr, nullptr) >= 0, "swscale refused");
  const int outPitch = kSide * target.bits / 8;
  auto out = std::make_shared<Memory>(static_cast<size_t>(outPitch) * kSide);
  auto copy = std::make_shared<Memory>(image->Pitch() * kSide + 64);  // swscale reads past the last pixel
  std::memcpy(copy->data(), image->Data(), image->Pitch() * kSide);
  return {ours(image, target),
          [=] {
            const uint8_t* const from[4] = {copy->data()};
            uint8_t* const to[4] = {out->data()};
            const int fromPitch[4] = {static_cast<int>(image->Pitch())}, toPitch[4] = {outPitch};
            Require(sws_scale(context.get(), from, fromPitch, 0, kSide, to, toPitch) == kSide, "swscale stopped");
          },
          kPixels};
}

void RegisterSwscale() {
  const auto add = [](const std::string& operation, Goal goal, int32_t bits, int32_t method, const Target& target,
                      Ours ours) {
    Compare(
        operation, "swscale", goal, [=] { return AgainstSwscale(bits, method, target, ours); }, 11);
  };
  add("gray to 1 bit, Floyd-Steinberg", SpeedAtLeast(8), 8, V_DitheringFloydStein, {1, {}}, Whole);
  add("gray to 1 bit, Floyd-Steinberg, line by line", SpeedAtLeast(1.3), 8, V_DitheringFloydStein, {1, {}}, Lines);
  add("gray to 1 bit, ordered", SpeedAtLeast(15), 8, V_DitheringOrdered, {1, {}}, Whole);
  add("24 to 3-3-2, ordered", SpeedAtLeast(20), 24, V_DitheringOrdered, {8, {}}, Whole);
  add("24 to 3-3-2, Floyd-Steinberg", SpeedAtLeast(8), 24, V_DitheringFloydStein, {8, {}}, Whole);
  add("24 to 3-3-2, Floyd-Steinberg, line by line", SpeedAtLeast(1), 24, V_DitheringFloydStein, {8, {}}, Lines);
}
#else
void RegisterSwscale() {}
#endif

}  // namespace

void RegisterFamily() {
  Compare("gray to 1 bit, ordered", "memcpy", TimesAtMost(1), [] {
    return AgainstCopy(8, V_DitheringOrdered, {1, {}});
  });
  Compare("24 to 3-3-2, no dithering", "memcpy", TimesAtMost(1.3), [] {
    return AgainstCopy(24, V_DitheringNone, {8, {}});
  });
  Compare("24 to 3-3-2, ordered", "memcpy", TimesAtMost(1.5), [] {
    return AgainstCopy(24, V_DitheringOrdered, {8, {}});
  });
  Compare(
      "24 to any 256 colours, no dithering", "plain loop", SpeedAtLeast(2.5),
      [] { return AgainstPlainMatch(V_DitheringNone); }, 11);
  Compare(
      "24 to any 256 colours, Floyd-Steinberg", "plain loop", SpeedAtLeast(3.5),
      [] { return AgainstPlainMatch(V_DitheringFloydStein); }, 11);
  constexpr struct {
    const char* name;
    int32_t method;
    double most;
  } kMethods[] = {{"Stucki", V_DitheringStucki, 2},
                  {"Burkes", V_DitheringBurkes, 2},
                  {"Sierra", V_DitheringSierra, 2},
                  {"Stevenson-Arce", V_DitheringStevensonArce, 4},
                  {"Jarvis", V_DitheringJarvis, 2}};
  for (const auto& m : kMethods) {
    Compare(
        std::string("gray to 1 bit, ") + m.name, "Floyd-Steinberg", TimesAtMost(m.most),
        [=] {
          return AgainstFloydSteinberg(8, m.method, {1, {}});
        },
        11);
    Compare(
        std::string("24 to 1 bit, ") + m.name, "Floyd-Steinberg", TimesAtMost(m.most),
        [=] {
          return AgainstFloydSteinberg(24, m.method, {1, {}});
        },
        11);
  }
  RegisterLeptonica();
  RegisterSwscale();
}

}  // namespace vexabench
