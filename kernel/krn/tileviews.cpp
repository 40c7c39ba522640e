// Views of tiles that lie in a file: mapped on demand, kept in the order of use, the oldest given up first.
#include "krn/account.h"
#include "krn/tiles.h"

namespace vexakrn {
namespace {

void Unlink(TileTable& table, uint32_t index) noexcept {
  Tile& tile = table.tiles[index];
  (tile.newer == kNoTile ? table.newest : table.tiles[tile.newer].older) = tile.older;
  (tile.older == kNoTile ? table.oldest : table.tiles[tile.older].newer) = tile.newer;
}

void LinkNewest(TileTable& table, uint32_t index) noexcept {
  Tile& tile = table.tiles[index];
  tile.newer = kNoTile;
  tile.older = table.newest;
  (table.newest == kNoTile ? table.oldest : table.tiles[table.newest].newer) = index;
  table.newest = index;
}

// Takes a view's bytes from the account, at the cost of this bitmap's older views.
bool ReserveView(TileTable& table, uint64_t bytes) noexcept {
  while (table.oldest != kNoTile && bytes > table.maxViewBytes - table.viewBytes) DropView(table, table.oldest);
  while (ReserveMemory(bytes) != kSuccess) {
    if (table.oldest == kNoTile) return false;
    DropView(table, table.oldest);
  }
  return true;
}

// Views start at coarse positions: so many bytes of the tile before are mapped too.
uint64_t ViewLead(const TileTable& table, uint32_t index) noexcept {
  return SlotOffset(table, index) % platform::kViewGranularity;
}

bool MapTile(TileTable& table, uint32_t index, uint64_t bytes) noexcept {
  const platform::Calls& system = platform::System();
  if (!table.fileMapping && system.createFileMapping(table.file, table.fileBytes, &table.fileMapping) != 0) {
    table.fileMapping = nullptr;
    return false;
  }
  const uint64_t lead = ViewLead(table, index);
  uint8_t* base = nullptr;
  if (system.mapView(table.fileMapping, SlotOffset(table, index) - lead, lead + bytes, &base) != 0) return false;
  table.tiles[index].view = base + lead;
  return true;
}

}  // namespace

uint64_t SlotOffset(const TileTable& table, uint32_t index) noexcept {
  return (index - table.conventionalTiles) * table.slotBytes;
}

bool EnsureView(TileTable& table, uint32_t index) noexcept {
  Tile& tile = table.tiles[index];
  if (tile.view) {
    if (table.newest != index) Unlink(table, index), LinkNewest(table, index);
    return true;
  }
  const uint64_t bytes = TileBytes(table, index);
  if (!ReserveView(table, bytes)) return false;
  if (!MapTile(table, index, bytes)) {
    ReturnMemory(bytes);
    return false;
  }
  tile.viewSize = tile.reserved = bytes;
  table.viewBytes += bytes;
  LinkNewest(table, index);
  return true;
}

void DropView(TileTable& table, uint32_t index) noexcept {
  Tile& tile = table.tiles[index];
  Unlink(table, index);
  const uint64_t lead = ViewLead(table, index);
  platform::UnmapView(tile.view - lead, lead + tile.viewSize);
  ReturnMemory(tile.reserved);
  table.viewBytes -= tile.viewSize;
  tile.view = nullptr;
  tile.viewSize = tile.reserved = 0;
}

void DropAllViews(TileTable& table) noexcept {
  while (table.oldest != kNoTile) DropView(table, table.oldest);
  platform::CloseFileMapping(table.fileMapping);
  table.fileMapping = nullptr;
}

}  // namespace vexakrn
