// Heap, anonymous memory, views of files and movable blocks.
#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/win/win.h"

namespace vexakrn::platform {
namespace {

bool FitsAddressSpace(uint64_t bytes) noexcept { return bytes != 0 && bytes <= (uint64_t{1} << 47); }

// What the system takes for 0 bytes is a block that cannot be locked.
SIZE_T BlockBytes(uint64_t bytes) noexcept { return std::max<uint64_t>(bytes, 1); }

bool Unmap(const Mapping& mapping) noexcept {
  if (!mapping.address) return false;
  UnmapViewOfFile(mapping.address);
  CloseHandle(mapping.handle);
  return true;
}

}  // namespace

void* HeapNew(size_t bytes) noexcept { return HeapAlloc(GetProcessHeap(), 0, bytes); }

void* HeapResize(void* block, size_t bytes) noexcept {
  return block ? HeapReAlloc(GetProcessHeap(), 0, block, bytes) : HeapNew(bytes);
}

void Free(void* block) noexcept {
  if (block && HeapFree(GetProcessHeap(), 0, block)) VEXAKRN_RELEASED(Block);
}

// Large pages are not asked for: here they take a privilege that users lack, cannot be paged out, and are all touched
// at once.
int32_t MapAnonymous(uint64_t bytes, Mapping* mapping) noexcept {
  if (!FitsAddressSpace(bytes)) return ERROR_NOT_ENOUGH_MEMORY;
  const HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_COMMIT, HighWord(bytes),
                                            LowWord(bytes), nullptr);
  if (!section) return LastError();
  void* address = MapViewOfFile(section, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, bytes);
  if (!address) {
    const int32_t error = LastError();
    CloseHandle(section);
    return error;
  }
  *mapping = {section, static_cast<uint8_t*>(address)};
  return 0;
}

int32_t RemapAnonymous(Mapping* mapping, uint64_t oldBytes, uint64_t newBytes) noexcept {
  Mapping moved;
  if (const int32_t error = MapAnonymous(newBytes, &moved); error != 0) return error;
  std::memcpy(moved.address, mapping->address, std::min(oldBytes, newBytes));
  Unmap(*mapping);
  *mapping = moved;
  return 0;
}

void UnmapAnonymous(const Mapping& mapping, uint64_t) noexcept {
  if (Unmap(mapping)) VEXAKRN_RELEASED(Mapping);
}

int32_t MapFile(File file, uint64_t bytes, void** fileMapping) noexcept {
  if (bytes == 0 || bytes > std::numeric_limits<int64_t>::max()) return ERROR_INVALID_PARAMETER;
  const HANDLE section = CreateFileMappingW(reinterpret_cast<HANDLE>(file), nullptr, PAGE_READWRITE, HighWord(bytes),
                                            LowWord(bytes), nullptr);
  if (!section) return LastError();
  *fileMapping = section;
  return 0;
}

void CloseFileMapping(void* fileMapping) noexcept {
  if (fileMapping) CloseHandle(fileMapping);
}

int32_t MapFileView(void* fileMapping, uint64_t offset, uint64_t bytes, uint8_t** view) noexcept {
  if (!FitsAddressSpace(bytes)) return ERROR_INVALID_PARAMETER;
  void* address = MapViewOfFile(fileMapping, FILE_MAP_READ | FILE_MAP_WRITE, HighWord(offset), LowWord(offset), bytes);
  if (!address) return LastError();
  *view = static_cast<uint8_t*>(address);
  return 0;
}

void UnmapView(uint8_t* view, uint64_t) noexcept {
  if (view && UnmapViewOfFile(view)) VEXAKRN_RELEASED(View);
}

void* AllocateMovable(uint64_t bytes) noexcept { return GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, BlockBytes(bytes)); }

void* ReallocateMovable(void* block, uint64_t bytes) noexcept {
  return GlobalReAlloc(block, BlockBytes(bytes), GMEM_MOVEABLE | GMEM_ZEROINIT);
}

void* LockMovable(void* block) noexcept { return GlobalLock(block); }

bool UnlockBlock(void* block) noexcept {
  SetLastError(NO_ERROR);
  return block && (GlobalUnlock(block) || GetLastError() == NO_ERROR);  // zero also tells that the last lock is gone
}

uint64_t BlockSize(void* block) noexcept { return block ? GlobalSize(block) : 0; }

void FreeBlock(void* block) noexcept {
  if (block && !GlobalFree(block)) VEXAKRN_RELEASED(MovableBlock);
}

}  // namespace vexakrn::platform
