/* Copying bitmaps: rows into another bitmap, a whole bitmap, a rectangle of one.
 *
 * Source and destination may have any kinds of storage. While rows move, the calling thread's copy-status callback
 * (status.h) is called with 0 before the first row and then, after a row, whenever the percentage of rows done has
 * changed, the last time with 100. A result other than 1 ends the copy and is returned as it is.
 *
 * What a new copy takes over: perspective, order, palette, resolutions, dithering method, flags other than those of
 * storage, bit range and painting values (the gray parameters of a gray bitmap), both look-up tables, animation fields
 * and overlays (of a rectangle: moved with it). Not taken over: the region, a running dithering pass, the access count
 * and the data callbacks. A record of the older layout has no 16-bit look-up table. */
#ifndef VEXAKRN_COPY_H
#define VEXAKRN_COPY_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

/* Pours the rows of `src` into the rows of `dst` with the same numbers; `dst` may have more rows, which stay. Bytes are
 * moved as they are stored: depth and order are the caller's business. Where the rows of `dst` are longer, zeros
 * follow; where they are shorter, the rest is left out. The same record for both is done at once.
 * Returns 1; -2 null or unallocated bitmap; -789 bad size; -13 fewer rows in `dst`; -1 no memory or a short write; the
 * copy-status callback's or a row function's code. Rows that were copied before a failure stay copied. */
V_API int32_t V_CALL V_CopyBitmapData(BITMAPHANDLE* dst, BITMAPHANDLE* src) V_NOEXCEPT;

/* Makes `dst`, a record of `structSize` bytes without storage, a copy of `src` with its own storage, which is asked for
 * with `memoryType` (V_AllocateBitmap). The same record for both is done at once.
 *
 * Where `src` has a BeginCopyBitmapData callback, that is called first, with `src`, the flags below, a description
 * of the copy's allocation whose memory type it may change, and an empty callback table: slots that it fills become
 * the copy's own, so that a host can keep the copy's data too (-789 for a copy of the older layout). A result other
 * than 1 ends the copy and is returned. After it, EndCopyBitmapData is called exactly once, with V_CopyFailed when
 * something went wrong; else a result other than 1 undoes the copy and is returned.
 *
 * Returns 1; -13 null bitmap, unallocated source or invalid memory type; -789 bad size; -11, -3, -1, -1905 as
 * initialisation and allocation; the codes of callbacks and rows. Where a bitmap, a size or user memory is refused, `dst`
 * is as it was; after other failures it is an empty record. Nothing is left behind. */
V_API int32_t V_CALL V_CopyBitmap2(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize,
                                   uint32_t memoryType) V_NOEXCEPT;

/* The same with the calling thread's default memory type. */
V_API int32_t V_CALL V_CopyBitmap(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize) V_NOEXCEPT;

/* Makes `dst` a copy of a rectangle of stored pixels: `width` columns from `left` on, in `height` rows from row `top` on.
 * What lies outside the source is cut off. When `dst` is null or `src` itself, `src` becomes the copy: it keeps its own
 * record size, its access count and its callbacks only if the copy got them from BeginCopyBitmapData.
 * Returns as V_CopyBitmap2; -13 also when nothing of the rectangle lies inside. `src` changes only on success. */
V_API int32_t V_CALL V_CopyBitmapRect2(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, int32_t left,
                                       int32_t top, int32_t width, int32_t height, uint32_t memoryType) V_NOEXCEPT;
V_API int32_t V_CALL V_CopyBitmapRect(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, int32_t left,
                                      int32_t top, int32_t width, int32_t height) V_NOEXCEPT;

/* Flags of BeginCopyBitmapData and EndCopyBitmapData. */
enum VexaCopyFlags {
  V_CopyRectangle = 1, /* a part of the bitmap is copied */
  V_CopyFailed = 2     /* at the end: the copy failed */
};

/* Copies bit range, painting range, signedness, and least and greatest value of gray samples. Returns 1; -13 null
 * record; -789 bad size. */
V_API int32_t V_CALL V_CopyGrayParams(BITMAPHANDLE* dst, BITMAPHANDLE* src) V_NOEXCEPT;

VEXAKRN_END

#endif
