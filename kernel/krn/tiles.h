// Tiled storage: whole rows in tiles, the first ones in memory, the others in one scratch file and mapped on demand.
//
//   tile 0 .. conventionalTiles-1     anonymous memory, mapped as long as the bitmap lives
//   the others                        slots of the file; a few are mapped at a time, the longest unused goes first
//
// Each mapped tile is in the process-wide account. When the account, the system or the view limit leaves no room for a
// view, the transfer goes straight to the file: a row never fails for lack of memory.
#ifndef VEXAKRN_KRN_TILES_H
#define VEXAKRN_KRN_TILES_H

#include "krn/storage.h"
#include "platform/platform.h"

namespace vexakrn {

struct Tile {
  uint8_t* view;      // the tile's first byte; null when it is not mapped
  uint64_t viewSize;  // its bytes that are mapped
  uint64_t reserved;  // bytes in the account
  void* handle;       // conventional tiles: the mapping's handle
  uint32_t newer;     // file tiles with a view: neighbours in the order of use
  uint32_t older;
};

inline constexpr uint32_t kNoTile = 0xFFFFFFFF;

struct TileTable {
  uint32_t tileCount;
  uint32_t rowsPerTile;
  uint32_t conventionalTiles;
  uint32_t pitch;
  int32_t height;
  AllocationContext context;  // the settings it was allocated under
  platform::File file;
  void* fileMapping;
  uint64_t fileBytes;
  uint64_t slotBytes;     // of a whole tile
  uint64_t viewBytes;     // of file tiles mapped now
  uint64_t maxViewBytes;  // at most this, or one tile
  uint32_t newest;        // ends of the order of use
  uint32_t oldest;
  Tile* tiles;  // tileCount of them
};

inline TileTable* TilesOf(const BITMAPHANDLE& bitmap) noexcept {
  return static_cast<TileTable*>(bitmap.Addr.Tiled.pTiles);
}

// Rows and bytes of one tile; the last one may be shorter.
uint32_t TileRows(const TileTable& table, uint32_t index) noexcept;
uint64_t TileBytes(const TileTable& table, uint32_t index) noexcept;

// tileviews.cpp: the views of file tiles.

// Maps a tile if it is not, and makes it the newest. False when there is no room for a view.
bool EnsureView(TileTable& table, uint32_t index) noexcept;
void DropView(TileTable& table, uint32_t index) noexcept;

// Unmaps every file tile and the file's mapping, so that the file may change its size.
void DropAllViews(TileTable& table) noexcept;

// Position of a file tile in the file: one tile follows another.
uint64_t SlotOffset(const TileTable& table, uint32_t index) noexcept;

}  // namespace vexakrn

#endif
