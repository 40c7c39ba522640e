// Indices without diffusion, in lines long enough for whole blocks of the vector levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/cpu.h"
#include "krn/dither.h"
#include "krn/palettes.h"
#include "support/guarded.h"
#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

using Bytes = std::vector<uint8_t>;

struct Target {
  const RGBQUAD* palette;
  uint32_t colors, bits;
};

struct Case {
  int32_t sourceBits, order, method;
  const RGBQUAD* sourcePalette;
  Target target;
};

// The lines of a picture, as the columns from `first` on alone; `bytes` of a line's indices.
void DitherColumns(const Case& c, const Bytes& picture, int32_t width, int32_t first, int32_t columns, int32_t lines,
                   uint8_t* out, size_t pitch) {
  const vexakrn::DitherRequest request = {columns,  c.sourceBits,     c.order,         c.sourcePalette, 256,    -1, -1,
                                          c.method, c.target.palette, c.target.colors, c.target.bits,   nullptr};
  vexakrn::DitherContext* pass = nullptr;
  ASSERT_EQ(vexakrn::StartPass(request, &pass), 1);
  const auto pixelBytes = static_cast<size_t>(c.sourceBits) / 8, sourcePitch = static_cast<size_t>(width) * pixelBytes;
  const uint8_t* from = picture.data() + static_cast<size_t>(first) * pixelBytes;
  vexakrn::DitherNextLines(*pass, from, sourcePitch, out, pitch, lines);
  vexakrn::StopPass(pass);
}

// Without diffusion a pixel knows nothing of its neighbours: a line is what its pieces of eight pixels are.
TEST(DitherMap, LongLinesAreMadeOfTheirPieces) {
  Random random(0x3A9);
  std::vector<RGBQUAD> any(256), grays(256);
  random.Fill(any.data(), any.size() * sizeof(RGBQUAD));
  for (size_t i = 0; i < 256; ++i) {
    any[i].rgbReserved = 0;
    grays[i].rgbRed = grays[i].rgbGreen = grays[i].rgbBlue = static_cast<uint8_t>(i);
  }
  std::vector<Target> targets = {{vexakrn::CubePalette(), 216, 8}, {any.data(), 256, 8}, {any.data(), 30, 5}};
  targets.push_back({grays.data() + 3, 100, 7});
  for (uint32_t bits = 1; bits <= 8; ++bits) targets.push_back({nullptr, 1u << bits, bits});
  const int32_t start = static_cast<int32_t>(vexakrn::ActiveCpuLevel());
  for (const auto& [sourceBits, order] :
       {std::pair{8, 0}, {24, int{V_OrderBgr}}, {24, int{V_OrderRgb}}, {32, int{V_OrderBgr}}})
    for (const Target& target : targets)
      for (const int32_t method : {V_DitheringNone, V_DitheringOrdered, V_DitheringClustered}) {
        const Case c = {sourceBits, order, method, grays.data(), target};
        const int32_t width = random.Coin() ? random.Between(56, 200) : random.Between(500, 1200), lines = 9;
        const Bytes picture = random.Bytes(static_cast<size_t>(width * lines * sourceBits / 8));
        const size_t lineBytes = (static_cast<size_t>(width) * target.bits + 7) / 8;
        Bytes want(lineBytes * static_cast<size_t>(lines));
        for (int32_t x = 0; x < width; x += 8)
          DitherColumns(c, picture, width, x, std::min(width - x, 8), lines,
                        want.data() + static_cast<size_t>(x) / 8 * target.bits, lineBytes);
        for (int32_t level = 0; level <= 3 && static_cast<int32_t>(vexakrn::SetCpuLevel(level)) == level; ++level) {
          GuardedBytes got(want.size(), 0xEE);
          DitherColumns(c, picture, width, 0, width, lines, got.data(), lineBytes);
          EXPECT_TRUE(got.GuardsIntact() && std::equal(want.begin(), want.end(), got.data()))
              << "level " << level << ", " << sourceBits << " bits, order " << order << ", to " << target.colors
              << " at " << target.bits << " bits, method " << method << ", width " << width;
        }
        vexakrn::SetCpuLevel(start);
        if (HasFailure()) return;
      }
}

}  // namespace
}  // namespace vexatest
