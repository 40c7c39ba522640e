// Records made after another one.
#ifndef VEXAKRN_KRN_DUPLICATE_H
#define VEXAKRN_KRN_DUPLICATE_H

#include "vexakrn/bitmap.h"

namespace vexakrn {

// Initialises a record, not allocated, with the attributes of `src` that do not depend on the pixel format: no palette,
// tables, bit range or order. The codes of V_InitBitmap.
int32_t InitOtherFormat(BITMAPHANDLE* dst, const BITMAPHANDLE& src, uint32_t structSize, int32_t width, int32_t height,
                        int32_t bitsPerPixel) noexcept;

}  // namespace vexakrn

#endif
