#include "codecs/bitmap.h"

#include <cmath>
#include <limits>
#include <string>

#include "codecs/error.h"
#include "codecs/pixels.h"

namespace vexa {
namespace {

// The engine's row functions give a byte count, or a status.
void CheckCount(int64_t done, size_t bytes) {
  if (done == static_cast<int64_t>(bytes)) return;
  throw Error(std::string("the image's storage failed: ") +
              V_GetStatusText(done < 0 ? static_cast<int32_t>(done) : V_StatusNoMemory));
}

uint8_t RampGray(size_t index, size_t grays) { return static_cast<uint8_t>(index * 255 / (grays - 1)); }

bool IsGrayOf(const RGBQUAD& color, uint8_t gray) {
  return color.rgbRed == gray && color.rgbGreen == gray && color.rgbBlue == gray;
}

}  // namespace

void CheckSize(uint64_t width, uint64_t height) {
  if (width == 0 || height == 0) throw Error("the image has no pixels (its width or height is 0)");
  constexpr uint64_t kMost = std::numeric_limits<int32_t>::max();
  if (width > kMost || height > kMost) throw Error("the image is too large: a side is beyond 2147483647 pixels");
}

Bitmap::Bitmap() { CheckStatus(V_InitBitmap(&record_, V_BITMAPHANDLE_SIZE, 0, 0, 0)); }

Bitmap::~Bitmap() { Free(); }

void Bitmap::Free() {
  if (accessed_) V_ReleaseBitmap(&record_);
  accessed_ = false;
  V_FreeBitmap(&record_);
}

void Bitmap::Describe(uint64_t width, uint64_t height, int bits) {
  CheckSize(width, height);
  Free();
  CheckStatus(
      V_InitBitmap(&record_, V_BITMAPHANDLE_SIZE, static_cast<int32_t>(width), static_cast<int32_t>(height), bits));
  record_.ViewPerspective = V_ViewTopLeft;
  record_.XResolution = record_.YResolution = 0;  // until a file states one
  background_ = kWhite;
}

void Bitmap::DescribeLike(const Bitmap& other, int bits) {
  Free();
  BITMAPHANDLE source = other.record_;
  CheckStatus(V_DupBitmapNewDim(&record_, &source, V_BITMAPHANDLE_SIZE, source.Width, source.Height, bits));
  background_ = other.background_;
}

void Bitmap::SetPalette(const std::vector<RGBQUAD>& palette) {
  CheckStatus(V_SetBitmapNewPalette(&record_, palette.data(), static_cast<uint32_t>(palette.size())));
}

void Bitmap::SetFixedPalette(int bits) {
  RGBQUAD* const palette = V_CreateFixedPalette(static_cast<uint32_t>(bits));
  const int32_t status = palette ? V_SetBitmapNewPalette(&record_, palette, 1u << bits) : V_StatusNoMemory;
  V_FreeBuffer(palette);
  CheckStatus(status);
}

void Bitmap::SetGrayRamp(uint32_t grays) {
  std::vector<RGBQUAD> palette(grays);
  for (size_t i = 0; i < grays; ++i) {
    const uint8_t gray = RampGray(i, grays);
    palette[i] = RGBQUAD{gray, gray, gray, 0};
  }
  SetPalette(palette);
}

void Bitmap::SetResolution(double x, double y) {
  if (!(x >= 0.5 && y >= 0.5 && x < 1e9 && y < 1e9)) return;
  record_.XResolution = static_cast<int32_t>(std::lround(x));
  record_.YResolution = static_cast<int32_t>(std::lround(y));
}

void Bitmap::Allocate(uint32_t memoryType) {
  const int32_t status = V_AllocateBitmap(&record_, memoryType);
  if (status == V_StatusInvalidRange)
    throw Error("the image is too large: its rows do not fit the engine's row length");
  if (status != V_StatusSuccess) {
    throw Error("no storage for " + std::to_string(DataBytes()) + " bytes of pixels: " + V_GetStatusText(status));
  }
  Access();
}

void Bitmap::AllocateUser(std::vector<uint8_t>& storage) {
  CheckStatus(V_AllocateBitmap(&record_, V_MemoryUser));
  storage.assign(static_cast<size_t>(DataBytes()), 0);
  CheckStatus(V_SetBitmapDataPointer(&record_, storage.data(), storage.size()));
  Access();
}

BITMAPHANDLE Bitmap::Surrender() {
  if (accessed_) CheckStatus(V_ReleaseBitmap(&record_));
  accessed_ = false;
  const BITMAPHANDLE record = record_;
  CheckStatus(V_InitBitmap(&record_, V_BITMAPHANDLE_SIZE, 0, 0, 0));
  return record;
}

void Bitmap::Adopt(const BITMAPHANDLE& record) {
  Free();
  record_ = record;
  Access();
}

void Bitmap::Crop(const RECT& stored, uint32_t memoryType) {
  CheckStatus(V_CopyBitmapRect2(nullptr, &record_, V_BITMAPHANDLE_SIZE, stored.left, stored.top,
                                stored.right - stored.left, stored.bottom - stored.top, memoryType));
}

void Bitmap::Access() {
  CheckStatus(V_AccessBitmap(&record_));
  accessed_ = true;
}

size_t Bitmap::RowBytes() const { return PackedBytes(Width(), Bits()); }

std::vector<RGBQUAD> Bitmap::Palette() const {
  const RGBQUAD* colors = record_.pPalette;
  if (!colors) return {};
  return {colors, colors + record_.nColors};
}

bool Bitmap::IsGray() const {
  if (Bits() > 8) return Bits() <= 16 && Order() == V_OrderGray;
  const std::vector<RGBQUAD> palette = Palette();
  if (palette.size() < 2) return false;
  for (size_t i = 0; i < palette.size(); ++i)
    if (!IsGrayOf(palette[i], RampGray(i, palette.size()))) return false;
  return true;
}

bool Bitmap::IsInvertedGray() const {
  if (Bits() > 8) return false;
  const std::vector<RGBQUAD> palette = Palette();
  if (palette.size() != size_t{1} << Bits()) return false;
  for (size_t i = 0; i < palette.size(); ++i)
    if (!IsGrayOf(palette[i], RampGray(palette.size() - 1 - i, palette.size()))) return false;
  return true;
}

uint32_t Bitmap::SampleMaximum() const {
  const int most = Bits() == 48 || Bits() == 64 ? 16 : Bits() == 24 || Bits() == 32 ? 8 : Bits();
  const int32_t high = record_.HighBit;
  return (1u << (high >= 0 && high < most ? high + 1 : most)) - 1;
}

void Bitmap::GetRow(int32_t row, uint8_t* buffer) {
  CheckCount(V_GetBitmapRow(&record_, buffer, row, RowBytes()), RowBytes());
}

void Bitmap::PutRow(int32_t row, const uint8_t* buffer) {
  CheckCount(V_PutBitmapRow(&record_, buffer, row, RowBytes()), RowBytes());
}

void Bitmap::GetPart(int32_t row, int32_t column, uint8_t* buffer, size_t bytes) {
  CheckCount(V_GetBitmapRowCol(&record_, buffer, row, column, bytes), bytes);
}

void Bitmap::PutPart(int32_t row, int32_t column, const uint8_t* buffer, size_t bytes) {
  CheckCount(V_PutBitmapRowCol(&record_, buffer, row, column, bytes), bytes);
}

}  // namespace vexa
