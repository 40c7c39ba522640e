// New bitmaps made from others: whole copies and rectangles.
#include <algorithm>
#include <cstring>

#include "common/perspective.h"
#include "krn/alloc.h"
#include "krn/overlay.h"
#include "krn/replace.h"
#include "krn/rowcopy.h"

namespace vexakrn {
namespace {

// What is copied, clipped to the source, and how.
struct CopyRequest {
  int32_t left, top, width, height;
  uint32_t flags;  // V_CopyRectangle
  uint32_t structSize;
  uint32_t memoryType;
};

int32_t CheckSource(const BITMAPHANDLE* src) noexcept {
  return src && HasFlag(*src, V_FlagAllocated) ? kSuccess : kInvalidParameter;
}

int32_t CheckSizes(const BITMAPHANDLE& src, uint32_t structSize) noexcept {
  return IsStructSize(src.uStructSize) && IsStructSize(structSize) ? kSuccess : kInvalidStructSize;
}

uint32_t DefaultMemoryType() noexcept { return ThreadSettings().defaultMemoryType; }

// Cuts what lies outside [0, size) off a stretch; false when nothing is left.
bool Clip(int32_t size, int32_t* start, int32_t* length) noexcept {
  const int64_t first = std::max<int64_t>(*start, 0);
  const int64_t end = std::min<int64_t>(int64_t{*start} + *length, size);
  if (*length < 1 || end <= first) return false;
  *start = static_cast<int32_t>(first);
  *length = static_cast<int32_t>(end - first);
  return true;
}

// --- the copy's beginning and end, of which a host may hear ---

// Carries over what the new record has not got from V_DupBitmapNewDim, and asks the source's host, which may change the
// memory type and give the copy callbacks of its own.
int32_t V_IntBeginCopyBitmap(BITMAPHANDLE& dst, BITMAPHANDLE& src, CopyRequest& request,
                             BITMAPHANDLEDATACALLBACKS& own) noexcept {
  const POINT moved = DisplayedCorner(src, request.left, request.top, request.width, request.height);
  V_TRY(CopyOverlays(dst, src, -moved.x, -moved.y));
  const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(src);
  if (!callbacks || !callbacks->BeginCopyBitmapData) return kSuccess;
  ALLOCATEBITMAPCALLBACKDATA data = DescribeAllocation(dst, request.memoryType, dst.BytesPerLine, nullptr);
  V_TRY(callbacks->BeginCopyBitmapData(&src, request.flags, &data, &own, callbacks->pUserData));
  request.memoryType = data.uMemory;
  return kSuccess;
}

int32_t EndCopy(BITMAPHANDLE& src, const CopyRequest& request, int32_t status) noexcept {
  const BITMAPHANDLEDATACALLBACKS* callbacks = DataCallbacks(src);
  if (!callbacks || !callbacks->EndCopyBitmapData) return status;
  const uint32_t failed = status == kSuccess ? 0u : uint32_t{V_CopyFailed};
  const int32_t ended = callbacks->EndCopyBitmapData(&src, request.flags | failed, callbacks->pUserData);
  return status == kSuccess ? ended : status;
}

// --- the copy itself ---

bool IsEmptyTable(const BITMAPHANDLEDATACALLBACKS& table) noexcept {
  BITMAPHANDLEDATACALLBACKS none{};
  none.uStructSize = sizeof none;
  none.pUserData = table.pUserData;
  return std::memcmp(&table, &none, sizeof none) == 0;
}

int32_t FillCopy(BITMAPHANDLE& dst, BITMAPHANDLE& src, const CopyRequest& request,
                 const BITMAPHANDLEDATACALLBACKS& own) noexcept {
  if (!IsEmptyTable(own)) V_TRY(V_SetBitmapDataCallbacks(&dst, &own));
  V_TRY(AllocateBitmap(dst, request.memoryType, nullptr, ThreadTileSettings()));
  const StatusCallbackPair report = ThreadSettings().copyStatus;
  const bool whole = dst.Width == src.Width && dst.Height == src.Height;
  return whole ? CopyRows(dst, src, report) : CopyRectangle(dst, src, request.left, request.top, report);
}

// Makes `dst`, which is overwritten; an empty record after a failure.
int32_t MakeCopy(BITMAPHANDLE& dst, BITMAPHANDLE& src, CopyRequest request) noexcept {
  if (request.memoryType & V_MemoryUser) return kInvalidParameter;  // there would be no data to copy to
  int32_t status = V_DupBitmapNewDim(&dst, &src, request.structSize, request.width, request.height, src.BitsPerPixel);
  if (status == kSuccess) {
    BITMAPHANDLEDATACALLBACKS own{};
    own.uStructSize = sizeof own;
    status = V_IntBeginCopyBitmap(dst, src, request, own);
    if (status == kSuccess) status = EndCopy(src, request, FillCopy(dst, src, request, own));
    if (status != kSuccess) V_FreeBitmap(&dst);
  }
  if (status != kSuccess) V_InitBitmap(&dst, request.structSize, 0, 0, 0);
  return status;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_CopyBitmap2(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, uint32_t memoryType) noexcept {
  if (!dst) return kInvalidParameter;
  V_TRY(CheckSource(src));
  if (dst == src) return kSuccess;
  V_TRY(CheckSizes(*src, structSize));
  return MakeCopy(*dst, *src, {0, 0, src->Width, src->Height, 0, structSize, memoryType});
}

int32_t V_CALL V_CopyBitmap(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize) noexcept {
  return V_CopyBitmap2(dst, src, structSize, DefaultMemoryType());
}

int32_t V_CALL V_CopyBitmapRect2(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, int32_t left, int32_t top,
                                 int32_t width, int32_t height, uint32_t memoryType) noexcept {
  V_TRY(CheckSource(src));
  V_TRY(CheckSizes(*src, structSize));
  if (!Clip(src->Width, &left, &width) || !Clip(src->Height, &top, &height)) return kInvalidParameter;
  CopyRequest request{left, top, width, height, V_CopyRectangle, structSize, memoryType};
  if (dst && dst != src) return MakeCopy(*dst, *src, request);
  request.structSize = src->uStructSize;
  BITMAPHANDLE made;
  V_TRY(MakeCopy(made, *src, request));
  TakePlace(*src, made);
  return kSuccess;
}

int32_t V_CALL V_CopyBitmapRect(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, int32_t left, int32_t top,
                                int32_t width, int32_t height) noexcept {
  return V_CopyBitmapRect2(dst, src, structSize, left, top, width, height, DefaultMemoryType());
}
