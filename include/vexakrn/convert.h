/* Lines of pixels from one depth and colour order to another, in place.
 *
 * Depths: 1 to 8 (palette), 12 (gray), 16, 24, 32, 48 and 64 bits per pixel; a source of 0 bits converts nothing. Pixels
 * below 8 bits are packed most significant bit first, 12-bit pixels lie two in three bytes, 16-bit colour is 5-5-5 or, in
 * the order Rgb565, 5-6-5. A null palette means the fixed palette of its depth. The buffer holds the larger of the
 * two lines (V_CalcConvertSize).
 *
 * All return 1; -13 for a null buffer, no width, a depth that is none, an order that does not go with the depth, or flags
 * that contradict; -16 for a Romm destination that is not of 24 or 48 bits; -1 no memory. */
#ifndef VEXAKRN_CONVERT_H
#define VEXAKRN_CONVERT_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

enum VexaConvertFlags {
  V_ConvertSourceGray = 1,
  V_ConvertDestinationGray = 2,
  V_ConvertSourceUseBits = 4,      /* source gray lies in the bits lowBit to highBit */
  V_ConvertDestinationUseBits = 8, /* destination gray does */
  V_ConvertAlphaInit = 32          /* alpha that the source has not gets a value: of the colour's top byte when that is
                                       one of V_ConvertBufferExt3, else opaque; without the flag it becomes 0 */
};

/* Gray flags follow from the orders; no bit range. */
V_API int32_t V_CALL V_ConvertBuffer(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst, int32_t orderSrc,
                                     int32_t orderDst, const RGBQUAD* paletteSrc, const RGBQUAD* paletteDst) V_NOEXCEPT;

/* With flags and a bit range for gray of more than 8 bits (-1: the whole pixel). */
V_API int32_t V_CALL V_ConvertBufferExt(uint8_t* buffer, int32_t width, int32_t bitsSrc, int32_t bitsDst,
                                        int32_t orderSrc, int32_t orderDst, const RGBQUAD* paletteSrc,
                                        const RGBQUAD* paletteDst, uint32_t flags, int32_t lowBit,
                                        int32_t highBit) V_NOEXCEPT;

/* With tables of 65535 entries for 16-bit gray on either side; null for none. */
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
