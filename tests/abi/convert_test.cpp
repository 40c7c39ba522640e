// Conversion of lines against a model that takes one pixel at a time, at every processor level.
//
// The model knows two kinds of values: of 8 bits, and of 16 where a source has more than 8. A colour that comes from a
// palette or from fields of 5 and 6 bits has 8.
#include "vexakrn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ostream>
#include <vector>

#include "support/guarded.h"
#include "support/pixelmodel.h"
#include "support/random.h"

namespace vexatest {
namespace {

constexpr int32_t kDepths[] = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};
constexpr int32_t kOrders[] = {V_OrderRgb, V_OrderBgr, V_OrderGray, V_OrderRomm, V_OrderRgb565};

struct Format {
  int32_t bits, order;
  bool IsGray() const { return order == V_OrderGray && bits >= 8; }
  bool HasPalette() const { return bits <= 8 && !IsGray(); }
  bool IsValid() const {
    if (order == V_OrderGray) return bits <= 16;
    if (order == V_OrderRomm) return bits == 24 || bits == 48;
    if (order == V_OrderRgb565) return bits == 16;
    return bits != 12;
  }
};

struct Case {
  Format source, destination;
  uint32_t flags = 0;
  int32_t lowBit = -1, highBit = -1;
  uint32_t color = 0;
  std::vector<RGBQUAD> sourcePalette{}, destinationPalette{};  // empty: none is given
  std::vector<uint16_t> sourceTable{}, destinationTable{};
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.source.bits << " bits of order " << c.source.order << " to " << c.destination.bits << " of "
             << c.destination.order << ", flags " << c.flags << ", bits " << c.lowBit << " to " << c.highBit
             << (c.sourcePalette.empty() ? "" : ", source palette")
             << (c.destinationPalette.empty() ? "" : ", destination palette")
             << (c.sourceTable.empty() ? "" : ", source table")
             << (c.destinationTable.empty() ? "" : ", destination table");
}

template <typename T>
const T* DataOrNull(const std::vector<T>& values) {
  return values.empty() ? nullptr : values.data();
}

// --- the model ---

size_t LineBytes(int32_t width, int32_t bits) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bits) + 7) / 8;
}

struct Value {
  bool deep = false, gray = false;  // 16 bits; red is all there is
  uint32_t red = 0, green = 0, blue = 0, alpha = 0;
};

uint32_t Luminance(uint32_t r, uint32_t g, uint32_t b) { return (2 * r + 5 * g + b + 4) / 8; }

// The low `from` bits repeated, most significant first, until there are `to`.
uint32_t RepeatBits(uint32_t value, int32_t from, int32_t to) {
  uint32_t result = 0;
  for (int32_t i = 0; i < to; ++i) result = result << 1 | (value >> (from - 1 - i % from) & 1);
  return result;
}

std::array<int64_t, 3> Matrix(const int32_t (&m)[3][3], const std::array<int64_t, 3>& c, int64_t maximum) {
  std::array<int64_t, 3> result{};
  for (size_t i = 0; i < 3; ++i)
    result[i] = std::clamp<int64_t>((m[i][0] * c[0] + m[i][1] * c[1] + m[i][2] * c[2] + 4095) / 8192, 0, maximum);
  return result;
}

constexpr int32_t kToRomm[3][3] = {{7151, 897, 145}, {394, 7067, 731}, {1067, 2841, 4284}};
constexpr int32_t kFromRomm[3][3] = {{9467, -1151, -125}, {-305, 10232, -1735}, {-2156, -6498, 16846}};

void ApplyRomm(Value& v, const int32_t (&matrix)[3][3]) {
  const auto c = Matrix(matrix, {v.blue, v.green, v.red}, v.deep ? 65535 : 255);
  v.blue = static_cast<uint32_t>(c[0]), v.green = static_cast<uint32_t>(c[1]), v.red = static_cast<uint32_t>(c[2]);
}

// Bits that hold gray, from the lowest on.
struct Range {
  int32_t low, bits;
};

Range RangeOf(const Format& format, bool used, const Case& c) {
  if (!used || format.bits <= 8) return {0, format.bits};
  const int32_t low = std::max(c.lowBit, 0), high = c.highBit < 0 ? format.bits - 1 : c.highBit;
  return {low, high - low + 1};
}

class Model {
 public:
  explicit Model(const Case& c) : case_(c) {
    source_ = PaletteOf(c.source, c.sourcePalette);
    destination_ = PaletteOf(c.destination, c.destinationPalette);
  }

  void Convert(uint8_t* destination, const uint8_t* source, int32_t width) const {
    if (IsCopy()) {
      std::memcpy(destination, source, LineBytes(width, case_.source.bits));
      return;
    }
    for (int32_t i = 0; i < width; ++i)
      PutPixelAt(destination, i, case_.destination.bits, Encode(Decode(PixelAt(source, i, case_.source.bits))));
  }

 private:
  static std::vector<RGBQUAD> PaletteOf(const Format& format, const std::vector<RGBQUAD>& given) {
    if (!format.HasPalette() || !given.empty()) return given;
    RGBQUAD* fixed = V_CreateFixedPalette(static_cast<uint32_t>(format.bits));
    std::vector<RGBQUAD> palette(fixed, fixed + (size_t{1} << format.bits));
    V_FreeBuffer(fixed);
    return palette;
  }

  // The same pixels on both sides; 16-bit colour lies alike in the orders Rgb and Bgr.
  bool IsCopy() const {
    const auto layout = [](const Format& f) { return f.bits == 16 && f.order == V_OrderBgr ? V_OrderRgb : f.order; };
    return case_.source.bits == case_.destination.bits && layout(case_.source) == layout(case_.destination) &&
           !case_.source.HasPalette() && case_.lowBit < 0 && case_.sourceTable.empty() &&
           case_.destinationTable.empty();
  }

  Value DecodeGray(uint64_t pixel) const {
    const Range range = RangeOf(case_.source, (case_.flags & V_ConvertSourceUseBits) != 0, case_);
    const auto value = static_cast<uint32_t>(pixel >> range.low & ((1u << range.bits) - 1));
    if (case_.source.bits == 16 && !case_.sourceTable.empty())
      return {.deep = true, .gray = true, .red = case_.sourceTable[std::min(value, 65534u)]};
    const bool deep = range.bits > 8;
    return {.deep = deep, .gray = true, .red = RepeatBits(value, range.bits, deep ? 16 : 8)};
  }

  Value Decode(uint64_t pixel) const {
    const Format& format = case_.source;
    if (format.IsGray()) return DecodeGray(pixel);
    if (format.HasPalette()) {
      const RGBQUAD& entry = source_[pixel];
      return {.red = entry.rgbRed, .green = entry.rgbGreen, .blue = entry.rgbBlue, .alpha = InitialAlpha()};
    }
    const auto field = [=](int32_t at, int32_t bits) {
      return static_cast<uint32_t>(pixel >> at & ((uint64_t{1} << bits) - 1));
    };
    if (format.bits == 16) {
      const int32_t green = format.order == V_OrderRgb565 ? 6 : 5;
      return {.red = RepeatBits(field(5 + green, 5), 5, 8),
              .green = RepeatBits(field(5, green), green, 8),
              .blue = RepeatBits(field(0, 5), 5, 8),
              .alpha = InitialAlpha()};
    }
    const bool deep = format.bits >= 48;
    const int32_t size = deep ? 16 : 8;
    Value v{.deep = deep, .red = field(2 * size, size), .green = field(size, size), .blue = field(0, size)};
    v.alpha = format.bits == 4 * size ? field(3 * size, size) : InitialAlpha() * (deep ? 257 : 1);
    if (format.order == V_OrderRgb) std::swap(v.red, v.blue);
    if (format.order == V_OrderRomm && case_.destination.order != V_OrderRomm) ApplyRomm(v, kFromRomm);
    return v;
  }

  uint32_t InitialAlpha() const { return (case_.flags & V_ConvertAlphaInit) != 0 ? case_.color >> 24 : 0; }

  static Value To8(Value v) {
    if (!v.deep) return v;
    return {.gray = v.gray, .red = v.red >> 8, .green = v.green >> 8, .blue = v.blue >> 8, .alpha = v.alpha >> 8};
  }
  static Value To16(const Value& v) {
    if (v.deep) return v;
    return {.deep = true,
            .gray = v.gray,
            .red = v.red * 257,
            .green = v.green * 257,
            .blue = v.blue * 257,
            .alpha = v.alpha * 257};
  }
  static uint32_t GrayOf(const Value& v) { return v.gray ? v.red : Luminance(v.red, v.green, v.blue); }

  uint64_t EncodeGray(const Value& v) const {
    const Range range = RangeOf(case_.destination, (case_.flags & V_ConvertDestinationUseBits) != 0, case_);
    uint32_t value = 0;
    if (range.bits > 8 && v.deep) {
      value = GrayOf(v) >> (16 - range.bits);
    } else if (range.bits > 8) {
      value = GrayOf(v) * ((1u << range.bits) - 1) / 255;
    } else {
      value = GrayOf(To8(v)) >> (8 - range.bits);
    }
    if (case_.destination.bits == 16 && !case_.destinationTable.empty())
      value = case_.destinationTable[std::min(value, 65534u)] & ((1u << range.bits) - 1);
    return value << range.low;
  }

  uint64_t Encode(Value v) const {
    const Format& format = case_.destination;
    if (format.IsGray()) return EncodeGray(v);
    if (v.gray) v.green = v.blue = v.red, v.alpha = InitialAlpha() * (v.deep ? 257 : 1);
    const bool deep = format.bits >= 48;
    v = deep ? To16(v) : To8(v);
    if (format.HasPalette()) return V_FindPaletteIndex(destination_.data(), 1u << format.bits, v.red, v.green, v.blue);
    if (format.bits == 16) {
      const uint32_t green = format.order == V_OrderRgb565 ? 6 : 5;
      return v.red / 8 << (5 + green) | v.green >> (8 - green) << 5 | v.blue / 8;
    }
    if (format.order == V_OrderRomm && case_.source.order != V_OrderRomm) ApplyRomm(v, kToRomm);
    if (format.order == V_OrderRgb) std::swap(v.red, v.blue);
    const int32_t size = deep ? 16 : 8;
    uint64_t pixel = v.blue | uint64_t{v.green} << size | uint64_t{v.red} << (2 * size);
    if (format.bits == 4 * size) pixel |= uint64_t{v.alpha} << (3 * size);
    return pixel;
  }

  const Case& case_;
  std::vector<RGBQUAD> source_, destination_;
};

// --- lines ---

// Noise, one value throughout, or values at the ends of their range.
std::vector<uint8_t> SourceLine(Random& random, size_t bytes) {
  std::vector<uint8_t> line = random.Bytes(bytes);
  const uint64_t kind = random.Below(4);
  if (kind == 0) std::fill(line.begin(), line.end(), static_cast<uint8_t>(random.Next()));
  if (kind == 1)
    for (uint8_t& byte : line) byte = std::array<uint8_t, 8>{0, 255, 1, 254, 127, 128, 0, 255}[byte % 8];
  return line;
}

class Conversion : public ::testing::Test {
 protected:
  ~Conversion() override { V_SetCpuLevel(start_); }

  static int32_t Call(uint8_t* line, int32_t width, const Case& c) {
    return V_ConvertBufferExt3(line, width, c.source.bits, c.destination.bits, c.source.order, c.destination.order,
                               DataOrNull(c.sourcePalette), DataOrNull(c.destinationPalette), DataOrNull(c.sourceTable),
                               DataOrNull(c.destinationTable), c.flags, c.lowBit, c.highBit, c.color);
  }

  // Converts a line in a buffer that is not a byte too long, at every level.
  void Check(const Case& c, int32_t width) {
    const size_t from = LineBytes(width, c.source.bits), to = LineBytes(width, c.destination.bits);
    const std::vector<uint8_t> source = SourceLine(random_, from);
    std::vector<uint8_t> want(to, 0);
    Model(c).Convert(want.data(), source.data(), width);
    for (int32_t level = 0; level <= 3 && V_SetCpuLevel(level) == level; ++level) {
      GuardedBytes line(std::max(from, to));
      std::copy(source.begin(), source.end(), line.data());
      ASSERT_EQ(Call(line.data(), width, c), 1) << c;
      const auto differ = std::mismatch(want.begin(), want.end(), line.data());
      ASSERT_TRUE(differ.first == want.end())
          << c << ", level " << level << ", width " << width << ": byte " << differ.first - want.begin() << " is "
          << int{*differ.second} << ", not " << int{*differ.first};
      ASSERT_TRUE(line.GuardsIntact()) << c << ", level " << level << ", width " << width;
    }
  }

  std::vector<RGBQUAD> RandomPalette(int32_t bits) {
    std::vector<RGBQUAD> palette(size_t{1} << bits);
    random_.Fill(palette.data(), palette.size() * sizeof(RGBQUAD));
    return palette;
  }

  std::vector<uint16_t> RandomTable() {
    std::vector<uint16_t> table(65535);
    random_.Fill(table.data(), 2 * table.size());
    return table;
  }

  // Widths around every size of block and strip, most of them small.
  int32_t Width() { return random_.Below(8) == 0 ? random_.Between(500, 1100) : random_.Between(1, 70); }

  Random random_{0xC0104};

 private:
  const int32_t start_ = V_GetCpuLevel();
};

template <typename Function>
void ForEachPair(Function function) {
  for (int32_t sourceBits : kDepths)
    for (int32_t sourceOrder : kOrders)
      for (int32_t bits : kDepths)
        for (int32_t order : kOrders)
          if (const Format source{sourceBits, sourceOrder}, destination{bits, order};
              source.IsValid() && destination.IsValid())
            function(Case{.source = source, .destination = destination});
}

TEST_F(Conversion, OfEveryPairOfFormatsIsThatOfTheModel) {
  ForEachPair([&](Case c) {
    for (int32_t round = 0; round < 6; ++round) {
      if (round % 2 != 0) c.flags = V_ConvertAlphaInit, c.color = static_cast<uint32_t>(random_.Next());
      if (c.source.HasPalette() && random_.Coin()) c.sourcePalette = RandomPalette(c.source.bits);
      if (c.destination.HasPalette() && random_.Below(4) == 0) c.destinationPalette = RandomPalette(c.destination.bits);
      ASSERT_NO_FATAL_FAILURE(Check(c, Width()));
    }
  });
}

// Where most people's pictures go, at every width that a block or a tail of one could have.
TEST_F(Conversion, WritesNoByteTooManyAtAnyWidth) {
  ForEachPair([&](const Case& c) {
    if (c.source.order == V_OrderRomm || c.destination.order == V_OrderRomm) return;
    if (c.destination.HasPalette() && !(c.source.IsGray() && c.destination.bits == 1)) return;
    for (int32_t width = 1; width <= 70; ++width) ASSERT_NO_FATAL_FAILURE(Check(c, width));
  });
}

TEST_F(Conversion, TakesGrayFromAndToARangeOfBits) {
  ForEachPair([&](Case c) {
    for (const uint32_t flag : {V_ConvertSourceUseBits, V_ConvertDestinationUseBits}) {
      const Format& ranged = flag == V_ConvertSourceUseBits ? c.source : c.destination;
      if (!ranged.IsGray()) continue;
      c.flags = flag;
      for (int32_t bits = 1; bits <= ranged.bits; ++bits) {
        c.lowBit = random_.Between(0, ranged.bits - bits);
        c.highBit = c.lowBit + bits - 1;
        if (bits == ranged.bits) c.lowBit = -1, c.highBit = -1;
        ASSERT_NO_FATAL_FAILURE(Check(c, Width()));
      }
    }
  });
}

TEST_F(Conversion, SendsSixteenBitGrayThroughItsTables) {
  const std::vector<uint16_t> table = RandomTable(), other = RandomTable();
  ForEachPair([&](Case c) {
    if (!c.source.IsGray() && !c.destination.IsGray()) return;
    c.sourceTable = table;
    c.destinationTable = other;
    ASSERT_NO_FATAL_FAILURE(Check(c, Width()));
    c.flags = c.destination.IsGray() ? V_ConvertDestinationUseBits : V_ConvertSourceUseBits;
    const Format& ranged = c.destination.IsGray() ? c.destination : c.source;
    c.lowBit = random_.Between(0, ranged.bits - 1);
    c.highBit = random_.Between(c.lowBit, ranged.bits - 1);
    ASSERT_NO_FATAL_FAILURE(Check(c, Width()));
    c.destinationTable.clear();
    ASSERT_NO_FATAL_FAILURE(Check(c, Width()));
  });
}

// Two colours in either order, and a palette in which equally near entries abound.
TEST_F(Conversion, FindsTheNearestEntryOfAwkwardPalettes) {
  const RGBQUAD black{0, 0, 0, 7}, white{255, 255, 255, 9};
  for (int32_t bits : {8, 12, 16, 24, 32, 48})
    for (int32_t order : {V_OrderBgr, V_OrderGray})
      if (Case c{.source = {bits, order}, .destination = {1, V_OrderRgb}}; c.source.IsValid())
        for (const auto& palette :
             {std::vector{black, white}, {white, black}, {white, white}, {black, {128, 128, 128, 0}}}) {
          c.destinationPalette = palette;
          ASSERT_NO_FATAL_FAILURE(Check(c, 700));
        }
  Case fixed{.source = {24, V_OrderBgr}, .destination = {8, V_OrderRgb}};
  std::vector<uint8_t> halfway = {0, 18, 36, 91, 109, 164, 182, 237, 255, 42, 43, 127, 128};
  const auto colors = static_cast<int32_t>(halfway.size() * halfway.size() * halfway.size());
  std::vector<uint8_t> line, want(static_cast<size_t>(colors));
  for (uint8_t r : halfway)
    for (uint8_t g : halfway)
      for (uint8_t b : halfway) line.insert(line.end(), {b, g, r});
  Model(fixed).Convert(want.data(), line.data(), colors);
  ASSERT_EQ(Call(line.data(), colors, fixed), 1);
  line.resize(want.size());
  for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(line[i], want[i]) << "colour " << i;
}

// --- checks and known values ---

TEST(Convert, KnownValues) {
  const auto gray = [](uint8_t r, uint8_t g, uint8_t b) {
    uint8_t pixel[4] = {b, g, r};
    EXPECT_EQ(V_ConvertBuffer(pixel, 1, 24, 8, V_OrderBgr, V_OrderGray, nullptr, nullptr), 1);
    return int{pixel[0]};
  };
  EXPECT_EQ(gray(255, 0, 0), 64);
  EXPECT_EQ(gray(0, 255, 0), 159);
  EXPECT_EQ(gray(255, 255, 255), 255);
  EXPECT_EQ(V_CalcConvertSize(10, 1, 10, 24), 32u);
  EXPECT_EQ(V_CalcConvertSize(100, 0, 10, 8), 100u);
  EXPECT_EQ(V_CalcConvertSize(10, 64, 100, 8), 800u) << "the destination's width at the source's depth counts";
  EXPECT_EQ(V_CalcConvertSize(0x7FFFFFFF, 64, 1, 1), 0x7FFFFFFFu * uint64_t{8} + 0);
  uint8_t pixel[8] = {1, 2, 3};
  EXPECT_EQ(V_ConvertBufferExt(pixel, 1, 24, 32, V_OrderRgb, V_OrderBgr, nullptr, nullptr, V_ConvertAlphaInit, -1, -1),
            1);
  EXPECT_EQ(pixel[0] << 24 | pixel[1] << 16 | pixel[2] << 8 | pixel[3], 0x030201FF)
      << "opaque where no colour is given";
}

TEST(Convert, RefusesWhatContradictsItself) {
  uint8_t line[64] = {};
  const auto convert = [&](Format from, Format to, uint32_t flags = 0, int32_t low = -1, int32_t high = -1) {
    return V_ConvertBufferExt(line, 4, from.bits, to.bits, from.order, to.order, nullptr, nullptr, flags, low, high);
  };
  constexpr Format kBgr24{24, V_OrderBgr}, kGray16{16, V_OrderGray}, kGray12{12, V_OrderGray};
  EXPECT_EQ(V_ConvertBuffer(nullptr, 4, 24, 8, V_OrderBgr, V_OrderRgb, nullptr, nullptr), -13);
  EXPECT_EQ(V_ConvertBuffer(line, 0, 24, 8, V_OrderBgr, V_OrderRgb, nullptr, nullptr), -13);
  EXPECT_EQ(V_ConvertBuffer(line, -1, 24, 8, V_OrderBgr, V_OrderRgb, nullptr, nullptr), -13);
  for (int32_t bits : {-8, 9, 10, 11, 13, 15, 20, 40, 65, 128}) {
    EXPECT_EQ(convert({bits, V_OrderBgr}, kBgr24), -13) << bits;
    EXPECT_EQ(convert(kBgr24, {bits, V_OrderBgr}), -13) << bits;
  }
  EXPECT_EQ(convert(kBgr24, {0, V_OrderBgr}), -13);
  for (int32_t bits : kDepths)
    for (int32_t order = -1; order <= 9; ++order) {
      const Format format{bits, order};
      const bool known = std::find(std::begin(kOrders), std::end(kOrders), order) != std::end(kOrders);
      const int32_t refused = order == V_OrderRomm && bits != 12 ? -16 : -13;
      EXPECT_EQ(convert(format, kBgr24), known && format.IsValid() ? 1 : -13) << bits << " bits, order " << order;
      EXPECT_EQ(convert(kBgr24, format), known && format.IsValid() ? 1 : refused) << bits << " bits, order " << order;
    }
  EXPECT_EQ(convert({12, V_OrderBgr}, {8, V_OrderRomm}), -13) << "the source is looked at first";

  EXPECT_EQ(convert(kGray16, kGray12, V_ConvertSourceUseBits | V_ConvertDestinationUseBits, 0, 7), -13);
  EXPECT_EQ(convert(kBgr24, kGray12, V_ConvertSourceUseBits | V_ConvertDestinationUseBits, 0, 7), 1)
      << "a source that is not gray has no bits to use";
  EXPECT_EQ(convert(kGray16, kBgr24, V_ConvertDestinationUseBits, 0, 15), -13);
  EXPECT_EQ(convert(kGray16, kBgr24, V_ConvertSourceUseBits, 8, 7), -13);
  EXPECT_EQ(convert(kGray16, kBgr24, V_ConvertSourceUseBits, 8, 16), -13);
  EXPECT_EQ(convert(kBgr24, kGray12, V_ConvertDestinationUseBits, 4, 12), -13);
}

TEST(Convert, OfNothingChangesNothing) {
  uint8_t line[8] = {1, 2, 3, 4, 5, 6, 7, 8}, same[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(V_ConvertBuffer(line, 2, 0, 24, V_OrderBgr, V_OrderBgr, nullptr, nullptr), 1);
  EXPECT_EQ(V_ConvertBuffer(line, 2, 0, 24, V_OrderBgr, V_OrderRomm, nullptr, nullptr), 1);
  EXPECT_EQ(V_ConvertBuffer(line, 2, 0, 32, V_OrderBgr, V_OrderRomm, nullptr, nullptr), -16);
  EXPECT_EQ(std::memcmp(line, same, sizeof line), 0);
}

TEST(Convert, PadsAllThatFollowsTheLastPixel) {
  for (int32_t bits : kDepths)
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
