// Dithering passes: opening, lines, closing.
#include "krn/dither.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/cpu.h"
#include "common/record.h"
#include "krn/ditherpass.h"

namespace vexakrn {
namespace {

constexpr uint64_t kContextAlignment = 64;

constexpr uint8_t kOrderedMatrix[8][8] = {
    {0, 128, 32, 160, 8, 136, 40, 168},   {192, 64, 224, 96, 200, 72, 232, 104},
    {48, 176, 16, 144, 56, 184, 24, 152}, {236, 112, 208, 80, 244, 120, 216, 88},
    {12, 140, 44, 172, 4, 132, 36, 164},  {204, 76, 232, 108, 196, 68, 228, 100},
    {60, 188, 28, 156, 52, 180, 20, 148}, {248, 124, 220, 92, 240, 116, 212, 84},
};
constexpr uint8_t kClusteredMatrix[8][8] = {
    {112, 40, 72, 104, 144, 176, 208, 136}, {88, 8, 16, 48, 192, 232, 240, 168},
    {56, 24, 0, 80, 160, 224, 248, 200},    {96, 64, 32, 120, 128, 216, 184, 152},
    {148, 180, 212, 140, 116, 44, 76, 108}, {196, 236, 244, 172, 92, 12, 20, 52},
    {164, 228, 252, 204, 60, 28, 4, 84},    {132, 220, 188, 156, 100, 68, 36, 124},
};

// --- opening ---

// The bits of the fixed palette that is the smallest to hold so many colours; at least 1.
uint32_t BitsFor(uint32_t colors) noexcept {
  uint32_t bits = 1;
  while (1u << bits < colors) ++bits;
  return bits;
}

// Recognises the fixed palettes, also by their first colours alone; no palette is the fixed one.
PaletteClass Classify(const RGBQUAD* palette, uint32_t colors) noexcept {
  const uint32_t bits = BitsFor(colors);
  const auto equals = [&](const RGBQUAD* fixed) {
    return !palette || std::memcmp(palette, fixed, colors * sizeof(RGBQUAD)) == 0;
  };
  if (equals(FixedPalette(bits)))
    return static_cast<PaletteClass>(static_cast<uint32_t>(PaletteClass::Fixed2) + bits - 1);
  return bits == 8 && equals(CubePalette()) ? PaletteClass::Cube : PaletteClass::OwnTable;
}

// How the classes choose their indices.
DitherChoice ChoiceOf(PaletteClass paletteClass, bool gray) noexcept {
  switch (paletteClass) {
    case PaletteClass::Fixed2:
      return {gray ? DitherRule::GrayLevels : DitherRule::Luminance, {{1, 7}, {1, 7}, {1, 7}}, 0, {}};
    case PaletteClass::Fixed4:
      return {gray ? DitherRule::GrayLevels : DitherRule::Luminance, {{2, 6}, {2, 6}, {2, 6}}, 0, {}};
    case PaletteClass::Fixed8:
      return {DitherRule::Levels, {{1, 5}, {1, 6}, {1, 7}}, 0, {}};
    case PaletteClass::
        Fixed16:  // black and the bright colours, which are the last eight: blue, green, red from the top
      return {DitherRule::Levels, {{1, 7}, {1, 6}, {1, 5}}, 8, {}};
    case PaletteClass::Fixed32:
      return {DitherRule::Levels, {{2, 3}, {2, 5}, {1, 7}}, 0, {}};
    case PaletteClass::Fixed64:
      return {DitherRule::Levels, {{2, 2}, {2, 4}, {2, 6}}, 0, {}};
    case PaletteClass::Fixed128:
      return {DitherRule::Levels, {{2, 1}, {3, 3}, {2, 6}}, 0, {}};
    case PaletteClass::Fixed256:
      return {DitherRule::Levels, {{3, 0}, {3, 3}, {2, 6}}, 0, {}};
    case PaletteClass::Cube:
      return {DitherRule::Cube, {}, 0, {}};
    default:
      return {gray ? DitherRule::GrayMatches : DitherRule::Matches, {}, 0, {}};
  }
}

// The candidates, their search, and the empty table: entries with colours where errors are diffused, else indices.
int32_t SetMatches(DitherContext& pass, bool diffuses) noexcept {
  if (diffuses) {
    pass.matches.Reset(AllocateArray<uint32_t>(kMatchEntries));
  } else {
    pass.matchIndices.Reset(AllocateZeroed<uint16_t>(kMatchEntries));
  }
  if (!pass.matches && !pass.matchIndices) return kNoMemory;
  RGBQUAD candidates[kMaxColors];
  for (uint32_t i = 0; i < pass.colors; ++i) {
    if (IsBarred(pass.palette[i])) continue;
    candidates[pass.candidateCount] = pass.palette[i];
    pass.candidates[pass.candidateCount++] = static_cast<uint8_t>(i);
  }
  if (pass.candidateCount == 0) return kInvalidParameter;
  pass.search.Set(candidates, pass.candidateCount);
  // No entry has index 0 with another colour than the palette has there.
  const uint32_t empty = PaletteBits(pass.palette[0]) ^ 1;
  if (pass.matches) std::fill_n(pass.matches.data(), kMatchEntries, empty);
  pass.choice.matches = {pass.matches.data(), pass.matchIndices.data(), empty, &pass, FindMatch};
  return kSuccess;
}

// Whether one component stands for all three.
bool StaysGray(const DitherContext& pass) noexcept {
  if (!pass.source.gray) return false;
  if (!HasTable(pass.paletteClass))
    return pass.paletteClass == PaletteClass::Fixed2 || pass.paletteClass == PaletteClass::Fixed4;
  return std::all_of(pass.palette, pass.palette + pass.colors,
                     [](const RGBQUAD& entry) { return IsBarred(entry) || IsGray(entry); });
}

// Bytes from one plane of a line to the next.
uint64_t PlaneBytes(const DitherContext& pass) noexcept { return RoundUp(static_cast<uint64_t>(pass.width), 64); }

int32_t Open(DitherContext& pass, const DitherRequest& request) noexcept {
  if (!IsSupportedDepth(request.sourceBits) || request.colors == 0 || request.colors > kMaxColors ||
      request.width < 0 || request.destinationBits < 1 || request.destinationBits > 8)
    return kInvalidParameter;
  pass.width = request.width;
  pass.colors = request.colors;
  pass.destinationBits = request.destinationBits;
  pass.userMatches = request.userMatchTable;
  pass.paletteClass = pass.userMatches ? PaletteClass::UserTable : Classify(request.palette, request.colors);
  const RGBQUAD* palette = request.palette ? request.palette : FixedPalette(BitsFor(request.colors));
  std::memcpy(pass.palette, palette, request.colors * sizeof(RGBQUAD));
  SetSource(pass.source, request);
  const bool gray = StaysGray(pass);
  pass.components = gray ? 1 : 3;
  pass.choice = ChoiceOf(pass.paletteClass, gray);
  const bool diffuses = request.method >= V_DitheringFloydStein && request.method <= V_DitheringJarvis;
  if (HasTable(pass.paletteClass)) V_TRY(SetMatches(pass, diffuses));
  pass.whole = pass.paletteClass == PaletteClass::Cube ? pass.colors >= 216 : pass.colors == 1u << BitsFor(pass.colors);

  if (request.method < V_DitheringNone || request.method > V_DitheringClustered) return kInvalidParameter;
  pass.method = request.method;
  const auto rows = static_cast<uint64_t>(pass.components) * static_cast<uint64_t>(kDiffusion[pass.method].rows);
  if (rows != 0) {
    pass.sums.Reset(AllocateZeroed<int32_t>(rows * (static_cast<uint64_t>(pass.width) + 2 * kDitherMargin)));
    if (!pass.sums) return kNoMemory;
    const uint64_t errors = static_cast<uint64_t>(pass.width) + 2 * kErrorMargin;
    pass.errors.Reset(AllocateZeroed<int16_t>(static_cast<uint64_t>(pass.components) * errors));
    if (!pass.errors) return kNoMemory;
  }
  pass.planes.Reset(AllocateArray<uint8_t>(4 * PlaneBytes(pass) + 64));
  if (!pass.planes) return kNoMemory;
  return SetDiffusion(pass);
}

// --- lines ---

// The matrix row of an ordered pattern; null without one.
const uint8_t* ThresholdsOf(const DitherContext& pass) noexcept {
  if (pass.method != V_DitheringOrdered && pass.method != V_DitheringClustered) return nullptr;
  const uint32_t row = pass.line % 8;
  return pass.method == V_DitheringOrdered ? kOrderedMatrix[row] : kClusteredMatrix[row];
}

// Whether the mapping without diffusion takes the pixels as they are stored.
bool MapsPixels(const DitherContext& pass) noexcept {
  const DitherSource& source = pass.source;
  return !pass.diffuse && (source.bits == 24 || source.bits == 32) && !IsRomm(source);
}

void MapLine(const DitherContext& pass, const uint8_t* const planes[3], uint8_t* indices) noexcept {
  const int32_t pixelBytes = MapsPixels(pass) ? pass.source.bits / 8 : 0;
  DitherMap map = {
      &pass.choice,       pass.width, {planes[0], planes[1], planes[2]}, pixelBytes, pass.source.order == V_OrderRgb,
      ThresholdsOf(pass), nullptr};
  int16_t offsets[8];
  if (map.thresholds) {
    map.offsets = offsets;
    const int32_t divisor = pass.paletteClass == PaletteClass::Cube ? 6 : static_cast<int32_t>(pass.destinationBits);
    for (int32_t i = 0; i < 8; ++i) offsets[i] = static_cast<int16_t>(map.thresholds[i] / divisor - 128 / divisor);
  }
  ActiveDitherKernels().map(map, indices);
}

// Gray to black and white in one step. False where that is not what the pass does.
bool MapLineToBits(const DitherContext& pass, const uint8_t* gray, uint8_t* destination) noexcept {
  const auto mapBits = ActiveDitherKernels().mapBits;
  const bool toBits = pass.choice.rule == DitherRule::GrayLevels && pass.choice.levels[0].bits == 1;
  if (!mapBits || pass.diffuse || !toBits || pass.destinationBits != 1) return false;
  const uint8_t* const thresholds = ThresholdsOf(pass);
  uint8_t least[8];  // v - v / 2 + (m + 2) / 2 is 128 or more
  for (int32_t i = 0; i < 8; ++i) least[i] = static_cast<uint8_t>(thresholds ? 255 - (thresholds[i] + 2) / 2 * 2 : 128);
  mapBits(gray, pass.width, least, destination);
  return true;
}

}  // namespace

const DitherKernels& ActiveDitherKernels() noexcept {
  switch (ActiveCpuLevel()) {
    case CpuLevel::Avx512:
      return kDitherKernelsAvx512;
    case CpuLevel::Avx2:
      return kDitherKernelsAvx2;
    default:
      return kDitherKernelsScalar;
  }
}

uint32_t FindMatch(void* pass, uint32_t key) noexcept {
  DitherContext& context = *static_cast<DitherContext*>(pass);
  // A caller's table may have been filled for another palette: what is no candidate of this one is found anew.
  uint32_t candidate = context.userMatches ? context.userMatches[key] - 1 : UINT32_MAX;
  if (candidate >= context.candidateCount) {
    candidate = context.search.Find((key >> 10) << 3, (key >> 5 & 31) << 3, (key & 31) << 3);
    if (context.userMatches) context.userMatches[key] = candidate + 1;
  }
  const uint32_t index = context.candidates[candidate];
  if (context.matchIndices) context.matchIndices[key] = static_cast<uint16_t>(kFoundIndex | index);
  const uint32_t entry = index << 24 | PaletteBits(context.palette[index]);
  if (context.matches) context.matches[key] = entry;
  return entry;
}

int32_t StartPass(const DitherRequest& request, DitherContext** pass) noexcept {
  auto* block = AllocateZeroed<uint8_t>(sizeof(DitherContext) + kContextAlignment);
  if (!block) return kNoMemory;
  const uint64_t skipped = kContextAlignment - reinterpret_cast<uintptr_t>(block) % kContextAlignment;
  auto* context = new (block + skipped) DitherContext();
  context->block = block;
  if (const int32_t status = Open(*context, request); status != kSuccess) {
    StopPass(context);
    return status;
  }
  *pass = context;
  return kSuccess;
}

void StopPass(DitherContext* pass) noexcept {
  if (!pass) return;
  void* const block = pass->block;
  pass->~DitherContext();
  platform::Free(block);
}

void DitherNextLine(DitherContext& pass, const uint8_t* source, uint8_t* destination) noexcept {
  uint8_t* const first = pass.planes.data();
  const uint64_t bytes = PlaneBytes(pass);
  uint8_t* const indices = pass.destinationBits == 8 ? destination : first + 3 * bytes;
  const uint8_t* planes[3] = {source, source, source};  // gray as it is
  const bool asItIs = MapsPixels(pass) || (pass.source.identity && pass.components == 1);
  if (!asItIs) {
    uint8_t* const expanded[3] = {first, first + bytes, first + 2 * bytes};
    ExpandLine(pass.source, source, pass.width, expanded, pass.components);
    std::copy_n(expanded, 3, planes);
  }
  if (!MapLineToBits(pass, planes[0], destination)) {
    if (pass.diffuse) {
      pass.diffuse(pass, planes, indices);
    } else {
      MapLine(pass, planes, indices);
    }
    if (pass.destinationBits != 8) ActiveDitherKernels().pack(indices, pass.width, pass.destinationBits, destination);
  }
  ++pass.line;
}

}  // namespace vexakrn

using namespace vexakrn;  // NOLINT(google-build-using-namespace)

int32_t V_CALL V_StartDitheringExt(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors, uint32_t destBits,
                                   uint32_t* userMatchTable) noexcept {
  V_TRY(CheckRecord(bitmap));
  V_TRY(V_StopDithering(bitmap));
  const DitherRequest request = {bitmap->Width,
                                 bitmap->BitsPerPixel,
                                 bitmap->Order,
                                 bitmap->pPalette,
                                 static_cast<uint32_t>(std::max<int32_t>(bitmap->nColors, 0)),
                                 bitmap->LowBit,
                                 bitmap->HighBit,
                                 bitmap->DitherMethod,
                                 palette,
                                 colors,
                                 destBits,
                                 userMatchTable};
  DitherContext* pass = nullptr;
  V_TRY(StartPass(request, &pass));
  bitmap->DitherState = pass;
  return kSuccess;
}

int32_t V_CALL V_StartDithering(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) noexcept {
  return V_StartDitheringExt(bitmap, palette, colors, colors <= kMaxColors ? BitsFor(colors) : 8, nullptr);
}

int32_t V_CALL V_DitherLine(BITMAPHANDLE* bitmap, const uint8_t* source, uint8_t* destination) noexcept {
  V_TRY(CheckRecord(bitmap));
  if (!bitmap->DitherState || !source || !destination) return kInvalidParameter;
  DitherNextLine(*static_cast<DitherContext*>(bitmap->DitherState), source, destination);
  return kSuccess;
}

int32_t V_CALL V_StopDithering(BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckRecord(bitmap));
  StopPass(static_cast<DitherContext*>(bitmap->DitherState));
  bitmap->DitherState = nullptr;
  return kSuccess;
}

uint32_t* V_CALL V_CreateUserMatchTable(const RGBQUAD* palette, uint32_t colors) noexcept {
  static_cast<void>(palette);  // whose colours it finds, it learns in passes
  return colors == 0 || colors > kMaxColors ? nullptr : AllocateZeroed<uint32_t>(kMatchEntries);
}

void V_CALL V_FreeUserMatchTable(uint32_t* table) noexcept { platform::Free(table); }
