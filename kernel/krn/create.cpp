// Initialising and creating bitmaps.
#include <cstring>

#include "common/record.h"
#include "common/settings.h"
#include "krn/alloc.h"
#include "krn/callbacks.h"
#include "vexakrn/palette.h"

namespace vexakrn {
namespace {

int32_t DefaultHighBit(int32_t bits) noexcept {
  switch (bits) {
    case 16:
    case 48:
    case 64:
      return 15;
    case 24:
      return 7;
    case 32:
      return -1;  // unlike 24 bits, and meant so
    default:
      return bits - 1;
  }
}

int32_t DefaultOrder(int32_t bits) noexcept { return bits <= 8 ? V_OrderRgb : bits == 12 ? V_OrderGray : V_OrderBgr; }

int32_t ResolutionOr150(int32_t resolution) noexcept { return resolution < 1 ? 150 : resolution; }

void SetDefaults(BITMAPHANDLE& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  bitmap.DitherMethod = V_GetDefaultDithering();
  bitmap.ViewPerspective = V_ViewBottomLeft;
  bitmap.nColors = bits <= 8 ? 1 << bits : 0;
  bitmap.Order = DefaultOrder(bits);
  bitmap.XResolution = ResolutionOr150(V_GetDefaultXResolution());
  bitmap.YResolution = ResolutionOr150(V_GetDefaultYResolution());
  bitmap.LowBit = bitmap.PaintLowBit = 0;
  bitmap.HighBit = bitmap.PaintHighBit = DefaultHighBit(bits);
  bitmap.PaintGamma = 100;
}

void ZeroRecord(BITMAPHANDLE* bitmap, uint32_t structSize) noexcept {
  std::memset(static_cast<void*>(bitmap), 0, structSize);
  bitmap->uStructSize = structSize;
}

// What the palette of a created bitmap is made from.
enum class PaletteChoice { Gray, Given, Fixed };

int32_t SetCreatedPalette(BITMAPHANDLE& bitmap, PaletteChoice choice, const RGBQUAD* given) noexcept {
  const auto colors = static_cast<uint32_t>(bitmap.nColors);
  if (choice == PaletteChoice::Given) return V_SetBitmapNewPalette(&bitmap, given, colors);
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  bitmap.pPalette = choice == PaletteChoice::Gray ? V_CreateGrayPalette(bits) : V_CreateFixedPalette(bits);
  return bitmap.pPalette ? kSuccess : kNoMemory;
}

struct Creation {
  uint32_t memoryType;
  int32_t bitsPerPixel;  // as the caller gave it: 0 asks for 8-bit gray
  int32_t order;
  const RGBQUAD* palette;
  int32_t viewPerspective;
  void* userData;
  uint64_t userDataSize;
};

int32_t SetOrderAndPerspective(BITMAPHANDLE& bitmap, const Creation& wanted, bool wantsGray) noexcept {
  if (wanted.order == V_OrderRomm && wanted.bitsPerPixel != 24 && wanted.bitsPerPixel != 48) return kBitsPerPixel;
  bitmap.Order = wantsGray || wanted.bitsPerPixel == 0 ? V_OrderRgb : wanted.order;
  const int32_t perspective = wanted.viewPerspective == 0 ? V_ViewTopLeft : wanted.viewPerspective;
  if (perspective < V_ViewTopLeft || perspective > V_ViewLeftBottom) return kInvalidParameter;
  bitmap.ViewPerspective = perspective;
  return kSuccess;
}

// Everything after initialisation; a failure leaves the record for the caller to free.
int32_t Fill(BITMAPHANDLE& bitmap, const Creation& wanted) noexcept {
  const bool wantsGray = bitmap.BitsPerPixel <= 8 && wanted.order == V_OrderGray && !wanted.palette;
  V_TRY(SetOrderAndPerspective(bitmap, wanted, wantsGray));
  V_TRY(AllocateBitmap(bitmap, wanted.memoryType, wanted.userData, ThreadTileSettings()));
  if (bitmap.BitsPerPixel <= 8) {
    bitmap.Order = V_OrderRgb;
    const PaletteChoice choice = wantsGray || wanted.bitsPerPixel == 0 ? PaletteChoice::Gray
                                 : wanted.palette                      ? PaletteChoice::Given
                                                                       : PaletteChoice::Fixed;
    V_TRY(SetCreatedPalette(bitmap, choice, wanted.palette));
  }
  // A hook or a callback may have chosen other storage than the caller's.
  const bool isUser = HasFlag(bitmap, V_FlagConventionalMemory) && HasFlag(bitmap, V_FlagMirror);
  if (wanted.memoryType != V_MemoryUser || !wanted.userData || !isUser) return kSuccess;
  // A size of 0 says nothing; any other must be the data's.
  if (wanted.userDataSize != 0 && wanted.userDataSize != DataSize(bitmap)) return kInvalidParameter;
  return V_SetBitmapDataPointer(&bitmap, wanted.userData, wanted.userDataSize);
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_InitBitmap(BITMAPHANDLE* bitmap, uint32_t structSize, int32_t width, int32_t height,
                            int32_t bitsPerPixel) noexcept {
  return V_InitBitmapWithCallbacks(bitmap, structSize, width, height, bitsPerPixel, nullptr);
}

int32_t V_CALL V_InitBitmapWithCallbacks(BITMAPHANDLE* bitmap, uint32_t structSize, int32_t width, int32_t height,
                                         int32_t bitsPerPixel, const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept {
  if (!bitmap) return kInvalidParameter;
  if (!IsStructSize(structSize)) return kInvalidStructSize;
  ZeroRecord(bitmap, structSize);
  if (width == 0 && height == 0 && bitsPerPixel == 0) return kSuccess;
  if (width < 0 || height < 0) return kInvalidRange;
  if (!IsSupportedDepth(bitsPerPixel)) return kBitsPerPixel;

  bitmap->BytesPerLine = RowPitch(width, bitsPerPixel);
  bitmap->Width = width;
  bitmap->Height = height;
  bitmap->BitsPerPixel = bitsPerPixel;
  if (SetDataSize(*bitmap, static_cast<uint64_t>(bitmap->BytesPerLine) * static_cast<uint32_t>(height)) != kSuccess) {
    std::memset(static_cast<void*>(bitmap), 0, structSize);  // its size field too: there is no such record
    return kMemoryTooLow;
  }
  SetDefaults(*bitmap);

  if (!callbacks || callbacks->uStructSize != sizeof *callbacks || DataSize(*bitmap) == 0) return kSuccess;
  const int32_t status = V_SetBitmapDataCallbacks(bitmap, callbacks);
  if (status != kSuccess) ZeroRecord(bitmap, structSize);
  return status;
}

int32_t V_CALL V_CreateBitmap(BITMAPHANDLE* bitmap, uint32_t structSize, uint32_t memoryType, int32_t width,
                              int32_t height, int32_t bitsPerPixel, int32_t order, const RGBQUAD* palette,
                              int32_t viewPerspective, void* userData, uint64_t userDataSize) noexcept {
  return V_CreateBitmapWithCallbacks(bitmap, structSize, memoryType, width, height, bitsPerPixel, order, palette,
                                     viewPerspective, userData, userDataSize, nullptr);
}

int32_t V_CALL V_CreateBitmapWithCallbacks(BITMAPHANDLE* bitmap, uint32_t structSize, uint32_t memoryType,
                                           int32_t width, int32_t height, int32_t bitsPerPixel, int32_t order,
                                           const RGBQUAD* palette, int32_t viewPerspective, void* userData,
                                           uint64_t userDataSize, const BITMAPHANDLEDATACALLBACKS* callbacks) noexcept {
  const int32_t depth = bitsPerPixel == 0 ? 8 : bitsPerPixel;
  V_TRY(V_InitBitmapWithCallbacks(bitmap, structSize, width, height, depth, callbacks));
  const Creation wanted{memoryType, bitsPerPixel, order, palette, viewPerspective, userData, userDataSize};
  const int32_t status = Fill(*bitmap, wanted);
  if (status != kSuccess) V_FreeBitmap(bitmap);
  return status;
}
