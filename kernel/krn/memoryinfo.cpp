// What storage a bitmap has, and moving its data into other storage.
#include <cstring>

#include "krn/alloc.h"
#include "krn/rowcopy.h"
#include "krn/tiles.h"
#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

const TileTable* TilesIfTiled(const BITMAPHANDLE& bitmap) noexcept {
  return StorageOf(bitmap).memoryType == V_MemoryTiled ? TilesOf(bitmap) : nullptr;
}

int32_t CheckImage(const BITMAPHANDLE* bitmap) noexcept {
  V_TRY(CheckRecord(bitmap, kNoImage));
  return CheckAllocated(*bitmap);
}

template <typename T>
void Report(T* output, T value) noexcept {
  if (output) *output = value;
}

// The settings that a bitmap would have after the change.
TileSettings Changed(const TileTable* table, const TileSettings& wanted, uint32_t which) noexcept {
  TileSettings settings = ThreadTileSettings();
  const TileSettings defaults = settings;
  if (table) settings = table->context.tiles;
  if (which & V_MemorySettingTileSize) settings.tileSize = wanted.tileSize > 0 ? wanted.tileSize : defaults.tileSize;
  if (which & V_MemorySettingConventionalTiles) settings.tilesInMemory = wanted.tilesInMemory;
  if (which & V_MemorySettingViewSize)
    settings.maxViewBytes = wanted.maxViewBytes > 0 ? wanted.maxViewBytes : defaults.maxViewBytes;
  return settings;
}

bool SameTiles(const TileTable& table, const TileSettings& settings) noexcept {
  const TileSettings& now = table.context.tiles;
  // What was reported may be given back.
  const auto held = static_cast<int32_t>(table.conventionalTiles);
  const bool sameNumber = settings.tilesInMemory == now.tilesInMemory || (held > 0 && settings.tilesInMemory == held);
  const bool sameViews = settings.maxViewBytes == now.maxViewBytes || settings.maxViewBytes == table.maxViewBytes;
  return settings.tileSize == now.tileSize && sameNumber && sameViews;
}

// Gives `moved`, which is the bitmap's record in every other way, storage of its own with the bitmap's rows.
int32_t Move(BITMAPHANDLE& bitmap, BITMAPHANDLE& moved, uint32_t memoryType, const TileSettings& tiles) noexcept {
  std::memcpy(&moved, &bitmap, bitmap.uStructSize);
  moved.Flags &= ~kStorageFlags;
  moved.Addr.Windows = {};
  moved.DataOffset = moved.reserved160 = 0;
  if (!IsOldLayout(moved)) moved.nLockCount = 0;
  SetDataSize(moved, static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(bitmap.Height));
  V_TRY(AllocateBitmap(moved, memoryType, nullptr, tiles));
  const int32_t status = MemoryTypeOf(moved) == V_MemoryUser && !DataCallbacks(moved)
                             ? kInvalidParameter
                             : CopyRows(moved, bitmap, ThreadSettings().copyStatus);
  if (status != kSuccess) ReleaseStorage(moved);
  return status;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_GetBitmapMemoryInfo(BITMAPHANDLE* bitmap, uint32_t* memoryType, int64_t* tileSize, int32_t* totalTiles,
                                     int32_t* conventionalTiles, int64_t* maxTileViewSize) noexcept {
  V_TRY(CheckImage(bitmap));
  const TileTable* table = TilesIfTiled(*bitmap);
  Report<uint32_t>(memoryType, MemoryTypeOf(*bitmap));
  Report<int64_t>(tileSize, table ? table->context.tiles.tileSize : 0);
  Report<int32_t>(totalTiles, table ? static_cast<int32_t>(table->tileCount) : 0);
  Report<int32_t>(conventionalTiles, table ? static_cast<int32_t>(table->conventionalTiles) : 0);
  Report<int64_t>(maxTileViewSize, table ? static_cast<int64_t>(table->maxViewBytes) : 0);
  return kSuccess;
}

int32_t V_CALL V_SetBitmapMemoryInfo(BITMAPHANDLE* bitmap, uint32_t memoryType, int64_t tileSize,
                                     int32_t conventionalTiles, int64_t maxTileViewSize, uint32_t which) noexcept {
  V_TRY(CheckImage(bitmap));
  if ((which & V_MemorySettingConventionalTiles) && conventionalTiles < -100) return kInvalidParameter;
  const uint32_t current = MemoryTypeOf(*bitmap);
  const uint32_t type = which & V_MemorySettingType ? memoryType : current;
  const TileTable* table = TilesIfTiled(*bitmap);
  const uint64_t viewBytes = maxTileViewSize > 0 ? static_cast<uint64_t>(maxTileViewSize) : 0;
  const TileSettings settings = Changed(table, {tileSize, conventionalTiles, viewBytes}, which);
  if (type == current && (!table || SameTiles(*table, settings))) return kSuccess;
  if (type & V_MemoryUser) return kInvalidParameter;

  BITMAPHANDLE moved;
  V_TRY(Move(*bitmap, moved, type, settings));
  ReleaseStorage(*bitmap);
  bitmap->Flags = moved.Flags;
  bitmap->Addr = moved.Addr;
  bitmap->DataOffset = 0;
  bitmap->reserved160 = moved.reserved160;
  SetDataSize(*bitmap, DataSize(moved));
  return kSuccess;
}
