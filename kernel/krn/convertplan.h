// The chain of steps for a conversion, with what they need.
#ifndef VEXAKRN_KRN_CONVERTPLAN_H
#define VEXAKRN_KRN_CONVERTPLAN_H

#include "krn/convert.h"
#include "krn/convertkernels.h"
#include "krn/convertmatch.h"
#include "platform/platform.h"

namespace vexakrn {

// It holds addresses of its own members: it stays where it was made.
class ConvertPlan {
 public:
  ConvertPlan() noexcept {}  // NOLINT(modernize-use-equals-default): the large members stay as they are
  ~ConvertPlan() {
    if (colorMatch_) platform::Free(colorMatch_);
  }
  ConvertPlan(const ConvertPlan&) = delete;
  ConvertPlan& operator=(const ConvertPlan&) = delete;

  // Once. The codes of V_ConvertBuffer.
  int32_t Make(const ConversionRequest& request) noexcept;

  // Those of LineConversion.
  void Run(uint8_t* destination, const uint8_t* source, size_t pixels) const noexcept;
  void RunLines(uint8_t* destination, uint64_t destinationPitch, const uint8_t* source, uint64_t sourcePitch,
                size_t pixels, size_t lines, uint64_t total) noexcept;

 private:
  static constexpr int32_t kMostSteps = 8, kNothing = -1;

  void SetSourcePalette(Layout from, Layout to, const LineFormat& source) noexcept;
  int32_t SetMatch(Layout from, const LineFormat& destination, Layout* to) noexcept;
  void AddSteps(Layout from, Layout to) noexcept;

  size_t PixelsToCacheLine(const uint8_t* destination, size_t pixels) const noexcept;
  void RunStrips(uint8_t* destination, const uint8_t* source, size_t pixels) const noexcept;
  void RunStrip(uint8_t* destination, const uint8_t* source, size_t pixels) const noexcept;

  int32_t sourceBits_ = 0, destinationBits_ = 0;
  bool deepSource_ = false;  // values of more than 8 bits come from the source
  int32_t count_ = 0;        // 0 copies the line, kNothing leaves it alone
  ColorMatch* colorMatch_ = nullptr;
  ConvertStep steps_[kMostSteps];
  ConvertContext context_;
  RGBQUAD colors_[kMaxColors];  // the source's palette, where it has fewer
  IndexMatch indexMatch_;
};

}  // namespace vexakrn

#endif
