// The storage that a user asks for, and the one that a bitmap got.
#ifndef VEXA_CODECS_STORAGE_H
#define VEXA_CODECS_STORAGE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "codecs/bitmap.h"

namespace vexa {

struct StorageChoice {
  uint32_t memoryType = 0;                    // a single one of the VexaMemoryFlags; 0: no kind is asked for
  uint32_t otherwise = V_MemoryConventional;  // the engine's request then, from which it may depart
  uint64_t tileBytes = 0;                     // 0: the engine's own size, or less where the image would not be tiled
  uint64_t memoryLimit = 0;                   // most bytes that the engine maps at once; 0: no limit
};

// The memory type that a user calls by this name; 0 when there is none. The names: "conventional, tiled, ...".
uint32_t StorageOfName(std::string_view name);
std::string StorageNames();

// Puts the limit on the process's account and on the calling thread's thresholds.
void ApplyMemoryLimit(const StorageChoice& choice);

// Whether a kind of storage takes images of this depth; the second is an Error when it does not.
bool StorageHolds(uint32_t memoryType, int bits);
void RequireStorageHolds(const StorageChoice& choice, const Bitmap& bitmap);

// Gives a described bitmap its storage; an Error when it cannot have the kind that was asked for.
void AllocateStorage(Bitmap& bitmap, const StorageChoice& choice);

// The request with which AllocateStorage goes to the engine, for copies that are to lie where their original does.
uint32_t StorageRequest(const StorageChoice& choice);

// What the engine says about a bitmap's storage.
struct StorageFacts {
  std::string kind;          // a name as above, or "user"
  uint64_t bytes = 0;        // held
  uint64_t packedBytes = 0;  // of the rows as such
  int64_t tileBytes = 0;
  int32_t tiles = 0;
  int32_t tilesInMemory = 0;
};
StorageFacts FactsOfStorage(Bitmap& bitmap);

}  // namespace vexa

#endif
