// Dithering of many lines at once: bands of lines for the kernels that diffuse them side by side.
#include <algorithm>
#include <cstring>

#include "common/status.h"
#include "krn/ditherpass.h"

namespace vexakrn {
namespace {

constexpr uint64_t kLine = 64;  // a cache line

// Bytes from one row of a band to the next: not a multiple of the sizes after which addresses share a place in the caches.
uint64_t BandStride(const DitherContext& pass) noexcept {
  const uint64_t lines = RoundUp(static_cast<uint64_t>(pass.width) + 2 * kDitherMargin, kLine) / kLine;
  return (lines | 1) * kLine;
}

int32_t LanesOf(const DitherContext& pass) noexcept {
  const DitherKernels& kernels = ActiveDitherKernels();
  return pass.components == 1 ? kernels.grayLanes : kernels.colorLanes;
}

bool HasBands(const DitherContext& pass) noexcept {
  return pass.diffuse && ActiveDitherKernels().diffuse && (pass.whole || HasTable(pass.paletteClass));
}

// Planes and indices of the band's rows, and the scratch memory; false where that would be too much.
bool MakeBand(DitherContext& pass) noexcept {
  constexpr uint64_t kMostBytes = 64u << 20;
  if (pass.band) return true;
  const uint64_t rows = static_cast<uint64_t>(pass.components + 1) * kDitherMaxLanes;
  if (BandStride(pass) > kMostBytes / rows) return false;
  pass.band.Reset(AllocateZeroed<uint8_t>(rows * BandStride(pass) + kDitherScratch + kLine));
  return static_cast<bool>(pass.band);
}

// A band's rows; the first byte is pixel 0 of row 0 of plane 0.
DitherBand BandOf(DitherContext& pass, int32_t lanes) noexcept {
  const uint64_t stride = BandStride(pass);
  uint8_t* const block = pass.band.data();
  uint8_t* const aligned = block + (kLine - reinterpret_cast<uintptr_t>(block) % kLine) % kLine;
  uint8_t* plane = aligned + kDitherScratch + kDitherMargin;
  DitherBand band = {};
  band.choice = &pass.choice;
  band.method = pass.method;
  band.width = pass.width;
  band.lanes = lanes;
  band.stride = static_cast<ptrdiff_t>(stride);
  band.scratch = aligned;
  for (int32_t c = 0; c < pass.components; ++c, plane += static_cast<uint64_t>(lanes) * stride) {
    band.planes[c] = plane;
    for (int32_t row = 0; row < kDiffusion[pass.method].rows; ++row) band.sums[c][row] = SumsOf(pass, c, row);
  }
  band.indices = plane;
  return band;
}

}  // namespace

void DitherNextLines(DitherContext& pass, const uint8_t* source, uint64_t sourcePitch, uint8_t* destination,
                     uint64_t destinationPitch, int32_t count) noexcept {
  const int32_t lanes = LanesOf(pass);
  const int32_t least = lanes / 8;  // fewer lines are faster one by one
  if (!HasBands(pass) || count < least || !MakeBand(pass)) {
    for (; count > 0; --count, source += sourcePitch, destination += destinationPitch)
      DitherNextLine(pass, source, destination);
    return;
  }
  DitherBand band = BandOf(pass, lanes);
  while (count > 0) {
    band.rows = std::min(count, lanes);
    const auto first = static_cast<uint64_t>(lanes - band.rows) * BandStride(pass);
    uint64_t at = first;
    for (int32_t row = 0; row < band.rows; ++row, source += sourcePitch, at += BandStride(pass)) {
      uint8_t* planes[3] = {};
      for (int32_t c = 0; c < pass.components; ++c) planes[c] = const_cast<uint8_t*>(band.planes[c]) + at;
      ExpandLine(pass.source, source, pass.width, planes, pass.components);
    }
    ActiveDitherKernels().diffuse(band);
    const uint8_t* indices = band.indices + first;
    for (int32_t row = 0; row < band.rows; ++row, indices += BandStride(pass), destination += destinationPitch) {
      if (pass.destinationBits == 8) {
        std::memcpy(destination, indices, static_cast<size_t>(pass.width));
      } else {
        ActiveDitherKernels().pack(indices, pass.width, pass.destinationBits, destination);
      }
    }
    count -= band.rows;
  }
}

}  // namespace vexakrn
