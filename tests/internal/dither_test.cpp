// Dithering against a plain model of it: whole pictures with one sum a pixel and component, weights as lists of
// neighbours, and palettes searched entry by entry.
#include "krn/dither.h"

#include "krn/palettes.h"
#include "support/testing.h"

namespace vexatest {
namespace {

using Bytes = std::vector<uint8_t>;
using Color = std::array<int32_t, 3>;  // red, green, blue

// --- the model ---

// What a pixel's neighbours get of its error: its own line and those below, from three columns to the left on.
struct Kernel {
  int32_t divisor, weights[4][7];
};
constexpr Kernel kKernels[] = {
    {},
    {16, {{0, 0, 0, 0, 7, 0, 0}, {0, 0, 3, 5, 1, 0, 0}}},
    {42, {{0, 0, 0, 0, 8, 4, 0}, {0, 2, 4, 8, 4, 2, 0}, {0, 1, 2, 4, 2, 1, 0}}},
    {32, {{0, 0, 0, 0, 8, 4, 0}, {0, 2, 4, 8, 4, 2, 0}}},
    {32, {{0, 0, 0, 0, 5, 3, 0}, {0, 2, 4, 5, 4, 2, 0}, {0, 0, 2, 3, 2, 0, 0}}},
    {200, {{0, 0, 0, 0, 0, 32, 0}, {12, 0, 26, 0, 30, 0, 16}, {0, 12, 0, 26, 0, 12, 0}, {5, 0, 12, 0, 12, 0, 5}}},
    {48, {{0, 0, 0, 0, 7, 5, 0}, {0, 3, 5, 7, 5, 3, 0}, {0, 1, 3, 5, 3, 1, 0}}},
};

constexpr int32_t kOrdered[64] = {0,  128, 32, 160, 8,  136, 40, 168, 192, 64,  224, 96,  200, 72,  232, 104,
                                  48, 176, 16, 144, 56, 184, 24, 152, 236, 112, 208, 80,  244, 120, 216, 88,
                                  12, 140, 44, 172, 4,  132, 36, 164, 204, 76,  232, 108, 196, 68,  228, 100,
                                  60, 188, 28, 156, 52, 180, 20, 148, 248, 124, 220, 92,  240, 116, 212, 84};
constexpr int32_t kClustered[64] = {112, 40,  72,  104, 144, 176, 208, 136, 88,  8,   16,  48,  192, 232, 240, 168,
                                    56,  24,  0,   80,  160, 224, 248, 200, 96,  64,  32,  120, 128, 216, 184, 152,
                                    148, 180, 212, 140, 116, 44,  76,  108, 196, 236, 244, 172, 92,  12,  20,  52,
                                    164, 228, 252, 204, 60,  28,  4,   84,  132, 220, 188, 156, 100, 68,  36,  124};

// A source format, and a palette to dither to.
struct Source {
  int32_t bits, order;
  std::vector<RGBQUAD> palette;
  int32_t lowBit = -1, highBit = -1;
};
struct Target {
  int32_t paletteClass;  // 0 or 1 by table, 2 to 9 fixed with so many bits less 1, 10 the cube
  std::vector<RGBQUAD> palette;
  uint32_t bits;
  std::shared_ptr<uint32_t> table;  // of the user's, in class 1
};

struct Picture {
  int32_t width, height;
  size_t pitch;
  Bytes bytes;
};

// Gray of a range of bits by its rule; all else is what a conversion makes of the pixel.
Color SourceColor(const Source& source, const Picture& picture, int32_t x, int32_t y) {
  const auto raw = PixelAt(picture.bytes.data() + picture.pitch * static_cast<size_t>(y), x, source.bits);
  if (source.lowBit >= 0) {
    const int32_t bits = source.highBit - source.lowBit + 1, top = (1 << bits) - 1;
    const int32_t value = static_cast<int32_t>(raw >> source.lowBit) & top;
    const auto gray = static_cast<int32_t>(RepeatBits(static_cast<uint32_t>(value), bits, 16) >> 8);
    return {gray, gray, gray};
  }
  if (source.bits <= 8) {
    const RGBQUAD entry = raw < source.palette.size() ? source.palette[raw] : RGBQUAD{};
    return {entry.rgbRed, entry.rgbGreen, entry.rgbBlue};
  }
  uint8_t pixel[8];
  std::memcpy(pixel, &raw, sizeof pixel);
  EXPECT_EQ(V_ConvertBuffer(pixel, 1, source.bits, 24, source.order, V_OrderRgb, nullptr, nullptr), 1);
  return {pixel[0], pixel[1], pixel[2]};
}

// Levels of each component in a fixed palette, as powers of two.
Color LevelBits(int32_t paletteClass) {
  constexpr Color kBits[] = {{},        {},        {1, 1, 1}, {2, 2, 2}, {1, 1, 1},
                             {1, 1, 1}, {2, 2, 1}, {2, 2, 2}, {2, 3, 2}, {3, 3, 2}};
  return kBits[paletteClass];
}

int32_t FixedIndexOf(int32_t paletteClass, const Color& c) {
  const auto [r, g, b] = c;
  if (paletteClass <= 3) return ((2 * r + 5 * g + b + 4) >> 3) >> (9 - paletteClass);
  if (paletteClass == 5) {
    const int32_t bits = (b >> 7) << 2 | (g >> 7) << 1 | r >> 7;
    return bits == 0 ? 0 : 8 + bits;
  }
  if (paletteClass == 10) return r / 51 * 36 + g / 51 * 6 + b / 51;
  const Color bits = LevelBits(paletteClass);
  return (r >> (8 - bits[0])) << (bits[1] + bits[2]) | (g >> (8 - bits[1])) << bits[2] | b >> (8 - bits[2]);
}

class Model {
 public:
  Model(const Target& target, int32_t method) : target_(target), method_(method) {
    for (size_t i = 0; i < target.palette.size(); ++i) {
      if ((target.palette[i].rgbReserved & 3) != 0) continue;
      candidates_.push_back(target.palette[i]);
      candidateIndex_.push_back(static_cast<int32_t>(i));
    }
  }

  // Indices, one byte a pixel.
  Bytes Run(const Source& source, const Picture& picture) {
    const auto width = static_cast<size_t>(picture.width), height = static_cast<size_t>(picture.height);
    const Kernel& kernel = kKernels[Diffuses() ? method_ : 0];
    Bytes indices(width * height);
    std::vector<Color> sums(width * height);
    for (int32_t y = 0; y < picture.height; ++y)
      for (int32_t x = 0; x < picture.width; ++x) {
        const size_t at = static_cast<size_t>(y) * width + static_cast<size_t>(x);
        Color wanted = SourceColor(source, picture, x, y);
        for (size_t c = 0; c < 3; ++c)
          wanted[c] = std::clamp(Moved(wanted[c], c, x, y) + (Diffuses() ? sums[at][c] / kernel.divisor : 0), 0, 255);
        const int32_t index = IndexOf(wanted);
        indices[at] = static_cast<uint8_t>(index);
        const auto entry = static_cast<size_t>(index) < target_.palette.size()
                               ? target_.palette[static_cast<size_t>(index)]
                               : RGBQUAD{};
        const Color error = {wanted[0] - entry.rgbRed, wanted[1] - entry.rgbGreen, wanted[2] - entry.rgbBlue};
        for (int32_t tap = 0; tap < 28; ++tap) {
          const int32_t tx = x + tap % 7 - 3, ty = y + tap / 7;
          if (tx < 0 || tx >= picture.width || ty >= picture.height) continue;
          for (size_t c = 0; c < 3; ++c)
            sums[static_cast<size_t>(ty) * width + static_cast<size_t>(tx)][c] +=
                kernel.weights[tap / 7][tap % 7] * error[c];
        }
      }
    return indices;
  }

 private:
  bool Diffuses() const { return method_ >= 1 && method_ <= 6; }

  // With the offset of an ordered pattern.
  int32_t Moved(int32_t value, size_t component, int32_t x, int32_t y) const {
    if (method_ < V_DitheringOrdered) return value;
    const int32_t* const matrix = method_ == V_DitheringOrdered ? kOrdered : kClustered;
    const int32_t m = matrix[y % 8 * 8 + x % 8];
    if (target_.paletteClass == 10) return value + m / 6 - 21;
    const auto k = static_cast<int32_t>(target_.bits);
    if (target_.paletteClass <= 1) return value + m / k - 128 / k;
    const int32_t bits = LevelBits(target_.paletteClass)[component];
    return value - (value >> bits) + ((m + 2) >> bits);
  }

  int32_t IndexOf(const Color& c) const {
    if (target_.paletteClass > 1) return FixedIndexOf(target_.paletteClass, c);
    const auto cut = [&c](size_t i) { return static_cast<uint32_t>(c[i]) & 0xF8; };
    return candidateIndex_[V_FindPaletteIndex(candidates_.data(), static_cast<uint32_t>(candidates_.size()), cut(0),
                                              cut(1), cut(2))];
  }

  const Target& target_;
  const int32_t method_;
  std::vector<RGBQUAD> candidates_;
  std::vector<int32_t> candidateIndex_;
};

// --- what is dithered ---

std::vector<RGBQUAD> RandomPalette(Random& random, size_t colors, bool gray = false) {
  std::vector<RGBQUAD> palette(colors);
  random.Fill(palette.data(), colors * sizeof(RGBQUAD));
  for (RGBQUAD& entry : palette) {
    entry.rgbReserved &= 0xFC;
    if (gray) entry.rgbRed = entry.rgbGreen = entry.rgbBlue;
  }
  return palette;
}

std::vector<Target> Targets(Random& random) {
  std::vector<Target> targets;
  const auto add = [&](int32_t paletteClass, std::vector<RGBQUAD> palette, uint32_t bits) {
    targets.push_back({paletteClass, std::move(palette), bits, nullptr});
  };
  for (uint32_t bits = 1; bits <= 8; ++bits) {
    const RGBQUAD* fixed = vexakrn::FixedPalette(bits);
    add(static_cast<int32_t>(bits) + 1, {fixed, fixed + (size_t{1} << bits)}, bits);
    const size_t less = (size_t{1} << bits) - (bits == 1 ? 1 : random.Below(uint64_t{1} << (bits - 1)));
    add(static_cast<int32_t>(bits) + 1, {fixed, fixed + less}, bits);
    add(0, RandomPalette(random, (size_t{1} << bits) - (bits > 2 ? random.Below(3) : 0)), bits);
  }
  const RGBQUAD *cube = vexakrn::CubePalette(), *fixed = vexakrn::FixedPalette(4);
  add(10, {cube, cube + 216 + random.Below(41)}, 8);
  add(10, {cube, cube + 140}, 8);
  add(0, RandomPalette(random, 16, true), 4);
  add(0, {fixed, fixed + 16}, 7);
  targets.back().palette[3].rgbReserved = 4;  // no longer the fixed one
  add(0, RandomPalette(random, 40), 6);
  for (RGBQUAD& entry : targets.back().palette)  // some are barred
    if (random.Below(3) == 0) entry.rgbReserved |= static_cast<uint8_t>(1 + random.Below(3));
  add(1, RandomPalette(random, 200), 8);
  targets.back().table.reset(V_CreateUserMatchTable(targets.back().palette.data(), 200), V_FreeUserMatchTable);
  return targets;
}

std::vector<Source> Sources(Random& random) {
  std::vector<Source> sources;
  for (int32_t bits = 1; bits <= 8; ++bits) sources.push_back({bits, 0, RandomPalette(random, size_t{1} << bits)});
  sources.push_back({5, 0, RandomPalette(random, 19)});  // the other indices are black
  sources.push_back({8, 0, RandomPalette(random, 256, true)});
  for (const auto& [bits, low, high] : {std::tuple(12, 0, 11), {12, 2, 7}, {16, 3, 13}})
    sources.push_back({bits, V_OrderGray, {}, low, high});
  sources.push_back({24, V_OrderRomm, {}});
  for (const int32_t order : {V_OrderRgb, V_OrderBgr, V_OrderRgb565}) sources.push_back({16, order, {}});
  for (const int32_t order : {V_OrderRgb, V_OrderBgr})
    for (const int32_t bits : {24, 32, 48, 64}) sources.push_back({bits, order, {}});
  return sources;
}

// Noise, or noise of a few levels around a ramp: both far from and near to what a palette has.
Picture MakePicture(Random& random, const Source& source, int32_t width, int32_t height) {
  Picture picture = {
      width, height, (static_cast<size_t>(width) * static_cast<size_t>(source.bits) + 7) / 8 + random.Below(3), {}};
  picture.bytes = random.Bytes(picture.pitch * static_cast<size_t>(height));
  if (source.bits >= 24 && random.Coin())
    for (size_t i = 0; i < picture.bytes.size(); ++i)
      picture.bytes[i] = static_cast<uint8_t>(picture.bytes[i] % 8 + i % picture.pitch * 247 / picture.pitch);
  return picture;
}

class Dither : public testing::Test {
 protected:
  // A picture line by line, all at once and a few lines at a time.
  void Compare(const Source& source, const Target& target, int32_t method, int32_t width, int32_t height) {
    const Picture picture = MakePicture(random_, source, width, height);
    SCOPED_TRACE(testing::Message() << source.bits << " bits, order " << source.order << ", to class "
                                    << target.paletteClass << " " << target.palette.size() << " at " << target.bits
                                    << " bits, method " << method << ", " << width << " x " << height);
    const Bytes indices = Model(target, method).Run(source, picture);
    const size_t lineBytes = (static_cast<size_t>(width) * target.bits + 7) / 8, pitch = lineBytes + 3;
    Bytes want(pitch * static_cast<size_t>(height) - 3, 0xEE);  // what is between lines stays
    for (size_t y = 0; y < static_cast<size_t>(height); ++y) {
      std::fill_n(&want[pitch * y], lineBytes, uint8_t{0});
      for (int32_t x = 0; x < width; ++x)
        PutPixelAt(&want[pitch * y], x, static_cast<int32_t>(target.bits),
                   indices[y * static_cast<size_t>(width) + static_cast<size_t>(x)]);
    }
    const auto colors = [](const auto& palette) { return static_cast<uint32_t>(palette.size()); };
    const vexakrn::DitherRequest request = {
        width,         source.bits,       source.order, source.palette.data(), colors(source.palette),
        source.lowBit, source.highBit,    method,       target.palette.data(), colors(target.palette),
        target.bits,   target.table.get()};
    AtEachLevel([&] {
      for (const int32_t most : {0, height, -1}) {
        vexakrn::DitherContext* pass = nullptr;
        ASSERT_EQ(vexakrn::StartPass(request, &pass), 1);
        GuardedBytes got(want.size(), 0xEE);
        for (int32_t y = 0; y < height;) {
          const int32_t lines = std::min(most < 0 ? random_.Between(0, 80) : most, height - y);
          const uint8_t* from = picture.bytes.data() + picture.pitch * static_cast<size_t>(y);
          uint8_t* to = got.data() + pitch * static_cast<size_t>(y);
          if (lines == 0) vexakrn::DitherNextLine(*pass, from, to);
          if (lines > 0) vexakrn::DitherNextLines(*pass, from, picture.pitch, to, pitch, lines);
          y += std::max(lines, 1);
        }
        vexakrn::StopPass(pass);
        ASSERT_TRUE(got == want && got.GuardsIntact()) << most << " lines at once";
      }
    });
  }

  Random random_{0xD17E};
};

TEST_F(Dither, EveryMethodPaletteAndSourceGivesTheModelsIndices) {
  const std::vector<Target> targets = Targets(random_);
  for (const Source& source : Sources(random_))
    for (const Target& target : targets)
      for (int32_t method = 0; method <= 8; ++method) {
        Compare(source, target, method, random_.Between(1, 40), random_.Between(1, 18));
        // Without diffusion lines are long enough for whole blocks of the vector levels; with it there are now and then
        // bands of lines in vector lanes, full ones and others.
        if (method == V_DitheringNone || method >= V_DitheringOrdered)
          Compare(source, target, method, random_.Between(56, 400), 9);
        else if (random_.Below(9) == 0)
          Compare(source, target, method, random_.Between(1, random_.Coin() ? 70 : 500), random_.Between(1, 130));
        if (HasFatalFailure()) return;
      }
  const uint32_t* table = targets.back().table.get();
  EXPECT_LT(std::count(table, table + 32768, 0u), 32000) << "it learns the colours";
}

}  // namespace
}  // namespace vexatest
