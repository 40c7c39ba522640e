// Compressed storage: each row of a 1-bit bitmap is a run-length record of its own (runs.h).
//
//   record's address -> table of blocks -> block of up to 32768 rows: header, then a slot a row -> the row's record
//
// A header before the table holds what the store needs besides. Rows that were never written have no record, and are
// white: all 0; a block is made when its first row is written.
#include <algorithm>
#include <cstring>

#include "common/buffer.h"
#include "krn/rowheap.h"
#include "krn/runs.h"
#include "krn/storage.h"

namespace vexakrn {
namespace {

struct RowTable {        // the block pointers follow it
  uint64_t recordBytes;  // of all rows
  uint64_t blockCount;
  uint8_t* white;   // the record of a white row
  uint8_t* record;  // work space: a record of any row,
  uint8_t* row;     // and a packed row
};

constexpr uint64_t kPointerBytes = sizeof(void*);

RowBlock** BlocksOf(RowTable* table) noexcept { return reinterpret_cast<RowBlock**>(table + 1); }

RowTable* TableOf(const BITMAPHANDLE& bitmap) noexcept {
  void* blocks = bitmap.Addr.Compressed.pBlocks;
  return blocks ? static_cast<RowTable*>(blocks) - 1 : nullptr;
}

uint64_t BlocksFor(int32_t height) noexcept {
  return (static_cast<uint64_t>(height) + kRowsPerBlock - 1) / kRowsPerBlock;
}

// Rows of block `index` in a bitmap of this height.
uint64_t RowsInBlock(uint64_t index, int32_t height) noexcept {
  return std::min<uint64_t>(static_cast<uint64_t>(height) - index * kRowsPerBlock, kRowsPerBlock);
}

const uint8_t* RecordOf(RowTable* table, int32_t row) noexcept {
  RowBlock* block = BlocksOf(table)[row / kRowsPerBlock];
  const uint8_t* record = block ? SlotsOf(block)[row % kRowsPerBlock].record : nullptr;
  return record ? record : table->white;
}

uint64_t PackedBytes(int32_t width) noexcept { return (static_cast<uint64_t>(width) + 7) / 8; }

// Longer rows may have runs in pieces, which end where the whole row's bytes put them.
bool IsShort(int32_t width) noexcept { return width <= 65535; }

// --- the table ---

// One piece of memory for the white record and the work space.
bool MakeWorkSpace(RowTable& table, const BITMAPHANDLE& bitmap) noexcept {
  const auto width = static_cast<uint32_t>(bitmap.Width);
  const uint64_t recordRoom = RoundUp(MaxRecordBytes(width), 8);
  const uint64_t whiteRoom = RoundUp(kRecordHeader + 2 * (1 + 2 * (uint64_t{width} / 65528 + 1)), 8);
  auto* space = AllocateArray<uint8_t>(whiteRoom + recordRoom + bitmap.BytesPerLine);
  if (!space) return false;
  table.white = space;
  table.record = space + whiteRoom;
  table.row = table.record + recordRoom;
  std::memset(table.row, 0, bitmap.BytesPerLine);
  EncodeRecord(table.white, table.row, 0, width);
  return true;
}

void FreeTable(RowTable* table) noexcept {
  for (uint64_t i = 0; i < table->blockCount; ++i) FreeBlock(BlocksOf(table)[i]);
  platform::Free(table->white);
  platform::Free(table);
}

int32_t AllocateRows(BITMAPHANDLE& bitmap, const AllocationContext&) noexcept {
  const uint64_t count = BlocksFor(bitmap.Height);
  auto* table = reinterpret_cast<RowTable*>(AllocateZeroed<uint8_t>(sizeof(RowTable) + count * kPointerBytes));
  if (!table) return kNoMemory;
  table->blockCount = count;
  if (!MakeWorkSpace(*table, bitmap)) {
    FreeTable(table);
    return kNoMemory;
  }
  bitmap.Addr.Compressed = {0, BlocksOf(table)};
  return kSuccess;
}

void FreeRows(BITMAPHANDLE& bitmap) noexcept {
  if (RowTable* table = TableOf(bitmap)) FreeTable(table);
}

// --- rows ---

uint64_t HeldBytes(const BITMAPHANDLE& bitmap) noexcept {
  const RowTable* table = TableOf(bitmap);
  return table ? table->recordBytes : 0;
}

int32_t StoreRow(const BITMAPHANDLE& bitmap, RowTable* table, int32_t row, const uint8_t* record,
                 uint64_t bytes) noexcept {
  const auto index = static_cast<uint32_t>(row / kRowsPerBlock);
  RowBlock*& block = BlocksOf(table)[index];
  if (!block) block = MakeBlock(RowsInBlock(index, bitmap.Height));
  if (!block) return kNoMemory;
  RowSlot& slot = SlotsOf(block)[row % kRowsPerBlock];
  const uint64_t oldBytes = slot.record ? RecordBytes(slot.record) : 0;
  V_TRY(StoreRecord(*block, slot, record, bytes));
  table->recordBytes += bytes - oldBytes;
  return kSuccess;
}

// Calls `part(row, offset, bytes)` for each row that a transfer touches. Bytes after the last row are refused before.
template <typename Part>
int64_t WalkRows(const BITMAPHANDLE& bitmap, int32_t row, uint32_t offset, uint64_t count, Part part) noexcept {
  const uint64_t pitch = bitmap.BytesPerLine;
  const uint64_t start = static_cast<uint64_t>(static_cast<uint32_t>(row)) * pitch + offset;
  if (!InsideRange(start, count, pitch * static_cast<uint32_t>(bitmap.Height))) return kInvalidParameter;
  uint64_t at = offset;
  for (uint64_t left = count; left > 0; ++row, at = 0) {
    const uint64_t bytes = std::min(left, pitch - at);
    V_TRY(part(row, at, bytes));
    left -= bytes;
  }
  return static_cast<int64_t>(count);
}

int64_t ReadRows(BITMAPHANDLE& bitmap, uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  RowTable* table = TableOf(bitmap);
  if (!table) return kNoImage;
  return WalkRows(bitmap, row, offset, count, [&](int32_t at, uint64_t first, uint64_t bytes) {
    ExpandRecord(RecordOf(table, at), first * 8, buffer, bytes);
    buffer += bytes;
    return kSuccess;
  });
}

// Encodes a row of which `bytes` bytes from `first` on are new, into the work space. Returns the record's bytes.
uint64_t EncodeRow(RowTable* table, int32_t width, int32_t row, const uint8_t* source, uint64_t first,
                   uint64_t bytes) noexcept {
  const uint64_t packed = PackedBytes(width);
  const auto pixels = static_cast<uint32_t>(width);
  if (first == 0 && bytes >= packed) return EncodeRecord(table->record, source, 0, pixels);
  if (first == 0 && IsShort(width) && RecordOf(table, row) == table->white) {  // the rest stays white
    const auto begun = static_cast<uint32_t>(bytes * 8);
    EncodeRecord(table->record, source, 0, begun);
    return AppendRun(table->record, static_cast<uint16_t>(pixels - begun), 0);
  }
  ExpandRecord(RecordOf(table, row), 0, table->row, packed);
  std::memcpy(table->row + first, source, std::min(bytes, packed - first));
  return EncodeRecord(table->record, table->row, 0, pixels);
}

int64_t WriteRows(BITMAPHANDLE& bitmap, const uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  RowTable* table = TableOf(bitmap);
  if (!table) return kNoImage;
  const uint64_t packed = PackedBytes(bitmap.Width);
  return WalkRows(bitmap, row, offset, count, [&](int32_t at, uint64_t first, uint64_t bytes) -> int32_t {
    const uint8_t* source = buffer;
    buffer += bytes;
    if (first >= packed) return kSuccess;  // padding only
    const uint64_t made = EncodeRow(table, bitmap.Width, at, source, first, bytes);
    return StoreRow(bitmap, table, at, table->record, made);
  });
}

const uint8_t* RecordAt(BITMAPHANDLE& bitmap, int32_t row) noexcept {
  RowTable* table = TableOf(bitmap);
  return table ? RecordOf(table, row) : nullptr;
}

int32_t PutRecord(BITMAPHANDLE& bitmap, int32_t row, const uint8_t* record) noexcept {
  RowTable* table = TableOf(bitmap);
  return table ? StoreRow(bitmap, table, row, record, RecordBytes(record)) : kNoImage;
}

// --- height ---

// Drops the rows of a block from `rows` on.
void CutBlock(RowTable* table, RowBlock* block, uint64_t rows) noexcept {
  for (uint64_t i = rows; block && i < block->slots; ++i) {
    RowSlot& slot = SlotsOf(block)[i];
    if (!slot.record) continue;
    table->recordBytes -= RecordBytes(slot.record);
    DropRecord(*block, slot);
  }
}

void ShrinkRows(RowTable* table, int32_t newHeight) noexcept {
  const uint64_t count = BlocksFor(newHeight);
  while (table->blockCount > count) {
    RowBlock* block = BlocksOf(table)[--table->blockCount];
    CutBlock(table, block, 0);
    FreeBlock(block);
  }
  RowBlock* last = BlocksOf(table)[count - 1];
  CutBlock(table, last, RowsInBlock(count - 1, newHeight));
  if (last) TrimIfWasteful(*last);
}

// More slots for the old last block, then places for more blocks. The slots do no harm when those cannot be had.
int32_t GrowRows(BITMAPHANDLE& bitmap, RowTable* table, int32_t newHeight) noexcept {
  const uint64_t oldCount = table->blockCount, count = BlocksFor(newHeight);
  RowBlock*& last = BlocksOf(table)[oldCount - 1];
  RowBlock* grown = last ? GrowBlock(last, RowsInBlock(oldCount - 1, newHeight)) : nullptr;
  if (last && !grown) return kNoMemory;
  last = grown;
  if (count == oldCount) return kSuccess;
  const uint64_t bytes = sizeof(RowTable) + count * kPointerBytes;
  auto* moved = static_cast<RowTable*>(platform::System().reallocate(table, bytes));
  if (!moved) return kNoMemory;
  std::fill(BlocksOf(moved) + oldCount, BlocksOf(moved) + count, nullptr);
  moved->blockCount = count;
  bitmap.Addr.Compressed = {0, BlocksOf(moved)};
  return kSuccess;
}

int32_t ResizeRows(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept {
  RowTable* table = TableOf(bitmap);
  uint64_t bytes = 0;
  if (!table || !SizeOfRows(bitmap, newHeight, &bytes)) return kNoMemory;
  if (newHeight > bitmap.Height) return GrowRows(bitmap, table, newHeight);
  ShrinkRows(table, newHeight);
  return kSuccess;
}

}  // namespace

const Storage kCompressedStorage = {.memoryType = V_MemoryCompressed,
                                    .allocate = AllocateRows,
                                    .free = FreeRows,
                                    .read = ReadRows,
                                    .write = WriteRows,
                                    .resize = ResizeRows,
                                    .heldBytes = HeldBytes,
                                    .recordAt = RecordAt,
                                    .putRecord = PutRecord};

}  // namespace vexakrn
