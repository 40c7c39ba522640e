// What the files of this folder share.
#ifndef VEXAKRN_PLATFORM_POSIX_POSIX_H
#define VEXAKRN_PLATFORM_POSIX_POSIX_H

#include <cerrno>

#include "platform/fault.h"
#include "platform/platform.h"

namespace vexakrn::platform {

// errno as a result; never 0.
inline int32_t LastError() noexcept { return errno != 0 ? errno : EIO; }

// memory.cpp
void* AllocateHeap(size_t bytes) noexcept;
void* ReallocateHeap(void* block, size_t bytes) noexcept;
int32_t MapAnonymous(uint64_t bytes, Mapping* mapping) noexcept;
int32_t RemapAnonymous(Mapping* mapping, uint64_t oldBytes, uint64_t newBytes) noexcept;
int32_t CreateFileMapping(File file, uint64_t bytes, void** fileMapping) noexcept;
int32_t MapView(void* fileMapping, uint64_t offset, uint64_t bytes, uint8_t** view) noexcept;
void* AllocateMovable(uint64_t bytes) noexcept;
void* ReallocateMovable(void* block, uint64_t bytes) noexcept;
void* LockMovable(void* block) noexcept;

// file.cpp
int32_t CreateScratchFile(const char* path, uint64_t bytes, File* file) noexcept;
int32_t ResizeScratchFile(File file, uint64_t oldBytes, uint64_t newBytes) noexcept;
int32_t ReadAt(File file, void* buffer, uint64_t bytes, uint64_t offset) noexcept;
int32_t WriteAt(File file, const void* buffer, uint64_t bytes, uint64_t offset) noexcept;
int32_t OpenFile(const char* path, uint32_t mode, File* file) noexcept;
int32_t ReadFile(File file, void* buffer, uint64_t bytes, uint64_t* done) noexcept;
int32_t WriteFile(File file, const void* buffer, uint64_t bytes, uint64_t* done) noexcept;
int32_t SeekFile(File file, int64_t offset, int32_t origin, int64_t* position) noexcept;
int32_t CloseFile(File file) noexcept;
int32_t DeleteFile(const char* path) noexcept;
int32_t TemporaryPath(char* buffer, size_t capacity) noexcept;

// objects.cpp
void* CreatePalette(const RGBQUAD* entries, uint32_t count) noexcept;

// process.cpp
int32_t ReadMemoryCounters(MemoryStatus* status) noexcept;
int32_t CountHandles(uint32_t* count) noexcept;
int32_t ReadClock(uint64_t* ticks) noexcept;

}  // namespace vexakrn::platform

#endif
