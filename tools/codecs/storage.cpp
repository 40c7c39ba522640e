#include "codecs/storage.h"

#include <algorithm>

#include "codecs/error.h"

namespace vexa {
namespace {

constexpr uint64_t kUsualTileBytes = uint64_t{16} << 20;
constexpr uint32_t kOnlyConventional = V_MemoryConventional | V_MemoryNoTiled | V_MemoryNoDisk;

// A bitmap that fits one tile is not tiled, so a small image gets smaller tiles unless the user chose their size.
uint64_t TileBytes(const Bitmap& bitmap, const StorageChoice& choice) {
  const uint64_t data = bitmap.DataBytes();
  const uint64_t tile = choice.tileBytes ? choice.tileBytes : std::min(kUsualTileBytes, data / 4);
  const uint64_t row = bitmap.Record().BytesPerLine;
  if (data <= std::max(tile, row)) {
    throw Error("the image has " + std::to_string(data) + " bytes of pixels, too few for tiles" +
                (choice.tileBytes ? " of " + std::to_string(choice.tileBytes) : ""));
  }
  return std::max(tile, row);
}

}  // namespace

void ApplyMemoryLimit(const StorageChoice& choice) {
  const int64_t limit = static_cast<int64_t>(choice.memoryLimit);
  CheckStatus(V_ManageMemory(V_MemorySetLimit, choice.memoryLimit, nullptr));
  CheckStatus(V_SetMemoryThresholds(0, limit, 0, 0, 0, V_ThresholdMaxConventional));
}

void AllocateStorage(Bitmap& bitmap, const StorageChoice& choice) {
  uint32_t request = V_MemoryConventional;
  uint32_t wanted = 0;
  if (choice.kind == StorageChoice::kConventional) {
    request = kOnlyConventional;
    wanted = V_MemoryConventional;
  } else if (choice.kind == StorageChoice::kTiled) {
    request = wanted = V_MemoryTiled;
    const int64_t tile = static_cast<int64_t>(TileBytes(bitmap, choice));
    CheckStatus(V_SetMemoryThresholds(0, 0, tile, 0, 0, V_ThresholdTileSize));
  } else if (choice.kind == StorageChoice::kDisk) {
    request = wanted = V_MemoryDisk;
  } else if (choice.tileBytes) {
    CheckStatus(V_SetMemoryThresholds(0, 0, static_cast<int64_t>(choice.tileBytes), 0, 0, V_ThresholdTileSize));
  }
  bitmap.Allocate(request);
  uint32_t got = 0;
  CheckStatus(V_GetBitmapMemoryInfo(&bitmap.Record(), &got, nullptr, nullptr, nullptr, nullptr));
  if (wanted && got != wanted)
    throw Error("the engine could not give the storage that was asked for, only " + FactsOfStorage(bitmap).kind);
}

StorageFacts FactsOfStorage(Bitmap& bitmap) {
  StorageFacts facts;
  const uint32_t flags = bitmap.Flags();
  facts.kind = flags & V_FlagTiled        ? "tiled"
               : flags & V_FlagDiskMemory ? "disk"
               : flags & V_FlagMirror     ? "user"
                                          : "conventional";
  facts.bytes = bitmap.DataBytes();
  CheckStatus(
      V_GetBitmapMemoryInfo(&bitmap.Record(), nullptr, &facts.tileBytes, &facts.tiles, &facts.tilesInMemory, nullptr));
  return facts;
}

}  // namespace vexa
