/* Palettes of bitmaps of 1 to 8 bits per pixel. */
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

/* Gives the bitmap a copy of `colors` entries; a null palette or no colours leaves it without one. Returns 1; -13 null
 * record, or more than 256 colours; -789 bad size; -1 no memory (the old palette stays). */
V_API int32_t V_CALL V_SetBitmapNewPalette(BITMAPHANDLE* bitmap, const RGBQUAD* palette, uint32_t colors) V_NOEXCEPT;

/* Gives `dst` a copy of the palette of `src`, or none when `src` has none. Returns 1; -13 null record; -789 bad size;
 * -1 no memory (the old palette stays). */
V_API int32_t V_CALL V_CopyBitmapPalette(BITMAPHANDLE* dst, BITMAPHANDLE* src) V_NOEXCEPT;

/* The entry nearest to a colour by squared distance. Black and white prefer the first or last entry when it
 * is that colour; of two equally distant entries the later one wins only when its components are ordered like the
 * wanted ones. A null palette gives 0, no colours 0xFFFFFFFF. R, G and B are 0 to 255. */
V_API uint32_t V_CALL V_FindPaletteIndex(const RGBQUAD* palette, uint32_t colors, uint32_t R, uint32_t G,
                                         uint32_t B) V_NOEXCEPT;

VEXAKRN_END

#endif
