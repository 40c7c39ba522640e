/* Rows of 1-bit pixels as run lengths.
 *
 * A record is a 32-bit count N and N 16-bit run lengths in pixels, in the machine's byte order and without gaps: 4 + 2N
 * bytes. Colours alternate; the first run is always of pixel value 0 and may be 0. A run of length 0 further on changes
 * the colour for no pixels, so that the colour before it goes on: this is how runs beyond 65535 pixels are written. The
 * encoder lets a run grow by the bytes of the packed row and ends it at the last whole byte within 65535. No record of
 * W pixels that it writes has more than W + 1 runs.
 *
 * A record from a caller is checked before it is used: more than W + 1 runs, runs that add up to another number than W
 * pixels, or a record that is longer than the room it lies in, are -13 and change nothing. Records need no alignment. */
#ifndef VEXAKRN_RUNS_H
#define VEXAKRN_RUNS_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

/* The most bytes that the record of a row of this many pixels can have. */
#define V_RECORD_BYTES(pixels) (4 + 2 * ((uint64_t)(pixels) + 1))

/* Encodes `pixelCount` pixels of a packed row, the first of them `bitOffset` (0 to 7) bits into the byte at `source`,
 * most significant bit first. `record` has room for the record; the source is not changed, nor read past the byte of
 * the last pixel. No pixels give one run of 0. Returns pixelCount; -13 null pointer, an offset outside 0 to 7, a
 * negative count. */
V_API int32_t V_CALL V_CompressRow(void* record, uint8_t* source, int32_t bitOffset, int32_t pixelCount) V_NOEXCEPT;

/* Encodes `rowCount` rows of `width` pixels, which lie the pitch of such a bitmap apart ((width + 31) / 8 rounded down
 * to a multiple of 4 bytes). The records lie back to back. Returns 1, and for no rows 1 at once; -13 null pointer,
 * negative width or count. */
V_API int32_t V_CALL V_CompressRows(void* records, uint8_t* source, int32_t width, int32_t rowCount) V_NOEXCEPT;

/* The inverse: expands `rowCount` records of `width` pixels, back to back in `recordBytes` bytes, into rows that lie the
 * pitch apart, padding zeroed. Returns 1, and for no rows 1 at once; -13 null pointer, negative width or count, or a
 * malformed record: the rows before it have been written then. */
V_API int32_t V_CALL V_ExpandRows(uint8_t* destination, const void* records, uint64_t recordBytes, int32_t width,
                                  int32_t rowCount) V_NOEXCEPT;

/* Rows of any 1-bit bitmap in record form, whatever its storage. A bitmap that holds compressed rows hands its record
 * out, and takes one in, as it is. Data callbacks see packed rows. Like the other row functions (rows.h) these
 * return the number of bytes moved, which here are those of the record (4 + 2N), or a status of theirs; further
 *   -27   the bitmap has not 1 bit per pixel
 *   -13   a record that is malformed, or longer than `capacity` or `size`
 *   -1    no memory for the row
 * Nothing is moved then. `capacity` is the room at `record`, `size` the bytes that may be read from it. */
V_API int64_t V_CALL V_GetBitmapRowCompressed(BITMAPHANDLE* bitmap, void* record, int32_t row,
                                              uint64_t capacity) V_NOEXCEPT;
V_API int64_t V_CALL V_PutBitmapRowCompressed(BITMAPHANDLE* bitmap, const void* record, int32_t row,
                                              uint64_t size) V_NOEXCEPT;

/* The same for `pixels` pixels from `column` on, as one record; the row's other pixels stay as they are. The record that
 * is got has at most V_RECORD_BYTES(pixels) bytes, and so many must be readable where one is put unless it ends before.
 * -13 also when the pixels are none or reach outside the row. */
V_API int64_t V_CALL V_GetBitmapRowColCompressed(BITMAPHANDLE* bitmap, void* record, int32_t row, int32_t column,
                                                 uint64_t pixels) V_NOEXCEPT;
V_API int64_t V_CALL V_PutBitmapRowColCompressed(BITMAPHANDLE* bitmap, const void* record, int32_t row, int32_t column,
                                                 uint64_t pixels) V_NOEXCEPT;

VEXAKRN_END

#endif
