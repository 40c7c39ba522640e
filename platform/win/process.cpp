// Readings of the process and the system, threads, and the table of fallible calls.
#include <atomic>

#include "platform/win/win.h"

namespace vexakrn::platform {
namespace {

// A thread's value lies in a block of its own, as its destructor must come along. The index of those blocks is taken
// with the first value and lives as long as the library.
struct ThreadSlot {
  void* value;
  void (*destroy)(void*);
};

std::atomic<DWORD> slotIndex{FLS_OUT_OF_INDEXES};

// The system calls this when a thread ends, and for all threads when the index is given back.
void WINAPI EndThread(void* block) noexcept {
  if (!block) return;
  const ThreadSlot slot = *static_cast<ThreadSlot*>(block);
  HeapFree(GetProcessHeap(), 0, block);
  if (slot.value) slot.destroy(slot.value);
}

// FLS_OUT_OF_INDEXES when the system has none left.
DWORD TakeSlotIndex() noexcept {
  DWORD index = slotIndex.load(std::memory_order_acquire);
  if (index != FLS_OUT_OF_INDEXES) return index;
  const DWORD taken = FlsAlloc(EndThread);
  if (taken == FLS_OUT_OF_INDEXES) return slotIndex.load(std::memory_order_acquire);
  if (slotIndex.compare_exchange_strong(index, taken, std::memory_order_acq_rel)) return taken;
  FlsFree(taken);  // another thread was faster
  return index;
}

ThreadSlot* Slot() noexcept {
  const DWORD index = slotIndex.load(std::memory_order_acquire);
  return index != FLS_OUT_OF_INDEXES ? static_cast<ThreadSlot*>(FlsGetValue(index)) : nullptr;
}

}  // namespace

void* ThreadValue() noexcept {
  const ThreadSlot* slot = Slot();
  return slot ? slot->value : nullptr;
}

bool SetThreadValue(void* value, void (*destroy)(void*)) noexcept {
  if (ThreadSlot* slot = Slot()) {
    *slot = {value, destroy};
    return true;
  }
  if (!value) return true;
  const DWORD index = TakeSlotIndex();
  if (index == FLS_OUT_OF_INDEXES) return false;
  auto* made = static_cast<ThreadSlot*>(HeapAlloc(GetProcessHeap(), 0, sizeof(ThreadSlot)));
  if (!made) return false;
  *made = {value, destroy};
  if (FlsSetValue(index, made)) return true;
  HeapFree(GetProcessHeap(), 0, made);
  return false;
}

int32_t ReadMemoryCounters(MemoryStatus* status) noexcept {
  MEMORYSTATUSEX counters{};
  counters.dwLength = sizeof counters;
  if (!GlobalMemoryStatusEx(&counters)) return LastError();
  *status = {counters.ullTotalPhys, counters.ullAvailPhys, counters.ullTotalPageFile, counters.ullAvailPageFile};
  return 0;
}

int32_t CountHandles(uint32_t* count) noexcept {
  using Function = BOOL(WINAPI*)(HANDLE, DWORD*);
  const HMODULE module = GetModuleHandleW(L"kernel32.dll");
  if (!module) return LastError();
  void* found = reinterpret_cast<void*>(GetProcAddress(module, "GetProcessHandleCount"));
  if (!found) return LastError();
  DWORD handles = 0;
  if (!reinterpret_cast<Function>(found)(GetCurrentProcess(), &handles)) return LastError();
  *count = handles;
  return 0;
}

int32_t ReadClock(uint64_t* ticks) noexcept {
  *ticks = GetTickCount64();
  return 0;
}

uint32_t ProcessId() noexcept { return GetCurrentProcessId(); }
uint32_t ThreadId() noexcept { return GetCurrentThreadId(); }
void SleepMilliseconds(uint32_t ms) noexcept { Sleep(ms); }

namespace {

static_assert(sizeof(SRWLOCK) <= 48 && alignof(SRWLOCK) <= 8);
SRWLOCK* Lock(unsigned char* state) noexcept { return reinterpret_cast<SRWLOCK*>(state); }

}  // namespace

void CriticalSection::Enter() noexcept { AcquireSRWLockExclusive(Lock(state_)); }
void CriticalSection::Leave() noexcept { ReleaseSRWLockExclusive(Lock(state_)); }

const Calls kSystemCalls = {
    .allocate = HeapNew,
    .reallocate = HeapResize,
    .mapAnonymous = MapAnonymous,
    .remapAnonymous = RemapAnonymous,
    .createFileMapping = MapFile,
    .mapView = MapFileView,
    .createScratchFile = CreateScratch,
    .resizeScratchFile = ResizeScratch,
    .readAt = ReadBytesAt,
    .writeAt = WriteBytesAt,
    .openFile = OpenByName,
    .readFile = ReadBytes,
    .writeFile = WriteBytes,
    .seekFile = Seek,
    .closeFile = Close,
    .deleteFile = DeleteByName,
    .temporaryPath = TemporaryFolder,
    .memoryStatus = ReadMemoryCounters,
    .handleCount = CountHandles,
    .milliseconds = ReadClock,
    .allocateBlock = AllocateMovable,
    .reallocateBlock = ReallocateMovable,
    .lockBlock = LockMovable,
    .createPalette = NewPalette,
};

}  // namespace vexakrn::platform

// Unloading the library takes the threads' values along; at the end of the process there is nothing to give back, and
// the other threads stopped where they were.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID processEnds) {
  using vexakrn::platform::slotIndex;
  if (reason == DLL_PROCESS_DETACH && !processEnds) {
    const DWORD index = slotIndex.exchange(FLS_OUT_OF_INDEXES);
    if (index != FLS_OUT_OF_INDEXES) FlsFree(index);
  }
  return TRUE;
}
