/* Rows in and out.
 *
 * Row 0 is the first row in storage, whatever the view perspective. Pixels below 8 bits are packed most significant bit
 * first. 12-bit pixels lie two in three bytes: the even one in the low 12 bits of the little-endian word at its first
 * byte, the odd one in the high 12 bits of the word that starts a byte later. The bitmap should be accessed
 * (V_AccessBitmap) around row access. Each function returns the number of bytes moved, or a negative status:
 *
 *   -13   null bitmap or buffer; row or column outside; a count past the end of linear storage (nothing is moved)
 *   -789  bad record size
 *   -2    conventional data without an address (bitmap not accessed)
 *   -4    a position in the disk file could not be reached
 *   -7    the disk file could not be read
 *   -1    the bitmap has no storage, or the disk file or a tile could not be written
 *
 * A data callback sees the call first; its result other than 0 is returned unchanged. */
#ifndef VEXAKRN_ROWS_H
#define VEXAKRN_ROWS_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

/* Copies `count` bytes from the first byte of a stored row on. A count beyond the row goes on in the next rows. In
 * tiled storage the transfer ends with the last tile, and a get still returns `count`. */
V_API int64_t V_CALL V_GetBitmapRow(BITMAPHANDLE* bitmap, void* buffer, int32_t row, uint64_t count) V_NOEXCEPT;
V_API int64_t V_CALL V_PutBitmapRow(BITMAPHANDLE* bitmap, const void* buffer, int32_t row, uint64_t count) V_NOEXCEPT;

/* The same from the byte that holds pixel `column` on: below 8 bits the bit position inside that byte is the caller's
 * business. At 12 bits an odd column starts in the middle of its byte. */
V_API int64_t V_CALL V_GetBitmapRowCol(BITMAPHANDLE* bitmap, void* buffer, int32_t row, int32_t column,
                                       uint64_t count) V_NOEXCEPT;
V_API int64_t V_CALL V_PutBitmapRowCol(BITMAPHANDLE* bitmap, const void* buffer, int32_t row, int32_t column,
                                       uint64_t count) V_NOEXCEPT;

#pragma pack(push, 1)
/* A stretch of pixels of one row. */
typedef struct BITMAPROWSEGMENT {
  int32_t column;      /* first pixel */
  int32_t pixels;      /* number of pixels */
  const uint8_t* data; /* packed as in a row that starts with the first of them */
} BITMAPROWSEGMENT;
#pragma pack(pop)
VEXAKRN_STATIC_ASSERT(sizeof(BITMAPROWSEGMENT) == 16, "part of the interface");

/* Writes stretches of one stored row, in the order given; pixels between them are left as they are, bits of shared
 * bytes included. Returns the number of bytes written (bytes of stored row touched, counted once a segment), or a
 * status as above; -13 also for a segment that leaves the row or has no data. All segments are checked before the first
 * is written. */
V_API int64_t V_CALL V_PutBitmapRowSegments(BITMAPHANDLE* bitmap, const BITMAPROWSEGMENT* segments, int32_t count,
                                            int32_t row) V_NOEXCEPT;

VEXAKRN_END

#endif
