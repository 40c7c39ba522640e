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

// A value with its offset, if there is one.
template <bool kOrdered>
int16_t Moved(uint8_t value, int16_t offset) noexcept {
  if (!kOrdered) return value;
  auto moved = static_cast<int16_t>(value + offset);
  moved = moved < 0 ? int16_t{0} : moved;
  return moved > 255 ? int16_t{255} : moved;
}

template <bool kOrdered>
struct CubeMap {
  int16_t offsets[kMapBlock];
  explicit CubeMap(const DitherMap& map) noexcept {
    for (int32_t i = 0; i < kMapBlock; ++i) offsets[i] = kOrdered ? map.offsets[i % 8] : int16_t{0};
  }
  uint8_t operator()(const uint8_t* r, const uint8_t* g, const uint8_t* b, int32_t i) const noexcept {
    const auto level = [&](uint8_t value) {  // moved / 51
      return static_cast<uint16_t>(static_cast<uint16_t>(5 * Moved<kOrdered>(value, offsets[i]) + 5) >> 8);
    };
    return static_cast<uint8_t>(level(r[i]) * 36 + level(g[i]) * 6 + level(b[i]));
  }
};

// Pixels are asked for that many bytes before they are needed: alone the processor does not look as far ahead as memory is
// away. Longer and shorter ways were slower.
inline constexpr ptrdiff_t kMapAhead = 16384;

// Calls `work(red, green, blue, results)` for a line's blocks, which are always whole: what is left over at the end is put
// into one. The patterns have a period of eight pixels, so a block can begin at any multiple of that. `kSplit` takes a
// block of pixels apart that are stored in one piece, while the caches still wait for the next ones: that is why a line is
// not taken apart at once.
template <auto kSplit, typename Result, typename Work>
void ForBlocks(const DitherMap& map, int32_t components, Result* results, Work work) noexcept {
  uint8_t room[4 * kMapBlock] = {};  // the vectors lie in whole cache lines
  auto* const split =
      reinterpret_cast<uint8_t(*)[kMapBlock]>(room + (0 - reinterpret_cast<uintptr_t>(room)) % kMapBlock);
  uint8_t* const inMemory[3] = {split[map.redFirst ? 0 : 2], split[1], split[map.redFirst ? 2 : 0]};
  ptrdiff_t x = 0;
  for (; map.count - x >= kMapBlock; x += kMapBlock) {
    if (map.pixelBytes != 0) {
      const uint8_t* const pixels = map.planes[0] + x * map.pixelBytes;
      for (int32_t i = 0; i < map.pixelBytes; ++i) __builtin_prefetch(pixels + kMapAhead + i * kMapBlock);
      kSplit(pixels, map.pixelBytes, inMemory);
      work(split[0], split[1], split[2], results + x);
    } else {
      work(map.planes[0] + x, map.planes[1] + x, map.planes[2] + x, results + x);
    }
  }
  const auto left = static_cast<size_t>(map.count - x);
  if (left == 0) return;
  uint8_t rest[4 * kMapBlock] = {};
  Result last[kMapBlock];
  if (map.pixelBytes != 0) {
    std::memcpy(rest, map.planes[0] + x * map.pixelBytes, left * static_cast<size_t>(map.pixelBytes));
    kSplit(rest, map.pixelBytes, inMemory);
  } else {
    for (int32_t c = 0; c < components; ++c) std::memcpy(split[c], map.planes[c] + x, left);
  }
  work(split[0], split[1], split[2], last);
  std::memcpy(results + x, last, left * sizeof(Result));
}

template <auto kSplit, typename Map>
void MapBy(const DitherMap& map, uint8_t* indices) noexcept {
  const Map choose(map);
  const int32_t components = map.choice->rule == DitherRule::GrayLevels ? 1 : 3;
  const auto block = [&choose](const uint8_t* red, const uint8_t* green, const uint8_t* blue,
                               uint8_t* __restrict to) noexcept {
    for (int32_t i = 0; i < kMapBlock; ++i) to[i] = choose(red, green, blue, i);
  };
  ForBlocks<kSplit>(map, components, indices, block);
}

template <auto kSplit, bool kOrdered>
void MapFixed(const DitherMap& map, uint8_t* indices) noexcept {
  const DitherChoice& choice = *map.choice;
  const int32_t red = choice.levels[0].bits, green = choice.levels[1].bits, blue = choice.levels[2].bits;
  if (choice.rule == DitherRule::Cube) return MapBy<kSplit, CubeMap<kOrdered>>(map, indices);
  if (choice.rule == DitherRule::GrayLevels)
    return (red == 1 ? MapBy<kSplit, GrayMap<kOrdered, 1>> : MapBy<kSplit, GrayMap<kOrdered, 2>>)(map, indices);
  if (choice.rule == DitherRule::Luminance)
    return (red == 1 ? MapBy<kSplit, LuminanceMap<kOrdered, 1>> : MapBy<kSplit, LuminanceMap<kOrdered, 2>>)(map,
                                                                                                            indices);
  if (choice.addend != 0) return MapBy<kSplit, LevelsMap<kOrdered, 1, 7, 1, 6, 1, 5, 8>>(map, indices);
  switch (red + green + blue) {
    case 3:
      return MapBy<kSplit, LevelsMap<kOrdered, 1, 5, 1, 6, 1, 7, 0>>(map, indices);
    case 5:
      return MapBy<kSplit, LevelsMap<kOrdered, 2, 3, 2, 5, 1, 7, 0>>(map, indices);
    case 6:
      return MapBy<kSplit, LevelsMap<kOrdered, 2, 2, 2, 4, 2, 6, 0>>(map, indices);
    case 7:
      return MapBy<kSplit, LevelsMap<kOrdered, 2, 1, 3, 3, 2, 6, 0>>(map, indices);
    default:
      return MapBy<kSplit, LevelsMap<kOrdered, 3, 0, 3, 3, 2, 6, 0>>(map, indices);
  }
}

// Where the colours of some pixels stand in a table.
template <auto kSplit, bool kOrdered>
void FindKeys(const DitherMap& map, uint16_t* keys) noexcept {
  const bool gray = map.choice->rule == DitherRule::GrayMatches;
  int16_t offsets[kMapBlock];
  for (int32_t i = 0; i < kMapBlock; ++i) offsets[i] = kOrdered ? map.offsets[i % 8] : int16_t{0};
  const auto top = [&offsets](uint8_t value, int32_t i) {
    return static_cast<uint16_t>(Moved<kOrdered>(value, offsets[i]) >> 3);
  };
  const auto block = [&](const uint8_t* r, const uint8_t* g, const uint8_t* b, uint16_t* __restrict to) noexcept {
    if (gray) g = b = r;
    for (int32_t i = 0; i < kMapBlock; ++i)
      to[i] = static_cast<uint16_t>(top(r[i], i) << 10 | top(g[i], i) << 5 | top(b[i], i));
  };
  ForBlocks<kSplit>(map, gray ? 1 : 3, keys, block);
}

// One entry after the other, which is faster than to gather them.
inline void LookUp(const DitherMatches& matches, const uint16_t* keys, int32_t count, uint8_t* indices) noexcept {
  const uint16_t* const entries = matches.indices;
  uint32_t all = kFoundIndex;
  const auto one = [&](int32_t i) {
    const uint32_t entry = entries[keys[i]];
    all &= entry;
    indices[i] = static_cast<uint8_t>(entry);
  };
  int32_t i = 0;
  for (; i + 8 <= count; i += 8)
    for (int32_t j = i; j < i + 8; ++j) one(j);
  for (; i < count; ++i) one(i);
  if (all != 0) return;
  for (i = 0; i < count; ++i) {
    if (entries[keys[i]] == 0) matches.find(matches.pass, keys[i]);
    one(i);
  }
}

// Palettes with a table.
template <auto kSplit>
void MapMatches(const DitherMap& map, uint8_t* indices) noexcept {
  constexpr int32_t kMost = 8 * kMapBlock;
  DitherMap part = map;
  const int32_t pixelBytes = map.pixelBytes == 0 ? 1 : map.pixelBytes;
  for (int32_t left = map.count; left > 0; left -= part.count, indices += part.count) {
    uint16_t keys[kMost];
    part.count = left < kMost ? left : kMost;
    (map.thresholds ? FindKeys<kSplit, true> : FindKeys<kSplit, false>)(part, keys);
    LookUp(map.choice->matches, keys, part.count, indices);
    for (const uint8_t*& plane : part.planes) plane += part.count * pixelBytes;
  }
}

template <auto kSplit>
void Map(const DitherMap& map, uint8_t* indices) noexcept {
  const DitherRule rule = map.choice->rule;
  if (rule == DitherRule::Matches || rule == DitherRule::GrayMatches) return MapMatches<kSplit>(map, indices);
  (map.thresholds ? MapFixed<kSplit, true> : MapFixed<kSplit, false>)(map, indices);
}

// A line of pixels into planes.
template <auto kSplit>
void SplitLine(const uint8_t* pixels, int32_t pixelBytes, int32_t count, uint8_t* const planes[3]) noexcept {
  ptrdiff_t x = 0;
  for (; count - x >= kMapBlock; x += kMapBlock) {
    uint8_t* const at[3] = {planes[0] + x, planes[1] + x, planes[2] + x};
    kSplit(pixels + x * pixelBytes, pixelBytes, at);
  }
  for (const uint8_t* pixel = pixels + x * pixelBytes; x < count; ++x, pixel += pixelBytes)
    for (int32_t c = 0; c < 3; ++c) planes[c][x] = pixel[c];
}

}  // namespace
}  // namespace vexakrn

#endif
