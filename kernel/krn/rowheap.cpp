// The small heaps of compressed rows.
#include "krn/rowheap.h"

#include <algorithm>
#include <cstring>

#include "common/buffer.h"
#include "krn/runs.h"

namespace vexakrn {

struct HeapChunk {  // its bytes follow it
  HeapChunk* older;
  uint64_t capacity;
  uint64_t used;
};

namespace {

constexpr uint64_t kSmallestChunk = 256;
constexpr uint64_t kLargestStep = 256 * 1024;  // what a chunk has beyond what was asked for
constexpr uint64_t kToleratedWaste = 4096;     // a heap that wastes less is not worth trimming

uint64_t RoomFor(uint64_t recordBytes) noexcept { return RoundUp(recordBytes, 8); }
uint64_t Wasted(const RowHeap& heap) noexcept { return heap.used - heap.live; }
uint8_t* BytesOf(HeapChunk* chunk) noexcept { return reinterpret_cast<uint8_t*>(chunk + 1); }

HeapChunk* MakeChunk(uint64_t capacity, HeapChunk* older) noexcept {
  auto* chunk = reinterpret_cast<HeapChunk*>(AllocateArray<uint8_t>(sizeof(HeapChunk) + capacity));
  if (chunk) *chunk = {older, capacity, 0};
  return chunk;
}

void FreeChunks(HeapChunk* chunk) noexcept {
  while (chunk) {
    HeapChunk* older = chunk->older;
    platform::Free(chunk);
    chunk = older;
  }
}

uint8_t* Take(HeapChunk& chunk, uint64_t bytes) noexcept {
  if (bytes > chunk.capacity - chunk.used) return nullptr;
  uint8_t* space = BytesOf(&chunk) + chunk.used;
  chunk.used += bytes;
  return space;
}

// Space of the heap, which grows when its newest chunk is full.
uint8_t* Take(RowHeap& heap, uint64_t bytes) noexcept {
  uint8_t* space = heap.newest ? Take(*heap.newest, bytes) : nullptr;
  if (!space && V_GrowBitmapHeap(heap, bytes) == kSuccess) space = Take(*heap.newest, bytes);
  if (!space) return nullptr;
  heap.used += bytes;
  heap.live += bytes;
  return space;
}

}  // namespace

RowHeap* V_HeapInit() noexcept { return AllocateZeroed<RowHeap>(1); }

void V_HeapFree(RowHeap* heap) noexcept {
  if (!heap) return;
  FreeChunks(heap->newest);
  platform::Free(heap);
}

int32_t V_GrowBitmapHeap(RowHeap& heap, uint64_t bytes) noexcept {
  const uint64_t capacity = std::max(bytes, std::clamp(heap.live / 4, kSmallestChunk, kLargestStep));
  HeapChunk* chunk = MakeChunk(capacity, heap.newest);
  if (!chunk) return kNoMemory;
  heap.newest = chunk;
  return kSuccess;
}

int32_t V_TrimBitmapHeap(RowBlock& block) noexcept {
  RowSlot* slots = SlotsOf(&block);
  uint64_t needed = 0;
  for (uint64_t i = 0; i < block.slots; ++i)
    if (slots[i].record) needed += RoomFor(RecordBytes(slots[i].record));
  if (needed == 0) {
    FreeChunks(block.heap->newest);
    *block.heap = {};
    return kSuccess;
  }
  HeapChunk* chunk = MakeChunk(needed, nullptr);
  if (!chunk) return kNoMemory;
  for (uint64_t i = 0; i < block.slots; ++i) {
    RowSlot& slot = slots[i];
    if (!slot.record) continue;
    const uint64_t bytes = RecordBytes(slot.record), room = RoomFor(bytes);
    uint8_t* space = Take(*chunk, room);
    std::memcpy(space, slot.record, bytes);
    slot = {space, room};
  }
  FreeChunks(block.heap->newest);
  *block.heap = {chunk, needed, needed};
  return kSuccess;
}

void TrimIfWasteful(RowBlock& block) noexcept {
  const uint64_t slots = block.slots * sizeof(RowSlot);  // a trim walks all of them
  if (Wasted(*block.heap) > block.heap->live / 2 + slots + kToleratedWaste) V_TrimBitmapHeap(block);
}

RowBlock* MakeBlock(uint64_t rows) noexcept {
  RowBlock* block = GrowBlock(nullptr, rows);
  if (!block) return nullptr;
  block->heap = V_HeapInit();
  if (block->heap) return block;
  platform::Free(block);
  return nullptr;
}

RowBlock* GrowBlock(RowBlock* block, uint64_t rows) noexcept {
  const uint64_t old = block ? block->slots : 0;
  if (block && rows <= old) return block;
  const uint64_t bytes = sizeof(RowBlock) + rows * sizeof(RowSlot);
  const platform::Calls& system = platform::System();
  auto* grown = static_cast<RowBlock*>(block ? system.reallocate(block, bytes) : system.allocate(bytes));
  if (!grown) return nullptr;
  grown->slots = rows;
  std::memset(static_cast<void*>(SlotsOf(grown) + old), 0, (rows - old) * sizeof(RowSlot));
  return grown;
}

void FreeBlock(RowBlock* block) noexcept {
  if (!block) return;
  V_HeapFree(block->heap);
  platform::Free(block);
}

int32_t StoreRecord(RowBlock& block, RowSlot& slot, const uint8_t* record, uint64_t bytes) noexcept {
  const uint64_t room = RoomFor(bytes);
  const bool fits = slot.record && room <= slot.room && room >= slot.room / 2;
  if (!fits) {
    uint8_t* space = Take(*block.heap, room);
    if (!space) return kNoMemory;
    block.heap->live -= slot.room;
    slot = {space, room};
  }
  std::memmove(slot.record, record, bytes);  // which may be this very record, in a copy of the bitmap's own record
  TrimIfWasteful(block);
  return kSuccess;
}

void DropRecord(RowBlock& block, RowSlot& slot) noexcept {
  block.heap->live -= slot.room;
  slot = {};
}

}  // namespace vexakrn
