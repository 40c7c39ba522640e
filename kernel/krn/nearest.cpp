// The search for the palette entry nearest to a colour: the public function, prepared palettes, the choice of the loops.
#include <algorithm>
#include <bit>

#include "common/cpu.h"
#include "krn/nearestkernels.h"
#include "krn/palettes.h"

namespace vexakrn {
namespace {

const NearestKernels& ActiveNearestKernels() noexcept {
  switch (ActiveCpuLevel()) {
    case CpuLevel::Avx512:
      return kNearestKernelsAvx512;
    case CpuLevel::Avx2:
      return kNearestKernelsAvx2;
    default:
      return kNearestKernelsScalar;
  }
}

const uint8_t* Bytes(const RGBQUAD* palette) noexcept { return reinterpret_cast<const uint8_t*>(palette); }

bool IsColor(const RGBQUAD& entry, uint32_t level) noexcept {
  return entry.rgbRed == level && entry.rgbGreen == level && entry.rgbBlue == level;
}

// The entry that black and white prefer, if they have one: at either end of the palette, black at the start first.
uint32_t PreferredBlack(const RGBQUAD* palette, uint32_t last) noexcept {
  return IsColor(palette[0], 0) ? 0 : IsColor(palette[last], 0) ? last : kNoEntry;
}
uint32_t PreferredWhite(const RGBQUAD* palette, uint32_t last) noexcept {
  return IsColor(palette[last], 255) ? last : IsColor(palette[0], 255) ? 0 : kNoEntry;
}

// The first of a finder's hits, of which there is at least one.
uint32_t FirstHit(const uint64_t hits[4]) noexcept {
  uint32_t word = 0;
  while (hits[word] == 0) ++word;
  return 64 * word + static_cast<uint32_t>(std::countr_zero(hits[word]));
}

// The last of the hits whose components are ordered like the wanted ones; kNoEntry when there is none.
uint32_t LastOrderedHit(const uint64_t hits[4], const uint8_t* entries, uint32_t wanted) noexcept {
  for (uint32_t word = 4; word-- > 0;)
    for (uint64_t bits = hits[word]; bits != 0;) {
      const auto bit = static_cast<uint32_t>(std::bit_width(bits)) - 1;
      const uint8_t* entry = entries + 4 * (64 * word + bit);
      if (OrderingClass(entry[2], entry[1], entry[0]) == wanted) return 64 * word + bit;
      bits ^= uint64_t{1} << bit;
    }
  return kNoEntry;
}

}  // namespace

uint32_t SearchByHits(FindHits* find, const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g,
                      uint32_t b) noexcept {
  uint32_t best = 0, bestDistance = UINT32_MAX;
  for (uint32_t start = 0; start < count && bestDistance != 0; start += std::min(count - start, kBlockEntries)) {
    const uint8_t* block = entries + 4 * uint64_t{start};
    uint64_t hits[4];
    const uint32_t distance = find(block, std::min(count - start, kBlockEntries), r, g, b, hits);
    if (distance > bestDistance) continue;
    if (distance < bestDistance) best = start + FirstHit(hits);
    bestDistance = distance;
    if (distance == 0) break;
    const uint32_t ordered = LastOrderedHit(hits, block, OrderingClass(r, g, b));
    if (ordered != kNoEntry) best = start + ordered;
  }
  return best;
}

void PaletteSearch::Set(const RGBQUAD* palette, uint32_t colors) noexcept {
  colors_ = colors;
  black_ = PreferredBlack(palette, colors - 1);
  white_ = PreferredWhite(palette, colors - 1);
  std::copy_n(palette, colors, entries_);
  auto& columns = const_cast<Columns&>(Laid());  // in this very object
  int32_t keys[kMaxColors], classes[kMaxColors];
  for (uint32_t i = 0; i < colors; ++i) {
    const int32_t r = palette[i].rgbRed, g = palette[i].rgbGreen, b = palette[i].rgbBlue;
    columns.redGreen[2 * i] = static_cast<int16_t>(r);
    columns.redGreen[2 * i + 1] = static_cast<int16_t>(g);
    columns.blueNone[2 * i] = static_cast<int16_t>(b);
    columns.blueNone[2 * i + 1] = 0;
    keys[i] = (r * r + g * g + b * b) << kKeyShift | static_cast<int32_t>(kOrders + i);
    classes[i] = static_cast<int32_t>(OrderingClass(palette[i].rgbRed, palette[i].rgbGreen, palette[i].rgbBlue));
  }
  constexpr int32_t kOtherOrder = 2 * kOrders - 1;  // turns kOrders + i into kOrders - 1 - i
  for (int32_t wanted = 0; wanted < static_cast<int32_t>(kClasses); ++wanted)
    for (uint32_t i = 0; i < colors; ++i)
      columns.keys[wanted][i] = classes[i] == wanted ? keys[i] ^ kOtherOrder : keys[i];
  for (uint32_t i = colors; i % kColumnStep != 0; ++i) {
    columns.redGreen[2 * i] = columns.redGreen[2 * i + 1] = 0;
    columns.blueNone[2 * i] = columns.blueNone[2 * i + 1] = 0;
    for (auto& column : columns.keys) column[i] = INT32_MAX;
  }
}

uint32_t PaletteSearch::Nearest(uint32_t orderingClass, uint32_t r, uint32_t g, uint32_t b,
                                int32_t* distance) const noexcept {
  const Columns& laid = Laid();
  const NearestColumns columns = {laid.redGreen, laid.blueNone, laid.keys[orderingClass],
                                  (colors_ + kColumnStep - 1) / kColumnStep * kColumnStep};
  const int32_t key = ActiveNearestKernels().leastKey(columns, r, g, b);
  *distance = (key >> kKeyShift) + static_cast<int32_t>(r * r + g * g + b * b);
  const uint32_t order = static_cast<uint32_t>(key) & (2 * kOrders - 1);
  return (order ^ (order / kOrders - 1)) % kOrders;
}

uint32_t PaletteSearch::Find(uint32_t r, uint32_t g, uint32_t b) const noexcept {
  if ((r | g | b) > 255) return V_FindPaletteIndex(entries_, colors_, r, g, b);
  if ((r | g | b) == 0 && black_ != kNoEntry) return black_;
  if ((r & g & b) == 255 && white_ != kNoEntry) return white_;
  int32_t distance = 0;
  const uint32_t best = Nearest(OrderingClass(r, g, b), r, g, b, &distance);
  // Of entries that are the colour itself the first one is taken.
  return distance == 0 ? Nearest(kNoClass, r, g, b, &distance) : best;
}

}  // namespace vexakrn

using namespace vexakrn;  // NOLINT(google-build-using-namespace)

uint32_t V_CALL V_FindPaletteIndex(const RGBQUAD* palette, uint32_t colors, uint32_t R, uint32_t G,
                                   uint32_t B) noexcept {
  if (!palette) return 0;
  if (colors == 0) return UINT32_MAX;
  if ((R | G | B) == 0) {
    const uint32_t black = PreferredBlack(palette, colors - 1);
    if (black != kNoEntry) return black;
  }
  if ((R & G & B) == 255) {
    const uint32_t white = PreferredWhite(palette, colors - 1);
    if (white != kNoEntry) return white;
  }
  const bool isColor = (R | G | B) <= 255;  // the vector levels count on it
  const NearestKernels& kernels = isColor ? ActiveNearestKernels() : kNearestKernelsScalar;
  return kernels.search(Bytes(palette), colors, R, G, B);
}
