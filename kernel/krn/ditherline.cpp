// Diffusion of one line, the definition of all of it: from left to right, each pixel's error is spread over its neighbours.
//
// A column's sum of a line below is complete, but for what other lines add, once the pixel `reach` columns further right
// is done; until then the errors of the last pixels are kept. So each sum is read and written once a line, and what
// would fall outside the line never exists.
#include <algorithm>

#include "common/status.h"
#include "krn/ditherpass.h"

namespace vexakrn {
namespace {

constexpr int32_t kLeast = -255, kMost = 510;  // a component with the error that is carried to it

// One component's errors on its way along the line.
template <int kMethod>
class Carrier {
 public:
  Carrier(const DitherContext& pass, int32_t component) noexcept {
    for (int32_t row = 0; row < kRows; ++row) sums_[row] = SumsOf(pass, component, row);
  }

  // What is carried to column `x`. The share of its left neighbour is what everything waits for.
  int64_t To(int32_t x) const noexcept {
    const int64_t others = sums_[0][x] + kKernel.right[1] * last_[1];
    return (others + share_) / kKernel.divisor;
  }

  // Takes the error of column `x` and the share that the next column has of it, undivided. The line ends with kReach
  // columns that have none.
  void Put(int32_t x, int32_t error, int64_t share) noexcept {
    share_ = share;
    for (int32_t i = 2 * kReach; i > 0; --i) last_[i] = last_[i - 1];
    last_[0] = error;
    const int32_t column = x - kReach;
    if (column < 0) return;
    for (int32_t row = 0; row < kRows; ++row) {
      int32_t sum = row + 1 < kRows ? sums_[row + 1][column] : 0;
      for (int32_t i = 0; i <= 2 * kReach; ++i)
        if (kKernel.below[row][3 + i - kReach] != 0) sum += kKernel.below[row][3 + i - kReach] * last_[i];
      sums_[row][column] = sum;
    }
  }

  static constexpr int32_t kReach = kDiffusion[kMethod].reach, kShare = kDiffusion[kMethod].right[0];

 private:
  static constexpr DiffusionKernel kKernel = kDiffusion[kMethod];
  static constexpr int32_t kRows = kKernel.rows;

  int32_t* sums_[3];
  int32_t last_[7] = {};  // the newest first
  int64_t share_ = 0;
};

// --- how a pixel's index is chosen ---

// A component that is wanted, and what becomes of it: its error, and the next column's share of that.
struct Wanted {
  int64_t value;
  int32_t error;
  int64_t share;
};

// Without a branch, which nothing could foresee, and both bounds side by side.
int32_t Clamped(int64_t value) noexcept {
  const int64_t capped = value > 255 ? 255 : value;
  return static_cast<int32_t>(capped & ~(value >> 63));
}

// Components that do not depend on each other.
template <int kComponents>
class Separate {
 public:
  static constexpr int32_t kCount = kComponents;
  explicit Separate(const DitherContext& pass) noexcept : addend_(pass.choice.addend) {
    for (int32_t c = 0; c < kComponents; ++c) tables_[c] = &pass.tables[static_cast<uint64_t>(c)];
  }
  template <int32_t kShare>
  uint32_t Choose(Wanted* wanted) const noexcept {
    uint32_t index = 0;
    for (int32_t c = 0; c < kComponents; ++c) {
      const int64_t at = wanted[c].value - kLeast;
      wanted[c].share = tables_[c]->share[at];
      wanted[c].error = tables_[c]->error[at];
      index += tables_[c]->index[at];
    }
    return index != 0 ? index + addend_ : 0;
  }

 private:
  const ComponentTable* tables_[3];
  const uint32_t addend_;
};

// The index that a fixed palette has for a colour.
uint32_t FixedIndex(const DitherChoice& choice, uint32_t r, uint32_t g, uint32_t b) noexcept {
  if (choice.rule == DitherRule::Cube) return r / 51 * 36 + g / 51 * 6 + b / 51;
  const auto bits = [&choice](int32_t component, uint32_t value) {
    const DitherLevels& levels = choice.levels[component];
    return (value & (0xFF00u >> levels.bits)) >> levels.shift;
  };
  if (choice.rule != DitherRule::Levels) return bits(0, (2 * r + 5 * g + b + 4) >> 3);
  const uint32_t index = bits(0, r) | bits(1, g) | bits(2, b);
  return index != 0 ? index + choice.addend : 0;
}

// Black, white and grays by luminance.
class Luminance {
 public:
  static constexpr int32_t kCount = 3;
  explicit Luminance(const DitherContext& pass) noexcept : grays_(pass.grays.data()) {}
  template <int32_t kShare>
  uint32_t Choose(Wanted* wanted) const noexcept {
    int32_t color[3];
    for (int32_t c = 0; c < 3; ++c) color[c] = Clamped(wanted[c].value);
    const GrayEntry& entry = grays_[2 * color[0] + 5 * color[1] + color[2]];
    for (int32_t c = 0; c < 3; ++c) {
      wanted[c].error = color[c] - entry.gray;
      wanted[c].share = kShare * color[c] - entry.share;
    }
    return entry.index;
  }

 private:
  const GrayEntry* grays_;
};

// Components that decide together: `Match` gives a colour's index and palette entry as index << 24 | red << 16 |
// green << 8 | blue.
template <int kComponents, typename Match>
class Together {
 public:
  static constexpr int32_t kCount = kComponents;
  explicit Together(const DitherContext& pass) noexcept : match_(pass) {}
  template <int32_t kShare>
  uint32_t Choose(Wanted* wanted) const noexcept {
    int32_t color[3];
    for (int32_t c = 0; c < 3; ++c) color[c] = Clamped(wanted[kComponents == 1 ? 0 : c].value);
    const uint32_t match =
        match_(static_cast<uint32_t>(color[0]), static_cast<uint32_t>(color[1]), static_cast<uint32_t>(color[2]));
    for (int32_t c = 0; c < kComponents; ++c) {
      wanted[c].error = color[c] - static_cast<int32_t>(match >> (16 - 8 * c) & 0xFF);
      wanted[c].share = kShare * wanted[c].error;
    }
    return match >> 24;
  }

 private:
  const Match match_;
};

// Any fixed palette.
class FixedMatch {
 public:
  explicit FixedMatch(const DitherContext& pass) noexcept : pass_(pass) {}
  uint32_t operator()(uint32_t r, uint32_t g, uint32_t b) const noexcept {
    const uint32_t index = FixedIndex(pass_.choice, r, g, b);
    return index << 24 | PaletteBits(pass_.palette[index]);
  }

 private:
  const DitherContext& pass_;
};

class TableMatch {
 public:
  explicit TableMatch(const DitherContext& pass) noexcept : matches_(pass.choice.matches) {}
  uint32_t operator()(uint32_t r, uint32_t g, uint32_t b) const noexcept { return MatchOf(matches_, r, g, b); }

 private:
  const DitherMatches& matches_;
};

template <int kMethod, typename Chooser>
void DiffuseLine(DitherContext& pass, const uint8_t* const planes[3], uint8_t* indices) noexcept {
  const Chooser chooser(pass);
  constexpr int32_t kComponents = Chooser::kCount;
  using Component = Carrier<kMethod>;
  Component carriers[3] = {{pass, 0}, {pass, kComponents > 1 ? 1 : 0}, {pass, kComponents > 1 ? 2 : 0}};
  const int32_t width = pass.width;
  for (int32_t x = 0; x < width; ++x) {
    Wanted wanted[3];
    for (int32_t c = 0; c < kComponents; ++c) wanted[c].value = planes[c][x] + carriers[c].To(x);
    indices[x] = static_cast<uint8_t>(chooser.template Choose<Component::kShare>(wanted));
    for (int32_t c = 0; c < kComponents; ++c) carriers[c].Put(x, wanted[c].error, wanted[c].share);
  }
  for (int32_t c = 0; c < kComponents; ++c)
    for (int32_t i = 0; i < Component::kReach; ++i) carriers[c].Put(width + i, 0, 0);
}

using DiffuseFn = void (*)(DitherContext& pass, const uint8_t* const planes[3], uint8_t* indices) noexcept;

template <typename Chooser>
DiffuseFn ForMethod(int32_t method) noexcept {
  constexpr DiffuseFn kMethods[] = {DiffuseLine<1, Chooser>, DiffuseLine<2, Chooser>, DiffuseLine<3, Chooser>,
                                    DiffuseLine<4, Chooser>, DiffuseLine<5, Chooser>, DiffuseLine<6, Chooser>};
  return kMethods[method - 1];
}

uint8_t ComponentOf(const RGBQUAD& entry, int32_t component) noexcept {
  return component == 0 ? entry.rgbRed : component == 1 ? entry.rgbGreen : entry.rgbBlue;
}

// One component alone, the others black (or all three alike, where there is but one): its bits of the index, and the
// value that the palette has for it.
void FillTable(const DitherContext& pass, int32_t component, ComponentTable* table) noexcept {
  for (int32_t value = kLeast; value <= kMost; ++value) {
    const int32_t wanted = Clamped(value);
    uint32_t color[3] = {};
    for (int32_t c = 0; c < 3; ++c)
      if (c == component || pass.components == 1) color[c] = static_cast<uint32_t>(wanted);
    const uint32_t index = FixedIndex(pass.choice, color[0], color[1], color[2]);
    const int32_t error = wanted - ComponentOf(pass.palette[index], component);
    table->error[value - kLeast] = static_cast<int16_t>(error);
    table->share[value - kLeast] = static_cast<int16_t>(error * kDiffusion[pass.method].right[0]);
    table->index[value - kLeast] = static_cast<uint8_t>(index != 0 ? index - pass.choice.addend : 0);
  }
}

int32_t SetTables(DitherContext& pass) noexcept {
  pass.tables.Reset(AllocateArray<ComponentTable>(static_cast<uint64_t>(pass.components)));
  if (!pass.tables) return kNoMemory;
  for (int32_t c = 0; c < pass.components; ++c) FillTable(pass, c, &pass.tables[static_cast<uint64_t>(c)]);
  return kSuccess;
}

int32_t SetGrays(DitherContext& pass) noexcept {
  constexpr uint32_t kCount = 8 * 255 + 1;
  pass.grays.Reset(AllocateArray<GrayEntry>(kCount));
  if (!pass.grays) return kNoMemory;
  for (uint32_t sum = 0; sum < kCount; ++sum) {
    const uint32_t luminance = (sum + 4) >> 3, index = FixedIndex(pass.choice, luminance, luminance, luminance);
    const uint8_t gray = pass.palette[index].rgbRed;
    const int32_t share = kDiffusion[pass.method].right[0] * gray;
    pass.grays[sum] = {static_cast<int16_t>(share), gray, static_cast<uint8_t>(index)};
  }
  return kSuccess;
}

}  // namespace

int32_t SetDiffusion(DitherContext& pass) noexcept {
  const int32_t method = pass.method;
  if (kDiffusion[method].rows == 0) return kSuccess;
  const bool gray = pass.components == 1;
  if (HasTable(pass.paletteClass)) {
    pass.diffuse = (gray ? ForMethod<Together<1, TableMatch>> : ForMethod<Together<3, TableMatch>>)(method);
    return kSuccess;
  }
  if (pass.choice.rule == DitherRule::Luminance) {
    pass.diffuse = ForMethod<Luminance>(method);
    return SetGrays(pass);
  }
  if (!gray && !pass.whole) {  // an index can be missing, and stand for black
    pass.diffuse = ForMethod<Together<3, FixedMatch>>(method);
    return kSuccess;
  }
  pass.diffuse = (gray ? ForMethod<Separate<1>> : ForMethod<Separate<3>>)(method);
  return SetTables(pass);
}

}  // namespace vexakrn
