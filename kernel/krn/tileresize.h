// What allocation and height change of tiles share.
#ifndef VEXAKRN_KRN_TILERESIZE_H
#define VEXAKRN_KRN_TILERESIZE_H

#include "krn/tiles.h"

namespace vexakrn {

// More tiles than this would need a table larger than most images: such a bitmap goes elsewhere.
inline constexpr uint32_t kMaxTiles = 1u << 24;

// How many of the tiles go to memory. All, if they may and fit; else what the limit allows, and of the account only
// half, so that room for views is left. Where disk is forbidden there is no choice: only the fifth threshold counts, and it
// decides between all and failure.
uint32_t ChooseConventionalTiles(const TileTable& table, uint32_t tileCount, uint64_t dataSize) noexcept;

// Makes the next conventional tile, whose index must be the number of those there are.
int32_t MakeConventionalTile(TileTable& table, uint32_t index) noexcept;
void FreeConventionalTile(TileTable& table, uint32_t index) noexcept;

int32_t ResizeTiles(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept;

}  // namespace vexakrn

#endif
