// Palettes made for a picture.
#include "krn/quantize.h"

#include <algorithm>
#include <cstring>

#include "common/status.h"

namespace vexakrn {
namespace {

constexpr uint32_t kRounds = 8;  // of k-means

// A colour that stands for many pixels: the mean of a cell.
struct Sample {
  float red, green, blue;
  uint32_t count;
};

struct Sums {
  double count, red, green, blue;
  void Add(const Sample& s) noexcept {
    count += s.count;
    red += static_cast<double>(s.red) * s.count;
    green += static_cast<double>(s.green) * s.count;
    blue += static_cast<double>(s.blue) * s.count;
  }
};

uint8_t Rounded(double value) noexcept { return static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0)); }

RGBQUAD Mean(const Sums& sums) noexcept {
  return {Rounded(sums.blue / sums.count), Rounded(sums.green / sums.count), Rounded(sums.red / sums.count), 0};
}

uint32_t Luminance(const RGBQUAD& c) noexcept { return 2u * c.rgbRed + 5u * c.rgbGreen + c.rgbBlue; }

void SortPalette(RGBQUAD* palette, uint32_t colors) noexcept {
  std::sort(palette, palette + colors, [](const RGBQUAD& a, const RGBQUAD& b) {
    if (Luminance(a) != Luminance(b)) return Luminance(a) < Luminance(b);
    return std::memcmp(&a, &b, sizeof a) < 0;
  });
}

// --- splitting by variance -----------------------------------------------------------------------------------------------

constexpr int32_t kSide = 33;  // 32 steps a component, and a plane of zeros before the first

// What is known of all colours in a box that starts at the origin; of any box by differences.
struct Moments {
  double count, red, green, blue, squares;
  Moments& operator+=(const Moments& m) noexcept {
    count += m.count, red += m.red, green += m.green, blue += m.blue, squares += m.squares;
    return *this;
  }
  Moments& operator-=(const Moments& m) noexcept {
    count -= m.count, red -= m.red, green -= m.green, blue -= m.blue, squares -= m.squares;
    return *this;
  }
  // The part of the squares that the mean accounts for.
  double Explained() const noexcept { return count > 0 ? (red * red + green * green + blue * blue) / count : 0; }
  double Variance() const noexcept { return squares - Explained(); }
};

struct Box {
  int32_t low[3], high[3];  // steps low + 1 to high of each component
  double variance;
};

class VarianceSplitter {
 public:
  int32_t Allocate() noexcept {
    moments_.Reset(AllocateZeroed<Moments>(kSide * kSide * kSide));
    return moments_ ? kSuccess : kNoMemory;
  }
  void Add(const Sample& s) noexcept;
  void Accumulate() noexcept;
  uint32_t Split(uint32_t colors, RGBQUAD* palette) noexcept;

 private:
  Moments& At(int32_t r, int32_t g, int32_t b) const noexcept {
    return moments_[static_cast<uint32_t>((r * kSide + g) * kSide + b)];
  }
  Moments Of(const Box& box) const noexcept;
  bool Cut(Box& box, Box& other) const noexcept;
  double BestPlane(const Box& box, const Moments& whole, int32_t axis, int32_t* plane) const noexcept;

  Buffer<Moments> moments_;
};

void VarianceSplitter::Add(const Sample& s) noexcept {
  const auto step = [](float value) { return static_cast<int32_t>(value) / 8 + 1; };
  const double r = static_cast<double>(s.red), g = static_cast<double>(s.green), b = static_cast<double>(s.blue);
  const double n = s.count;
  At(step(s.red), step(s.green), step(s.blue)) += {n, r * n, g * n, b * n, (r * r + g * g + b * b) * n};
}

void VarianceSplitter::Accumulate() noexcept {
  for (int32_t r = 1; r < kSide; ++r)
    for (int32_t g = 1; g < kSide; ++g)
      for (int32_t b = 1; b < kSide; ++b) At(r, g, b) += At(r, g, b - 1);
  for (int32_t r = 1; r < kSide; ++r)
    for (int32_t g = 1; g < kSide; ++g)
      for (int32_t b = 1; b < kSide; ++b) At(r, g, b) += At(r, g - 1, b);
  for (int32_t r = 1; r < kSide; ++r)
    for (int32_t g = 1; g < kSide; ++g)
      for (int32_t b = 1; b < kSide; ++b) At(r, g, b) += At(r - 1, g, b);
}

Moments VarianceSplitter::Of(const Box& box) const noexcept {
  Moments sum{};
  for (uint32_t corner = 0; corner < 8; ++corner) {
    const auto side = [&](uint32_t axis) { return corner >> axis & 1 ? box.low[axis] : box.high[axis]; };
    const Moments& m = At(side(0), side(1), side(2));
    __builtin_popcount(corner) % 2 == 0 ? sum += m : sum -= m;
  }
  return sum;
}

// The plane across an axis behind which cutting explains most, and how much that is; 0 when none has colours on
// both sides.
double VarianceSplitter::BestPlane(const Box& box, const Moments& whole, int32_t axis, int32_t* plane) const noexcept {
  double best = 0;
  Box part = box;
  for (int32_t at = box.low[axis] + 1; at < box.high[axis]; ++at) {
    part.high[axis] = at;
    const Moments below = Of(part);
    Moments above = whole;
    above -= below;
    if (below.count < 0.5 || above.count < 0.5) continue;
    const double explained = below.Explained() + above.Explained();
    if (explained <= best) continue;
    best = explained;
    *plane = at;
  }
  return best;
}

// Cuts a box in two where that helps most. False when it holds one step of colours only.
bool VarianceSplitter::Cut(Box& box, Box& other) const noexcept {
  const Moments whole = Of(box);
  double best = 0;
  int32_t bestAxis = 0, bestPlane = 0;
  for (int32_t axis = 0; axis < 3; ++axis) {
    int32_t plane = 0;
    const double explained = BestPlane(box, whole, axis, &plane);
    if (explained <= best) continue;
    best = explained;
    bestAxis = axis;
    bestPlane = plane;
  }
  if (best <= 0) return false;
  other = box;
  box.high[bestAxis] = bestPlane;
  other.low[bestAxis] = bestPlane;
  box.variance = Of(box).Variance();
  other.variance = Of(other).Variance();
  return true;
}

uint32_t VarianceSplitter::Split(uint32_t colors, RGBQUAD* palette) noexcept {
  Box boxes[kMaxColors];
  boxes[0] = {{0, 0, 0}, {kSide - 1, kSide - 1, kSide - 1}, 0};
  boxes[0].variance = Of(boxes[0]).Variance();
  uint32_t count = 1;
  while (count < colors) {
    Box* widest =
        std::max_element(boxes, boxes + count, [](const Box& a, const Box& b) { return a.variance < b.variance; });
    if (widest->variance <= 0) break;
    if (Cut(*widest, boxes[count])) {
      ++count;
    } else {
      widest->variance = 0;  // it cannot be cut
    }
  }
  for (uint32_t i = 0; i < count; ++i) {
    const Moments m = Of(boxes[i]);
    palette[i] = Mean({m.count, m.red, m.green, m.blue});
  }
  return count;
}

// --- k-means -----------------------------------------------------------------------------------------------------------

double SquaredError(const Sample& s, const RGBQUAD& c) noexcept {
  const double r = static_cast<double>(s.red) - c.rgbRed, g = static_cast<double>(s.green) - c.rgbGreen;
  const double b = static_cast<double>(s.blue) - c.rgbBlue;
  return (r * r + g * g + b * b) * s.count;
}

RGBQUAD ColorOf(const Sample& s) noexcept {
  return {Rounded(static_cast<double>(s.blue)), Rounded(static_cast<double>(s.green)),
          Rounded(static_cast<double>(s.red)), 0};
}

// One round: each entry moves to the mean of its samples; one that has none goes to the sample that is served worst.
// Returns whether an entry moved.
bool Improve(const Sample* samples, uint32_t count, RGBQUAD* palette, uint32_t colors) noexcept {
  const PaletteSearch search(palette, colors);
  Sums sums[kMaxColors] = {};
  double worst = 0;
  uint32_t worstSample = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const RGBQUAD color = ColorOf(samples[i]);
    const uint32_t index = search.Find(color.rgbRed, color.rgbGreen, color.rgbBlue);
    sums[index].Add(samples[i]);
    const double error = SquaredError(samples[i], palette[index]);
    if (error > worst) worst = error, worstSample = i;
  }
  bool moved = false;
  for (uint32_t i = 0; i < colors; ++i) {
    RGBQUAD next = palette[i];
    if (sums[i].count > 0) {
      next = Mean(sums[i]);
    } else if (worst > 0) {
      next = ColorOf(samples[worstSample]);
      worst = 0;  // one a round
    }
    moved |= std::memcmp(&next, &palette[i], sizeof next) != 0;
    palette[i] = next;
  }
  return moved;
}

// Adds entries where the splitting ended early: each for the sample that is served worst by those before.
uint32_t FillUp(const Sample* samples, uint32_t count, RGBQUAD* palette, uint32_t entries, uint32_t colors) noexcept {
  while (entries < colors) {
    const PaletteSearch search(palette, entries);
    double worst = 0;
    RGBQUAD next{};
    for (uint32_t i = 0; i < count; ++i) {
      const RGBQUAD color = ColorOf(samples[i]);
      const RGBQUAD& nearest = palette[search.Find(color.rgbRed, color.rgbGreen, color.rgbBlue)];
      if (std::memcmp(&nearest, &color, sizeof color) == 0) continue;
      const double error = SquaredError(samples[i], nearest);
      if (error > worst) worst = error, next = color;
    }
    if (worst <= 0) break;
    palette[entries++] = next;
  }
  return entries;
}

// Gives each pure colour that occurs the entry that is nearest to it, or to another such colour's second choice.
void KeepPureColors(uint32_t pure, RGBQUAD* palette, uint32_t colors) noexcept {
  bool taken[kMaxColors] = {};
  for (uint32_t index = 0; index < 8; ++index) {
    if (!(pure >> index & 1)) continue;
    const auto level = [&](uint32_t bit) { return static_cast<uint8_t>(index >> bit & 1 ? 255 : 0); };
    const RGBQUAD wanted = {level(0), level(1), level(2), 0};
    const Sample sample = {static_cast<float>(wanted.rgbRed), static_cast<float>(wanted.rgbGreen),
                           static_cast<float>(wanted.rgbBlue), 1};
    uint32_t best = colors;
    for (uint32_t i = 0; i < colors; ++i)
      if (!taken[i] && (best == colors || SquaredError(sample, palette[i]) < SquaredError(sample, palette[best])))
        best = i;
    if (best == colors) return;
    palette[best] = wanted;
    taken[best] = true;
  }
}

}  // namespace

int32_t ColorHistogram::Allocate() noexcept {
  cells_.Reset(AllocateZeroed<Cell>(kCellCount));
  return cells_ ? kSuccess : kNoMemory;
}

void ColorHistogram::NoteColor(uint32_t color) noexcept {
  const uint32_t red = color >> 16, green = color >> 8 & 0xFF, blue = color & 0xFF;
  const auto isPure = [](uint32_t level) { return level == 0 || level == 255; };
  if (isPure(red) && isPure(green) && isPure(blue)) pure_ |= 1u << ((red & 4) | (green & 2) | (blue & 1));
  if (distinct_ > kMaxColors) return;
  const uint32_t entry = color + (1u << 24);
  uint32_t slot = color * 2654435761u >> 22;
  while (seen_[slot] != 0 && seen_[slot] != entry) slot = (slot + 1) % kSlots;
  if (seen_[slot] == entry) return;
  seen_[slot] = entry;
  ++distinct_;
}

void ColorHistogram::Add(const uint8_t* pixels, uint64_t count, uint64_t step) noexcept {
  const uint64_t taken = std::min((count + step - 1) / step, room_);
  room_ -= taken;
  uint32_t last = ~0u;
  for (uint64_t i = 0; i < taken; ++i, pixels += 3 * step) {
    const uint32_t blue = pixels[0], green = pixels[1], red = pixels[2], color = red << 16 | green << 8 | blue;
    if (color != last) NoteColor(color);
    last = color;
    Cell& cell = cells_[(red >> 2) << 12 | (green >> 2) << 6 | blue >> 2];
    cell.countAndRed += 1 | static_cast<uint64_t>(red) << 32;
    cell.greenAndBlue += green | static_cast<uint64_t>(blue) << 32;
  }
}

void ColorHistogram::ListColors(RGBQUAD* palette) const noexcept {
  for (const uint32_t entry : seen_) {
    if (entry == 0) continue;
    *palette++ = {static_cast<uint8_t>(entry), static_cast<uint8_t>(entry >> 8), static_cast<uint8_t>(entry >> 16), 0};
  }
}

int32_t ColorHistogram::MakePalette(uint32_t colors, bool pure, RGBQUAD* palette, uint32_t* made) const noexcept {
  if (HasFewColors(colors)) {
    ListColors(palette);
    *made = distinct_;
    SortPalette(palette, *made);
    return kSuccess;
  }
  uint32_t count = 0;
  for (uint32_t i = 0; i < kCellCount; ++i) count += cells_[i].countAndRed != 0 ? 1u : 0u;
  const Buffer<Sample> samples(count);
  VarianceSplitter splitter;
  if (!samples) return kNoMemory;
  V_TRY(splitter.Allocate());
  for (uint32_t i = 0, at = 0; i < kCellCount; ++i) {
    const Cell& cell = cells_[i];
    const auto n = static_cast<uint32_t>(cell.countAndRed);
    if (n == 0) continue;
    const auto mean = [n](uint64_t sum) { return static_cast<float>(static_cast<double>(sum) / n); };
    samples[at] = {mean(cell.countAndRed >> 32), mean(static_cast<uint32_t>(cell.greenAndBlue)),
                   mean(cell.greenAndBlue >> 32), n};
    splitter.Add(samples[at++]);
  }
  splitter.Accumulate();
  const uint32_t split = splitter.Split(colors, palette);
  const uint32_t entries = FillUp(samples.data(), count, palette, split, colors);
  for (uint32_t round = 0; round < kRounds && Improve(samples.data(), count, palette, entries); ++round) {
  }
  if (pure) KeepPureColors(pure_, palette, entries);
  SortPalette(palette, entries);
  *made = entries;
  return kSuccess;
}

}  // namespace vexakrn
