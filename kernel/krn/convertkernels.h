// The steps by which lines of pixels are converted, one table a processor level.
//
// A conversion is a chain of steps, each from one layout to another. The layouts in the middle are the hub: indices, 8- and
// 16-bit gray, 32- and 64-bit colour. Every layout has a step to or from its neighbour in the hub, so that every pair has
// a chain; a step between two others is a direct lane, and gives the same bytes as the chain that it replaces.
#ifndef VEXAKRN_KRN_CONVERTKERNELS_H
#define VEXAKRN_KRN_CONVERTKERNELS_H

#include <cstddef>
#include <cstdint>

#include "vexakrn/types.h"

namespace vexakrn {

enum class Layout : uint8_t {
  None,
  Bits1,  // palette indices of 1 to 7 bits, packed from the most significant bit on
  Bits2,
  Bits3,
  Bits4,
  Bits5,
  Bits6,
  Bits7,
  Index8,  // indices into the source's palette, a byte each
  Match8,  // indices into the destination's palette, a byte each
  Mono1,   // 1 bit where one entry of the palette is black and the other white
  Gray8,
  Gray12,  // 16-bit words of 12 bits, two in three bytes
  Gray16,
  WordIn16,   // the source's 16-bit words that hold gray in a range of their bits, or by way of a table
  WordOut16,  // the destination's
  Rgb555,
  Rgb565,
  Bgr24,
  Rgb24,
  Romm24,
  Bgr32,
  Rgb32,
  Bgr48,
  Rgb48,
  Romm48,
  Bgr64,
  Rgb64,
};
inline constexpr size_t kLayouts = 28;

struct GrayRange {
  int32_t low, bits;  // the lowest bit and their number, 1 to 16 together
};

class ColorMatch;
class IndexMatch;

// What steps need beside the pixels. Each line of it concerns one step of a chain.
struct ConvertContext {
  const RGBQUAD* palette;    // of the source
  uint32_t colors;           // its entries
  uint8_t grayOfIndex[256];  // its entries' luminance
  uint8_t matchOfBit[2];     // 1-bit sources: their entries' nearest in the destination's palette
  IndexMatch* indexMatch;    // from few values to the destination's palette
  ColorMatch* colorMatch;    // from colours to it
  uint8_t whiteBit;          // of Mono1: the entry that is white
  bool pastCaches;           // the result is to leave the caches alone: no more than a wish
  uint8_t alpha;             // where the source has none
  GrayRange source, destination;
  const uint16_t *sourceTable, *destinationTable;  // kGrayTableLength entries, or null
};

inline constexpr uint32_t kGrayTableLength = 65535;

// Converts `pixels` pixels: in place, from a source that is apart, or to a destination that overlaps it further on where
// pixels grow and further back where they shrink. It writes the bytes that hold them and not one more; what is left of a
// byte that the last pixel shares is 0.
using ConvertStep = void (*)(uint8_t* destination, const uint8_t* source, size_t pixels,
                             const ConvertContext& context) noexcept;

// The step from one layout to another; null where there is none, or none that is better than the next table's down.
struct ConvertSteps {
  ConvertStep step[kLayouts][kLayouts];

  constexpr void Set(Layout from, Layout to, ConvertStep function) noexcept {
    step[static_cast<size_t>(from)][static_cast<size_t>(to)] = function;
  }
  constexpr ConvertStep Get(Layout from, Layout to) const noexcept {
    return step[static_cast<size_t>(from)][static_cast<size_t>(to)];
  }
};

extern const ConvertSteps kConvertStepsScalar, kConvertStepsAvx2, kConvertStepsAvx512;

// Steps to the wide-gamut encoding and back, on 8- and 16-bit components in the order of Bgr24 and Bgr48.
void ToRomm24(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept;
void FromRomm24(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept;
void ToRomm48(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept;
void FromRomm48(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept;

// Steps to the nearest entries of the destination's palette, of indices, gray and Bgr32.
void MatchIndices(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept;
void MatchColors(uint8_t* destination, const uint8_t* source, size_t pixels, const ConvertContext& context) noexcept;

}  // namespace vexakrn

#endif
