/* Basic types of the interface: calling convention, export marks, and the platform's small records.
 *
 * On Windows the platform's own RGBQUAD, RECT and POINT are used. Other systems get records of the
 * same layout here. Every record of the interface is packed and little-endian in memory. */
#ifndef VEXAKRN_TYPES_H
#define VEXAKRN_TYPES_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#define V_CALL __cdecl
#if defined(VEXAKRN_BUILDING)
#define V_API __declspec(dllexport)
#elif defined(VEXAKRN_STATIC)
#define V_API
#else
#define V_API __declspec(dllimport)
#endif
#else
#define V_CALL
#define V_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define VEXAKRN_BEGIN extern "C" {
#define VEXAKRN_END }
#define V_NOEXCEPT noexcept
#define VEXAKRN_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define VEXAKRN_BEGIN
#define VEXAKRN_END
#define V_NOEXCEPT
#define VEXAKRN_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#if !defined(_WIN32)
#pragma pack(push, 1)
/* One palette entry. `rgbReserved` is 0 in the palettes the engine makes. */
typedef struct RGBQUAD {
  uint8_t rgbBlue;
  uint8_t rgbGreen;
  uint8_t rgbRed;
  uint8_t rgbReserved;
} RGBQUAD;

/* A rectangle; right and bottom are exclusive. */
typedef struct RECT {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} RECT;

typedef struct POINT {
  int32_t x;
  int32_t y;
} POINT;
#pragma pack(pop)

/* A logical palette; palette.h has what makes, reads and deletes it. */
typedef struct VexaLogicalPalette* HPALETTE;
#endif

VEXAKRN_STATIC_ASSERT(sizeof(RGBQUAD) == 4, "a palette entry has four bytes");
VEXAKRN_STATIC_ASSERT(sizeof(RECT) == 16, "a rectangle has four 32-bit values");
VEXAKRN_STATIC_ASSERT(sizeof(POINT) == 8, "a point has two 32-bit values");

#endif
