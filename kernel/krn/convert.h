// Conversion of lines between pixel formats, planned once for many lines.
#ifndef VEXAKRN_KRN_CONVERT_H
#define VEXAKRN_KRN_CONVERT_H

#include <cstdint>

#include "vexakrn/convert.h"

namespace vexakrn {

// What a line is, on either side.
struct LineFormat {
  int32_t bits;
  int32_t order;
  const RGBQUAD* palette;  // null: the fixed one; up to 8 bits
  const uint16_t* table;   // 16-bit gray look-up table; null for none
};

struct ConversionRequest {
  LineFormat source, destination;
  uint32_t flags;  // V_Convert...
  int32_t lowBit, highBit;
  uint32_t color;  // for alpha
};

// A checked request with its kernel chosen and its tables made. Palettes and tables that it was given must live on.
class LineConversion {
 public:
  LineConversion() noexcept = default;
  ~LineConversion();
  LineConversion(const LineConversion&) = delete;
  LineConversion& operator=(const LineConversion&) = delete;

  // The codes of V_ConvertBuffer.
  int32_t Prepare(const ConversionRequest& request) noexcept;

  // Converts `width` pixels in place, or from a source that does not overlap the destination. In place the buffer holds
  // the larger of the two lines.
  int32_t Run(uint8_t* destination, const uint8_t* source, int32_t width) noexcept;

  // Converts lines that lie a pitch apart, from a source that does not overlap the destination. `total` is the size of the
  // result that they are part of: one that is too large to stay in the caches is written past them, for which a call
  // should have many lines.
  int32_t RunLines(uint8_t* destination, uint64_t destinationPitch, const uint8_t* source, uint64_t sourcePitch,
                   int32_t width, int32_t lines, uint64_t total) noexcept;

 private:
  void Reset() noexcept;

  struct Plan;
  Plan* plan_ = nullptr;
};

}  // namespace vexakrn

#endif
