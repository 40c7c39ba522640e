// Height change of tiled bitmaps.
//
// Growing makes the new tiles first and stretches the last old tile as its final step, so that a failure only has to
// take new tiles away. Shrinking cannot fail. Rows that were cut off never come back: what a later growth uncovers is
// zeroed.
#include "krn/tileresize.h"

#include <algorithm>
#include <cstring>

#include "krn/account.h"
#include "krn/tempname.h"

namespace vexakrn {
namespace {

uint32_t TilesFor(const TileTable& table, int32_t height) noexcept {
  return (static_cast<uint32_t>(height) + table.rowsPerTile - 1) / table.rowsPerTile;
}

// --- shrinking ---

void CutConventionalTile(TileTable& table, uint32_t index, uint64_t bytes) noexcept {
  Tile& tile = table.tiles[index];
  platform::Mapping mapping{tile.handle, tile.view};
  if (tile.viewSize > bytes && platform::System().remapAnonymous(&mapping, tile.viewSize, bytes) == 0) {
    tile.handle = mapping.handle;
    tile.view = mapping.address;
    ReturnMemory(tile.reserved - bytes);
    tile.viewSize = tile.reserved = bytes;
  }
  std::memset(tile.view + bytes, 0, tile.viewSize - bytes);  // nothing, but after a failure
}

void CutFile(TileTable& table, uint32_t newCount) noexcept {
  DropAllViews(table);
  const uint32_t fileTiles = newCount > table.conventionalTiles ? newCount - table.conventionalTiles : 0;
  const uint64_t bytes = fileTiles * table.slotBytes;
  if (bytes == table.fileBytes) return;
  if (bytes == 0) {
    platform::CloseScratchFile(table.file);
    table.file = platform::kNoFile;
    table.fileBytes = 0;
  } else if (platform::System().resizeScratchFile(table.file, table.fileBytes, bytes) == 0) {
    table.fileBytes = bytes;  // else the file stays longer than need be
  }
}

void ShrinkTiles(TileTable& table, int32_t newHeight) noexcept {
  const uint32_t newCount = TilesFor(table, newHeight);
  if (table.file != platform::kNoFile) CutFile(table, newCount);
  while (table.conventionalTiles > newCount) FreeConventionalTile(table, --table.conventionalTiles);
  table.tileCount = newCount;
  table.height = newHeight;
  if (table.conventionalTiles == newCount) CutConventionalTile(table, newCount - 1, TileBytes(table, newCount - 1));
}

// --- growing ---

// Makes the tiles after the old last one. Those in memory come first, so once there is a file all new ones go there.
// The file may be longer than its tiles after a cut that failed; what lies there is stale and is cut off first.
int32_t AppendTiles(TileTable& table, uint32_t newCount) noexcept {
  if (table.file == platform::kNoFile) {
    const uint64_t dataSize = static_cast<uint64_t>(table.pitch) * static_cast<uint32_t>(table.height);
    const uint32_t conventional = ChooseConventionalTiles(table, newCount, dataSize);
    while (table.conventionalTiles < conventional)
      if (MakeConventionalTile(table, table.conventionalTiles) != kSuccess) break;
  }
  if (table.conventionalTiles == newCount) return kSuccess;
  if (table.context.noDisk) return kNoMemory;

  const uint64_t bytes = (newCount - table.conventionalTiles) * table.slotBytes;
  if (table.file == platform::kNoFile) {
    V_TRY(CreateScratchFile(bytes, &table.file));
  } else {
    DropAllViews(table);
    const uint64_t used = (table.tileCount - table.conventionalTiles) * table.slotBytes;
    const platform::Calls& system = platform::System();
    if (table.fileBytes > used && system.resizeScratchFile(table.file, table.fileBytes, used) != 0) return kNoMemory;
    table.fileBytes = used;
    if (system.resizeScratchFile(table.file, used, bytes) != 0) return kNoMemory;
  }
  table.fileBytes = bytes;
  return kSuccess;
}

// Takes back what AppendTiles made before it failed.
void RemoveAppended(TileTable& table, uint32_t oldConventional, bool hadFile) noexcept {
  while (table.conventionalTiles > oldConventional) FreeConventionalTile(table, --table.conventionalTiles);
  if (!hadFile && table.file != platform::kNoFile) {
    platform::CloseScratchFile(table.file);
    table.file = platform::kNoFile;
    table.fileBytes = 0;
  }
}

int32_t ZeroFile(platform::File file, uint64_t from, uint64_t to) noexcept {
  static const uint8_t zeros[65536] = {};
  while (from < to) {
    const uint64_t part = std::min<uint64_t>(to - from, sizeof zeros);
    if (platform::System().writeAt(file, zeros, part, from) != 0) return kNoMemory;
    from += part;
  }
  return kSuccess;
}

// Gives the old last tile the rows up to `bytes`, zeroed.
int32_t StretchTile(TileTable& table, uint32_t index, uint64_t oldBytes, uint64_t bytes) noexcept {
  if (index >= table.conventionalTiles) {
    DropAllViews(table);
    const uint64_t slot = SlotOffset(table, index);
    return ZeroFile(table.file, slot + oldBytes, slot + bytes);
  }
  Tile& tile = table.tiles[index];
  if (tile.viewSize >= bytes) return kSuccess;
  V_TRY(ReserveMemory(bytes - tile.reserved));
  platform::Mapping mapping{tile.handle, tile.view};
  if (platform::System().remapAnonymous(&mapping, tile.viewSize, bytes) != 0) {
    ReturnMemory(bytes - tile.reserved);
    return kNoMemory;
  }
  tile = {mapping.address, bytes, bytes, mapping.handle, kNoTile, kNoTile};
  return kSuccess;
}

// The table must have room for the new entries first. What a failure later leaves of it does no harm.
bool GrowTable(TileTable& table, uint32_t newCount) noexcept {
  const uint64_t bytes = static_cast<uint64_t>(newCount) * sizeof(Tile);
  auto* grown = static_cast<Tile*>(platform::System().reallocate(table.tiles, bytes));
  if (!grown) return false;
  std::memset(static_cast<void*>(grown + table.tileCount), 0, (newCount - table.tileCount) * sizeof(Tile));
  table.tiles = grown;
  return true;
}

int32_t GrowTiles(TileTable& table, int32_t newHeight) noexcept {
  const uint32_t newCount = TilesFor(table, newHeight);
  if (newCount > kMaxTiles) return kNoMemory;
  if (newCount > table.tileCount && !GrowTable(table, newCount)) return kNoMemory;
  const uint32_t last = table.tileCount - 1;
  const uint64_t lastBytes = TileBytes(table, last);
  const int32_t oldHeight = table.height;
  const uint32_t oldConventional = table.conventionalTiles;
  const bool hadFile = table.file != platform::kNoFile;

  table.height = newHeight;  // tile sizes follow it
  int32_t status = newCount > table.tileCount ? AppendTiles(table, newCount) : kSuccess;
  if (status == kSuccess) status = StretchTile(table, last, lastBytes, TileBytes(table, last));
  if (status != kSuccess) {
    RemoveAppended(table, oldConventional, hadFile);
    table.height = oldHeight;
    return kNoMemory;
  }
  table.tileCount = newCount;
  return kSuccess;
}

}  // namespace

int32_t ResizeTiles(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept {
  TileTable* table = TilesOf(bitmap);
  uint64_t bytes = 0;
  if (!table || !SizeOfRows(bitmap, newHeight, &bytes)) return kNoMemory;
  if (newHeight > table->height) return GrowTiles(*table, newHeight);
  ShrinkTiles(*table, newHeight);
  return kSuccess;
}

}  // namespace vexakrn
