/* The bitmap record and its lifecycle: initialise, create, allocate, access, release, change, free.
 *
 * The caller owns the record; the engine owns what hangs from it (pixel storage, palette, look-up
 * tables, overlays, the copy of the callback table) and frees it in V_FreeBitmap. One bitmap is used by one caller
 * at a time; different bitmaps may be used by different threads at once. */
#ifndef VEXAKRN_BITMAP_H
#define VEXAKRN_BITMAP_H

#include "vexakrn/types.h"

VEXAKRN_BEGIN

/* Bits of BITMAPHANDLE.Flags. */
enum VexaBitmapFlags {
  V_FlagAllocated = 1u << 0,            /* data storage exists */
  V_FlagConventionalMemory = 1u << 1,   /* the data lies in memory (tiles, compressed rows and user data too) */
  V_FlagDiskMemory = 1u << 2,           /* the data lies in a temporary file */
  V_FlagProgressiveAvailable = 1u << 3, /* a progressive form of the image exists */
  V_FlagLockedMemory = 1u << 4,         /* a movable block is locked at present */
  V_FlagInterlaced = 1u << 5,
  V_FlagWaitUserInput = 1u << 6, /* animation: wait for the user after this frame */
  V_FlagTransparency = 1u << 7,  /* animation: `Transparency` is valid */
  V_FlagCompressed = 1u << 8,    /* 1-bit rows are held as run lengths */
  V_FlagSigned = 1u << 9,        /* samples are signed */
  V_FlagMirror = 1u << 10,       /* the data belongs to somebody else; the engine never frees it */
  V_FlagUseLUT = 1u << 11,
  V_FlagGlobal = 1u << 12, /* the data is a movable block that is locked on access */
  V_FlagUsePaintLUT = 1u << 13,
  V_FlagTiled = 1u << 14,           /* the data lies in tiles */
  V_FlagSuperCompressed = 1u << 15, /* the data is held by the super-compressed store */
  V_FlagNoClip = 1u << 16,
  V_FlagPremultiplyAlpha = 1u << 17,
  V_FlagNonLinearLUT = 1u << 18
};

/* Bits of a memory request (`memoryType`). After adjustment a request must be one of 1, 2, 4, 8, 9, 128, 256, 257,
 * 260, 264, 265, 768, 769, 1024, 1025, 1280, 1281. */
enum VexaMemoryFlags {
  V_MemoryConventional = 1,
  V_MemoryUser = 2,
  V_MemoryTiled = 4,
  V_MemoryNoTiled = 8,
  V_MemoryDisk = 128,
  V_MemoryNoDisk = 256,
  V_MemoryCompressed = 512,
  V_MemorySuperCompressed = 1024
};

/* Orders of the colour samples. */
enum VexaByteOrder { V_OrderRgb = 0, V_OrderBgr = 1, V_OrderGray = 2, V_OrderRomm = 5, V_OrderRgb565 = 7 };

/* Corner at which the first stored row and pixel lie; the numbers are those of the TIFF Orientation tag. */
enum VexaViewPerspective {
  V_ViewTopLeft = 1,
  V_ViewTopRight = 2,
  V_ViewBottomRight = 3,
  V_ViewBottomLeft = 4,
  V_ViewLeftTop = 5,
  V_ViewRightTop = 6,
  V_ViewRightBottom = 7,
  V_ViewLeftBottom = 8
};

/* Structure sizes that every function accepts in `uStructSize`. In a record of the older layout the last word, at 224,
 * is private, and nothing past its 228 bytes is ever read or written. It counts no accesses and takes no callbacks. */
enum { V_BITMAPHANDLE_SIZE = 284, V_BITMAPHANDLE_OLD_SIZE = 228 };

#pragma pack(push, 1)

struct BITMAPHANDLEDATACALLBACKS;

/* The image record. Fields named `reserved...` are private to the engine. */
typedef struct BITMAPHANDLE {
  uint32_t uStructSize; /* 284 or 228, set before initialisation */
  union {
    struct {
      void* hMemory;  /* memory or mapping handle */
      uint8_t* pData; /* first byte of the data, valid while accessed */
    } Windows;
    struct {
      intptr_t hFile; /* the temporary file that holds the data */
      uint64_t reserved;
    } File;
    struct {
      uint64_t reserved;
      void* pTiles; /* tile table */
    } Tiled;
    struct {
      uint64_t reserved;
      void* pBlocks; /* table of compressed row blocks */
    } Compressed;
    struct {
      void* hStore; /* super-compressed store */
      uint64_t reserved;
    } SuperCompressed;
  } Addr;
  int32_t Width;         /* pixels per row */
  int32_t Height;        /* rows */
  int32_t BitsPerPixel;  /* 1 to 8, 12, 16, 24, 32, 48 or 64 */
  uint32_t BytesPerLine; /* row pitch, a multiple of 4 */
  uint8_t reserved36[12];
  uint32_t Flags;          /* VexaBitmapFlags */
  int32_t nColors;         /* palette entries; 0 above 8 bits */
  RGBQUAD* pPalette;       /* owned by the record */
  int32_t ViewPerspective; /* VexaViewPerspective */
  int32_t Order;           /* VexaByteOrder */
  uint32_t Size32;         /* data size, low 32 bits; the whole size in the older layout */
  uint8_t reserved76[4];
  void* DitherState;      /* running dithering pass */
  int32_t DitherMethod;   /* dithering method, 0 to 8 */
  void* pRgnInfo;         /* the bitmap's region */
  int32_t XResolution;    /* dots per inch */
  int32_t YResolution;    /* dots per inch */
  int32_t Left;           /* animation frame: horizontal offset in pixels */
  int32_t Top;            /* animation frame: vertical offset in pixels */
  int32_t Delay;          /* animation frame: milliseconds */
  int32_t Background;     /* animation frame: colour value */
  int32_t Transparency;   /* animation frame: colour value */
  int32_t DisposalMethod; /* animation frame: 0 none, 1 leave, 2 restore background, 3 restore previous */
  int32_t LowBit;         /* valid bit range of gray samples */
  int32_t HighBit;
  RGBQUAD* pLUT; /* display look-up table */
  uint32_t LUTLength;
  uint64_t DataOffset; /* bytes between the start of the storage and the first row */
  uint64_t reserved160;
  int32_t PaintLowBit;
  int32_t PaintHighBit;
  int32_t PaintGamma; /* hundredths */
  int32_t PaintContrast;
  int32_t PaintIntensity;
  uint8_t reserved188[8];
  void* Overlays;
  uint8_t reserved204[20];
  uint32_t LUTLength16; /* from here on: current layout only */
  void* pLUT16;
  uint8_t reserved236[16];
  uint64_t Size64; /* data size in bytes */
  uint8_t reserved260[8];
  int32_t nLockCount;                              /* nesting of accesses */
  struct BITMAPHANDLEDATACALLBACKS* DataCallbacks; /* the engine's private copy, or null */
  uint8_t reserved280[4];
} BITMAPHANDLE;

/* What an allocation callback or hook is told. */
typedef struct ALLOCATEBITMAPCALLBACKDATA {
  uint32_t uStructSize; /* 52 */
  uint32_t reserved4;
  uint32_t uMemory; /* the memory request; the callee may change it */
  uint32_t Width;
  uint32_t Height;
  uint32_t BitsPerPixel;
  uint32_t BytesPerLine; /* 0 when the process-wide hook is called */
  uint32_t Order;
  uint32_t ViewPerspective;
  uint64_t Size; /* data size in bytes */
  void* pData;   /* the caller's data pointer, or null */
} ALLOCATEBITMAPCALLBACKDATA;

/* Through this table a host owns a bitmap's storage. Any slot may be null: the engine then does its own work. */
typedef struct BITMAPHANDLEDATACALLBACKS {
  uint32_t uStructSize; /* 84 */
  void* pUserData;      /* last argument of every callback */
  /* In the four status slots Allocate, Free, Access and Release, 2 means handled (the engine skips its own work), 1
   * means continue, anything else is an error code. */
  int32_t(V_CALL* AllocateBitmapData)(BITMAPHANDLE*, ALLOCATEBITMAPCALLBACKDATA*, void* userData);
  int32_t(V_CALL* FreeBitmapData)(BITMAPHANDLE*, void* userData);
  int32_t(V_CALL* BeginCopyBitmapData)(BITMAPHANDLE*, uint32_t flags, ALLOCATEBITMAPCALLBACKDATA*,
                                       struct BITMAPHANDLEDATACALLBACKS*, void* userData);
  int32_t(V_CALL* EndCopyBitmapData)(BITMAPHANDLE*, uint32_t flags, void* userData);
  int32_t(V_CALL* AccessBitmap)(BITMAPHANDLE*, void* userData);
  int32_t(V_CALL* ReleaseBitmap)(BITMAPHANDLE*, void* userData);
  /* A result of 0 leaves the transfer to the engine; any other is the row function's result. */
  uint64_t(V_CALL* GetBitmapRowCol)(BITMAPHANDLE*, void* buffer, int32_t row, int32_t column, uint64_t count,
                                    void* userData);
  uint64_t(V_CALL* PutBitmapRowCol)(BITMAPHANDLE*, const void* buffer, int32_t row, int32_t column, uint64_t count,
                                    void* userData);
  int32_t(V_CALL* GetBitmapScratchBuffer)(BITMAPHANDLE*, void** buffer, uint64_t bytes, void* userData);
} BITMAPHANDLEDATACALLBACKS;

/* A small bitmap that lies over another one. */
typedef struct BITMAPOVERLAY {
  uint32_t uStructSize; /* 24 */
  int32_t x;            /* position of the top left corner, in pixels of the displayed picture */
  int32_t y;
  uint32_t uFlags; /* 2: resized with its bitmap */
  BITMAPHANDLE* pBitmap;
} BITMAPOVERLAY;

#pragma pack(pop)

VEXAKRN_STATIC_ASSERT(sizeof(BITMAPHANDLE) == 284, "the record's size is part of the interface");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, Width) == 20, "storage address");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, Flags) == 48, "dimensions and private words");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, DitherState) == 80, "palette, order and size");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, XResolution) == 100, "dithering and region");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, LowBit) == 132, "resolution and animation");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, DataOffset) == 152, "bit range and look-up table");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, PaintLowBit) == 168, "data offset");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, Overlays) == 196, "painting");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, LUTLength16) == 224, "overlays");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, Size64) == 252, "16-bit look-up table");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, nLockCount) == 268, "64-bit size");
VEXAKRN_STATIC_ASSERT(offsetof(BITMAPHANDLE, DataCallbacks) == 272, "lock count");
VEXAKRN_STATIC_ASSERT(sizeof(ALLOCATEBITMAPCALLBACKDATA) == 52, "part of the interface");
VEXAKRN_STATIC_ASSERT(sizeof(BITMAPHANDLEDATACALLBACKS) == 84, "part of the interface");
VEXAKRN_STATIC_ASSERT(sizeof(BITMAPOVERLAY) == 24, "part of the interface");

/* --- lifecycle ---------------------------------------------------------------------------------------------- */

/* Fills a record without allocating data. `structSize` is 284 or 228; the record is zeroed over that size first.
 * Width, height and depth all 0 give an empty record. `bitmap` must not hold storage: it is overwritten.
 * Returns 1; -13 null record; -789 bad size (or callbacks for the older layout); -11 negative dimension; -27
 * unsupported depth; -3 a data size that the older layout cannot hold; -1 no memory for the callback table.
 * On -27 the record stays zero apart from its size, on -3 it is zero as a whole. */
V_API int32_t V_CALL V_InitBitmap(BITMAPHANDLE* bitmap, uint32_t structSize, int32_t width, int32_t height,
                                  int32_t bitsPerPixel) V_NOEXCEPT;

/* The same with a table of data callbacks, which is copied; null means none. A table whose size is not 84 is
 * ignored, and so is one for a bitmap without data. */
V_API int32_t V_CALL V_InitBitmapWithCallbacks(BITMAPHANDLE* bitmap, uint32_t structSize, int32_t width, int32_t height,
                                               int32_t bitsPerPixel,
                                               const BITMAPHANDLEDATACALLBACKS* callbacks) V_NOEXCEPT;

/* Initialises, allocates, and sets palette, order and perspective. A depth of 0 means 8 bits with a gray palette;
 * order Gray at 1 to 8 bits without a palette asks for a gray palette; otherwise a depth up to 8 bits without
 * `palette` (2^bits entries, copied) gets the fixed palette. A perspective of 0 means top left. With memory type
 * User, `userData` of `userDataSize` bytes becomes the data and stays the caller's.
 * Returns 1; -13 null record, bad perspective, bad memory request, or a user data size that is not the data size;
 * -789, -11, -27, -3 as V_InitBitmap; -27 also for order Romm at a depth other than 24 and 48; the codes of
 * V_AllocateBitmap. A failure leaves nothing allocated. */
V_API int32_t V_CALL V_CreateBitmap(BITMAPHANDLE* bitmap, uint32_t structSize, uint32_t memoryType, int32_t width,
                                    int32_t height, int32_t bitsPerPixel, int32_t order, const RGBQUAD* palette,
                                    int32_t viewPerspective, void* userData, uint64_t userDataSize) V_NOEXCEPT;
V_API int32_t V_CALL V_CreateBitmapWithCallbacks(BITMAPHANDLE* bitmap, uint32_t structSize, uint32_t memoryType,
                                                 int32_t width, int32_t height, int32_t bitsPerPixel, int32_t order,
                                                 const RGBQUAD* palette, int32_t viewPerspective, void* userData,
                                                 uint64_t userDataSize,
                                                 const BITMAPHANDLEDATACALLBACKS* callbacks) V_NOEXCEPT;

/* Allocates data storage for an initialised record; storage that it has is released first. Memory that the engine
 * obtains is zero. Which kind of storage a request gets depends on the size, the calling thread's thresholds and the
 * process-wide account (memory.h).
 * Returns 1; -13 null record or invalid request; -789 bad size; -11 no data, or a width whose rows do not fit the
 * 32-bit row length; -1 no storage could hold the data; -1905 the account's limit when nothing else was allowed; a
 * hook's or callback's own code. A failed allocation leaves the record unallocated; a hook's refusal and -11 leave
 * it as it was. */
V_API int32_t V_CALL V_AllocateBitmap(BITMAPHANDLE* bitmap, uint32_t memoryType) V_NOEXCEPT;

/* Attaches the caller's buffer as the data of a user-memory bitmap. The buffer stays the caller's and must outlive the
 * bitmap. For an allocated user bitmap the pointer is just stored; otherwise a non-null pointer must come with
 * the data size of the record. Returns 1; -2 null record; -789 bad size; -13 size mismatch,
 * or a bitmap with storage of the engine's own. */
V_API int32_t V_CALL V_SetBitmapDataPointer(BITMAPHANDLE* bitmap, void* data, uint64_t size) V_NOEXCEPT;

/* Replaces the record's private copy of the callback table; null removes it. Returns 1; -13 null record; -789 bad
 * record or table size, or a record of the older layout; -11 a record without data size; -1 no memory (the old
 * table stays). */
V_API int32_t V_CALL V_SetBitmapDataCallbacks(BITMAPHANDLE* bitmap,
                                              const BITMAPHANDLEDATACALLBACKS* callbacks) V_NOEXCEPT;

/* Copies the table to `out` (84 bytes); a record without one gives an empty table. Returns 1; -13 null record; -814
 * null output; -789 bad record size. */
V_API int32_t V_CALL V_GetBitmapDataCallbacks(BITMAPHANDLE* bitmap, BITMAPHANDLEDATACALLBACKS* out) V_NOEXCEPT;

/* Locks the data for use; accesses nest and each needs its release. Returns 1; -814 null record; -1 a movable block
 * that cannot be locked; the AccessBitmap callback's own code. A failed access is not counted. */
V_API int32_t V_CALL V_AccessBitmap(BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Ends an access. Returns 1; -814 null record; -789 bad size; the ReleaseBitmap callback's own code. */
V_API int32_t V_CALL V_ReleaseBitmap(BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* As V_AccessBitmap; `didLock` (may be null) becomes 1 when the access succeeded, else 0. */
V_API int32_t V_CALL V_IntAccessBitmap(BITMAPHANDLE* bitmap, int32_t* didLock) V_NOEXCEPT;

/* Releases when `didLock` is not 0. Returns `status` unless that is 1, then the release's own result; -814 null
 * record. */
V_API int32_t V_CALL V_IntReleaseBitmap(BITMAPHANDLE* bitmap, int32_t didLock, int32_t status) V_NOEXCEPT;

/* Grows or shrinks the data in place; rows that are added are zero. Returns 1; -2 null or unallocated record; -13
 * user data or data kept by a callback; -789 bad size; -11 a height below 1; -1 the storage could not be changed
 * (the bitmap is as it was). */
V_API int32_t V_CALL V_ChangeBitmapHeight(BITMAPHANDLE* bitmap, int32_t newHeight) V_NOEXCEPT;

/* Frees everything the record owns; the record itself stays the caller's and can be initialised again. A null record
 * or one with a bad size is ignored. User data is never freed. */
V_API void V_CALL V_FreeBitmap(BITMAPHANDLE* bitmap) V_NOEXCEPT;

/* Makes `dst` a record of `structSize` bytes at the given dimensions with the attributes of `src`: perspective,
 * resolutions, dithering method, animation fields and flags, painting values, and, where the depth is the same, order,
 * palette, bit range, signedness and look-up tables. Storage, region, overlays, callbacks and a running
 * dithering pass are not carried. A depth of 0 means that of `src`. `dst` is overwritten and is not allocated.
 * Returns 1; -13 null or identical records; -789 bad size; -11, -27, -3 as V_InitBitmap; -1 no memory. */
V_API int32_t V_CALL V_DupBitmapNewDim(BITMAPHANDLE* dst, BITMAPHANDLE* src, uint32_t structSize, int32_t width,
                                       int32_t height, int32_t bitsPerPixel) V_NOEXCEPT;

/* A process-wide hook that sees every allocation first; null removes it. Its result other than 1 ends the allocation
 * and is returned; it may change the memory request. It may be called by several threads at once. Always 1. */
typedef int32_t(V_CALL* ALLOCATEBITMAPHOOK)(BITMAPHANDLE*, ALLOCATEBITMAPCALLBACKDATA*, void* userData);
V_API int32_t V_CALL V_SetAllocateBitmapHook(ALLOCATEBITMAPHOOK hook, void* userData) V_NOEXCEPT;

/* Compares two records and, where both are allocated with the same dimensions and depth, their rows. One line a
 * difference, "\n Width\t1\t2", is appended to the string in `text`, which has room for `textSize` bytes with its end;
 * lines that do not fit are cut. `text` may be null. Returns 1 no difference; 0 some; -13 null record; -789 bad size;
 * the code with which rows could not be accessed or read (all else has been compared then). */
V_API int32_t V_CALL V_CompareBitmapHandles(BITMAPHANDLE* a, BITMAPHANDLE* b, char* text, uint64_t textSize) V_NOEXCEPT;

/* --- single pixels -------------------------------------------------------------------------------------------- */

/* Reads the pixel at a displayed position (row 0 is the top row as seen, whatever the perspective) as a plain colour
 * value: red in bits 0-7, green 8-15, blue 16-23. A palette index beyond the palette reads as black; gray deeper
 * than 8 bits is brought from LowBit..HighBit to 8 bits.
 * Returns 1; -2 null or unallocated record; -13 position outside; -814 null output; -789; or the access's or row
 * function's code. */
V_API int32_t V_CALL V_GetPixelColor(BITMAPHANDLE* bitmap, int32_t row, int32_t column, uint32_t* color) V_NOEXCEPT;

/* Writes a colour value at a displayed position. Kinds (top byte): 0x00 a plain colour, which becomes the nearest
 * palette entry, a gray level by (2R + 5G + B + 4) >> 3, or the pixel's components (alpha stays); 0x01 a palette
 * index in the low 16 bits; 0x04 a gray level in bits 8-15. Returns as V_GetPixelColor; -13 also for another kind or an
 * index at or beyond 2^bits. */
V_API int32_t V_CALL V_PutPixelColor(BITMAPHANDLE* bitmap, int32_t row, int32_t column, uint32_t color) V_NOEXCEPT;

/* Reads or writes the raw value of the pixel at a displayed position: one byte up to 8 bits (the value in its low
 * bits), two bytes at 12 and 16 bits, else the pixel's bytes as stored. `bytes` is the room in `data`; less than the
 * pixel needs is -13, more is left alone. Otherwise as above. */
V_API int32_t V_CALL V_GetPixelData(BITMAPHANDLE* bitmap, void* data, int32_t row, int32_t column,
                                    uint64_t bytes) V_NOEXCEPT;
V_API int32_t V_CALL V_PutPixelData(BITMAPHANDLE* bitmap, const void* data, int32_t row, int32_t column,
                                    uint64_t bytes) V_NOEXCEPT;

/* --- overlays --------------------------------------------------------------------------------------------------- */

/* Puts an overlay into a slot (0 to 15), replacing the one there. The bitmap keeps its own copy, pixels included; the
 * caller's overlay bitmap stays the caller's. Returns 1; -13 null record or slot outside; -814 null overlay; -789 a
 * bad record size; -2 no overlay bitmap or an unallocated one; or the code of the copy. A failure keeps the old one. */
V_API int32_t V_CALL V_SetBitmapOverlay(BITMAPHANDLE* bitmap, int32_t slot, const BITMAPOVERLAY* overlay) V_NOEXCEPT;

/* Describes the overlay in a slot. `overlay->pBitmap` is the engine's copy: it may be read and written, and lives until
 * the slot is set or freed or the bitmap is freed. Returns 1; -2 an empty slot (pBitmap becomes null); -13, -814,
 * -789 as above. */
V_API int32_t V_CALL V_GetBitmapOverlay(BITMAPHANDLE* bitmap, int32_t slot, BITMAPOVERLAY* overlay) V_NOEXCEPT;

/* Frees the overlay in a slot; an empty slot is no error. Returns 1; -13 null record or slot outside; -789. */
V_API int32_t V_CALL V_FreeBitmapOverlay(BITMAPHANDLE* bitmap, int32_t slot) V_NOEXCEPT;

/* --- defaults of the calling thread ---------------------------------------------------------------------------------
 */

/* Resolution, in dots per inch, that initialised bitmaps get; a value below 1 gives them 150. Always 1. */
V_API int32_t V_CALL V_SetDefaultResolution(int32_t x, int32_t y) V_NOEXCEPT;
V_API int32_t V_CALL V_GetDefaultXResolution(void) V_NOEXCEPT;
V_API int32_t V_CALL V_GetDefaultYResolution(void) V_NOEXCEPT;

/* Dithering method, 0 to 8, that initialised bitmaps get. Returns 1; -13 another value (nothing changes). */
V_API int32_t V_CALL V_SetDefaultDithering(int32_t method) V_NOEXCEPT;
V_API int32_t V_CALL V_GetDefaultDithering(void) V_NOEXCEPT;

VEXAKRN_END

#endif
