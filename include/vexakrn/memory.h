/* Where pixels are kept: the default memory type, the thresholds that steer allocation, the process-wide account of
 * conventional memory, and what storage one bitmap got.
 *
 * The default type and the thresholds are the calling thread's own; the account is the process's. */
#ifndef VEXAKRN_MEMORY_H
#define VEXAKRN_MEMORY_H

#include "vexakrn/bitmap.h"

VEXAKRN_BEGIN

/* The memory request that is used when a caller asks for the default: Conventional (1, at first) or Disk (128).
 * Set returns 1; -13 for another value (nothing changes). Get returns 1; -13 for a null output. */
V_API int32_t V_CALL V_SetDefaultMemoryType(uint32_t type) V_NOEXCEPT;
V_API int32_t V_CALL V_GetDefaultMemoryType(uint32_t* type) V_NOEXCEPT;

/* Selects values in `which`. */
enum VexaThresholds {
  V_ThresholdReserve = 1,
  V_ThresholdMaxConventional = 2,
  V_ThresholdTileSize = 4,
  V_ThresholdFourth = 8,
  V_ThresholdFifth = 16
};

/* Thresholds of allocation. All start at 0.
 *   reserve          bytes of memory to leave free; -1 to -100: that many percent of all memory and paging space
 *   maxConventional  largest conventional block in bytes (a larger bitmap goes to disk, or to tiles when disk is
 *                    forbidden); -1 to -100: that many percent of the available memory; 0: no maximum
 *   tileSize         bytes of one tile; 0: 16 MiB. A bitmap no larger gets no tiles by asking for them
 *   fourth           kept and returned
 *   fifth            tiles of a bitmap that may be held in conventional memory, the others lie in a file (where disk is
 *                    forbidden, a bitmap with more tiles is not tiled); -1 to -100: that many percent of its tiles;
 *                    0: as many as the memory allows
 *
 * Set stores the selected values in this order; a value below its floor (-100, tileSize 0) ends it with -13, and those
 * stored before stay. Get fills each non-null output. Both return 1 otherwise. */
V_API int32_t V_CALL V_SetMemoryThresholds(int32_t reserve, int64_t maxConventional, int64_t tileSize, int32_t fourth,
                                           int32_t fifth, uint32_t which) V_NOEXCEPT;
V_API int32_t V_CALL V_GetMemoryThresholds(int32_t* reserve, int64_t* maxConventional, int64_t* tileSize,
                                           int32_t* fourth, int32_t* fifth) V_NOEXCEPT;

/* Operations of V_ManageMemory. */
enum VexaMemoryOperation {
  V_MemorySetLimit = 0, /* `size` becomes the limit, 0 none; the old one goes to `value` when given */
  V_MemoryGetLimit = 1, /* the limit goes to `value` when given */
  V_MemoryReserve = 2,  /* takes `size` bytes, or -1905 */
  V_MemoryReturn = 3,   /* gives `size` bytes back */
  V_MemoryGetUsed = 4,  /* the bytes in use go to `value`; -814 without it */
  V_MemoryQuery = 5     /* what could be reserved goes to `value` when given; 1 when `size` could be, else -1905 */
};

/* The process-wide account of conventional memory: mapped blocks and mapped tiles. All of it happens under one critical
 * section. Query reports limit - used, or 1 when the limit is used up, or 2^63 - 1 without a limit. A sum beyond 64 bits
 * is refused, and returning more than is in use leaves 0.
 * Returns 1; -1905; -814; -16 for another operation. */
V_API int32_t V_CALL V_ManageMemory(int32_t operation, uint64_t size, uint64_t* value) V_NOEXCEPT;

/* Tells what storage a bitmap has. Outputs may be null. `memoryType` is Conventional, User (also data that a callback
 * keeps), Tiled, Disk, Compressed or SuperCompressed; the other values are 0 for bitmaps without tiles:
 *   tileSize          bytes of one tile, by the threshold it was allocated under
 *   totalTiles        number of tiles
 *   conventionalTiles tiles held in memory; the others lie in a file and are mapped on demand
 *   maxTileViewSize   most bytes of file tiles mapped at once
 * Returns 1; -2 null or unallocated record; -789 bad size. */
V_API int32_t V_CALL V_GetBitmapMemoryInfo(BITMAPHANDLE* bitmap, uint32_t* memoryType, int64_t* tileSize,
                                           int32_t* totalTiles, int32_t* conventionalTiles,
                                           int64_t* maxTileViewSize) V_NOEXCEPT;

/* Selects values in `which`. */
enum VexaMemorySettings {
  V_MemorySettingType = 1,
  V_MemorySettingTileSize = 2,
  V_MemorySettingConventionalTiles = 4,
  V_MemorySettingViewSize = 8
};

/* Moves a bitmap's data into other storage; the record stays what it is otherwise, in its own layout. Of the values,
 * those selected in `which` take effect; without a type, the bitmap keeps its own.
 *   memoryType         a memory request (bitmap.h)
 *   tileSize           bytes of one tile; 0 or less: the default
 *   conventionalTiles  tiles held in memory, as the fifth threshold (above)
 *   maxTileViewSize    most bytes of file tiles mapped at once (at least one tile is); 0 or less: the default
 * Where nothing changes (the last three matter to tiles only) it is done at once. The copy-status callback sees
 * the rows move. Returns 1; -2 null or unallocated record; -789 bad size; -13 an invalid request, or user memory, whose
 * data would have no place; -1, -1905 no storage; the codes of callbacks and rows. On failure the bitmap is as it was. */
V_API int32_t V_CALL V_SetBitmapMemoryInfo(BITMAPHANDLE* bitmap, uint32_t memoryType, int64_t tileSize,
                                           int32_t conventionalTiles, int64_t maxTileViewSize,
                                           uint32_t which) V_NOEXCEPT;

/* The allocator of blocks that pass between caller and engine: palettes, stream blocks, segment arrays. A null `block`
 * allocates. Contents stay up to the smaller size. Null when there is no memory (the old block stays); 0 bytes frees
 * the block and returns null. V_FreeBuffer ignores null. */
V_API void* V_CALL V_ReallocBuffer(void* block, uint64_t bytes) V_NOEXCEPT;
V_API void V_CALL V_FreeBuffer(void* block) V_NOEXCEPT;

/* Movable blocks (the platform's global memory on Windows). V_SysAllocBlock gives a handle to zeroed memory, null on
 * failure; V_SysLockBlock the address, valid until the matching V_SysUnlockBlock (1; -814 null; -13 not locked);
 * locks nest. V_SysFreeBlock ignores null. */
V_API void* V_CALL V_SysAllocBlock(uint64_t bytes) V_NOEXCEPT;
V_API void* V_CALL V_SysLockBlock(void* block) V_NOEXCEPT;
V_API int32_t V_CALL V_SysUnlockBlock(void* block) V_NOEXCEPT;
V_API void V_CALL V_SysFreeBlock(void* block) V_NOEXCEPT;

VEXAKRN_END

#endif
