// Readings of the process and the system, threads, and the table of fallible calls.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/posix/posix.h"

namespace vexakrn::platform {
namespace {

// The value of a "Name:   123 kB" line in bytes.
bool FindCounter(const char* text, const char* name, uint64_t* bytes) noexcept {
  const char* line = std::strstr(text, name);
  if (!line) return false;
  *bytes = std::strtoull(line + std::strlen(name), nullptr, 10) * 1024;
  return true;
}

// Counts the entries of an open directory but "." and "..".
int32_t CountEntries(int folder, uint32_t* count) noexcept {
  alignas(8) char buffer[32768];
  uint32_t entries = 0;
  for (;;) {
    const long bytes = syscall(SYS_getdents64, folder, buffer, sizeof buffer);
    if (bytes < 0) return LastError();
    if (bytes == 0) break;
    for (long at = 0; at < bytes; ++entries) {
      uint16_t length = 0;
      std::memcpy(&length, buffer + at + 16, sizeof length);  // d_reclen follows d_ino and d_off
      at += length;
    }
  }
  *count = entries - 2;
  return 0;
}

struct ThreadSlot {
  void* value = nullptr;
  void (*destroy)(void*) = nullptr;
  ~ThreadSlot() {
    if (value) destroy(value);
    value = nullptr;
  }
};
thread_local ThreadSlot threadSlot;

pthread_mutex_t* Mutex(unsigned char* state) noexcept { return reinterpret_cast<pthread_mutex_t*>(state); }
static_assert(sizeof(pthread_mutex_t) <= 48 && alignof(pthread_mutex_t) <= 8);

}  // namespace

int32_t ReadMemoryCounters(MemoryStatus* status) noexcept {
  const int file = open("/proc/meminfo", O_RDONLY | O_CLOEXEC);
  if (file < 0) return LastError();
  char text[4096];
  const ssize_t length = read(file, text, sizeof text - 1);
  close(file);
  if (length <= 0) return EIO;
  text[length] = '\0';
  const bool complete = FindCounter(text, "MemTotal:", &status->totalPhysical) &&
                        FindCounter(text, "MemAvailable:", &status->availablePhysical) &&
                        FindCounter(text, "SwapTotal:", &status->totalPageFile) &&
                        FindCounter(text, "SwapFree:", &status->availablePageFile);
  return complete ? 0 : EIO;
}

int32_t CountHandles(uint32_t* count) noexcept {
  struct stat status {};
  if (stat("/proc/self/fd", &status) != 0) return LastError();
  if (status.st_size > 0) {  // newer systems tell the number as the folder's size
    *count = static_cast<uint32_t>(status.st_size);
    return 0;
  }
  const int folder = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return LastError();
  const int32_t error = CountEntries(folder, count);
  close(folder);
  if (error == 0) --*count;  // the folder itself
  return error;
}

int32_t ReadClock(uint64_t* ticks) noexcept {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return LastError();
  *ticks = static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
  return 0;
}

uint32_t ProcessId() noexcept { return static_cast<uint32_t>(getpid()); }
uint32_t ThreadId() noexcept { return static_cast<uint32_t>(syscall(SYS_gettid)); }

void SleepMilliseconds(uint32_t ms) noexcept {
  const timespec duration{ms / 1000, static_cast<long>(ms % 1000) * 1000000};
  nanosleep(&duration, nullptr);
}

void* ThreadValue() noexcept { return threadSlot.value; }

bool SetThreadValue(void* value, void (*destroy)(void*)) noexcept {
  threadSlot.value = value;
  threadSlot.destroy = destroy;
  return true;
}

void CriticalSection::Enter() noexcept { pthread_mutex_lock(Mutex(state_)); }
void CriticalSection::Leave() noexcept { pthread_mutex_unlock(Mutex(state_)); }

const Calls kSystemCalls = {
    .allocate = AllocateHeap,
    .reallocate = ReallocateHeap,
    .mapAnonymous = MapAnonymous,
    .remapAnonymous = RemapAnonymous,
    .createFileMapping = CreateFileMapping,
    .mapView = MapView,
    .createScratchFile = CreateScratchFile,
    .resizeScratchFile = ResizeScratchFile,
    .readAt = ReadAt,
    .writeAt = WriteAt,
    .openFile = OpenFile,
    .readFile = ReadFile,
    .writeFile = WriteFile,
    .seekFile = SeekFile,
    .closeFile = CloseFile,
    .deleteFile = DeleteFile,
    .temporaryPath = TemporaryPath,
    .memoryStatus = ReadMemoryCounters,
    .handleCount = CountHandles,
    .milliseconds = ReadClock,
    .allocateBlock = AllocateMovable,
    .reallocateBlock = ReallocateMovable,
    .lockBlock = LockMovable,
    .createPalette = CreatePalette,
};

}  // namespace vexakrn::platform
