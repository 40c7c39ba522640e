// Tiled storage: allocation, transfers and freeing. tileviews.cpp maps file tiles, tileresize.cpp changes the height.
#include "krn/tiles.h"

#include <algorithm>
#include <cstring>

#include "common/buffer.h"
#include "krn/account.h"
#include "krn/tempname.h"
#include "krn/tileresize.h"

namespace vexakrn {
namespace {

// How many tiles may be held in memory by the fifth threshold.
uint32_t TilesByThreshold(int32_t threshold, uint32_t count) noexcept {
  if (threshold == 0) return count;
  if (threshold > 0) return std::min(count, static_cast<uint32_t>(threshold));
  return static_cast<uint32_t>(PercentOf(count, static_cast<uint32_t>(-threshold)));
}

TileTable* MakeTable(const BITMAPHANDLE& bitmap, const AllocationContext& context) noexcept {
  const uint64_t wanted = static_cast<uint64_t>(context.tiles.tileSize) / bitmap.BytesPerLine;
  const auto rows = static_cast<uint32_t>(std::clamp<uint64_t>(wanted, 1, static_cast<uint32_t>(bitmap.Height)));
  const uint32_t count = (static_cast<uint32_t>(bitmap.Height) + rows - 1) / rows;
  if (count > kMaxTiles) return nullptr;
  auto* table = AllocateZeroed<TileTable>(1);
  if (!table) return nullptr;
  table->tiles = AllocateZeroed<Tile>(count);
  if (!table->tiles) {
    platform::Free(table);
    return nullptr;
  }
  table->tileCount = count;
  table->rowsPerTile = rows;
  table->pitch = bitmap.BytesPerLine;
  table->height = bitmap.Height;
  table->context = context;
  table->file = platform::kNoFile;
  table->slotBytes = static_cast<uint64_t>(rows) * table->pitch;
  table->maxViewBytes = std::max(context.tiles.maxViewBytes, table->slotBytes);
  table->newest = table->oldest = kNoTile;
  return table;
}

void FreeTable(TileTable* table) noexcept {
  for (uint32_t index = table->conventionalTiles; index-- > 0;) FreeConventionalTile(*table, index);
  DropAllViews(*table);
  platform::CloseScratchFile(table->file);
  platform::Free(table->tiles);
  platform::Free(table);
}

// Makes every tile: the conventional ones until the choice or the memory ends, and the file for the rest.
int32_t FillTable(TileTable& table, uint32_t conventional) noexcept {
  int32_t status = kSuccess;
  while (table.conventionalTiles < conventional && status == kSuccess)
    status = MakeConventionalTile(table, table.conventionalTiles);
  const uint32_t left = table.tileCount - table.conventionalTiles;
  if (left == 0) return kSuccess;
  if (table.context.noDisk) return status != kSuccess ? status : kNoMemory;
  const uint64_t bytes = left * table.slotBytes;
  V_TRY(CreateScratchFile(bytes, &table.file));
  table.fileBytes = bytes;
  return kSuccess;
}

int32_t AllocateTiles(BITMAPHANDLE& bitmap, const AllocationContext& context) noexcept {
  TileTable* table = MakeTable(bitmap, context);
  if (!table) return kNoMemory;
  const int32_t status = FillTable(*table, ChooseConventionalTiles(*table, table->tileCount, DataSize(bitmap)));
  if (status != kSuccess) {
    FreeTable(table);
    return status;
  }
  bitmap.Addr.Tiled = {0, table};
  return kSuccess;
}

void FreeTiles(BITMAPHANDLE& bitmap) noexcept {
  if (TileTable* table = TilesOf(bitmap)) FreeTable(table);
}

int32_t ReadPart(TileTable& table, uint32_t index, uint8_t* buffer, uint64_t offset, uint64_t count) noexcept {
  if (index < table.conventionalTiles || EnsureView(table, index)) {
    std::memcpy(buffer, table.tiles[index].view + offset, count);
    return kSuccess;
  }
  const int32_t error = platform::System().readAt(table.file, buffer, count, SlotOffset(table, index) + offset);
  return error == 0 ? kSuccess : kFileRead;
}

int32_t WritePart(TileTable& table, uint32_t index, const uint8_t* buffer, uint64_t offset, uint64_t count) noexcept {
  if (index < table.conventionalTiles || EnsureView(table, index)) {
    std::memcpy(table.tiles[index].view + offset, buffer, count);
    return kSuccess;
  }
  const int32_t error = platform::System().writeAt(table.file, buffer, count, SlotOffset(table, index) + offset);
  return error == 0 ? kSuccess : kNoMemory;
}

// Moves bytes through the tiles they lie in, until they are done or the tiles run out: `count` is the result either
// way.
template <typename Byte>
int64_t WalkTiles(BITMAPHANDLE& bitmap, Byte* buffer, int32_t row, uint32_t offset, uint64_t count,
                  int32_t (*part)(TileTable&, uint32_t, Byte*, uint64_t, uint64_t) noexcept) noexcept {
  TileTable* table = TilesOf(bitmap);
  if (!table) return kNoImage;
  uint32_t index = static_cast<uint32_t>(row) / table->rowsPerTile;
  uint64_t at = static_cast<uint64_t>(static_cast<uint32_t>(row) % table->rowsPerTile) * table->pitch + offset;
  for (uint64_t left = count; left > 0 && index < table->tileCount; ++index, at = 0) {
    const uint64_t size = TileBytes(*table, index);
    if (at >= size) break;
    const uint64_t bytes = std::min(left, size - at);
    V_TRY(part(*table, index, buffer, at, bytes));
    buffer += bytes;
    left -= bytes;
  }
  return static_cast<int64_t>(count);
}

int64_t ReadTiles(BITMAPHANDLE& bitmap, uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  return WalkTiles<uint8_t>(bitmap, buffer, row, offset, count, ReadPart);
}

int64_t WriteTiles(BITMAPHANDLE& bitmap, const uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  return WalkTiles<const uint8_t>(bitmap, buffer, row, offset, count, WritePart);
}

RowSpan TileRowsAt(BITMAPHANDLE& bitmap, int32_t row) noexcept {
  TileTable* table = TilesOf(bitmap);
  if (!table || row >= table->height) return {};
  const uint32_t index = static_cast<uint32_t>(row) / table->rowsPerTile;
  const uint32_t first = static_cast<uint32_t>(row) % table->rowsPerTile;
  if (index >= table->conventionalTiles && !EnsureView(*table, index)) return {};
  return {table->tiles[index].view + static_cast<uint64_t>(first) * table->pitch,
          static_cast<int32_t>(TileRows(*table, index) - first)};
}

}  // namespace

uint32_t TileRows(const TileTable& table, uint32_t index) noexcept {
  return std::min(table.rowsPerTile, static_cast<uint32_t>(table.height) - index * table.rowsPerTile);
}

uint64_t TileBytes(const TileTable& table, uint32_t index) noexcept {
  return static_cast<uint64_t>(TileRows(table, index)) * table.pitch;
}

uint32_t ChooseConventionalTiles(const TileTable& table, uint32_t tileCount, uint64_t dataSize) noexcept {
  const AllocationContext& context = table.context;
  const uint32_t allowed = TilesByThreshold(context.tiles.tilesInMemory, tileCount);
  if (context.noDisk) return allowed;
  const uint64_t held = table.conventionalTiles * table.slotBytes;
  const uint64_t available = SaturatingAdd(AvailableMemory(), held);
  const bool allFit = allowed == tileCount && dataSize <= context.conventionalLimit && dataSize <= available;
  if (allFit) return allowed;
  const uint64_t room = std::min(context.conventionalLimit, available / 2);
  return static_cast<uint32_t>(std::min<uint64_t>(allowed, room / table.slotBytes));
}

int32_t MakeConventionalTile(TileTable& table, uint32_t index) noexcept {
  const uint64_t bytes = TileBytes(table, index);
  V_TRY(ReserveMemory(bytes));
  platform::Mapping mapping;
  if (platform::System().mapAnonymous(bytes, &mapping) != 0) {
    ReturnMemory(bytes);
    return kNoMemory;
  }
  table.tiles[index] = {mapping.address, bytes, bytes, mapping.handle, kNoTile, kNoTile};
  table.conventionalTiles = index + 1;
  return kSuccess;
}

void FreeConventionalTile(TileTable& table, uint32_t index) noexcept {
  const Tile& tile = table.tiles[index];
  platform::UnmapAnonymous({tile.handle, tile.view}, tile.viewSize);
  ReturnMemory(tile.reserved);
}

const Storage kTiledStorage = {.memoryType = V_MemoryTiled,
                               .allocate = AllocateTiles,
                               .free = FreeTiles,
                               .read = ReadTiles,
                               .write = WriteTiles,
                               .resize = ResizeTiles,
                               .rowsAt = TileRowsAt};

}  // namespace vexakrn
