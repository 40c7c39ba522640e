/* Palettes of bitmaps of 1 to 8 bits per pixel, colour values, and what is gray.
 *
 * A colour value is 32 bits; its top byte is the kind: 0x00 a plain colour (red in bits 0-7, green 8-15, blue 16-23), 0x01
 * a palette index (in the low 16 bits), 0x04 a gray level (in bits 8-15). */
#ifndef VEXAKRN_PALETTE_H
#define VEXAKRN_PALETTE_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

/* A new copy of the fixed palette of 2^bits colours (0 gives 2 colours), to be freed with V_FreeBuffer. Null for bits
 * above 8 and when there is no memory. */
V_API RGBQUAD* V_CALL V_CreateFixedPalette(uint32_t bits) V_NOEXCEPT;

/* A new palette of 2^bits grays, floor(i * 255 / (n - 1)), from black to white; 0 means 8 bits. To be freed with
 * V_FreeBuffer. Null for bits above 8 and when there is no memory. */
V_API RGBQUAD* V_CALL V_CreateGrayPalette(uint32_t bits) V_NOEXCEPT;

/* Gives the bitmap a copy of `colors` entries; a null palette (which leaves the colour count as it is) or no colours
 * leaves it without one. Returns 1; -13 null record, or more than 256 colours; -789 bad size; -1 no memory (the old
 * palette stays). */
V_API int32_t V_CALL V_SetBitmapNewPalette(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) V_NOEXCEPT;

/* Gives `dst` a copy of the palette of `src`, or none when `src` has none. Returns 1; -13 null record; -789 bad size;
 * -1 no memory (the old palette stays). */
V_API int32_t V_CALL V_CopyBitmapPalette(BITMAPHANDLE* dst, BITMAPHANDLE* src) V_NOEXCEPT;

/* The entry nearest to a colour by squared distance. Black and white prefer the first or last entry when it
 * is that colour; of two equally distant entries the later one wins only when its components are ordered like the
 * wanted ones. A null palette gives 0, no colours 0xFFFFFFFF. R, G and B are 0 to 255. */
V_API uint32_t V_CALL V_FindPaletteIndex(const RGBQUAD* palette, uint32_t colors, uint32_t R, uint32_t G,
                                         uint32_t B) V_NOEXCEPT;

/* Replaces the bitmap's palette by a fixed one of nColors entries. 2 and 4 colours are both taken from the start of one
 * table: four colours become black, white, black, 0x555555. Returns 1; 0 another number of colours (the bitmap is left
 * without a palette); -13 null record; -789 bad size; -1 no memory (the old palette stays). */
V_API int32_t V_CALL V_CreateBitmapFixedPalette(BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Replaces the bitmap's palette by a gray one of 2^bits entries, and sets nColors. Returns 1; -13 null record; -789 bad
 * size; -27 not 1 to 8 bits per pixel; -1 no memory (the old palette stays). */
V_API int32_t V_CALL V_CreateBitmapGrayPalette(BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Overwrites `count` entries from `index` on; a missing palette is made first, all black. Returns 1; -13 null record or
 * colours, entries outside 0..nColors, more than 8 bits per pixel; -789; -2 not allocated; -1 no memory. */
V_API int32_t V_CALL V_PutBitmapColors(BITMAPHANDLE* bitmap, int32_t index, int32_t count,
                                       const RGBQUAD* colors) V_NOEXCEPT;

/* 1 when the first `colors` entries of the bitmap's palette are these, reserved bytes aside, and when the bitmap has no
 * entries; 0 otherwise; -13 null record or palette; -789 bad size. */
V_API int32_t V_CALL V_CompareBitmapToPalette(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) V_NOEXCEPT;

/* --- gray ------------------------------------------------------------------------------------------------------- */

enum VexaGrayscaleMode {
  V_GrayscaleNone = 0,
  V_GrayscaleOrderedNormal = 1,  /* from black to white in equal steps */
  V_GrayscaleOrderedInverse = 2, /* from white to black */
  V_GrayscaleNotOrdered = 3
};

/* Classifies a palette; -13 null palette or no colours. */
V_API int32_t V_CALL V_IsGrayScalePalette(const RGBQUAD* palette, uint32_t colors) V_NOEXCEPT;

/* Classifies a bitmap: by the first 2^bits entries of its palette up to 8 bits (None without one), by its look-up table in
 * gray order, whether that is in use or not. `flags` are reserved, 0. -13 null record; -789 bad size. */
V_API int32_t V_CALL V_IntIsGrayScaleBitmap(BITMAPHANDLE* bitmap, uint32_t flags) V_NOEXCEPT;

/* The least and the greatest valid gray value, kept beside the pixels of gray bitmaps. Set returns 1; Get returns 1 and
 * fills each output that is given, 0 and 0 where none were set. -13 null record, min above max; -789 bad size. */
V_API int32_t V_CALL V_GetBitmapMinMax(BITMAPHANDLE* bitmap, int32_t* min, int32_t* max) V_NOEXCEPT;
V_API int32_t V_CALL V_SetBitmapMinMax(BITMAPHANDLE* bitmap, int32_t min, int32_t max) V_NOEXCEPT;

/* --- colour values ------------------------------------------------------------------------------------------------ */

/* Translates a colour value of `src` into the terms of `dst`; both may be null. Never fails: what has no meaning comes
 * back as it is. */
V_API uint32_t V_CALL V_TranslateBitmapColor(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t color) V_NOEXCEPT;

/* The plain colour that a value stands for in a bitmap; an index outside its palette comes back as it is. A gray level in a
 * gray bitmap whose look-up table is in use becomes the colour of the nearest entry, of the 16-bit table (the high bytes)
 * where there is no other. */
V_API uint32_t V_CALL V_GetTrueColorValue(BITMAPHANDLE* bitmap, uint32_t color) V_NOEXCEPT;

/* The bare index of the palette entry that the platform finds nearest to a colour value (plain, of equal distances the
 * first); 0 without a palette, and where the platform has no room for a logical one. */
V_API uint32_t V_CALL V_GetNearestPaletteIndex(BITMAPHANDLE* bitmap, uint32_t color) V_NOEXCEPT;

/* --- logical palettes: the platform's own on Windows, the same results elsewhere ------------------------------------ */

/* A new logical palette of 1 to 256 entries, for V_SysDelete to free; null on failure. It holds colours alone: reserved
 * bytes are ignored, and read as 0. */
V_API HPALETTE V_CALL V_SysCreatePalette(const RGBQUAD* entries, uint32_t count) V_NOEXCEPT;

/* Reads entries; a null `out` asks for their number. Returns the number of entries read, 0 on failure. */
V_API uint32_t V_CALL V_SysGetPaletteEntries(HPALETTE palette, uint32_t start, uint32_t count, RGBQUAD* out) V_NOEXCEPT;

/* A copy of a logical palette, for V_SysDelete to free; null on failure and for null. */
V_API HPALETTE V_CALL V_DupPalette(HPALETTE palette) V_NOEXCEPT;

/* Deletes a logical palette; null is ignored. */
V_API void V_CALL V_SysDelete(void* handle) V_NOEXCEPT;

/* Gives the bitmap the entries of a logical palette. Returns 1; -13 null record or palette, not 2 to 256 entries;
 * -789 bad size; -1 no memory (the old palette stays). */
V_API int32_t V_CALL V_SetBitmapPalette(BITMAPHANDLE* bitmap, HPALETTE palette) V_NOEXCEPT;

VEXAKRN_END

#endif
