// Indices without diffusion, as loops that each level's compiler flags turn into its own vectors.
//
// A file that includes this gets its own copy of everything: nothing here has external linkage.
#ifndef VEXAKRN_KRN_DITHERMAP_H
#define VEXAKRN_KRN_DITHERMAP_H

#include <cstring>

#include "krn/ditherkernels.h"

namespace vexakrn {
namespace {

inline constexpr int32_t kMapBlock = 64;  // pixels; a multiple of the patterns' eight columns

// What an ordered pattern adds to a block's pixels, for the palettes that are made of levels: the offset of a value v at
// the matrix value m is (m + 2) / levels - v / levels, with half the matrix's step of 4. A flat colour between two levels
// then gets as many pixels of either as make up its mean, and the lowest and the highest level stay pure.
template <int kBits>
struct LevelPattern {
  uint8_t add[kMapBlock];
  explicit LevelPattern(const uint8_t* thresholds) noexcept {
    uint8_t eight[8] = {};
    for (int32_t i = 0; thresholds && i < 8; ++i) eight[i] = static_cast<uint8_t>((thresholds[i] + 2) >> kBits);
    for (int32_t i = 0; i < kMapBlock; i += 8) std::memcpy(add + i, eight, sizeof eight);
  }
};

template <bool kOrdered, int kBits>
uint8_t TopBits(uint8_t value, const LevelPattern<kBits>& pattern, int32_t i) noexcept {
  if (kOrdered) value = static_cast<uint8_t>(value - (value >> kBits) + pattern.add[i]);
  return static_cast<uint8_t>(value & (0xFF00u >> kBits));
}

// Palettes made of levels: kShift... as in DitherLevels.
template <bool kOrdered, int kRed, int kRedShift, int kGreen, int kGreenShift, int kBlue, int kBlueShift, int kAddend>
struct LevelsMap {
  LevelPattern<kRed> red;
  LevelPattern<kGreen> green;
  LevelPattern<kBlue> blue;
  explicit LevelsMap(const DitherMap& map) noexcept
      : red(map.thresholds), green(map.thresholds), blue(map.thresholds) {}
  uint8_t operator()(const uint8_t* r, const uint8_t* g, const uint8_t* b, int32_t i) const noexcept {
    const uint8_t rTop = TopBits<kOrdered>(r[i], red, i), gTop = TopBits<kOrdered>(g[i], green, i);
    const uint8_t bTop = TopBits<kOrdered>(b[i], blue, i);
    const auto index = static_cast<uint8_t>(rTop >> kRedShift | gTop >> kGreenShift | bTop >> kBlueShift);
    return kAddend == 0 || index == 0 ? index : static_cast<uint8_t>(index + kAddend);
  }
};

template <bool kOrdered, int kBits>
struct GrayMap {
  LevelPattern<kBits> pattern;
  explicit GrayMap(const DitherMap& map) noexcept : pattern(map.thresholds) {}
  uint8_t operator()(const uint8_t* gray, const uint8_t*, const uint8_t*, int32_t i) const noexcept {
    return static_cast<uint8_t>(TopBits<kOrdered>(gray[i], pattern, i) >> (8 - kBits));
  }
};

template <bool kOrdered, int kBits>
struct LuminanceMap {
  LevelPattern<kBits> pattern;
  explicit LuminanceMap(const DitherMap& map) noexcept : pattern(map.thresholds) {}
  uint8_t operator()(const uint8_t* r, const uint8_t* g, const uint8_t* b, int32_t i) const noexcept {
    const auto scaled = [&](uint8_t value) {
      return static_cast<uint16_t>(kOrdered ? value - (value >> kBits) + pattern.add[i] : value);
    };
    const auto weighted = static_cast<uint16_t>(2 * scaled(r[i]) + 5 * scaled(g[i]) + scaled(b[i]) + 4);
    return static_cast<uint8_t>(weighted >> (11 - kBits));
  }
};

template <bool kOrdered>
struct CubeMap {
  int16_t offsets[kMapBlock];
  explicit CubeMap(const DitherMap& map) noexcept {
    for (int32_t i = 0; i < kMapBlock; ++i) offsets[i] = kOrdered ? map.offsets[i % 8] : int16_t{0};
  }
  uint8_t operator()(const uint8_t* r, const uint8_t* g, const uint8_t* b, int32_t i) const noexcept {
    const auto level = [&](uint8_t value) {
      auto moved = static_cast<int16_t>(value + offsets[i]);
      moved = moved < 0 ? int16_t{0} : moved;
      moved = moved > 255 ? int16_t{255} : moved;
      return static_cast<uint16_t>(static_cast<uint16_t>(5 * moved + 5) >> 8);  // moved / 51
    };
    return static_cast<uint8_t>(level(r[i]) * 36 + level(g[i]) * 6 + level(b[i]));
  }
};

template <typename Map>
void MapBlock(const Map& choose, const uint8_t* red, const uint8_t* green, const uint8_t* blue,
              uint8_t* __restrict indices) noexcept {
  for (int32_t i = 0; i < kMapBlock; ++i) indices[i] = choose(red, green, blue, i);
}

// The patterns have a period of eight pixels, so a block can begin at any multiple of that. What is left over becomes a
// whole block as well.
template <typename Map>
void MapBy(const DitherMap& map, uint8_t* indices) noexcept {
  const Map choose(map);
  const int32_t components = map.choice->rule == DitherRule::GrayLevels ? 1 : 3;
  int32_t x = 0;
  for (; map.count - x >= kMapBlock; x += kMapBlock)
    MapBlock(choose, map.planes[0] + x, map.planes[1] + x, map.planes[2] + x, indices + x);
  if (x == map.count) return;
  const auto left = static_cast<size_t>(map.count - x);
  uint8_t rest[3][kMapBlock] = {}, chosen[kMapBlock];
  for (int32_t c = 0; c < components; ++c) std::memcpy(rest[c], map.planes[c] + x, left);
  MapBlock(choose, rest[0], rest[1], rest[2], chosen);
  std::memcpy(indices + x, chosen, left);
}

template <bool kOrdered>
void MapFixed(const DitherMap& map, uint8_t* indices) noexcept {
  const DitherChoice& choice = *map.choice;
  const int32_t red = choice.levels[0].bits, green = choice.levels[1].bits, blue = choice.levels[2].bits;
  if (choice.rule == DitherRule::Cube) return MapBy<CubeMap<kOrdered>>(map, indices);
  if (choice.rule == DitherRule::GrayLevels)
    return (red == 1 ? MapBy<GrayMap<kOrdered, 1>> : MapBy<GrayMap<kOrdered, 2>>)(map, indices);
  if (choice.rule == DitherRule::Luminance)
    return (red == 1 ? MapBy<LuminanceMap<kOrdered, 1>> : MapBy<LuminanceMap<kOrdered, 2>>)(map, indices);
  if (choice.addend != 0) return MapBy<LevelsMap<kOrdered, 1, 7, 1, 6, 1, 5, 8>>(map, indices);
  switch (red + green + blue) {
    case 3:
      return MapBy<LevelsMap<kOrdered, 1, 5, 1, 6, 1, 7, 0>>(map, indices);
    case 5:
      return MapBy<LevelsMap<kOrdered, 2, 3, 2, 5, 1, 7, 0>>(map, indices);
    case 6:
      return MapBy<LevelsMap<kOrdered, 2, 2, 2, 4, 2, 6, 0>>(map, indices);
    case 7:
      return MapBy<LevelsMap<kOrdered, 2, 1, 3, 3, 2, 6, 0>>(map, indices);
    default:
      return MapBy<LevelsMap<kOrdered, 3, 0, 3, 3, 2, 6, 0>>(map, indices);
  }
}

// Palettes with a table, by the operations of ditherwave.h.
template <typename Ops>
void MapMatches(const DitherMap& map, uint8_t* indices) noexcept {
  using Vector = typename Ops::Vector;
  constexpr int32_t kLanes = Ops::kLanes;
  const DitherMatches& matches = map.choice->matches;
  const bool gray = map.choice->rule == DitherRule::GrayMatches;
  Array<int16_t, kLanes> pattern;
  for (int32_t i = 0; i < kLanes; ++i) pattern[i] = map.offsets ? map.offsets[i % 8] : int16_t{0};
  const Vector offsets = Ops::Load(pattern);
  const auto bits = [&](const uint8_t* plane) {
    const Vector moved = Ops::Add(Ops::LoadBytes(plane), offsets);
    return Ops::template ShiftRightLogical<3>(Ops::Min(Ops::Max(moved, Ops::Zero()), Ops::Set(255)));
  };
  const auto choose = [&](const uint8_t* r, const uint8_t* g, const uint8_t* b, Vector live, uint8_t* to) {
    const Vector red = bits(r), green = gray ? red : bits(g), blue = gray ? red : bits(b);
    const Vector key = Ops::Or(Ops::Or(Ops::template ShiftLeft<10>(red), Ops::template ShiftLeft<5>(green)), blue);
    Vector values[1];
    Ops::StoreBytes(to, Ops::template Match<1>(matches, key, live, values));
  };
  int32_t x = 0;
  for (; map.count - x >= kLanes; x += kLanes)
    choose(map.planes[0] + x, map.planes[1] + x, map.planes[2] + x, Ops::Set(-1), indices + x);
  Array<uint8_t, kLanes> rest[3] = {}, chosen;
  Array<int16_t, kLanes> live = {};
  for (int32_t i = 0; i < map.count - x; ++i) {
    live[i] = -1;
    for (int32_t c = 0; c < (gray ? 1 : 3); ++c) rest[c][i] = map.planes[c][x + i];
  }
  choose(rest[0], rest[1], rest[2], Ops::Load(live), chosen);
  for (int32_t i = 0; i < map.count - x; ++i) indices[x + i] = chosen[i];
}

}  // namespace
}  // namespace vexakrn

#endif
