// The search for the nearest palette entry in vectors, by the operations (`Ops`) of the file that includes this.
//
// Each file has its own copy of everything: nothing here has external linkage.
#ifndef VEXAKRN_KRN_NEARESTVECTORS_H
#define VEXAKRN_KRN_NEARESTVECTORS_H

#include "krn/lanes.h"
#include "krn/nearestkernels.h"

namespace vexakrn {
namespace {

// Of entries and a colour, which is blue and red in one word of 32 bits and green in another.
template <typename Ops>
typename Ops::Vector Distances(typename Ops::Vector entries, typename Ops::Vector blueRed,
                               typename Ops::Vector green) noexcept {
  const auto first = Ops::Subtract16(entries & Ops::Set(0x00FF00FF), blueRed);
  const auto second = Ops::Subtract16(Ops::Greens(entries), green);
  return Ops::Add(Ops::MultiplyAdd(first, first), Ops::MultiplyAdd(second, second));
}

template <typename Ops>
uint32_t FindHitsBy(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b,
                    uint64_t hits[4]) noexcept {
  using Vector = typename Ops::Vector;
  constexpr auto kLanes = static_cast<uint32_t>(Ops::kLanes);
  const Vector blueRed = Ops::Set(static_cast<int32_t>(b | r << 16)), green = Ops::Set(static_cast<int32_t>(g));
  const Vector none = Ops::Set(INT32_MAX);
  uint8_t room[4 * kBlockEntries + 64];
  uint8_t* const distances = room + (0 - reinterpret_cast<uintptr_t>(room)) % 64;  // whole cache lines
  Vector even = none, odd = none;  // the least of every other vector: one would have to wait for the other
  const auto put = [distances](uint32_t at, Vector v, Vector& least) {
    Ops::Store(distances + 4 * at, v);
    least = Ops::Min(least, v);
  };
  const auto next = [&](uint32_t at, Vector& least) {
    put(at, Distances<Ops>(Ops::Load(entries + 4 * at), blueRed, green), least);
  };
  uint32_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    next(i, even), next(i + kLanes, odd);
    next(i + 2 * kLanes, even), next(i + 3 * kLanes, odd);
  }
  for (; i + kLanes <= count; i += kLanes) next(i, even);
  if (i < count) {
    put(i, Ops::First(Distances<Ops>(Ops::LoadFirst(entries + 4 * i, count - i), blueRed, green), count - i, none),
        odd);
    i += kLanes;
  }
  for (; i % 64 != 0; i += kLanes) put(i, none, even);

  const Vector least = Ops::LeastOf(Ops::Min(even, odd));
  for (uint32_t word = 0; word < 4; ++word) hits[word] = 64 * word < i ? Ops::Hits64(distances + 256 * word, least) : 0;
  return static_cast<uint32_t>(Ops::FirstLane(least));
}

template <typename Ops>
uint32_t SearchBy(const uint8_t* entries, uint32_t count, uint32_t r, uint32_t g, uint32_t b) noexcept {
  if (count <= kBlockEntries) {  // mostly there is one hit, and it decides
    uint64_t hits[4];
    FindHitsBy<Ops>(entries, count, r, g, b, hits);
    int32_t number = 0;
    for (uint32_t word = 0; word < 4; ++word) number += __builtin_popcountll(hits[word]);
    if (number == 1) {
      const auto bit = static_cast<uint32_t>(__builtin_ctzll(hits[0] | hits[1] | hits[2] | hits[3]));
      return bit + 64u * (hits[1] != 0) + 128u * (hits[2] != 0) + 192u * (hits[3] != 0);
    }
  }
  return SearchByHits(FindHitsBy<Ops>, entries, count, r, g, b);
}

template <typename Ops>
int32_t LeastKeyBy(const NearestColumns& columns, uint32_t r, uint32_t g, uint32_t b) noexcept {
  using Vector = typename Ops::Vector;
  constexpr auto kLanes = static_cast<uint32_t>(Ops::kLanes), kParts = kColumnStep / kLanes;
  // -2 * r in the low half and -2 * g in the high half of each 32 bits.
  const auto weights = [](uint32_t low, uint32_t high) {
    return Ops::Set(static_cast<int32_t>(((0 - 2 * low) & 0xFFFF) | (0 - 2 * high) << 16));
  };
  const Vector redGreen = weights(r, g), blueNone = weights(b, 0);
  const auto keys = [&](uint32_t i) {
    const Vector product = Ops::Add(Ops::MultiplyAdd(Ops::Load(columns.redGreen + 2 * i), redGreen),
                                    Ops::MultiplyAdd(Ops::Load(columns.blueNone + 2 * i), blueNone));
    return Ops::Add(Ops::template ShiftLeft<kKeyShift>(product), Ops::Load(columns.keys + i));
  };
  Vector least[kParts];
  for (uint32_t part = 0; part < kParts; ++part) least[part] = keys(part * kLanes);
  for (uint32_t i = kColumnStep; i < columns.count; i += kColumnStep)
    for (uint32_t part = 0; part < kParts; ++part) least[part] = Ops::Min(least[part], keys(i + part * kLanes));
  return Ops::FirstLane(Ops::LeastOf(Ops::Min(least[0], least[kParts - 1])));
}

}  // namespace
}  // namespace vexakrn

#endif
