// Conversion steps with AVX-512 and its byte permutes.
#include <immintrin.h>

#include "krn/convertwide.h"

namespace vexakrn {
namespace {

// --- vectors ---

__m512i Load(const uint8_t* at) noexcept { return _mm512_loadu_si512(at); }
void Store(uint8_t* at, __m512i value) noexcept { _mm512_storeu_si512(at, value); }

// The first `bytes` bytes of a vector, up to 64.
__mmask64 FirstBytes(size_t bytes) noexcept {
  return bytes >= 64 ? ~__mmask64{0} : _bzhi_u64(~__mmask64{0}, static_cast<uint32_t>(bytes));
}

// How 64 bytes come from a block: from up to three pieces of 64 bytes, which start inside the block where it is as long.
struct GatherPlan {
  int pieces, at[3];
  uint64_t third, none;  // the bytes that come from the third piece, and from none
  ByteTable index;       // in two pieces at once
};

template <typename Map>
constexpr GatherPlan PlanGather(int chunk) {
  constexpr int kLatest = Map::kBytes > 64 ? Map::kBytes - 64 : 0;
  GatherPlan plan{};
  int from[64] = {}, first = kLatest, last = 0;
  for (int i = 0; i < 64; ++i) {
    from[i] = Map::At(64 * chunk + i);
    if (from[i] < 0) continue;
    first = from[i] < first ? from[i] : first;
    last = from[i] > last ? from[i] : last;
  }
  const int line = first / 64 * 64;  // lines are read whole where that takes no more of them
  if ((last - line) / 64 == (last - first) / 64) first = line;
  plan.pieces = (last - first) / 64 + 1;
  for (int piece = 0; piece < 3; ++piece) plan.at[piece] = first + 64 * piece < kLatest ? first + 64 * piece : kLatest;
  for (int i = 0; i < 64; ++i) {
    const uint64_t bit = uint64_t{1} << i;
    if (from[i] < 0) {
      plan.none |= bit;
      continue;
    }
    const int piece = (from[i] - first) / 64;
    if (piece == 2) plan.third |= bit;
    plan.index.at[i] = static_cast<uint8_t>(from[i] - plan.at[piece] + 64 * (piece % 2));
  }
  return plan;
}

template <typename Map, int Chunk>
inline constexpr GatherPlan kGatherPlan = PlanGather<Map>(Chunk);

inline constexpr ByteTable kEvenBytes = [] {
  ByteTable table{};
  for (int i = 0; i < 64; ++i) table.at[i] = static_cast<uint8_t>(2 * i);
  return table;
}();

struct Avx512 {
  using Vector = __m512i;
  using Words [[gnu::vector_size(64)]] = uint16_t;
  static constexpr int kBytes = 64;

  static Vector Load(const uint8_t* at) noexcept { return vexakrn::Load(at); }
  static void Store(uint8_t* at, Vector value) noexcept { vexakrn::Store(at, value); }
  static void Stream(uint8_t* at, Vector value) noexcept { _mm512_stream_si512(reinterpret_cast<__m512i*>(at), value); }
  static void Fence() noexcept { _mm_sfence(); }
  static Vector LoadBits(const uint8_t* at) noexcept {
    int64_t bits = 0;
    __builtin_memcpy(&bits, at, sizeof bits);
    return _mm512_set1_epi64(bits);
  }
  static Vector Repeat(uint32_t word) noexcept { return _mm512_set1_epi32(static_cast<int32_t>(word)); }
  static Vector Repeat64(uint64_t word) noexcept { return _mm512_set1_epi64(static_cast<int64_t>(word)); }
  static Vector Shuffle(Vector bytes, Vector index) noexcept { return _mm512_shuffle_epi8(bytes, index); }
  static Vector MultiplyAdd(Vector bytes, Vector weights) noexcept { return _mm512_maddubs_epi16(bytes, weights); }
  static Vector Eighth(Words words) noexcept {
    return _mm512_mulhrs_epi16(reinterpret_cast<Vector>(words), _mm512_set1_epi16(1 << 12));
  }
  static Vector Spread(Vector value) noexcept {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), value);
  }
  static Vector Narrow(Vector low, Vector high) noexcept {
    return _mm512_permutex2var_epi8(low, Load(kEvenBytes.at), high);
  }
  static Vector Low(Vector even, Vector odd) noexcept { return _mm512_unpacklo_epi16(even, odd); }
  static Vector High(Vector even, Vector odd) noexcept { return _mm512_unpackhi_epi16(even, odd); }
  static Vector Choose(Vector bits, Vector bit, Vector zero, Vector one) noexcept {
    return _mm512_mask_blend_epi8(_mm512_test_epi8_mask(bits, bit), zero, one);
  }
  static uint64_t SignBits(Vector value) noexcept { return _mm512_movepi8_mask(value); }

  static void CopyIn(uint8_t* buffer, const uint8_t* source, size_t bytes, size_t size) noexcept {
    for (size_t at = 0; at < size; at += 64)
      Store(buffer + at, _mm512_maskz_loadu_epi8(at < bytes ? FirstBytes(bytes - at) : 0, source + at));
  }
  static void CopyOut(uint8_t* destination, const uint8_t* buffer, size_t bytes) noexcept {
    for (size_t at = 0; at < bytes; at += 64)
      _mm512_mask_storeu_epi8(destination + at, FirstBytes(bytes - at), Load(buffer + at));
  }

  template <typename Map, int Chunk>
  [[gnu::always_inline]] static inline Vector Gather(const uint8_t* block) noexcept {
    constexpr const GatherPlan& kPlan = kGatherPlan<Map, Chunk>;
    const Vector index = Load(kPlan.index.at);
    if constexpr (Map::kBytes < 64)
      return _mm512_maskz_permutexvar_epi8(~kPlan.none, index, _mm512_maskz_loadu_epi8(FirstBytes(Map::kBytes), block));
    Vector moved = Load(block + kPlan.at[0]);
    if constexpr (kPlan.pieces == 1)
      moved = _mm512_permutexvar_epi8(index, moved);
    else
      moved = _mm512_permutex2var_epi8(moved, index, Load(block + kPlan.at[1]));
    if constexpr (kPlan.pieces == 3)
      moved = _mm512_mask_permutexvar_epi8(moved, kPlan.third, index, Load(block + kPlan.at[2]));
    if constexpr (kPlan.none != 0) moved = _mm512_maskz_mov_epi8(~kPlan.none, moved);
    return moved;
  }

  template <typename Map>
  static constexpr bool kCloses = false;
};

using Steps = WideSteps<Avx512>;

// --- palette indices ---

// A table of 256 bytes in registers.
struct LookUpTable {
  __m512i part[4];
};

__m512i LookUp(const LookUpTable& table, __m512i index) noexcept {
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index),
                                _mm512_permutex2var_epi8(table.part[0], index, table.part[1]),
                                _mm512_permutex2var_epi8(table.part[2], index, table.part[3]));
}

// Byte `component` of each palette entry.
LookUpTable ComponentTable(const RGBQUAD* palette, int component) noexcept {
  const auto* at = reinterpret_cast<const uint8_t*>(palette);
  const __m512i pick =
      _mm512_add_epi8(_mm512_set1_epi8(static_cast<char>(component)),
                      _mm512_slli_epi16(_mm512_and_si512(Load(kEvenBytes.at), _mm512_set1_epi8(0x3F)), 1));
  LookUpTable table;
  for (int i = 0; i < 4; ++i, at += 256) {
    const __m512i low = _mm512_permutex2var_epi8(Load(at), pick, Load(at + 64));
    const __m512i high = _mm512_permutex2var_epi8(Load(at + 128), pick, Load(at + 192));
    table.part[i] = _mm512_inserti64x4(low, _mm512_castsi512_si256(high), 1);
  }
  return table;
}

struct ColorTables {
  LookUpTable part[3];  // in the order of the destination
};

template <Layout To>
ColorTables TablesOf(const RGBQUAD* palette) noexcept {
  return {{ComponentTable(palette, IsRgb(To) ? 2 : 0), ComponentTable(palette, 1),
           ComponentTable(palette, IsRgb(To) ? 0 : 2)}};
}

void IndexToGray8(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept {
  LookUpTable table;
  for (int i = 0; i < 4; ++i) table.part[i] = Load(context.grayOfIndex + 64 * i);
  Steps::ForBlocks<8, 8>(destination, source, pixels, context,
                         [=](uint8_t* out, const uint8_t* in) noexcept { Store(out, LookUp(table, Load(in))); });
}

// Rows of four pixels are set apart first, so that the interleaved lanes come out in order.
template <Layout To>
void IndexToColor32(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const ColorTables tables = TablesOf<To>(context.palette);
  const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m512i alpha = _mm512_set1_epi8(static_cast<char>(context.alpha));
  Steps::ForBlocks<8, 32>(destination, source, pixels, context, [=](Steps::Place out, const uint8_t* in) noexcept {
    const __m512i index = _mm512_permutexvar_epi32(order, Load(in));
    const __m512i a = LookUp(tables.part[0], index), b = LookUp(tables.part[1], index),
                  c = LookUp(tables.part[2], index);
    const __m512i abLow = _mm512_unpacklo_epi8(a, b), abHigh = _mm512_unpackhi_epi8(a, b);
    const __m512i cLow = _mm512_unpacklo_epi8(c, alpha), cHigh = _mm512_unpackhi_epi8(c, alpha);
    out.Put(0, _mm512_unpacklo_epi16(abLow, cLow));
    out.Put(1, _mm512_unpackhi_epi16(abLow, cLow));
    out.Put(2, _mm512_unpacklo_epi16(abHigh, cHigh));
    out.Put(3, _mm512_unpackhi_epi16(abHigh, cHigh));
  });
}

// 64 bytes of pixels of three bytes: from the first two components at once, and from the third where the mask says so.
struct WeavePlan {
  uint8_t index[64];
  uint64_t third;
};

constexpr WeavePlan PlanWeave(int chunk) {
  WeavePlan plan{};
  for (int i = 0; i < 64; ++i) {
    const int at = 64 * chunk + i;
    plan.index[i] = static_cast<uint8_t>(at / 3 + (at % 3 == 1 ? 64 : 0));
    if (at % 3 == 2) plan.third |= uint64_t{1} << i;
  }
  return plan;
}
constexpr WeavePlan kWeavePlans[3] = {PlanWeave(0), PlanWeave(1), PlanWeave(2)};

template <Layout To>
void IndexToColor24(uint8_t* destination, const uint8_t* source, size_t pixels,
                    const ConvertContext& context) noexcept {
  const ColorTables tables = TablesOf<To>(context.palette);
  Steps::ForBlocks<8, 24>(destination, source, pixels, context, [=](Steps::Place out, const uint8_t* in) noexcept {
    const __m512i index = Load(in);
    const __m512i a = LookUp(tables.part[0], index), b = LookUp(tables.part[1], index),
                  c = LookUp(tables.part[2], index);
    for (int i = 0; i < 3; ++i) {
      const __m512i place = Load(kWeavePlans[i].index), both = _mm512_permutex2var_epi8(a, place, b);
      out.Put(i, _mm512_mask_permutexvar_epi8(both, kWeavePlans[i].third, place, c));
    }
  });
}

// --- the table ---

constexpr ConvertSteps kSteps = [] {
  using enum Layout;
  ConvertSteps steps = Steps::Table();
  steps.Set(Index8, Gray8, IndexToGray8);
  steps.Set(Index8, Bgr24, IndexToColor24<Bgr24>);
  steps.Set(Index8, Rgb24, IndexToColor24<Rgb24>);
  steps.Set(Index8, Bgr32, IndexToColor32<Bgr32>);
  steps.Set(Index8, Rgb32, IndexToColor32<Rgb32>);
  return steps;
}();

}  // namespace

const ConvertSteps kConvertStepsAvx512 = kSteps;

}  // namespace vexakrn
