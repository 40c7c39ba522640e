// Where a bitmap's data lies: one small interface, one implementation a kind.
//
// Nothing else in the engine asks which kind a bitmap has. Rows are stored rows; `offset` is the byte in the row at
// which a transfer starts. Row and column have been checked against the record before a kind is asked.
#ifndef VEXAKRN_KRN_STORAGE_H
#define VEXAKRN_KRN_STORAGE_H

#include "common/record.h"

namespace vexakrn {

inline constexpr uint64_t kDefaultViewBytes = 64u << 20;

// How a bitmap is tiled.
struct TileSettings {
  int64_t tileSize;       // bytes
  int32_t tilesInMemory;  // as the fifth threshold
  uint64_t maxViewBytes;  // of file tiles mapped at once
};

// What the allocation decision hands to the kind that it chose.
struct AllocationContext {
  uint64_t conventionalLimit;  // bytes of conventional memory that the thread's thresholds leave
  TileSettings tiles;
  bool noDisk;
};

// Whole rows that lie in memory, one after the other; null data where they do not.
struct RowSpan {
  uint8_t* data;
  int32_t rows;
};

struct Storage {
  uint32_t memoryType;  // VexaMemoryFlags; 0 for no storage

  // Makes storage of the record's data size, zeroed, and stores its address; flags are the caller's business.
  int32_t (*allocate)(BITMAPHANDLE& bitmap, const AllocationContext& context) noexcept;
  void (*free)(BITMAPHANDLE& bitmap) noexcept;

  // Bytes moved, or a status. Null where the engine keeps no data.
  int64_t (*read)(BITMAPHANDLE& bitmap, uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept;
  int64_t (*write)(BITMAPHANDLE& bitmap, const uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept;

  // Changes the number of rows; rows that are added are zero. The record's height and size are the caller's business.
  // A failure leaves the data as it was.
  int32_t (*resize)(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept;

  // What a kind can do better than moving bytes; null where it cannot.

  // The rows in memory from `row` on; valid until other rows of the bitmap are asked for or moved.
  RowSpan (*rowsAt)(BITMAPHANDLE& bitmap, int32_t row) noexcept = nullptr;

  // The data size, where it is not that of the packed rows.
  uint64_t (*heldBytes)(const BITMAPHANDLE& bitmap) noexcept = nullptr;

  // A row's run-length record (runs.h); it is the storage's own and stays valid until any row is written.
  const uint8_t* (*recordAt)(BITMAPHANDLE& bitmap, int32_t row) noexcept = nullptr;

  // Takes a copy of a record, which has been checked.
  int32_t (*putRecord)(BITMAPHANDLE& bitmap, int32_t row, const uint8_t* record) noexcept = nullptr;
};

extern const Storage kMappedStorage, kGlobalStorage, kUserStorage, kTiledStorage, kDiskStorage, kCompressedStorage,
    kSuperCompressedStorage, kNoStorage;

// Brings the record's data size up to date after its rows were written, in storage whose size depends on them.
inline void UpdateDataSize(BITMAPHANDLE& bitmap, const Storage& storage) noexcept {
  if (storage.heldBytes) SetDataSize(bitmap, storage.heldBytes(bitmap));
}

// The data size that other storage for the same rows would have.
uint64_t PackedSize(const BITMAPHANDLE& bitmap) noexcept;

// The kind that the record's flags name; kNoStorage when it has none, or when a callback keeps the data.
const Storage& StorageOf(const BITMAPHANDLE& bitmap) noexcept;

// The kind of an allocated bitmap as a memory request; what a callback keeps is somebody else's, as user memory is.
uint32_t MemoryTypeOf(const BITMAPHANDLE& bitmap) noexcept;

// For kinds that cannot be asked for (-1) or cannot change their height (-13).
int32_t RefuseAllocation(BITMAPHANDLE& bitmap, const AllocationContext& context) noexcept;
int32_t RefuseResize(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept;

// Frees the data of an allocated record, through its callback where it has one, and clears address and storage flags.
void ReleaseStorage(BITMAPHANDLE& bitmap) noexcept;

// Position of a transfer in linear storage; -13 when it leaves the data.
int32_t LinearPosition(const BITMAPHANDLE& bitmap, int32_t row, uint32_t offset, uint64_t count,
                       uint64_t* position) noexcept;

// Bytes of `height` rows and what lies before them; false when that is too large for the record's layout.
bool SizeOfRows(const BITMAPHANDLE& bitmap, int32_t height, uint64_t* bytes) noexcept;

}  // namespace vexakrn

#endif
