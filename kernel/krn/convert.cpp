// Conversion of lines: the public functions, and the lines of many that are planned once.
#include "krn/convert.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/buffer.h"
#include "common/record.h"
#include "krn/convertplan.h"

namespace vexakrn {
struct LineConversion::Plan : ConvertPlan {};

LineConversion::~LineConversion() { Reset(); }

void LineConversion::Reset() noexcept {
  if (!plan_) return;
  plan_->~Plan();
  platform::Free(plan_);
  plan_ = nullptr;
}

int32_t LineConversion::Prepare(const ConversionRequest& request) noexcept {
  Reset();
  void* memory = platform::System().allocate(sizeof(Plan));
  if (!memory) return kNoMemory;
  plan_ = ::new (memory) Plan;
  const int32_t status = plan_->Make(request);
  if (status != kSuccess) Reset();
  return status;
}

int32_t LineConversion::Run(uint8_t* destination, const uint8_t* source, int32_t width) noexcept {
  if (!plan_ || !destination || !source || width <= 0) return kInvalidParameter;
  plan_->Run(destination, source, static_cast<uint32_t>(width));
  return kSuccess;
}

int32_t LineConversion::RunLines(uint8_t* destination, uint64_t destinationPitch, const uint8_t* source,
                                 uint64_t sourcePitch, int32_t width, int32_t lines, uint64_t total) noexcept {
  if (!plan_ || !destination || !source || width <= 0 || lines < 0) return kInvalidParameter;
  plan_->RunLines(destination, destinationPitch, source, sourcePitch, static_cast<uint32_t>(width),
                  static_cast<uint32_t>(lines), total);
  return kSuccess;
}

namespace {

constexpr uint32_t kOpaque = 0xFF000000;  // a colour value with that alpha

int32_t Convert(uint8_t* buffer, int32_t width, const ConversionRequest& request) noexcept {
  if (!buffer || width <= 0) return kInvalidParameter;
  ConvertPlan plan;
  V_TRY(plan.Make(request));
  const uint64_t bytes = static_cast<uint64_t>(width) * static_cast<uint32_t>(request.destination.bits) / 8;
  plan.RunLines(buffer, 0, buffer, 0, static_cast<uint32_t>(width), 1, bytes);
  return kSuccess;
}

// Bytes of a row, padded to four.
uint64_t PaddedRow(int32_t width, int32_t bits) noexcept {
  const uint64_t pixels = static_cast<uint64_t>(std::max(width, 0)),
                 depth = bits == 0 ? 8 : static_cast<uint64_t>(std::max(bits, 0));
  return (pixels * depth + 31) / 8 / 4 * 4;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;  // NOLINT(google-build-using-namespace)

int32_t V_CALL V_ConvertBuffer(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst, int32_t orderSrc,
                               int32_t orderDst, const RGBQUAD* paletteSrc, const RGBQUAD* paletteDst) noexcept {
  return V_ConvertBufferExt(buffer, width, bitsSrc, bitsDst, orderSrc, orderDst, paletteSrc, paletteDst, 0, -1, -1);
}

int32_t V_CALL V_ConvertBufferExt(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst, int32_t orderSrc,
                                  int32_t orderDst, const RGBQUAD* paletteSrc, const RGBQUAD* paletteDst,
                                  uint32_t flags, int32_t lowBit, int32_t highBit) noexcept {
  return V_ConvertBufferExt2(buffer, width, bitsSrc, bitsDst, orderSrc, orderDst, paletteSrc, paletteDst, nullptr,
                             nullptr, flags, lowBit, highBit);
}

int32_t V_CALL V_ConvertBufferExt2(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst, int32_t orderSrc,
                                   int32_t orderDst, const RGBQUAD* paletteSrc, const RGBQUAD* paletteDst,
                                   const uint16_t* lutSrc, const uint16_t* lutDst, uint32_t flags, int32_t lowBit,
                                   int32_t highBit) noexcept {
  return V_ConvertBufferExt3(buffer, width, bitsSrc, bitsDst, orderSrc, orderDst, paletteSrc, paletteDst, lutSrc,
                             lutDst, flags, lowBit, highBit, kOpaque);
}

int32_t V_CALL V_ConvertBufferExt3(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst, int32_t orderSrc,
                                   int32_t orderDst, const RGBQUAD* paletteSrc, const RGBQUAD* paletteDst,
                                   const uint16_t* lutSrc, const uint16_t* lutDst, uint32_t flags, int32_t lowBit,
                                   int32_t highBit, uint32_t color) noexcept {
  return Convert(buffer, width,
                 {{bitsSrc, orderSrc, paletteSrc, lutSrc},
                  {bitsDst, orderDst, paletteDst, lutDst},
                  flags,
                  lowBit,
                  highBit,
                  color});
}

uint64_t V_CALL V_CalcConvertSize(int32_t widthSrc, int32_t bitsSrc, int32_t widthDst, int32_t bitsDst) noexcept {
  return std::max({PaddedRow(widthSrc, bitsSrc), PaddedRow(widthDst, bitsSrc), PaddedRow(widthDst, bitsDst)});
}

int32_t V_CALL V_PadPixelData(uint8_t* row, int32_t width, int32_t bits, uint64_t rowBytes) noexcept {
  if (!row || width < 0 || !IsSupportedDepth(bits)) return kInvalidParameter;
  const uint64_t used = static_cast<uint64_t>(width) * static_cast<uint64_t>(bits);
  const uint64_t whole = used / 8, shared = used % 8;
  if (whole + (shared != 0 ? 1 : 0) > rowBytes) return kInvalidParameter;
  // A last 12-bit pixel has the low half of the byte that it shares, shorter pixels lie at the top.
  if (shared != 0) row[whole] &= static_cast<uint8_t>(bits == 12 ? 0x0F : 0xFF00u >> shared);
  const uint64_t end = whole + (shared != 0 ? 1 : 0);
  std::memset(row + end, 0, rowBytes - end);
  return kSuccess;
}
