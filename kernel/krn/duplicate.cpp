// Records made after another one.
#include "krn/duplicate.h"

#include <cstring>

#include "common/buffer.h"
#include "common/record.h"
#include "vexakrn/copy.h"
#include "vexakrn/memory.h"
#include "vexakrn/palette.h"

namespace vexakrn {
namespace {

constexpr uint64_t kWideEntry = 8;  // bytes of a 16-bit look-up table's entry

// A copy of `bytes` bytes; true with a null result for none.
bool CopyBlock(const void* block, uint64_t bytes, void** copy) noexcept {
  *copy = nullptr;
  if (!block || bytes == 0) return true;
  *copy = V_ReallocBuffer(nullptr, bytes);
  if (!*copy) return false;
  std::memcpy(*copy, block, bytes);
  return true;
}

// Everything that does not depend on the depth.
void CopyPlainAttributes(BITMAPHANDLE& dst, const BITMAPHANDLE& src) noexcept {
  dst.Flags = src.Flags & ~kStorageFlags;
  dst.ViewPerspective = src.ViewPerspective;
  dst.DitherMethod = src.DitherMethod;
  dst.XResolution = src.XResolution;
  dst.YResolution = src.YResolution;
  dst.Left = src.Left;
  dst.Top = src.Top;
  dst.Delay = src.Delay;
  dst.Background = src.Background;
  dst.Transparency = src.Transparency;
  dst.DisposalMethod = src.DisposalMethod;
  dst.PaintGamma = src.PaintGamma;
  dst.PaintContrast = src.PaintContrast;
  dst.PaintIntensity = src.PaintIntensity;
}

int32_t CopyTables(BITMAPHANDLE& dst, const BITMAPHANDLE& src) noexcept {
  void* copy = nullptr;
  if (!CopyBlock(src.pLUT, static_cast<uint64_t>(src.LUTLength) * sizeof(RGBQUAD), &copy)) return kNoMemory;
  dst.pLUT = static_cast<RGBQUAD*>(copy);
  dst.LUTLength = copy ? src.LUTLength : 0;
  if (IsOldLayout(dst) || IsOldLayout(src)) return kSuccess;
  if (!CopyBlock(src.pLUT16, src.LUTLength16 * kWideEntry, &copy)) return kNoMemory;
  dst.pLUT16 = copy;
  dst.LUTLength16 = copy ? src.LUTLength16 : 0;
  return kSuccess;
}

// What means something only at the same depth.
int32_t CopyDepthAttributes(BITMAPHANDLE& dst, BITMAPHANDLE& src) noexcept {
  dst.Order = src.Order;
  V_TRY(V_CopyGrayParams(&dst, &src));
  dst.nColors = src.nColors;
  if (src.pPalette) V_TRY(V_CopyBitmapPalette(&dst, &src));
  return CopyTables(dst, src);
}

constexpr uint32_t kDepthFlags = V_FlagSigned | V_FlagUseLUT | V_FlagUsePaintLUT | V_FlagNonLinearLUT;

}  // namespace

int32_t InitOtherFormat(BITMAPHANDLE* dst, const BITMAPHANDLE& src, uint32_t structSize, int32_t width, int32_t height,
                        int32_t bitsPerPixel) noexcept {
  V_TRY(V_InitBitmap(dst, structSize, width, height, bitsPerPixel));
  CopyPlainAttributes(*dst, src);
  dst->Flags &= ~kDepthFlags;
  return kSuccess;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_DupBitmapNewDim(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, int32_t width,
                                 int32_t height, int32_t bitsPerPixel) noexcept {
  if (!dst || !src || dst == src) return kInvalidParameter;
  V_TRY(CheckRecord(src));
  const int32_t depth = bitsPerPixel == 0 ? src->BitsPerPixel : bitsPerPixel;
  if (depth != src->BitsPerPixel) return InitOtherFormat(dst, *src, structSize, width, height, depth);
  V_TRY(V_InitBitmap(dst, structSize, width, height, depth));
  CopyPlainAttributes(*dst, *src);
  const int32_t status = CopyDepthAttributes(*dst, *src);
  if (status != kSuccess) V_FreeBitmap(dst);
  return status;
}
