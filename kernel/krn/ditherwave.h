// Error diffusion of many lines at once.
//
// A pixel needs its left neighbours and those in the lines above that are at most `reach` columns further right. So lines
// can run side by side, each reach + 1 columns behind the one above it: at step t line i is at column t - lag * i. Each
// vector lane is a line; the last line is lane 0, so that what a line leaves for the next moves down by one lane.
//
// Operations (`Ops`, by processor level and width of the lanes) come from the file that includes this; nothing here has
// external linkage.
#ifndef VEXAKRN_KRN_DITHERWAVE_H
#define VEXAKRN_KRN_DITHERWAVE_H

#include <cstring>

#include "krn/ditherkernels.h"
#include "krn/lanes.h"

namespace vexakrn {
namespace {

// --- operations that are made of those of a level ---

template <typename Lanes>
struct Ops32 : Lanes {
  using Vector = typename Lanes::Vector;
  static constexpr int32_t kMaxSum = 51000;

  // Errors and weights fit 16 bits, so a multiplication of pairs does, which is faster than one of 32 bits.
  static Vector Times(Vector a, int32_t weight) noexcept { return Lanes::MultiplyPairs(a, Lanes::Set(weight)); }

  // By 200 alone, by 25 after 8: exact for the sums that there are.
  template <int32_t kDivisor>
  static Vector Divide(Vector a) noexcept {
    static_assert(kDivisor == 200);
    const Vector negative = Lanes::template ShiftRight<31>(a);
    const auto turn = [negative](Vector b) { return Lanes::Subtract(b ^ negative, negative); };
    const Vector eighth = Lanes::template ShiftRightLogical<3>(turn(a));
    return turn(Lanes::template ShiftRightLogical<19>(Lanes::MultiplyPairs(eighth, Lanes::Set(20972))));
  }

  // All bits of the lanes whose entry is empty.
  static Vector Missing(const DitherMatches& matches, Vector entries) noexcept {
    return Lanes::Equal(entries, Lanes::Set(static_cast<int32_t>(matches.empty)));
  }

  // Fills the entries of the lanes that have a bit in `missing`, where they are still empty.
  [[gnu::noinline]] static void Fill(const DitherMatches& matches, Vector keys, Vector missing) noexcept {
    Array<uint32_t, Lanes::kLanes> key, isMissing;
    Lanes::Store(key, keys);
    Lanes::Store(isMissing, missing);
    for (int32_t lane = 0; lane < Lanes::kLanes; ++lane)
      if (isMissing[lane] != 0 && matches.entries[key[lane]] == matches.empty) matches.find(matches.pass, key[lane]);
  }

  // The indices of keys; `values` become the components of their entries.
  template <int32_t kComponents>
  static Vector Match(const DitherMatches& matches, Vector keys, Vector live, Vector* values) noexcept {
    Vector entries = Lanes::Gather(matches.entries, keys);
    const Vector missing = live & Missing(matches, entries), byte = Lanes::Set(0xFF);
    if (Lanes::Any(missing)) [[unlikely]] {
      Fill(matches, keys, missing);
      entries = Lanes::Gather(matches.entries, keys);
    }
    for (int32_t c = 0; c < kComponents; ++c) values[c] = Lanes::ShiftRightBy(entries, 16 - 8 * c) & byte;
    return Lanes::template ShiftRightLogical<24>(entries);
  }
};

template <typename Lanes, typename Ops32>
struct Ops16 : Lanes {
  using Vector = typename Lanes::Vector;
  static constexpr int32_t kMaxSum = 32767;

  static Vector Times(Vector a, int32_t weight) noexcept {
    return weight == 1 ? a : Lanes::Multiply(a, Lanes::Set(weight));
  }

  // Truncates towards zero.
  template <int32_t kDivisor>
  static Vector Divide(Vector a) noexcept {
    const Vector negative = Lanes::template ShiftRight<15>(a);
    if constexpr (kDivisor == 16 || kDivisor == 32) {
      constexpr int kShift = kDivisor == 16 ? 4 : 5;
      const Vector up = Lanes::template ShiftRightLogical<16 - kShift>(negative);
      return Lanes::template ShiftRight<kShift>(Lanes::Add(a, up));
    } else {
      // By 2^20 / 42, 2^20 / 48 or 2^22 / 200, rounded up: exact for the sums that there are.
      constexpr int kShift = kDivisor == 200 ? 6 : 4;
      constexpr int32_t kFactor = (65536 << kShift) / kDivisor + 1;
      const Vector high = Lanes::MultiplyHigh(a, Lanes::Set(kFactor));
      return Lanes::Subtract(Lanes::template ShiftRight<kShift>(high), negative);
    }
  }

  template <int32_t kComponents>
  static Vector Match(const DitherMatches& matches, Vector keys, Vector live, Vector* values) noexcept {
    const Vector half = Ops32::Set(0xFFFF), byte = Lanes::Set(0xFF);
    const Vector evenKeys = keys & half, oddKeys = Ops32::template ShiftRightLogical<16>(keys);
    Vector even = Ops32::Gather(matches.entries, evenKeys), odd = Ops32::Gather(matches.entries, oddKeys);
    const Vector missing = live & Lanes::Select(half, Ops32::Missing(matches, even), Ops32::Missing(matches, odd));
    if (Lanes::Any(missing)) [[unlikely]] {
      Ops32::Fill(matches, evenKeys, missing & half);
      Ops32::Fill(matches, oddKeys, missing & ~half);
      even = Ops32::Gather(matches.entries, evenKeys);
      odd = Ops32::Gather(matches.entries, oddKeys);
    }
    const Vector low = Lanes::Select(half, even, Ops32::template ShiftLeft<16>(odd));           // green << 8 | blue
    const Vector high = Lanes::Select(half, Ops32::template ShiftRightLogical<16>(even), odd);  // index << 8 | red
    values[0] = high & byte;
    if constexpr (kComponents == 3) {
      values[1] = Lanes::template ShiftRightLogical<8>(low);
      values[2] = low & byte;
    }
    return Lanes::template ShiftRightLogical<8>(high);
  }
};

inline constexpr int32_t kWaveSteps = 32;  // between two turns of pixels from lines into steps and back

// --- how an index is chosen: `values` are the wanted components, and become those of the palette ---

template <typename Ops>
struct LevelOf {
  using Vector = typename Ops::Vector;
  Vector mask, factor;
  int32_t shift;

  explicit LevelOf(const DitherLevels& levels) noexcept
      : mask(Ops::Set(0xFF00 >> levels.bits & 0xFF)),
        factor(Ops::Set(levels.bits == 1   ? 510
                        : levels.bits == 2 ? 340
                                           : 292)),
        shift(levels.shift) {}

  // The index bits; the value becomes that of the level. The factors repeat a level's bits over the byte.
  Vector Choose(Vector* value) const noexcept {
    const Vector top = *value & mask;
    *value = Ops::template ShiftRightLogical<8>(Ops::Multiply(top, factor));
    return Ops::ShiftRightBy(top, shift);
  }
};

template <typename Ops>
struct GrayLevelsRule {
  using Vector = typename Ops::Vector;
  static constexpr int32_t kComponents = 1, kMaxError = 127;
  LevelOf<Ops> level;

  explicit GrayLevelsRule(const DitherChoice& choice) noexcept : level(choice.levels[0]) {}
  Vector operator()(Vector* values, Vector) const noexcept { return level.Choose(&values[0]); }
};

template <typename Ops>
struct LevelsRule {
  using Vector = typename Ops::Vector;
  static constexpr int32_t kComponents = 3, kMaxError = 127;
  LevelOf<Ops> red, green, blue;
  Vector addend;

  explicit LevelsRule(const DitherChoice& choice) noexcept
      : red(choice.levels[0]),
        green(choice.levels[1]),
        blue(choice.levels[2]),
        addend(Ops::Set(static_cast<int32_t>(choice.addend))) {}
  Vector operator()(Vector* values, Vector) const noexcept {
    const Vector rg = red.Choose(&values[0]) | green.Choose(&values[1]);
    const Vector index = rg | blue.Choose(&values[2]);
    return Ops::Add(index, Ops::Greater(index, Ops::Zero()) & addend);
  }
};

template <typename Ops>
struct LuminanceRule {
  using Vector = typename Ops::Vector;
  static constexpr int32_t kComponents = 3, kMaxError = 255;
  LevelOf<Ops> level;

  explicit LuminanceRule(const DitherChoice& choice) noexcept : level(choice.levels[0]) {}
  Vector operator()(Vector* values, Vector) const noexcept {
    const Vector g5 = Ops::Add(Ops::template ShiftLeft<2>(values[1]), values[1]);
    const Vector sum = Ops::Add(Ops::Add(Ops::Add(values[0], values[0]), g5), Ops::Add(values[2], Ops::Set(4)));
    Vector gray = Ops::template ShiftRightLogical<3>(sum);
    const Vector index = level.Choose(&gray);
    values[0] = values[1] = values[2] = gray;
    return index;
  }
};

template <typename Ops>
struct CubeRule {
  using Vector = typename Ops::Vector;
  static constexpr int32_t kComponents = 3, kMaxError = 50;

  explicit CubeRule(const DitherChoice&) noexcept {}
  Vector operator()(Vector* values, Vector) const noexcept {
    Vector index = Ops::Zero();
    for (int32_t c = 0; c < 3; ++c) {  // (5 * v + 5) >> 8 is v / 51
      const Vector five = Ops::Add(Ops::template ShiftLeft<2>(values[c]), Ops::Add(values[c], Ops::Set(5)));
      const Vector level = Ops::template ShiftRightLogical<8>(five);
      values[c] = Ops::Multiply(level, Ops::Set(51));
      index = Ops::Add(Ops::Multiply(index, Ops::Set(6)), level);
    }
    return index;
  }
};

template <typename Ops, bool kGray>
struct MatchesRule {
  using Vector = typename Ops::Vector;
  static constexpr int32_t kComponents = kGray ? 1 : 3, kMaxError = 255;
  const DitherMatches& matches;

  explicit MatchesRule(const DitherChoice& choice) noexcept : matches(choice.matches) {}
  Vector operator()(Vector* values, Vector live) const noexcept {
    const Vector r = Ops::template ShiftRightLogical<3>(values[0]);
    const Vector g = kGray ? r : Ops::template ShiftRightLogical<3>(values[kComponents - 2]);
    const Vector b = kGray ? r : Ops::template ShiftRightLogical<3>(values[kComponents - 1]);
    const Vector key = Ops::template ShiftLeft<10>(r) | Ops::template ShiftLeft<5>(g) | b;
    return Ops::template Match<kComponents>(matches, key, live, values);
  }
};

// --- the wave ---

template <typename Ops, int32_t kMethod, typename Rule, int32_t kLanes>
class Wave {
  using Vector = typename Ops::Vector;
  using Element = typename Ops::Element;
  static constexpr DiffusionKernel kKernel = kDiffusion[kMethod];
  static constexpr int32_t kComponents = Rule::kComponents, kRows = kKernel.rows, kLag = kKernel.reach + 1;
  static constexpr int32_t kVectors = kLanes / Ops::kLanes;
  using Vectors = Vector[static_cast<uint32_t>(kVectors)];
  static constexpr int32_t kHistory = kLag * kRows + kKernel.reach;  // steps whose errors are still needed

  struct Scratch {
    Array<uint8_t, kLanes> pixels[3][kWaveSteps];
    Array<uint8_t, kLanes> indices[kWaveSteps];
    Array<Array<Element, kLanes>, kHistory + kWaveSteps> errors[3];
  };
  static constexpr size_t kHistoryBytes = sizeof(Array<Array<Element, kLanes>, kHistory>);
  static_assert(sizeof(Scratch) <= kDitherScratch);
  static_assert(kLag * (kLanes + kRows) + kWaveSteps <= kDitherMargin);
  static_assert(kKernel.divisor * Rule::kMaxError <= Ops::kMaxSum);

 public:
  explicit Wave(const DitherBand& band) noexcept
      : band_(band), rule_(*band.choice), scratch_(*reinterpret_cast<Scratch*>(band.scratch)) {
    Array<Element, kLanes> behind, isFirst, isReal;
    const int32_t first = kLanes - band.rows;
    for (int32_t lane = 0; lane < kLanes; ++lane) {
      const int32_t row = kLanes - 1 - lane;
      behind[lane] = static_cast<Element>(kLag * row);
      isFirst[lane] = static_cast<Element>(row == first ? -1 : 0);
      isReal[lane] = static_cast<Element>(row >= first ? -1 : 0);
    }
    for (int32_t v = 0; v < kVectors; ++v) {
      behind_[v] = Ops::Load(behind + v * Ops::kLanes);
      first_[v] = Ops::Load(isFirst + v * Ops::kLanes);
      real_[v] = Ops::Load(isReal + v * Ops::kLanes);
    }
  }

  void Run() noexcept {
    const int32_t first = kLanes - band_.rows;
    const int64_t end = int64_t{band_.width} + kLag * (kLanes + kRows - 1);
    const ptrdiff_t slant = band_.stride - kLag;  // from a line's pixel to the one that the next line does at that step
    for (int32_t c = 0; c < kComponents; ++c) std::memset(scratch_.errors[c], 0, kHistoryBytes);
    for (int64_t t = kLag * first; t < end; t += kWaveSteps) {
      const auto steps = static_cast<int32_t>(end - t < kWaveSteps ? end - t : kWaveSteps);
      for (int32_t c = 0; c < kComponents; ++c)
        Ops::Transpose(scratch_.pixels[c][0], kLanes, band_.planes[c] + t + (kLanes - 1) * slant, -slant, kLanes,
                       kWaveSteps);
      Steps(t, steps);
      Ops::Transpose(band_.indices + t + (kLanes - 1) * slant, -slant, scratch_.indices[0], kLanes, kWaveSteps, kLanes);
      for (int32_t c = 0; c < kComponents; ++c)
        std::memmove(scratch_.errors[c], scratch_.errors[c][steps], kHistoryBytes);
    }
  }

 private:
  void Steps(int64_t t, int32_t steps) noexcept {
    for (int32_t step = 0; step < steps; ++step, ++t) {
      Vectors values[3], live;
      for (int32_t v = 0; v < kVectors; ++v) live[v] = Live(t, v);
      for (int32_t c = 0; c < kComponents; ++c) {
        Vectors sums;
        SumsAbove(c, step, t, sums);
        for (int32_t v = 0; v < kVectors; ++v) values[c][v] = Wanted(c, step, v, sums[v]);
      }
      for (int32_t v = 0; v < kVectors; ++v) {
        Vector chosen[3];
        for (int32_t c = 0; c < kComponents; ++c) chosen[c] = values[c][v];
        Ops::StoreBytes(scratch_.indices[step] + v * Ops::kLanes, rule_(chosen, live[v]));
        for (int32_t c = 0; c < kComponents; ++c) {
          PutError(c, step, v, live[v] & Ops::Subtract(values[c][v], chosen[c]));
        }
      }
    }
  }

  // All bits of the lanes whose line has a pixel at step `t`.
  Vector Live(int64_t t, int32_t v) const noexcept {
    constexpr int64_t kFar = 16384;
    const auto most = static_cast<int32_t>(t < kFar ? t : kFar);
    const int64_t past = t - band_.width;
    const auto least = static_cast<int32_t>(past < -1 ? -1 : past);
    const auto started = Ops::Greater(Ops::Set(most + 1), behind_[v]);
    const auto ended = Ops::Greater(behind_[v], Ops::Set(least));
    return started & ended & real_[v];
  }

  // Of a step of this turn, or of one before it.
  Vector Error(int32_t c, int32_t step, int32_t v) const noexcept {
    return Ops::Load(&scratch_.errors[c][kHistory + step][v * Ops::kLanes]);
  }

  void PutError(int32_t c, int32_t step, int32_t v, Vector error) noexcept {
    Ops::Store(&scratch_.errors[c][kHistory + step][v * Ops::kLanes], error);
  }

  // What each lane's line leaves for the line `kRow` + 1 below, where that one is now.
  template <int32_t kRow>
  Vector Left(int32_t c, int32_t step, int32_t v) const noexcept {
    Vector sum = Ops::Zero();
    for (int32_t d = -kKernel.reach; d <= kKernel.reach; ++d) {
      const int32_t weight = kKernel.below[kRow][3 - d];
      if (weight != 0) sum = Ops::Add(sum, Ops::Times(Error(c, step - kLag * (kRow + 1) + d, v), weight));
    }
    return sum;
  }

  // The sums from the lines above, for the pixels of step `t`. Those of the band's first lines take in what earlier
  // lines have left; what the last ones leave is put there.
  template <int32_t kRow = kRows - 1>
  void SumsAbove(int32_t c, int32_t step, int64_t t, Vector* sums) const noexcept {
    Vectors left;
    for (int32_t v = 0; v < kVectors; ++v) {
      left[v] = Left<kRow>(c, step, v);
      if (kRow < kRows - 1) left[v] = Ops::Add(left[v], sums[v]);
    }
    int32_t* const row = band_.sums[c][kRow];
    const int32_t before = row[t - kLag * (kLanes - band_.rows + kRow)];
    row[t - kLag * (kLanes + kRow)] = Ops::FirstLane(left[0]);
    for (int32_t v = 0; v < kVectors; ++v) {
      const Vector down = Ops::Next(left[v], left[v + 1 < kVectors ? v + 1 : v]);
      sums[v] = Ops::Select(first_[v], Ops::Set(before), down);
    }
    if constexpr (kRow > 0) SumsAbove<kRow - 1>(c, step, t, sums);
  }

  // The pixel with the error that is carried to it.
  Vector Wanted(int32_t c, int32_t step, int32_t v, Vector sum) const noexcept {
    for (int32_t i = 0; i < 2; ++i)
      if (kKernel.right[i] != 0) sum = Ops::Add(sum, Ops::Times(Error(c, step - 1 - i, v), kKernel.right[i]));
    const Vector pixel = Ops::LoadBytes(scratch_.pixels[c][step] + v * Ops::kLanes);
    const Vector value = Ops::Add(pixel, Ops::template Divide<kKernel.divisor>(sum));
    return Ops::Clamped(value);
  }

  const DitherBand& band_;
  const Rule rule_;
  Scratch& scratch_;
  Vectors behind_;  // columns behind the first line
  Vectors first_;   // the lane of the first line that is real, as bits
  Vectors real_;    // the lanes that are
};

template <typename Ops16, typename Ops32, template <typename> typename Rule, int32_t kLanes>
struct Waves {
  template <int32_t kMethod>
  static void Run(const DitherBand& band) noexcept {
    constexpr bool kFits = kDiffusion[kMethod].divisor * Rule<Ops16>::kMaxError <= Ops16::kMaxSum;
    if constexpr (kFits) {
      Wave<Ops16, kMethod, Rule<Ops16>, kLanes>(band).Run();
    } else {
      Wave<Ops32, kMethod, Rule<Ops32>, kLanes>(band).Run();
    }
  }
  static void Diffuse(const DitherBand& band) noexcept {
    constexpr void (*kMethods[])(const DitherBand& band) noexcept = {Run<1>, Run<2>, Run<3>, Run<4>, Run<5>, Run<6>};
    kMethods[band.method - 1](band);
  }
};

template <typename Ops>
using TableRule = MatchesRule<Ops, false>;
template <typename Ops>
using GrayTableRule = MatchesRule<Ops, true>;

template <typename Ops16, typename Ops32, int32_t kGrayLanes, int32_t kColorLanes>
void DiffuseBand(const DitherBand& band) noexcept {
  switch (band.choice->rule) {
    case DitherRule::GrayLevels:
      return Waves<Ops16, Ops32, GrayLevelsRule, kGrayLanes>::Diffuse(band);
    case DitherRule::Levels:
      return Waves<Ops16, Ops32, LevelsRule, kColorLanes>::Diffuse(band);
    case DitherRule::Luminance:
      return Waves<Ops16, Ops32, LuminanceRule, kColorLanes>::Diffuse(band);
    case DitherRule::Cube:
      return Waves<Ops16, Ops32, CubeRule, kColorLanes>::Diffuse(band);
    case DitherRule::Matches:
      return Waves<Ops16, Ops32, TableRule, kColorLanes>::Diffuse(band);
    case DitherRule::GrayMatches:
      return Waves<Ops16, Ops32, GrayTableRule, kGrayLanes>::Diffuse(band);
  }
}

}  // namespace
}  // namespace vexakrn

#endif
