// Storage in one piece of memory: mapped blocks of the engine, movable blocks, and the caller's own buffers.
//
// The record's private word at offset 160 holds the bytes of a mapped block, which are what the account was asked for.
#include <algorithm>
#include <cstring>

#include "krn/access.h"
#include "krn/account.h"
#include "krn/storage.h"
#include "platform/platform.h"

namespace vexakrn {
namespace {

using platform::Mapping;

int64_t ReadLinear(BITMAPHANDLE& bitmap, uint8_t* buffer, int32_t row, uint32_t offset, uint64_t count) noexcept {
  uint64_t position = 0;
  V_TRY(LinearPosition(bitmap, row, offset, count, &position));
  const uint8_t* data = bitmap.Addr.Windows.pData;
  if (!data) return kNoImage;
  std::memmove(buffer, data + position, count);  // the caller's buffer may be part of its own bitmap
  return static_cast<int64_t>(count);
}

int64_t WriteLinear(BITMAPHANDLE& bitmap, const uint8_t* buffer, int32_t row, uint32_t offset,
                    uint64_t count) noexcept {
  uint64_t position = 0;
  V_TRY(LinearPosition(bitmap, row, offset, count, &position));
  uint8_t* data = bitmap.Addr.Windows.pData;
  if (!data) return kNoImage;
  std::memmove(data + position, buffer, count);
  return static_cast<int64_t>(count);
}

RowSpan RowsAt(BITMAPHANDLE& bitmap, int32_t row) noexcept {
  uint64_t position = 0;
  uint8_t* data = bitmap.Addr.Windows.pData;
  const int32_t rows = bitmap.Height - row;
  const uint64_t bytes = static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(rows);
  if (!data || LinearPosition(bitmap, row, 0, bytes, &position) != kSuccess) return {};
  return {data + position, rows};
}

// --- mapped blocks ---

Mapping MappingOf(const BITMAPHANDLE& bitmap) noexcept {
  return {bitmap.Addr.Windows.hMemory, bitmap.Addr.Windows.pData};
}

void StoreMapping(BITMAPHANDLE& bitmap, const Mapping& mapping, uint64_t bytes) noexcept {
  bitmap.Addr.Windows = {mapping.handle, mapping.address};
  bitmap.reserved160 = bytes;
}

int32_t AllocateMapped(BITMAPHANDLE& bitmap, const AllocationContext&) noexcept {
  const uint64_t bytes = DataSize(bitmap);
  V_TRY(ReserveMemory(bytes));
  Mapping mapping;
  if (platform::System().mapAnonymous(bytes, &mapping) != 0) {
    ReturnMemory(bytes);
    return kNoMemory;
  }
  StoreMapping(bitmap, mapping, bytes);
  return kSuccess;
}

void FreeMapped(BITMAPHANDLE& bitmap) noexcept {
  const uint64_t bytes = bitmap.reserved160;
  if (bytes == 0) return;  // not a block of the engine's
  platform::UnmapAnonymous(MappingOf(bitmap), bytes);
  ReturnMemory(bytes);
  bitmap.reserved160 = 0;
}

int32_t ResizeMapped(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept {
  uint64_t newBytes = 0;
  if (!SizeOfRows(bitmap, newHeight, &newBytes)) return kNoMemory;
  const uint64_t oldBytes = bitmap.reserved160;
  if (newBytes > oldBytes && ReserveMemory(newBytes - oldBytes) != kSuccess) return kNoMemory;
  Mapping mapping = MappingOf(bitmap);
  const bool moved = platform::System().remapAnonymous(&mapping, oldBytes, newBytes) == 0;
  if (moved) StoreMapping(bitmap, mapping, newBytes);
  if (moved && newBytes < oldBytes) ReturnMemory(oldBytes - newBytes);
  if (!moved && newBytes > oldBytes) ReturnMemory(newBytes - oldBytes);
  return moved ? kSuccess : kNoMemory;
}

// --- movable blocks, which a host puts into a record ---

void FreeGlobal(BITMAPHANDLE& bitmap) noexcept { platform::FreeBlock(bitmap.Addr.Windows.hMemory); }

// A locked block stays locked: its successor is made and locked aside, so that nothing can fail once the old one is
// gone.
int32_t ReplaceLockedBlock(BITMAPHANDLE& bitmap, uint64_t newBytes) noexcept {
  const platform::Calls& system = platform::System();
  void* old = bitmap.Addr.Windows.hMemory;
  void* made = system.allocateBlock(newBytes);
  auto* address = made ? static_cast<uint8_t*>(system.lockBlock(made)) : nullptr;
  if (!address) {
    platform::FreeBlock(made);
    return kNoMemory;
  }
  std::memcpy(address, bitmap.Addr.Windows.pData - bitmap.DataOffset, std::min(platform::BlockSize(old), newBytes));
  UnlockData(bitmap);
  platform::FreeBlock(old);
  bitmap.Addr.Windows = {made, address + bitmap.DataOffset};
  bitmap.Flags |= V_FlagLockedMemory;
  return kSuccess;
}

int32_t ResizeGlobal(BITMAPHANDLE& bitmap, int32_t newHeight) noexcept {
  uint64_t newBytes = 0;
  void* block = bitmap.Addr.Windows.hMemory;
  if (!block || !SizeOfRows(bitmap, newHeight, &newBytes)) return kNoMemory;
  if (HasFlag(bitmap, V_FlagLockedMemory)) return ReplaceLockedBlock(bitmap, newBytes);
  void* resized = platform::System().reallocateBlock(block, newBytes);
  if (!resized) return kNoMemory;
  bitmap.Addr.Windows.hMemory = resized;
  return kSuccess;
}

// --- the caller's memory: the pointer comes later, and is never freed ---

int32_t AllocateUser(BITMAPHANDLE& bitmap, const AllocationContext&) noexcept {
  bitmap.Addr.Windows = {};
  return kSuccess;
}

void LeaveToOwner(BITMAPHANDLE&) noexcept {}

}  // namespace

const Storage kMappedStorage = {.memoryType = V_MemoryConventional,
                                .allocate = AllocateMapped,
                                .free = FreeMapped,
                                .read = ReadLinear,
                                .write = WriteLinear,
                                .resize = ResizeMapped,
                                .rowsAt = RowsAt};
const Storage kGlobalStorage = {.memoryType = V_MemoryConventional,
                                .allocate = RefuseAllocation,
                                .free = FreeGlobal,
                                .read = ReadLinear,
                                .write = WriteLinear,
                                .resize = ResizeGlobal,
                                .rowsAt = RowsAt};
const Storage kUserStorage = {.memoryType = V_MemoryUser,
                              .allocate = AllocateUser,
                              .free = LeaveToOwner,
                              .read = ReadLinear,
                              .write = WriteLinear,
                              .resize = RefuseResize,
                              .rowsAt = RowsAt};

}  // namespace vexakrn
