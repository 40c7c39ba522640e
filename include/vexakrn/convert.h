/* Lines of pixels from one depth and colour order to another, in place.
 *
 * Depths: 1 to 8 (palette), 12 (gray), 16, 24, 32, 48 and 64 bits per pixel; a source of 0 bits converts nothing, but its
 * destination is checked. Pixels below 8 bits are packed most significant bit first, 12-bit pixels lie two in three bytes,
 * 16-bit colour is 5-5-5 or, in the order Rgb565, 5-6-5. The order Gray makes 8, 12 and 16 bits gray; below 8 bits the
 * palette decides, be the order Rgb, Bgr or Gray. 12 bits go with no other order. Romm is an order of 24 and 48 bits. A null palette
 * means the fixed palette of its depth. The buffer holds the larger of the two lines (V_CalcConvertSize).
 *
 * Values: a result with a palette gets the nearest entries (V_FindPaletteIndex). Gray of a colour is (2 R + 5 G + B +
 * 4) / 8, of the top 8 bits of each component; it becomes g * (2^n - 1) / 255 where n bits above 8 hold it, and keeps
 * its top n bits otherwise. Narrowing keeps the top bits: of 16 the top byte. Gray of less than 8 bits, or of 9 to 15,
 * is widened by repeating its bits, and so are fields of 5 and 6 bits; 8 bits become 16 times 257. Colour of 16 bits
 * and palettes have 8 bits a component on their way to 48 and 64; gray of more than 8 bits keeps what it has. Alpha
 * that the source has not is 0, or what V_ConvertAlphaInit says. 48-bit Romm uses the matrices of 24 bits, limited to
 * 65535. The same format on both sides is copied unchanged, unless it has a palette.
 *
 * All return 1; -13 for a null buffer, a width that is not positive, a depth that is none, an order that does not go with
 * the depth (as Gray with 24 bits and more), flags that contradict, or a bit range that is none; -16 for a Romm
 * destination of another depth, when nothing is wrong beside that; -1 no memory. */
#ifndef VEXAKRN_CONVERT_H
#define VEXAKRN_CONVERT_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

enum VexaConvertFlags {
  V_ConvertSourceGray = 1,
  V_ConvertDestinationGray = 2,
  V_ConvertSourceUseBits = 4,      /* source gray lies in the bits lowBit to highBit */
  V_ConvertDestinationUseBits = 8, /* destination gray does */
  V_ConvertAlphaInit = 32          /* alpha that the source has not is the top byte of V_ConvertBufferExt3's colour, for
                                      the other functions 255; without the flag it is 0 */
};

/* Gray flags follow from the orders; no bit range. */
V_API int32_t V_CALL V_ConvertBuffer(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst, int32_t orderSrc,
                                     int32_t orderDst, const RGBQUAD* paletteSrc, const RGBQUAD* paletteDst) V_NOEXCEPT;

/* With flags and a bit range for gray of 12 and 16 bits; up to 8 bits it is ignored. A negative end is that of the pixel;
 * -13 when the low bit lies above the high one, or the high one beyond the pixel. */
V_API int32_t V_CALL V_ConvertBufferExt(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst,
                                        int32_t orderSrc, int32_t orderDst, const RGBQUAD* paletteSrc,
                                        const RGBQUAD* paletteDst, uint32_t flags, int32_t lowBit,
                                        int32_t highBit) V_NOEXCEPT;

/* With tables of 65535 entries for 16-bit gray on either side, which other formats ignore; null for none. The value 65535
 * takes the last entry, 65534. */
V_API int32_t V_CALL V_ConvertBufferExt2(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst,
                                         int32_t orderSrc, int32_t orderDst, const RGBQUAD* paletteSrc,
                                         const RGBQUAD* paletteDst, const uint16_t* lutSrc, const uint16_t* lutDst,
                                         uint32_t flags, int32_t lowBit, int32_t highBit) V_NOEXCEPT;

/* With a colour value for the alpha that is initialised. */
V_API int32_t V_CALL V_ConvertBufferExt3(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst,
                                         int32_t orderSrc, int32_t orderDst, const RGBQUAD* paletteSrc,
                                         const RGBQUAD* paletteDst, const uint16_t* lutSrc, const uint16_t* lutDst,
                                         uint32_t flags, int32_t lowBit, int32_t highBit, uint32_t color) V_NOEXCEPT;

/* Bytes that a buffer needs: the largest of source width at source bits, destination width at source bits and destination
 * width at destination bits, as row pitches; 0 bits count as 8. */
V_API uint64_t V_CALL V_CalcConvertSize(int32_t widthSrc, int32_t bitsSrc, int32_t widthDst,
                                        int32_t bitsDst) V_NOEXCEPT;

/* Zeroes what follows the last pixel in a row of `rowBytes` bytes, bits of a shared byte included. Returns 1; -13 null
 * row, negative width, a depth that is none, or a row that is too short. */
V_API int32_t V_CALL V_PadPixelData(uint8_t* row, int32_t width, int32_t bits, uint64_t rowBytes) V_NOEXCEPT;

VEXAKRN_END

#endif
