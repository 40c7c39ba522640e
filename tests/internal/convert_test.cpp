// Conversions that are planned once for many lines: from a source that is apart, at every processor level, and without
// memory. In-place conversion, which other tests compare with a model, is the oracle.
#include "krn/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "common/cpu.h"
#include "fault_walk.h"
#include "krn/palettes.h"
#include "support/guarded.h"
#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

using vexakrn::ConversionRequest;
using vexakrn::LineConversion;
using vexakrn::LineFormat;

constexpr LineFormat kFormats[] = {
    {1, V_OrderRgb, nullptr, nullptr},   {4, V_OrderRgb, nullptr, nullptr},  {7, V_OrderRgb, nullptr, nullptr},
    {8, V_OrderRgb, nullptr, nullptr},   {8, V_OrderGray, nullptr, nullptr}, {12, V_OrderGray, nullptr, nullptr},
    {16, V_OrderGray, nullptr, nullptr}, {16, V_OrderBgr, nullptr, nullptr}, {16, V_OrderRgb565, nullptr, nullptr},
    {24, V_OrderBgr, nullptr, nullptr},  {24, V_OrderRgb, nullptr, nullptr}, {24, V_OrderRomm, nullptr, nullptr},
    {32, V_OrderBgr, nullptr, nullptr},  {32, V_OrderRgb, nullptr, nullptr}, {48, V_OrderBgr, nullptr, nullptr},
    {48, V_OrderRomm, nullptr, nullptr}, {64, V_OrderRgb, nullptr, nullptr},
};

size_t LineBytes(int32_t width, int32_t bits) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bits) + 7) / 8;
}

std::vector<uint8_t> InPlace(const std::vector<uint8_t>& source, int32_t width, const ConversionRequest& r) {
  std::vector<uint8_t> line = source;
  line.resize(std::max(source.size(), LineBytes(width, r.destination.bits)));
  EXPECT_EQ(
      V_ConvertBufferExt3(line.data(), width, r.source.bits, r.destination.bits, r.source.order, r.destination.order,
                          nullptr, nullptr, nullptr, nullptr, r.flags, r.lowBit, r.highBit, r.color),
      1);
  line.resize(LineBytes(width, r.destination.bits));
  return line;
}

TEST(LineConversions, FromApartAreThoseInPlaceLineAfterLine) {
  const auto start = static_cast<int32_t>(vexakrn::ActiveCpuLevel());
  Random random(0xA9A27);
  for (int32_t level = 0; level <= 3 && static_cast<int32_t>(vexakrn::SetCpuLevel(level)) == level; ++level)
    for (const LineFormat& from : kFormats)
      for (const LineFormat& to : kFormats) {
        const ConversionRequest request = {from, to, V_ConvertAlphaInit, -1, -1, 0x7B000000};
        LineConversion conversion;
        ASSERT_EQ(conversion.Prepare(request), 1);
        for (const int32_t width : {1, random.Between(2, 31), random.Between(32, 130), 513, 1024}) {
          const std::vector<uint8_t> source = random.Bytes(LineBytes(width, from.bits));
          GuardedBytes in(source.size()), out(LineBytes(width, to.bits));
          std::copy(source.begin(), source.end(), in.data());
          ASSERT_EQ(conversion.Run(out.data(), in.data(), width), 1);
          ASSERT_TRUE(out == InPlace(source, width, request) && out.GuardsIntact() && in == source)
              << from.bits << " bits of order " << from.order << " to " << to.bits << " of " << to.order << ", level "
              << level << ", width " << width;
        }
      }
  vexakrn::SetCpuLevel(start);
}

// Reds at the middle between two levels, next to it and at the ends, with all greens and blues.
TEST(LineConversions, KnowTheFixedPaletteWithoutSearching) {
  const RGBQUAD* palette = vexakrn::FixedPalette(8);
  const vexakrn::PaletteSearch search(palette, 256);
  LineConversion conversion;
  ASSERT_EQ(conversion.Prepare({{24, V_OrderBgr, nullptr, nullptr}, {8, V_OrderBgr, palette, nullptr}, 0, -1, -1, 0}),
            1);
  std::vector<uint8_t> line(size_t{3} * 256), got(256);
  for (uint32_t r : {0u, 17u, 18u, 19u, 91u, 128u, 164u, 237u, 255u})
    for (uint32_t g = 0; g < 256; ++g) {
      for (size_t b = 0; b < 256; ++b) {
        line[3 * b] = static_cast<uint8_t>(b);
        line[3 * b + 1] = static_cast<uint8_t>(g);
        line[3 * b + 2] = static_cast<uint8_t>(r);
      }
      ASSERT_EQ(conversion.Run(got.data(), line.data(), 256), 1);
      for (uint32_t b = 0; b < 256; ++b) ASSERT_EQ(got[b], search.Find(r, g, b)) << r << ", " << g << ", " << b;
    }
}

TEST(LineConversions, RefuseLinesThatWereNotPrepared) {
  LineConversion conversion;
  uint8_t line[8] = {};
  EXPECT_EQ(conversion.Run(line, line, 1), -13);
  EXPECT_EQ(conversion.Prepare({{9, V_OrderBgr, nullptr, nullptr}, {8, V_OrderBgr, nullptr, nullptr}, 0, -1, -1, 0}),
            -13);
  EXPECT_EQ(conversion.Run(line, line, 1), -13);
}

TEST_F(FaultWalk, Conversions) {
  const auto make = [] {
    auto conversion = std::make_shared<LineConversion>();
    return Trial{conversion, [=]() -> int64_t {
                   return conversion->Prepare(
                       {{24, V_OrderBgr, nullptr, nullptr}, {4, V_OrderRgb, nullptr, nullptr}, 0, -1, -1, 0});
                 }};
  };
  EXPECT_EQ(Walk("a prepared conversion to a palette", make), 4u);  // two allocations, failed alone and onwards
  const auto makeBuffer = [] {
    auto line = std::make_shared<std::vector<uint8_t>>(size_t{300});
    return Trial{line, [=]() -> int64_t {
                   return V_ConvertBuffer(line->data(), 100, 24, 8, V_OrderBgr, V_OrderBgr, nullptr, nullptr);
                 }};
  };
  EXPECT_EQ(Walk("a buffer to a palette", makeBuffer), 2u);
}

}  // namespace
}  // namespace vexatest
