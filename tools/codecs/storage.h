// The storage that a user asks for, and the one that a bitmap got.
#ifndef VEXA_CODECS_STORAGE_H
#define VEXA_CODECS_STORAGE_H

#include <cstdint>
#include <string>

#include "codecs/bitmap.h"

namespace vexa {

struct StorageChoice {
  enum Kind { kEngine, kConventional, kTiled, kDisk };
  Kind kind = kEngine;
  uint64_t tileBytes = 0;    // 0: the engine's own size, or less where the image would not be tiled
  uint64_t memoryLimit = 0;  // most bytes that the engine maps at once; 0: no limit
};

// Puts the limit on the process's account and on the calling thread's thresholds.
void ApplyMemoryLimit(const StorageChoice& choice);

// Gives a described bitmap its storage; an Error when it cannot have the kind that was asked for.
void AllocateStorage(Bitmap& bitmap, const StorageChoice& choice);

// What the engine says about a bitmap's storage.
struct StorageFacts {
  std::string kind;  // "conventional", "tiled", "disk", "user"
  uint64_t bytes = 0;
  int64_t tileBytes = 0;
  int32_t tiles = 0;
  int32_t tilesInMemory = 0;
};
StorageFacts FactsOfStorage(Bitmap& bitmap);

}  // namespace vexa

#endif
