// What the files of this folder share.
#ifndef VEXAKRN_PLATFORM_WIN_WIN_H
#define VEXAKRN_PLATFORM_WIN_WIN_H

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "platform/fault.h"
#include "platform/platform.h"

namespace vexakrn::platform {

// GetLastError as a result; never 0.
inline int32_t LastError() noexcept {
  const DWORD error = GetLastError();
  return static_cast<int32_t>(error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE);
}

inline constexpr DWORD LowWord(uint64_t value) noexcept { return static_cast<DWORD>(value & 0xFFFFFFFFu); }
inline constexpr DWORD HighWord(uint64_t value) noexcept { return static_cast<DWORD>(value >> 32); }

// memory.cpp
void* HeapNew(size_t bytes) noexcept;
void* HeapResize(void* block, size_t bytes) noexcept;
int32_t MapAnonymous(uint64_t bytes, Mapping* mapping) noexcept;
int32_t RemapAnonymous(Mapping* mapping, uint64_t oldBytes, uint64_t newBytes) noexcept;
int32_t MapFile(File file, uint64_t bytes, void** fileMapping) noexcept;
int32_t MapFileView(void* fileMapping, uint64_t offset, uint64_t bytes, uint8_t** view) noexcept;
void* AllocateMovable(uint64_t bytes) noexcept;
void* ReallocateMovable(void* block, uint64_t bytes) noexcept;
void* LockMovable(void* block) noexcept;

// file.cpp
int32_t CreateScratch(const char* path, uint64_t bytes, File* file) noexcept;
int32_t ResizeScratch(File file, uint64_t oldBytes, uint64_t newBytes) noexcept;
int32_t ReadBytesAt(File file, void* buffer, uint64_t bytes, uint64_t offset) noexcept;
int32_t WriteBytesAt(File file, const void* buffer, uint64_t bytes, uint64_t offset) noexcept;
int32_t OpenByName(const char* path, uint32_t mode, File* file) noexcept;
int32_t ReadBytes(File file, void* buffer, uint64_t bytes, uint64_t* done) noexcept;
int32_t WriteBytes(File file, const void* buffer, uint64_t bytes, uint64_t* done) noexcept;
int32_t Seek(File file, int64_t offset, int32_t origin, int64_t* position) noexcept;
int32_t Close(File file) noexcept;
int32_t DeleteByName(const char* path) noexcept;
int32_t TemporaryFolder(char* buffer, size_t capacity) noexcept;

// objects.cpp
void* NewPalette(const RGBQUAD* entries, uint32_t count) noexcept;

// process.cpp
int32_t ReadMemoryCounters(MemoryStatus* status) noexcept;
int32_t CountHandles(uint32_t* count) noexcept;
int32_t ReadClock(uint64_t* ticks) noexcept;

}  // namespace vexakrn::platform

#endif
