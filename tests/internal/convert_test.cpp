// Conversion of lines, in place and from apart, against a model that takes one pixel at a time, at every processor level.
//
// The model knows two kinds of values: of 8 bits, and of 16 where a source has more than 8. A colour that comes from a
// palette or from fields of 5 and 6 bits has 8.
#include "krn/convert.h"

#include "krn/convertplan.h"
#include "krn/palettes.h"
#include "support/testing.h"

namespace vexatest {
namespace {

using vexakrn::LineConversion;
using Request = vexakrn::ConversionRequest;
using Format = vexakrn::LineFormat;
using Palette = std::vector<RGBQUAD>;

constexpr int32_t kOrders[] = {V_OrderRgb, V_OrderBgr, V_OrderGray, V_OrderRomm, V_OrderRgb565};

bool IsGray(const Format& f) { return f.order == V_OrderGray && f.bits >= 8; }
bool HasPalette(const Format& f) { return f.bits <= 8 && !IsGray(f); }
bool IsValid(const Format& f) {
  if (f.order == V_OrderGray) return f.bits <= 16;
  if (f.order == V_OrderRomm) return f.bits == 24 || f.bits == 48;
  return f.order == V_OrderRgb565 ? f.bits == 16 : f.bits != 12;
}

// --- the model ---

size_t LineBytes(int32_t width, int32_t bits) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bits) + 7) / 8;
}

struct Value {
  bool deep = false, gray = false;  // 16 bits; all components are the same
  uint32_t red = 0, green = 0, blue = 0, alpha = 0;
};

constexpr int32_t kToRomm[3][3] = {{7151, 897, 145}, {394, 7067, 731}, {1067, 2841, 4284}};
constexpr int32_t kFromRomm[3][3] = {{9467, -1151, -125}, {-305, 10232, -1735}, {-2156, -6498, 16846}};

void ApplyRomm(Value& v, const int32_t (&m)[3][3]) {
  const int64_t b = v.blue, g = v.green, r = v.red;
  const auto row = [&](size_t i) {
    const int64_t sum = (m[i][0] * b + m[i][1] * g + m[i][2] * r + 4095) / 8192;
    return static_cast<uint32_t>(std::clamp<int64_t>(sum, 0, v.deep ? 65535 : 255));
  };
  v.blue = row(0), v.green = row(1), v.red = row(2);
}

// Bits that hold gray, from the lowest on.
struct Range {
  int32_t low, bits;
};

class Model {
 public:
  explicit Model(const Request& request) : r_(request) {}

  void Convert(uint8_t* destination, const uint8_t* source, int32_t width) const {
    if (IsCopy()) std::memcpy(destination, source, LineBytes(width, r_.source.bits));
    for (int32_t i = 0; i < width && !IsCopy(); ++i)
      PutPixelAt(destination, i, r_.destination.bits, Encode(Decode(PixelAt(source, i, r_.source.bits))));
  }

 private:
  // The same pixels on both sides; 16-bit colour lies alike in the orders Rgb and Bgr.
  bool IsCopy() const {
    const auto layout = [](const Format& f) { return f.bits == 16 && f.order == V_OrderBgr ? V_OrderRgb : f.order; };
    return r_.source.bits == r_.destination.bits && layout(r_.source) == layout(r_.destination) &&
           !HasPalette(r_.source) && r_.lowBit < 0 && !r_.source.table && !r_.destination.table;
  }

  Range RangeOf(const Format& format, uint32_t flag) const {
    if ((r_.flags & flag) == 0 || format.bits <= 8) return {0, format.bits};
    const int32_t low = std::max(r_.lowBit, 0), high = r_.highBit < 0 ? format.bits - 1 : r_.highBit;
    return {low, high - low + 1};
  }

  static const RGBQUAD* PaletteOf(const Format& format) {
    return format.palette ? format.palette : vexakrn::FixedPalette(static_cast<uint32_t>(format.bits));
  }

  uint32_t InitialAlpha(bool deep) const {
    return (r_.flags & V_ConvertAlphaInit) != 0 ? (r_.color >> 24) * (deep ? 257 : 1) : 0;
  }

  static Value Gray(bool deep, uint32_t value) { return {deep, true, value, value, value}; }

  Value DecodeGray(uint64_t pixel) const {
    const Range range = RangeOf(r_.source, V_ConvertSourceUseBits);
    const auto value = static_cast<uint32_t>(pixel >> range.low & ((1u << range.bits) - 1));
    if (r_.source.bits == 16 && r_.source.table) return Gray(true, r_.source.table[std::min(value, 65534u)]);
    return Gray(range.bits > 8, RepeatBits(value, range.bits, range.bits > 8 ? 16 : 8));
  }

  Value Decode(uint64_t pixel) const {
    const Format& format = r_.source;
    if (IsGray(format)) return DecodeGray(pixel);
    if (HasPalette(format)) {
      const RGBQUAD& entry = PaletteOf(format)[pixel];
      return {false, false, entry.rgbRed, entry.rgbGreen, entry.rgbBlue, InitialAlpha(false)};
    }
    const auto field = [=](int32_t at, int32_t bits, int32_t to) {
      return RepeatBits(static_cast<uint32_t>(pixel >> at & ((uint64_t{1} << bits) - 1)), bits, to);
    };
    if (format.bits == 16) {
      const int32_t green = format.order == V_OrderRgb565 ? 6 : 5;
      return {false, false, field(5 + green, 5, 8), field(5, green, 8), field(0, 5, 8), InitialAlpha(false)};
    }
    const bool deep = format.bits >= 48;
    const int32_t size = deep ? 16 : 8;
    Value v{deep, false, field(2 * size, size, size), field(size, size, size), field(0, size, size)};
    v.alpha = format.bits == 4 * size ? field(3 * size, size, size) : InitialAlpha(deep);
    if (format.order == V_OrderRgb) std::swap(v.red, v.blue);
    if (format.order == V_OrderRomm && r_.destination.order != V_OrderRomm) ApplyRomm(v, kFromRomm);
    return v;
  }

  static Value ToDepth(Value v, bool deep) {
    for (uint32_t* c : {&v.red, &v.green, &v.blue, &v.alpha}) *c = v.deep == deep ? *c : deep ? *c * 257 : *c >> 8;
    v.deep = deep;
    return v;
  }
  static uint32_t GrayOf(const Value& v) { return v.gray ? v.red : (2 * v.red + 5 * v.green + v.blue + 4) / 8; }

  uint64_t EncodeGray(const Value& v) const {
    const Range range = RangeOf(r_.destination, V_ConvertDestinationUseBits);
    const uint32_t top = (1u << range.bits) - 1;
    uint32_t value = range.bits <= 8    ? GrayOf(ToDepth(v, false)) >> (8 - range.bits)
                     : v.deep && v.gray ? v.red >> (16 - range.bits)
                                        : GrayOf(ToDepth(v, false)) * top / 255;
    if (r_.destination.bits == 16 && r_.destination.table) value = r_.destination.table[std::min(value, 65534u)] & top;
    return value << range.low;
  }

  uint64_t Encode(Value v) const {
    const Format& format = r_.destination;
    if (IsGray(format)) return EncodeGray(v);
    if (v.gray) v.alpha = InitialAlpha(v.deep);
    const bool deep = format.bits >= 48;
    v = ToDepth(v, deep);
    if (HasPalette(format)) return V_FindPaletteIndex(PaletteOf(format), 1u << format.bits, v.red, v.green, v.blue);
    if (format.bits == 16) {
      const uint32_t green = format.order == V_OrderRgb565 ? 6 : 5;
      return v.red / 8 << (5 + green) | v.green >> (8 - green) << 5 | v.blue / 8;
    }
    if (format.order == V_OrderRomm && r_.source.order != V_OrderRomm) ApplyRomm(v, kToRomm);
    if (format.order == V_OrderRgb) std::swap(v.red, v.blue);
    const int32_t size = deep ? 16 : 8;
    const uint64_t alpha = format.bits == 4 * size ? v.alpha : 0;
    return v.blue | uint64_t{v.green} << size | uint64_t{v.red} << (2 * size) | alpha << (3 * size);
  }

  const Request& r_;
};

// --- lines ---

class Conversion : public testing::Test {
 protected:
  // Noise, one value throughout, or values at the ends of their range.
  std::vector<uint8_t> SourceLine(size_t bytes) {
    std::vector<uint8_t> line = random_.Bytes(bytes);
    const uint64_t kind = random_.Below(4);
    if (kind == 0) std::fill(line.begin(), line.end(), static_cast<uint8_t>(random_.Next()));
    if (kind == 1)
      for (uint8_t& byte : line) byte = std::array<uint8_t, 8>{0, 255, 1, 254, 127, 128, 0, 255}[byte % 8];
    return line;
  }

  // Converts a line in place, and three lines from apart, at every level: as it is, and as parts of a result that is said
  // to be too large for the caches. Blocks are not a byte too long.
  void Check(const Request& r, int32_t width) {
    const size_t from = LineBytes(width, r.source.bits), to = LineBytes(width, r.destination.bits);
    const std::vector<uint8_t> source = SourceLine(from);
    std::vector<uint8_t> converted(to, 0);
    Model(r).Convert(converted.data(), source.data(), width);
    SCOPED_TRACE(testing::Message() << r.source.bits << " bits of order " << r.source.order << " to "
                                    << r.destination.bits << " of " << r.destination.order << ", flags " << r.flags
                                    << ", bits " << r.lowBit << " to " << r.highBit << ", width " << width);
    constexpr size_t kLines = 3;
    const size_t offset = random_.Below(64), fromPitch = from + random_.Below(2) * 4, pitch = to + random_.Below(2) * 4;
    std::vector<uint8_t> given(fromPitch * (kLines - 1) + from), want(offset + pitch * (kLines - 1) + to, 0x3C);
    for (size_t i = 0; i < kLines; ++i) {
      std::copy(source.begin(), source.end(), &given[fromPitch * i]);
      std::copy(converted.begin(), converted.end(), &want[offset + pitch * i]);
    }
    AtEachLevel([&] {
      for (const uint64_t total : {uint64_t{0}, uint64_t{1} << 30}) {
        GuardedBytes line(offset + std::max(from, to)), sources(given.size()), lines(want.size(), 0x3C);
        std::copy(source.begin(), source.end(), line.data() + offset);
        std::copy(given.begin(), given.end(), sources.data());
        if (total == 0) {
          ASSERT_EQ(V_ConvertBufferExt3(line.data() + offset, width, r.source.bits, r.destination.bits, r.source.order,
                                        r.destination.order, r.source.palette, r.destination.palette, r.source.table,
                                        r.destination.table, r.flags, r.lowBit, r.highBit, r.color),
                    1);
        } else {
          vexakrn::ConvertPlan plan;
          ASSERT_EQ(plan.Make(r), 1);
          plan.RunLines(line.data() + offset, 0, line.data() + offset, 0, static_cast<size_t>(width), 1, total);
        }
        ASSERT_TRUE(std::equal(converted.begin(), converted.end(), line.data() + offset)) << "in place, " << total;
        LineConversion conversion;
        ASSERT_EQ(conversion.Prepare(r), 1);
        uint8_t* first = lines.data() + offset;
        ASSERT_EQ(conversion.RunLines(first, pitch, sources.data(), fromPitch, width, kLines, total), 1);
        ASSERT_TRUE(lines == want && sources == given) << "from apart, " << total;
        ASSERT_TRUE(line.GuardsIntact() && sources.GuardsIntact() && lines.GuardsIntact());
      }
    });
  }

  Palette RandomPalette(int32_t bits) {
    Palette palette(size_t{1} << bits);
    random_.Fill(palette.data(), palette.size() * sizeof(RGBQUAD));
    return palette;
  }

  // Widths around every size of block and strip, most of them small.
  int32_t Width() { return random_.Below(8) == 0 ? random_.Between(500, 1100) : random_.Between(1, 70); }

  Random random_{0xC0104};
};

template <typename Function>
void ForEachPair(Function function) {
  for (const int32_t sourceBits : kDepths)
    for (const int32_t sourceOrder : kOrders)
      for (const int32_t bits : kDepths)
        for (const int32_t order : kOrders) {
          const Request request = {
              {sourceBits, sourceOrder, nullptr, nullptr}, {bits, order, nullptr, nullptr}, 0, -1, -1, 0};
          if (!IsValid(request.source) || !IsValid(request.destination)) continue;
          function(request);
          if (testing::Test::HasFatalFailure()) return;
        }
}

// Where most people's pictures go, at every width that a block or a tail of one could have.
TEST_F(Conversion, OfEveryPairOfFormatsIsThatOfTheModel) {
  ForEachPair([&](Request r) {
    const bool searches = HasPalette(r.destination) && !(IsGray(r.source) && r.destination.bits == 1);
    const bool romm = r.source.order == V_OrderRomm || r.destination.order == V_OrderRomm;
    for (int32_t width = searches || romm ? 71 : 1; width <= 76; ++width) {
      Palette source, destination;
      if (width % 2 != 0) r.flags = V_ConvertAlphaInit, r.color = static_cast<uint32_t>(random_.Next());
      if (HasPalette(r.source) && random_.Coin()) source = RandomPalette(r.source.bits);
      if (searches && random_.Below(4) == 0) destination = RandomPalette(r.destination.bits);
      r.source.palette = source.empty() ? nullptr : source.data();
      r.destination.palette = destination.empty() ? nullptr : destination.data();
      ASSERT_NO_FATAL_FAILURE(Check(r, width > 70 ? Width() : width));
    }
  });
}

TEST_F(Conversion, TakesGrayFromAndToARangeOfBitsAndThroughTables) {
  std::vector<uint16_t> tables[2] = {std::vector<uint16_t>(65535), std::vector<uint16_t>(65535)};
  for (auto& table : tables) random_.Fill(table.data(), 2 * table.size());
  ForEachPair([&](Request r) {
    for (const uint32_t flag : {V_ConvertSourceUseBits, V_ConvertDestinationUseBits}) {
      const Format& ranged = flag == V_ConvertSourceUseBits ? r.source : r.destination;
      if (!IsGray(ranged)) continue;
      r.flags = flag;
      for (int32_t bits = 1; bits <= ranged.bits; ++bits)
        for (const int with : {0, 1, 2}) {  // tables: none, the source's, both
          r.source.table = with > 0 && r.source.bits == 16 ? tables[0].data() : nullptr;
          r.destination.table = with > 1 && r.destination.bits == 16 ? tables[1].data() : nullptr;
          r.lowBit = bits == ranged.bits ? -1 : random_.Between(0, ranged.bits - bits);
          r.highBit = bits == ranged.bits ? -1 : r.lowBit + bits - 1;
          ASSERT_NO_FATAL_FAILURE(Check(r, Width()));
        }
    }
  });
}

// Two colours in either order; and the fixed palette, for which nothing is searched: reds at the middle between two
// levels, next to it and at the ends, with all greens and blues.
TEST_F(Conversion, FindsTheNearestEntryOfAwkwardPalettes) {
  const RGBQUAD black{0, 0, 0, 7}, white{255, 255, 255, 9};
  for (const int32_t bits : {8, 12, 16, 24, 48})
    for (const int32_t order : {V_OrderBgr, V_OrderGray})
      for (const Palette& palette :
           {Palette{black, white}, {white, black}, {white, white}, {black, {128, 128, 128, 0}}}) {
        const Request r = {{bits, order, nullptr, nullptr}, {1, V_OrderRgb, palette.data(), nullptr}, 0, -1, -1, 0};
        if (!IsValid(r.source)) continue;
        ASSERT_NO_FATAL_FAILURE(Check(r, 700));
      }
  const RGBQUAD* fixed = vexakrn::FixedPalette(8);
  const vexakrn::PaletteSearch search(fixed, 256);
  LineConversion conversion;
  ASSERT_EQ(conversion.Prepare({{24, V_OrderBgr, nullptr, nullptr}, {8, V_OrderBgr, fixed, nullptr}, 0, -1, -1, 0}), 1);
  std::vector<uint8_t> line(size_t{3} * 256), got(256);
  for (const uint32_t r : {0u, 17u, 18u, 19u, 91u, 128u, 164u, 237u, 255u})
    for (uint32_t g = 0; g < 256; ++g) {
      for (size_t b = 0; b < 256; ++b)
        PutPixelAt(line.data(), static_cast<int32_t>(b), 24, b | uint64_t{g} << 8 | uint64_t{r} << 16);
      ASSERT_EQ(conversion.Run(got.data(), line.data(), 256), 1);
      for (uint32_t b = 0; b < 256; ++b) ASSERT_EQ(got[b], search.Find(r, g, b)) << r << ", " << g << ", " << b;
    }
}

// --- checks, sizes, padding ---

TEST(Convert, RefusesWhatContradictsItself) {
  uint8_t line[64] = {1, 2, 3, 4, 5, 6, 7, 8};
  const auto convert = [&](int32_t bits, int32_t order, int32_t toBits, int32_t toOrder, uint32_t flags = 0,
                           int32_t low = -1, int32_t high = -1) {
    return V_ConvertBufferExt(line, 2, bits, toBits, order, toOrder, nullptr, nullptr, flags, low, high);
  };
  EXPECT_EQ(convert(0, V_OrderBgr, 24, V_OrderBgr), 1) << "of nothing";
  EXPECT_EQ(convert(0, V_OrderBgr, 24, V_OrderRomm), 1);
  EXPECT_EQ(convert(0, V_OrderBgr, 32, V_OrderRomm), -16);
  EXPECT_EQ(line[0] << 8 | line[7], 0x108) << "changes nothing";
  EXPECT_EQ(convert(24, V_OrderRgb, 32, V_OrderBgr, V_ConvertAlphaInit), 1);
  EXPECT_EQ(line[0] << 24 | line[1] << 16 | line[2] << 8 | line[3], 0x030201FF) << "opaque where no colour is given";
  for (const int32_t width : {0, -1})
    EXPECT_EQ(V_ConvertBuffer(line, width, 24, 8, V_OrderBgr, V_OrderRgb, nullptr, nullptr), -13);
  EXPECT_EQ(V_ConvertBuffer(nullptr, 4, 24, 8, V_OrderBgr, V_OrderRgb, nullptr, nullptr), -13);
  EXPECT_EQ(convert(24, V_OrderBgr, 0, V_OrderBgr), -13);
  for (const int32_t bits : {-8, 9, 13, 20, 40, 65, 128})
    EXPECT_TRUE(convert(bits, V_OrderBgr, 24, V_OrderBgr) == -13 && convert(24, V_OrderBgr, bits, V_OrderBgr) == -13)
        << bits;
  for (const int32_t bits : kDepths)
    for (int32_t order = -1; order <= 9; ++order) {
      const bool known = std::find(std::begin(kOrders), std::end(kOrders), order) != std::end(kOrders);
      const bool valid = known && IsValid({bits, order, nullptr, nullptr});
      const int32_t refused = order == V_OrderRomm && bits != 12 ? -16 : -13;
      EXPECT_EQ(convert(bits, order, 24, V_OrderBgr), valid ? 1 : -13) << bits << " bits, order " << order;
      EXPECT_EQ(convert(24, V_OrderBgr, bits, order), valid ? 1 : refused) << bits << " bits, order " << order;
    }
  EXPECT_EQ(convert(12, V_OrderBgr, 8, V_OrderRomm), -13) << "the source is looked at first";
  constexpr uint32_t kFrom = V_ConvertSourceUseBits, kTo = V_ConvertDestinationUseBits;
  EXPECT_EQ(convert(16, V_OrderGray, 12, V_OrderGray, kFrom | kTo, 0, 7), -13);
  EXPECT_EQ(convert(24, V_OrderBgr, 12, V_OrderGray, kFrom | kTo, 0, 7), 1) << "a source that is not gray has none";
  EXPECT_EQ(convert(16, V_OrderGray, 24, V_OrderBgr, kTo, 0, 15), -13);
  EXPECT_EQ(convert(16, V_OrderGray, 24, V_OrderBgr, kFrom, 8, 7), -13);
  EXPECT_EQ(convert(16, V_OrderGray, 24, V_OrderBgr, kFrom, 8, 16), -13);
  EXPECT_EQ(convert(24, V_OrderBgr, 12, V_OrderGray, kTo, 4, 12), -13);
  EXPECT_EQ(convert(16, V_OrderGray, 32, V_OrderRomm, kFrom, 9, 3), -13) << "the range is looked at before the depth";
  EXPECT_EQ(convert(0, V_OrderBgr, 16, V_OrderGray, kTo, 9, 3), -13);
  LineConversion conversion;
  EXPECT_EQ(conversion.Run(line, line, 1), -13);
  EXPECT_EQ(conversion.Prepare({{9, 1, nullptr, nullptr}, {8, 1, nullptr, nullptr}, 0, -1, -1, 0}), -13);
  EXPECT_EQ(conversion.Run(line, line, 1), -13) << "nothing was prepared";
}

TEST(Convert, TellsSizesAndPadsAllThatFollowsTheLastPixel) {
  EXPECT_EQ(V_CalcConvertSize(10, 1, 10, 24), 32u);
  EXPECT_EQ(V_CalcConvertSize(100, 0, 10, 8), 100u);
  EXPECT_EQ(V_CalcConvertSize(10, 64, 100, 8), 800u) << "the destination's width at the source's depth counts";
  EXPECT_EQ(V_CalcConvertSize(0x7FFFFFFF, 64, 1, 1), 0x7FFFFFFFu * uint64_t{8});
  for (const int32_t bits : kDepths)
    for (int32_t width = 0; width <= 20; ++width) {
      const size_t bytes = LineBytes(width, bits);
      GuardedBytes row(bytes + 5, 0xFF);
      std::vector<uint8_t> want(bytes + 5, 0);
      for (int32_t i = 0; i < width; ++i) PutPixelAt(want.data(), i, bits, ~uint64_t{0} >> (64 - bits));
      ASSERT_EQ(V_PadPixelData(row.data(), width, bits, row.size()), 1);
      EXPECT_TRUE(row == want && row.GuardsIntact()) << bits << " bits, width " << width;
      if (bytes == 0) continue;
      EXPECT_EQ(V_PadPixelData(row.data(), width, bits, bytes - 1), -13);
    }
  uint8_t byte = 0;
  EXPECT_EQ(V_PadPixelData(nullptr, 1, 8, 1), -13);
  EXPECT_EQ(V_PadPixelData(&byte, -1, 8, 1), -13);
  EXPECT_EQ(V_PadPixelData(&byte, 0, 9, 1), -13);
}

}  // namespace
}  // namespace vexatest
