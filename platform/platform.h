// Everything the engine asks of an operating system, in the engine's words.
//
// What can fail goes through one table, Calls, so that a test build can make any call fail (fault.h). Those functions
// return 0, or the system's own error number (errno, GetLastError); outputs are set on success only.
// What cannot fail is a plain function. Paths are UTF-8 everywhere; platform/win/ widens them. OS headers
// are included in platform/posix/ and platform/win/ only, and the build picks one of the two.
#ifndef VEXAKRN_PLATFORM_PLATFORM_H
#define VEXAKRN_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>

#include "vexakrn/types.h"

namespace vexakrn::platform {

using File = intptr_t;  // a descriptor or a HANDLE
inline constexpr File kNoFile = -1;

// Mode bits of openFile; the values are those of the public open modes.
enum OpenMode : uint32_t { kOpenRead = 1, kOpenWrite = 2, kOpenCreate = 4, kOpenExclusive = 8 };

struct MemoryStatus {  // bytes
  uint64_t totalPhysical;
  uint64_t availablePhysical;
  uint64_t totalPageFile;
  uint64_t availablePageFile;
};

// A block of anonymous memory. `handle` is opaque and never null for a live mapping.
struct Mapping {
  void* handle = nullptr;
  uint8_t* address = nullptr;
};

struct Calls {
  // Heap. Null on failure; a failed reallocation leaves the block. Never called for 0 bytes.
  void* (*allocate)(size_t bytes);
  void* (*reallocate)(void* block, size_t bytes);

  // Anonymous memory, zeroed, not touched. Large blocks ask for large pages. A remap keeps the contents up to the
  // smaller size, zeroes what it adds, and may move the block; a failed one leaves it as it was.
  int32_t (*mapAnonymous)(uint64_t bytes, Mapping* mapping);
  int32_t (*remapAnonymous)(Mapping* mapping, uint64_t oldBytes, uint64_t newBytes);

  // Views of a file. Offsets are multiples of kViewGranularity; the file must not change its size while it is mapped.
  int32_t (*createFileMapping)(File file, uint64_t bytes, void** fileMapping);
  int32_t (*mapView)(void* fileMapping, uint64_t offset, uint64_t bytes, uint8_t** view);

  // A file that only this process sees, gone when it is closed or the process dies. The path must not exist and
  // is never followed as a link. All blocks are reserved: writing inside `bytes` cannot run out of disk.
  int32_t (*createScratchFile)(const char* path, uint64_t bytes, File* file);
  int32_t (*resizeScratchFile)(File file, uint64_t oldBytes, uint64_t newBytes);

  // Transfers at a position; all of `bytes` or failure. A read past the end is a failure.
  int32_t (*readAt)(File file, void* buffer, uint64_t bytes, uint64_t offset);
  int32_t (*writeAt)(File file, const void* buffer, uint64_t bytes, uint64_t offset);

  // Files by name. read: `*done` below `bytes` is the end of the file. write: `*done` may be short on a full disk. A
  // file size limit gives an error and never a signal. openFile refuses directories; created files are private to the
  // user with kOpenExclusive and have the usual permissions without.
  int32_t (*openFile)(const char* path, uint32_t mode, File* file);
  int32_t (*readFile)(File file, void* buffer, uint64_t bytes, uint64_t* done);
  int32_t (*writeFile)(File file, const void* buffer, uint64_t bytes, uint64_t* done);
  int32_t (*seekFile)(File file, int64_t offset, int32_t origin, int64_t* position);
  int32_t (*closeFile)(File file);  // the handle is gone in any case
  int32_t (*deleteFile)(const char* path);

  // The user's temporary directory, as the system names it; at most 263 UTF-16 characters.
  int32_t (*temporaryPath)(char* buffer, size_t capacity);

  int32_t (*memoryStatus)(MemoryStatus* status);
  int32_t (*handleCount)(uint32_t* count);   // handles that the process holds open
  int32_t (*milliseconds)(uint64_t* ticks);  // monotonic clock

  // Movable blocks, zeroed. A handle stays the same when its block is resized, unless it had to be replaced: use the
  // one that comes back. Null on failure.
  void* (*allocateBlock)(uint64_t bytes);
  void* (*reallocateBlock)(void* block, uint64_t bytes);
  void* (*lockBlock)(void* block);

  // A logical palette of 1 to 256 entries, whose reserved bytes are ignored. Null on failure.
  void* (*createPalette)(const RGBQUAD* entries, uint32_t count);
};

// The system's own table, and the one in force: the same, but for a test build.
extern const Calls kSystemCalls;
#ifdef VEXAKRN_FAULT_INJECTION
const Calls& System() noexcept;
#else
inline const Calls& System() noexcept { return kSystemCalls; }
#endif

inline constexpr uint64_t kViewGranularity = 65536;  // the coarsest of the supported systems

// Kinds of failure that the engine tells apart.
bool IsAccessDenied(int32_t error) noexcept;
bool IsNotFound(int32_t error) noexcept;  // nothing is there under that name

// What undoes or cannot fail. Null and kNoFile are ignored.
void Free(void* block) noexcept;
void UnmapAnonymous(const Mapping& mapping, uint64_t bytes) noexcept;
void UnmapView(uint8_t* view, uint64_t bytes) noexcept;
void CloseFileMapping(void* fileMapping) noexcept;
void CloseScratchFile(File file) noexcept;
void FreeBlock(void* block) noexcept;
bool UnlockBlock(void* block) noexcept;  // false: it was not locked
uint64_t BlockSize(void* block) noexcept;

// Logical palettes. The entries of one, from `start` on, with zero reserved bytes: returns how many there were of
// `count`, or with a null `out` how many it has. And the entry of a palette (1 to 256 entries) that a logical palette
// finds nearest to a colour (red in bits 0-7, green 8-15, blue 16-23; the rest is ignored): by squared distance, of
// equals the first; 0 where the system has no room for one.
uint32_t ReadPalette(void* palette, uint32_t start, uint32_t count, RGBQUAD* out) noexcept;
uint32_t NearestInPalette(const RGBQUAD* entries, uint32_t count, uint32_t color) noexcept;
void DeleteSystemObject(void* object) noexcept;  // a logical palette, or another object with a handle of its kind

bool SameFile(const char* a, const char* b) noexcept;  // two names of one existing file
bool PathExists(const char* path) noexcept;            // of any kind, a dangling link included
uint32_t ProcessId() noexcept;
uint32_t ThreadId() noexcept;
void SleepMilliseconds(uint32_t ms) noexcept;
inline constexpr char kPathSeparator =
#ifdef _WIN32
    '\\';
#else
    '/';
#endif

// One pointer a thread, null at first. When the thread ends, a non-null one is given to the function registered with
// it.
void* ThreadValue() noexcept;
bool SetThreadValue(void* value, void (*destroy)(void*)) noexcept;  // false: the system has no room

// Guards what the process shares. Not recursive. Needs no construction at run time.
class CriticalSection {
 public:
  constexpr CriticalSection() noexcept = default;
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;
  void Enter() noexcept;
  void Leave() noexcept;

 private:
  alignas(8) unsigned char state_[48] = {};  // all zero is the open state on every system
};

class CriticalGuard {
 public:
  explicit CriticalGuard(CriticalSection& section) noexcept : section_(section) { section_.Enter(); }
  ~CriticalGuard() { section_.Leave(); }
  CriticalGuard(const CriticalGuard&) = delete;
  CriticalGuard& operator=(const CriticalGuard&) = delete;

 private:
  CriticalSection& section_;
};

}  // namespace vexakrn::platform

#endif
