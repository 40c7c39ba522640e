#include "codecs/storage.h"

#include <algorithm>

#include "codecs/codec.h"
#include "codecs/error.h"

namespace vexa {
namespace {

constexpr uint64_t kUsualTileBytes = uint64_t{16} << 20;

bool AnyDepth(int) { return true; }
bool OneBit(int bits) { return bits == 1; }
bool OneEightOrTwentyFourBits(int bits) { return bits == 1 || bits == 8 || bits == 24; }

struct StorageKind {
  std::string_view name;
  uint32_t memoryType;
  uint32_t request;
  bool (*holds)(int bits);
  std::string_view depths;  // "... storage holds <these> images"
};

constexpr StorageKind kKinds[] = {
    {"conventional", V_MemoryConventional, V_MemoryConventional | V_MemoryNoTiled | V_MemoryNoDisk, AnyDepth, ""},
    {"tiled", V_MemoryTiled, V_MemoryTiled, AnyDepth, ""},
    {"disk", V_MemoryDisk, V_MemoryDisk, AnyDepth, ""},
    {"compressed", V_MemoryCompressed, V_MemoryCompressed, OneBit, "1-bit"},
    {"supercompressed", V_MemorySuperCompressed, V_MemorySuperCompressed, OneEightOrTwentyFourBits,
     "1-, 8- and 24-bit"},
};

const StorageKind* KindOf(uint32_t memoryType) {
  const auto* kind =
      std::find_if(std::begin(kKinds), std::end(kKinds), [=](const auto& k) { return k.memoryType == memoryType; });
  return kind == std::end(kKinds) ? nullptr : kind;
}

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

uint32_t StorageOfName(std::string_view name) {
  for (const StorageKind& kind : kKinds)
    if (kind.name == name) return kind.memoryType;
  return 0;
}

std::string StorageNames() {
  std::string names;
  for (const StorageKind& kind : kKinds) names.append(names.empty() ? "" : ", ").append(kind.name);
  return names;
}

void ApplyMemoryLimit(const StorageChoice& choice) {
  const int64_t limit = static_cast<int64_t>(choice.memoryLimit);
  CheckStatus(V_ManageMemory(V_MemorySetLimit, choice.memoryLimit, nullptr));
  CheckStatus(V_SetMemoryThresholds(0, limit, 0, 0, 0, V_ThresholdMaxConventional));
}

bool StorageHolds(uint32_t memoryType, int bits) {
  const StorageKind* kind = KindOf(memoryType);
  return !kind || kind->holds(bits);
}

void RequireStorageHolds(const StorageChoice& choice, const Bitmap& bitmap) {
  if (StorageHolds(choice.memoryType, bitmap.Bits())) return;
  const StorageKind& kind = *KindOf(choice.memoryType);
  throw Error(std::string(kind.name) + " storage holds " + std::string(kind.depths) + " images, not " +
              DepthInWords(bitmap));
}

uint32_t StorageRequest(const StorageChoice& choice) {
  const StorageKind* kind = KindOf(choice.memoryType);
  return kind ? kind->request : choice.otherwise;
}

void AllocateStorage(Bitmap& bitmap, const StorageChoice& choice) {
  RequireStorageHolds(choice, bitmap);
  if (choice.memoryType == V_MemoryTiled || choice.tileBytes) {
    const uint64_t tile = choice.memoryType == V_MemoryTiled ? TileBytes(bitmap, choice) : choice.tileBytes;
    CheckStatus(V_SetMemoryThresholds(0, 0, static_cast<int64_t>(tile), 0, 0, V_ThresholdTileSize));
  }
  bitmap.Allocate(StorageRequest(choice));
  if (choice.memoryType == 0) return;
  uint32_t got = 0;
  CheckStatus(V_GetBitmapMemoryInfo(&bitmap.Record(), &got, nullptr, nullptr, nullptr, nullptr));
  if (got != choice.memoryType)
    throw Error("the engine could not give the storage that was asked for, only " + FactsOfStorage(bitmap).kind);
}

StorageFacts FactsOfStorage(Bitmap& bitmap) {
  StorageFacts facts;
  uint32_t memoryType = 0;
  CheckStatus(V_GetBitmapMemoryInfo(&bitmap.Record(), &memoryType, &facts.tileBytes, &facts.tiles, &facts.tilesInMemory,
                                    nullptr));
  const StorageKind* kind = KindOf(memoryType);
  facts.kind = kind ? kind->name : "user";
  facts.bytes = bitmap.DataBytes();
  facts.packedBytes = uint64_t{bitmap.Record().BytesPerLine} * static_cast<uint64_t>(bitmap.Height());
  return facts;
}

}  // namespace vexa
