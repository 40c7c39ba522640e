// Compressed rows in memory: a bitmap's rows in blocks, each with a small heap for its records.
//
// A heap hands out space from its newest chunk and takes none back: what is given up is counted. Once that is more than
// half of what lives and what the block's slots take, the records move together into one new chunk and the old ones go,
// so a page that is rewritten for ever stays within a constant factor of its records.
#ifndef VEXAKRN_KRN_ROWHEAP_H
#define VEXAKRN_KRN_ROWHEAP_H

#include <cstdint>

#include "common/status.h"

namespace vexakrn {

struct HeapChunk;

struct RowHeap {
  HeapChunk* newest;
  uint64_t used;  // bytes handed out by all chunks
  uint64_t live;  // those of them that are not given up
};

struct RowSlot {
  uint8_t* record;  // null: the row has never been written
  uint64_t room;    // bytes of the heap that the record may fill
};

inline constexpr int32_t kRowsPerBlock = 32768;

struct RowBlock {  // its slots follow it
  uint64_t slots;
  RowHeap* heap;
};

inline RowSlot* SlotsOf(RowBlock* block) noexcept { return reinterpret_cast<RowSlot*>(block + 1); }

// An empty heap; null when there is no memory.
RowHeap* V_HeapInit() noexcept;

// Frees a heap with all its chunks; null is ignored.
void V_HeapFree(RowHeap* heap) noexcept;

// Gives the heap a new chunk with room for at least `bytes`.
int32_t V_GrowBitmapHeap(RowHeap& heap, uint64_t bytes) noexcept;

// Moves the block's records together and gives the rest back. -1, and nothing changed, when there is no memory for the
// move.
int32_t V_TrimBitmapHeap(RowBlock& block) noexcept;

// A block of `rows` slots, or more slots for an old one (which may move). Null, and the old one as it was, when there
// is no memory.
RowBlock* MakeBlock(uint64_t rows) noexcept;
RowBlock* GrowBlock(RowBlock* block, uint64_t rows) noexcept;
void FreeBlock(RowBlock* block) noexcept;

// Puts a copy of a record into a slot. -1 leaves the old one.
int32_t StoreRecord(RowBlock& block, RowSlot& slot, const uint8_t* record, uint64_t bytes) noexcept;

// Trims a block that wastes too much; without memory for the move it stays as it is until the next time.
void TrimIfWasteful(RowBlock& block) noexcept;

// Empties a slot.
void DropRecord(RowBlock& block, RowSlot& slot) noexcept;

}  // namespace vexakrn

#endif
