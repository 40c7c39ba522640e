/* Dithering: lines of pixels of any depth become indices of a palette of at most 256 colours.
 *
 * A pass is opened on a bitmap, fed its lines from the first to the last, and closed. The method is the bitmap's
 * DitherMethod at the start. The error of a pixel is spread over pixels to the right and in the lines below, or an
 * ordered pattern is added; a palette that is one of the engine's fixed ones (or the start of one) is served by arithmetic,
 * any other by a table of 32768 colours that fills up as colours come. Entries of the palette whose reserved byte has
 * bit 0 or 1 set are never chosen by that table. */
#ifndef VEXAKRN_DITHER_H
#define VEXAKRN_DITHER_H

#include "vexakrn/list.h"

VEXAKRN_BEGIN

enum VexaDitheringMethod {
  V_DitheringNone = 0,
  V_DitheringFloydStein = 1,
  V_DitheringStucki = 2,
  V_DitheringBurkes = 3,
  V_DitheringSierra = 4,
  V_DitheringStevensonArce = 5,
  V_DitheringJarvis = 6,
  V_DitheringOrdered = 7,
  V_DitheringClustered = 8
};

/* Opens a pass; one that is open is closed first. `palette` has `colors` (1 to 256) entries, null means the fixed palette
 * that holds so many. `destBits` (1 to 8) are the bits of an index in the output. `userMatchTable`, a table of
 * V_CreateUserMatchTable or null, is used instead of the pass's own and keeps what was found for later passes.
 * Returns 1; -13 null bitmap, unsupported depth, number of colours or destBits outside, a method above 8, or a palette
 * whose entries are all barred; -789 bad size; -1 no memory. */
V_API int32_t V_CALL V_StartDitheringExt(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors,
                                         uint32_t destBits, uint32_t* userMatchTable) V_NOEXCEPT;

/* The same with the fewest bits that hold the colours, and without a table. */
V_API int32_t V_CALL V_StartDithering(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) V_NOEXCEPT;

/* Dithers one line of the bitmap's width from `source`, in the bitmap's own format, to packed indices. Returns 1; -13 a
 * null argument or no open pass; -789 bad size. */
V_API int32_t V_CALL V_DitherLine(BITMAPHANDLE* bitmap, const uint8_t* source, uint8_t* destination) V_NOEXCEPT;

/* Closes the pass; without one it does nothing. Returns 1; -13 null bitmap; -789 bad size. */
V_API int32_t V_CALL V_StopDithering(BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* A table for V_StartDitheringExt, empty; it goes with this palette (null: the fixed one). Null without memory, or for a
 * number of colours outside 1 to 256. Freed by V_FreeUserMatchTable, which ignores null. */
V_API uint32_t* V_CALL V_CreateUserMatchTable(const RGBQUAD* palette, uint32_t colors) V_NOEXCEPT;
V_API void V_CALL V_FreeUserMatchTable(uint32_t* table) V_NOEXCEPT;

/* --- whole bitmaps ------------------------------------------------------------------------------------------------ */

/* Options of V_ColorResBitmap; one palette choice, then modifiers. */
enum VexaColorResOptions {
  V_ColorResFixedPalette = 1,
  V_ColorResOptimized = 2,       /* a palette made for the picture */
  V_ColorResIdentity = 4,        /* the source's own palette */
  V_ColorResUsePalette = 8,      /* the given one */
  V_ColorResFastMatch = 16,      /* nearest colours by the 15-bit table */
  V_ColorResSlowMatch = 32,      /* exact nearest colours, where no dithering asks for the table */
  V_ColorResFavorPureColors = 64 /* an optimised palette keeps pure black, white and primary colours that occur */
};

/* Changes the number of bits per pixel, and with it palette and order. Up to 8 bits the result has a palette of `colors`
 * entries (0: as many as fit) and its pixels are dithered by the source's DitherMethod. Deeper results are converted and
 * get the source's order where their depth can have it, else Bgr; alpha that is new is opaque. 0 bits mean 8 bits with a
 * gray palette, converted. Without a choice of palette it is the given one, or without one the fixed one.
 *
 * `dst` null or `src`: in place, keeping the record's size. Otherwise `dst`, whose old content does not matter, becomes a
 * record of `structSize` bytes. The result lies in storage of the source's kind, where the depth can; it takes over what
 * does not depend on the pixel format (an index in Background or Transparency becomes what shows the same colour), of
 * the same depth beyond 8 bits everything. In place overlays stay; regions, callbacks and a running pass do not go along.
 * `matchTable` is that of V_StartDitheringExt, or null. The calling thread's status callback is called with 0 before the
 * first row and whenever the percentage of rows done has changed; a result other than 1 ends the call.
 *
 * Returns 1; -13 a null source, contradicting or unknown options, a missing palette, or more colours than fit; -2
 * unallocated source; -789 bad size; -27 unsupported depth; -1 no memory; the callback's own code; those of allocation
 * and of rows. On failure both bitmaps are as they were. */
V_API int32_t V_CALL V_ColorResBitmap(BITMAPHANDLE* src, BITMAPHANDLE* dst, uint32_t structSize, int32_t bitsPerPixel,
                                      uint32_t options, const RGBQUAD* palette, uint32_t* matchTable,
                                      int32_t colors) V_NOEXCEPT;

/* The same for every bitmap of a list, to one palette. All or none change. */
V_API int32_t V_CALL V_ColorResBitmapListExt(HBITMAPLIST list, int32_t bitsPerPixel, uint32_t options,
                                             const RGBQUAD* palette, uint32_t* matchTable, int32_t colors) V_NOEXCEPT;

VEXAKRN_END

#endif
