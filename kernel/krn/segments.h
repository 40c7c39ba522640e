// Writing one stretch of pixels, for functions of the engine that have checked it.
#ifndef VEXAKRN_KRN_SEGMENTS_H
#define VEXAKRN_KRN_SEGMENTS_H

#include "vexakrn/rows.h"

namespace vexakrn {

// The segment lies inside the row and has pixels. Bytes of the stored row that were touched, or a status.
int64_t PutSegment(BITMAPHANDLE& bitmap, const BITMAPROWSEGMENT& segment, int32_t row) noexcept;

}  // namespace vexakrn

#endif
