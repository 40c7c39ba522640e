// A dithering pass from the inside: what its files share.
#ifndef VEXAKRN_KRN_DITHERPASS_H
#define VEXAKRN_KRN_DITHERPASS_H

#include "common/buffer.h"
#include "krn/dither.h"
#include "krn/ditherkernels.h"
#include "krn/palettes.h"
#include "krn/samples.h"

namespace vexakrn {

inline constexpr uint32_t kMatchEntries = 32768;

// Palettes by how their indices are chosen: from a table of the pass's own or of the caller, or as one of the fixed
// palettes of 2 to 256 colours.
enum class PaletteClass : int32_t {
  OwnTable,
  UserTable,
  Fixed2,
  Fixed4,
  Fixed8,
  Fixed16,
  Fixed32,
  Fixed64,
  Fixed128,
  Fixed256,
  Cube
};

inline bool HasTable(PaletteClass c) noexcept { return c == PaletteClass::OwnTable || c == PaletteClass::UserTable; }

// Source pixels of one format, as they become red, green and blue (dithersource.cpp).
struct DitherSource {
  int32_t bits, order;
  bool gray;                   // all three are always equal
  bool identity;               // gray, and the pixels themselves
  GrayRange range;             // of gray samples
  uint8_t components[3][256];  // of palette entries
};

// The wide-gamut encoding, which is reckoned into red, green and blue.
inline bool IsRomm(const DitherSource& source) noexcept {
  return source.order == V_OrderRomm && (source.bits == 24 || source.bits == 48);
}

void SetSource(DitherSource& source, const DitherRequest& request) noexcept;

// One byte a pixel and component; a gray source can be asked for its first plane alone.
void ExpandLine(const DitherSource& source, const uint8_t* line, int32_t width, uint8_t* const planes[3],
                int32_t components) noexcept;

// What a component's values become where the components are independent of each other: the error that the palette
// leaves, the next column's share of it, undivided, and the bits of the index. Values go from -255 to 510, as they are
// before they are clamped.
struct alignas(8) ComponentEntry {
  int16_t share, error;
  uint8_t index;
};
struct ComponentTable {
  ComponentEntry entries[766];
};

inline constexpr uint32_t kErrorMargin = 3;  // the furthest reach

// A component's part of eight times the luminance << 16 | its value, clamped; by value in the same way.
struct LuminanceTable {
  uint32_t entries[766];
};

struct DitherContext {
  int32_t width;
  DitherSource source;
  int32_t method;
  PaletteClass paletteClass;
  uint32_t destinationBits;
  RGBQUAD palette[kMaxColors];  // black behind the caller's colours
  uint32_t colors;
  int32_t components;  // 1 where source and palette are gray: all three would be equal
  bool whole;          // every index that the class can give is one of the palette
  DitherChoice choice;
  uint32_t line;  // counts those that come one by one; patterns know no bands

  // Palettes with a table.
  uint8_t candidates[kMaxColors];  // entries that are not barred
  uint32_t candidateCount;
  PaletteSearch search;           // among the candidates
  uint32_t* userMatches;          // 0, or a candidate + 1; null for none
  Buffer<uint32_t> matches;       // either these
  Buffer<uint16_t> matchIndices;  // or these

  Buffer<ComponentTable> tables;
  Buffer<LuminanceTable> parts;
  Buffer<int32_t> sums;    // by component and line below, each with a margin on both sides
  Buffer<int16_t> errors;  // of one line, by component, with none in the margins
  Buffer<uint8_t> planes;  // of a line; then its indices
  Buffer<uint8_t> band;    // of many lines, once they are asked for

  void* block;  // that the context lies in
  void (*diffuse)(DitherContext& pass, const uint8_t* const planes[3], uint8_t* indices) noexcept;  // one line
};

// The first sum, that of column 0.
inline int32_t* SumsOf(const DitherContext& pass, int32_t component, int32_t row) noexcept {
  const uint64_t length = static_cast<uint64_t>(pass.width) + 2 * kDitherMargin;
  const auto rows = static_cast<uint64_t>(kDiffusion[pass.method].rows);
  return pass.sums.data() + (static_cast<uint64_t>(component) * rows + static_cast<uint64_t>(row)) * length +
         kDitherMargin;
}

// The error of column 0.
inline int16_t* ErrorsOf(const DitherContext& pass, int32_t component) noexcept {
  const uint64_t length = static_cast<uint64_t>(pass.width) + 2 * kErrorMargin;
  return pass.errors.data() + static_cast<uint64_t>(component) * length + kErrorMargin;
}

// The table of the level in force.
const DitherKernels& ActiveDitherKernels() noexcept;

// Chooses how the pass diffuses a line (ditherline.cpp). -1 when its tables find no memory.
int32_t SetDiffusion(DitherContext& pass) noexcept;

// red << 16 | green << 8 | blue.
inline uint32_t PaletteBits(const RGBQUAD& entry) noexcept {
  return uint32_t{entry.rgbRed} << 16 | uint32_t{entry.rgbGreen} << 8 | entry.rgbBlue;
}

// The table's entry of a colour, found if it was empty.
uint32_t FindMatch(void* pass, uint32_t key) noexcept;

inline uint32_t MatchOf(const DitherMatches& matches, uint32_t r, uint32_t g, uint32_t b) noexcept {
  const uint32_t key = (r >> 3) << 10 | (g >> 3) << 5 | b >> 3;
  const uint32_t entry = matches.entries[key];
  return entry != matches.empty ? entry : matches.find(matches.pass, key);
}

}  // namespace vexakrn

#endif
