// The inner loops of dithering, one table a processor level.
//
// All of them work on planes: one byte a pixel and component, red, green, blue, or one plane where everything is
// gray. What they make are indices, one byte each.
#ifndef VEXAKRN_KRN_DITHERKERNELS_H
#define VEXAKRN_KRN_DITHERKERNELS_H

#include <cstddef>
#include <cstdint>

namespace vexakrn {

// Counts are signed here, as columns and lines are.
template <typename T, int32_t kCount>
using Array = T[static_cast<uint32_t>(kCount)];

// How an error spreads: `right` to the next pixels of the line (the next one first), `below` to the lines under it, at
// columns -3 to 3. The weights of one pixel add up to the divisor.
struct DiffusionKernel {
  int32_t divisor, reach, rows;
  int32_t right[2];
  int32_t below[3][7];
};

// By method; those that do not diffuse have no rows.
constexpr DiffusionKernel kDiffusion[9] = {
    {},
    {16, 1, 1, {7, 0}, {{0, 0, 3, 5, 1, 0, 0}}},
    {42, 2, 2, {8, 4}, {{0, 2, 4, 8, 4, 2, 0}, {0, 1, 2, 4, 2, 1, 0}}},
    {32, 2, 1, {8, 4}, {{0, 2, 4, 8, 4, 2, 0}}},
    {32, 2, 2, {5, 3}, {{0, 2, 4, 5, 4, 2, 0}, {0, 0, 2, 3, 2, 0, 0}}},
    {200, 3, 3, {0, 32}, {{12, 0, 26, 0, 30, 0, 16}, {0, 12, 0, 26, 0, 12, 0}, {5, 0, 12, 0, 12, 0, 5}}},
    {48, 2, 2, {7, 5}, {{0, 3, 5, 7, 5, 3, 0}, {0, 1, 3, 5, 3, 1, 0}}},
};

// How an index is chosen. The fixed palettes whose index is made of the top bits of the components are `Levels`.
enum class DitherRule : int32_t { GrayLevels, Levels, Luminance, Cube, Matches, GrayMatches };

// A component's levels in an index: its top `bits` bits, moved right by `shift`.
struct DitherLevels {
  int32_t bits, shift;
};

// The 32768 colours of a palette without arithmetic of its own, by the top five bits of red, green and blue. An entry is
// index << 24 | red << 16 | green << 8 | blue of the palette entry, or `empty` until somebody asks for it. Where nothing
// is diffused the index is all that counts: then half the memory does, for kFoundIndex | index, or 0 for empty.
struct DitherMatches {
  const uint32_t* entries;
  const uint16_t* indices;
  uint32_t empty;
  void* pass;
  uint32_t (*find)(void* pass, uint32_t key) noexcept;  // fills an entry, of the table that there is, and returns it
};
inline constexpr uint32_t kFoundIndex = 0x100;

// What indices are chosen by.
struct DitherChoice {
  DitherRule rule;
  DitherLevels levels[3];
  uint32_t addend;  // what an index of Levels other than 0 is above its bits
  DitherMatches matches;
};

// One line without diffusion.
struct DitherMap {
  const DitherChoice* choice;
  int32_t count;
  const uint8_t* planes[3];
  int32_t pixelBytes;         // 0; or 3 or 4, when planes[0] is a line of such pixels and there are no planes
  bool redFirst;              // in pixels; else blue
  const uint8_t* thresholds;  // the line's eight matrix values; null without an ordered pattern
  const int16_t* offsets;     // for Cube and Matches: the eight offsets that these become
};

// Some lines with diffusion. They are the last `rows` of `lanes` rows, which lie `stride` bytes apart; the others
// are not looked at, but their memory is read and written, and so are kDitherMargin pixels on both sides of each row.
struct DitherBand {
  const DitherChoice* choice;
  int32_t method, width, lanes, rows;
  const uint8_t* planes[3];  // the first pixel of the first of all rows
  uint8_t* indices;
  ptrdiff_t stride;
  int32_t* sums[3][3];  // by component and line below: what earlier lines left, and where these leave theirs
  uint8_t* scratch;     // kDitherScratch bytes
};

inline constexpr int32_t kDitherMaxLanes = 64;
inline constexpr int32_t kDitherMargin = 336;     // pixels, and sums
inline constexpr int32_t kDitherScratch = 65536;  // bytes, aligned to 64

struct DitherKernels {
  void (*map)(const DitherMap& map, uint8_t* indices) noexcept;

  // Packs indices at 1 to 7 bits, most significant bit first; unused bits of the last byte become 0.
  void (*pack)(const uint8_t* indices, int32_t count, uint32_t bits, uint8_t* destination) noexcept;

  // Packs at 1 bit which bytes are at least as large as that of their column in a pattern of eight. Null: `map` and `pack`.
  void (*mapBits)(const uint8_t* pixels, int32_t count, const uint8_t* least, uint8_t* destination) noexcept;

  // Takes pixels of three or four bytes apart; a fourth byte is dropped.
  void (*split)(const uint8_t* pixels, int32_t pixelBytes, int32_t count, uint8_t* const planes[3]) noexcept;

  void (*diffuse)(const DitherBand& band) noexcept;  // null: line by line
  int32_t grayLanes, colorLanes;
};

// What both vector levels share.

void PackIndicesAvx2(const uint8_t* indices, int32_t count, uint32_t bits, uint8_t* destination) noexcept;
void MapBitsAvx2(const uint8_t* pixels, int32_t count, const uint8_t* least, uint8_t* destination) noexcept;

// Turns a matrix of bytes, of 32 rows and 16 columns or multiples of that.
void TransposeAvx2(uint8_t* to, ptrdiff_t toPitch, const uint8_t* from, ptrdiff_t fromPitch, int32_t rows,
                   int32_t columns) noexcept;

extern const DitherKernels kDitherKernelsScalar, kDitherKernelsAvx2, kDitherKernelsAvx512;

}  // namespace vexakrn

#endif
