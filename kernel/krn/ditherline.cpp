// Diffusion of one line, the definition of all of it: from left to right, each pixel's error is spread over its neighbours.
//
// Everything waits for what a pixel's left neighbour leaves to it, so nothing else is done on the way: errors are kept, and
// spread to the lines below when the line is done.
#include <algorithm>
#include <bit>

#include "common/status.h"
#include "krn/ditherpass.h"

namespace vexakrn {
namespace {

constexpr int32_t kLeast = -255, kMost = 510;  // a component with the error that is carried to it

// The sum of both terms through a divisor, truncated towards zero. It is `late` that everything waits for: for powers of
// two what rounds a negative sum is added before it.
template <int32_t kDivisor>
int64_t Truncated(int64_t early, int64_t late) noexcept {
  if constexpr ((kDivisor & (kDivisor - 1)) != 0) {
    return (early + late) / kDivisor;
  } else {
    constexpr int kShift = std::countr_zero(static_cast<uint32_t>(kDivisor));
    int64_t up = early + kDivisor - 1;
    asm("" : "+r"(up));  // a sum of its own, not the other one's
    int64_t sum = early + late;
    up += late;
    asm("" : "+r"(up));  // made in any case, for a choice without a branch: nothing could foresee one
    if (__builtin_expect_with_probability(sum < 0, 1, 0.5)) sum = up;
    return sum >> kShift;
  }
}

// One component's errors on its way along the line.
template <int kMethod>
class Carrier {
 public:
  Carrier(const DitherContext& pass, int32_t component) noexcept
      : above_(SumsOf(pass, component, 0)), errors_(ErrorsOf(pass, component)) {}

  // What is carried to column `x`.
  int64_t To(int32_t x) const noexcept {
    return Truncated<kKernel.divisor>(above_[x] + kKernel.right[1] * beforeLast_, share_);
  }

  // Takes the error of column `x` and the share that the next column has of it, undivided.
  void Put(int32_t x, int32_t error, int64_t share) noexcept {
    share_ = share;
    beforeLast_ = last_;
    last_ = error;
    errors_[x] = static_cast<int16_t>(error);
  }

  static constexpr int32_t kShare = kDiffusion[kMethod].right[0];

 private:
  static constexpr DiffusionKernel kKernel = kDiffusion[kMethod];

  const int32_t* const above_;
  int16_t* const errors_;
  int32_t last_ = 0, beforeLast_ = 0;
  int64_t share_ = 0;
};

// What errors leave at a column, by a row of weights. With every kernel it fits 16 bits, twice as many to a vector.
template <int kMethod, int32_t kRow>
int16_t Left(const int16_t* errors, int64_t column) noexcept {
  constexpr DiffusionKernel kKernel = kDiffusion[kMethod];
  int16_t left = 0;
  for (int32_t d = -kKernel.reach; d <= kKernel.reach; ++d)
    left = static_cast<int16_t>(left + kKernel.below[kRow][3 + d] * errors[column - d]);
  return left;
}

// Spreads a line's errors to the lines below, of which the next one is then the first.
template <int kMethod, int32_t kRow = 0>
void Spread(const DitherContext& pass, int32_t component) noexcept {
  const int64_t width = pass.width;
  const int16_t* const errors = ErrorsOf(pass, component);
  int32_t* const __restrict sums = SumsOf(pass, component, kRow);
  if constexpr (kRow + 1 < kDiffusion[kMethod].rows) {
    const int32_t* const __restrict next = SumsOf(pass, component, kRow + 1);
    for (int64_t x = 0; x < width; ++x) sums[x] = next[x] + Left<kMethod, kRow>(errors, x);
    Spread<kMethod, kRow + 1>(pass, component);
  } else {
    for (int64_t x = 0; x < width; ++x) sums[x] = Left<kMethod, kRow>(errors, x);
  }
}

// --- how a pixel's index is chosen ---

// What is wanted of a component, its pixel and what is carried to it; and what becomes of it: its error, and the next
// column's share of that.
struct Wanted {
  int32_t pixel;
  int64_t carried;
  int32_t error;
  int64_t share;
};

// Without a branch, which nothing could foresee, and both bounds side by side.
int32_t Clamped(int64_t value) noexcept {
  const int64_t capped = value > 255 ? 255 : value;
  return static_cast<int32_t>(capped & ~(value >> 63));
}
int32_t Clamped(const Wanted& wanted) noexcept { return Clamped(wanted.pixel + wanted.carried); }

// An entry of a table by values. What is carried comes last, so that it is not added to anything before.
template <typename T>
const T& EntryOf(const T* table, const Wanted& wanted) noexcept {
  const T* at = table + wanted.pixel - kLeast;
  asm("" : "+r"(at));
  return at[wanted.carried];
}

// Components that do not depend on each other.
template <int kComponents>
class Separate {
 public:
  static constexpr int32_t kCount = kComponents;
  explicit Separate(const DitherContext& pass) noexcept : tables_(pass.tables.data()), addend_(pass.choice.addend) {}
  template <int32_t kShare>
  uint32_t Choose(Wanted* wanted) const noexcept {
    uint32_t index = 0;
    for (int32_t c = 0; c < kComponents; ++c) {
      const ComponentEntry& entry = EntryOf(tables_[c].entries, wanted[c]);
      wanted[c].share = entry.share;
      wanted[c].error = entry.error;
      index += entry.index;
    }
    return index + ((index + 7) & addend_);  // the addend is 0, or 8 with three bits
  }

 private:
  const ComponentTable* const tables_;
  const uint32_t addend_;
};

// The index that a fixed palette has for a colour.
uint32_t FixedIndex(const DitherChoice& choice, uint32_t r, uint32_t g, uint32_t b) noexcept {
  if (choice.rule == DitherRule::Cube) return r / 51 * 36 + g / 51 * 6 + b / 51;
  const auto bits = [&choice](int32_t component, uint32_t value) {
    const DitherLevels& levels = choice.levels[component];
    return (value & (0xFF00u >> levels.bits)) >> levels.shift;
  };
  if (choice.rule != DitherRule::Levels) return bits(0, LuminanceOf(r, g, b));
  const uint32_t index = bits(0, r) | bits(1, g) | bits(2, b);
  return index != 0 ? index + choice.addend : 0;
}

// Black, white and grays by luminance: each component's part of it is above its value in its table.
template <int kBits>
class Luminance {
 public:
  static constexpr int32_t kCount = 3;
  explicit Luminance(const DitherContext& pass) noexcept : parts_(pass.parts.data()) {}
  template <int32_t kShare>
  uint32_t Choose(Wanted* wanted) const noexcept {
    constexpr int32_t kStep = 255 / ((1 << kBits) - 1);
    uint32_t parts[3];
    for (int32_t c = 0; c < 3; ++c) parts[c] = EntryOf(parts_[c].entries, wanted[c]);
    const uint32_t index = (parts[0] + parts[1] + parts[2]) >> (16 + 11 - kBits);
    const int64_t gray = int64_t{index} * kStep, grayShare = int64_t{index} * (kStep * kShare);
    for (int32_t c = 0; c < 3; ++c) {
      const int64_t value = parts[c] & 0xFFFF;
      int64_t share = kShare * value;
      asm("" : "+r"(share));  // before the index is known
      wanted[c].error = static_cast<int32_t>(value - gray);
      wanted[c].share = share - grayShare;
    }
    return index;
  }

 private:
  const LuminanceTable* const parts_;
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
    for (int32_t c = 0; c < 3; ++c) color[c] = Clamped(wanted[kComponents == 1 ? 0 : c]);
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
    for (int32_t c = 0; c < kComponents; ++c) wanted[c].pixel = planes[c][x], wanted[c].carried = carriers[c].To(x);
    indices[x] = static_cast<uint8_t>(chooser.template Choose<Component::kShare>(wanted));
    for (int32_t c = 0; c < kComponents; ++c) carriers[c].Put(x, wanted[c].error, wanted[c].share);
  }
  for (int32_t c = 0; c < kComponents; ++c) Spread<kMethod>(pass, c);
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
    table->entries[value - kLeast] = {static_cast<int16_t>(error * kDiffusion[pass.method].right[0]),
                                      static_cast<int16_t>(error),
                                      static_cast<uint8_t>(index != 0 ? index - pass.choice.addend : 0)};
  }
}

int32_t SetTables(DitherContext& pass) noexcept {
  pass.tables.Reset(AllocateArray<ComponentTable>(static_cast<uint64_t>(pass.components)));
  if (!pass.tables) return kNoMemory;
  for (int32_t c = 0; c < pass.components; ++c) FillTable(pass, c, &pass.tables[static_cast<uint64_t>(c)]);
  return kSuccess;
}

int32_t SetLuminance(DitherContext& pass) noexcept {
  constexpr int32_t kWeights[3] = {2, 5, 1};
  pass.parts.Reset(AllocateArray<LuminanceTable>(3));
  if (!pass.parts) return kNoMemory;
  for (int32_t c = 0; c < 3; ++c)
    for (int32_t value = kLeast; value <= kMost; ++value) {
      const int32_t clamped = Clamped(value), part = kWeights[c] * clamped + (c == 0 ? 4 : 0);
      pass.parts[static_cast<uint64_t>(c)].entries[value - kLeast] = static_cast<uint32_t>(part << 16 | clamped);
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
  if (!gray && !pass.whole) {  // an index can be missing, and stand for black
    pass.diffuse = ForMethod<Together<3, FixedMatch>>(method);
    return kSuccess;
  }
  if (pass.choice.rule == DitherRule::Luminance) {
    pass.diffuse = (pass.choice.levels[0].bits == 1 ? ForMethod<Luminance<1>> : ForMethod<Luminance<2>>)(method);
    return SetLuminance(pass);
  }
  pass.diffuse = (gray ? ForMethod<Separate<1>> : ForMethod<Separate<3>>)(method);
  return SetTables(pass);
}

}  // namespace vexakrn
