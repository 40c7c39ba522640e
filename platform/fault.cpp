// The failing table of test builds: each entry of the system's table behind one template.
#include "platform/fault.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/platform.h"

namespace vexakrn::platform {
namespace {

// The calls since FailCall are counted always; those in [first, last] fail.
std::atomic<uint64_t> calls{0};
std::atomic<uint64_t> firstFailure{0};  // 0: no injection
std::atomic<uint64_t> lastFailure{0};
std::atomic<bool> hasFailed{false};

std::array<std::atomic<int64_t>, 6> live{};
std::atomic<int64_t>& Count(Resource kind) noexcept { return live[static_cast<size_t>(kind)]; }

bool MustFail() noexcept {
  const uint64_t call = calls.fetch_add(1) + 1;
  const uint64_t first = firstFailure.load();
  if (first == 0 || call < first || call > lastFailure.load()) return false;
  hasFailed = true;
  return true;
}

template <typename Result>
Result Failure() noexcept {
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return kInjectedError;
  }
}

template <typename Result>
bool IsSuccess(Result result) noexcept {
  if constexpr (std::is_pointer_v<Result>) {
    return result != nullptr;
  } else {
    return result == 0;
  }
}

// What a successful call brings to life; none for most.
template <auto entry>
struct Acquires {};
template <Resource resource>
struct AcquiresOne {
  static constexpr Resource kind = resource;
};
template <>
struct Acquires<&Calls::allocate> : AcquiresOne<Resource::kBlock> {};
template <>
struct Acquires<&Calls::mapAnonymous> : AcquiresOne<Resource::kMapping> {};
template <>
struct Acquires<&Calls::mapView> : AcquiresOne<Resource::kView> {};
template <>
struct Acquires<&Calls::openFile> : AcquiresOne<Resource::kFile> {};
template <>
struct Acquires<&Calls::createScratchFile> : AcquiresOne<Resource::kFile> {};
template <>
struct Acquires<&Calls::allocateBlock> : AcquiresOne<Resource::kMovableBlock> {};
template <>
struct Acquires<&Calls::createPalette> : AcquiresOne<Resource::kSystemObject> {};

template <auto entry>
concept IsAcquiring = requires {
  Acquires<entry>::kind;
};

template <auto entry, typename Type = decltype(entry)>
struct Guarded;

template <auto entry, typename Result, typename... Arguments>
struct Guarded<entry, Result (*Calls::*)(Arguments...)> {
  static Result Call(Arguments... arguments) {
    if (MustFail()) return Failure<Result>();
    const Result result = (kSystemCalls.*entry)(arguments...);
    if constexpr (IsAcquiring<entry>) {
      if (IsSuccess(result)) ++Count(Acquires<entry>::kind);
    }
    return result;
  }
};

// Without a block to resize, a reallocation makes one.
void* Reallocate(void* block, size_t bytes) noexcept {
  if (MustFail()) return nullptr;
  void* resized = kSystemCalls.reallocate(block, bytes);
  if (!block && resized) ++Count(Resource::kBlock);
  return resized;
}

int32_t CloseFile(File file) noexcept { return kSystemCalls.closeFile(file); }

template <auto... entries>
constexpr Calls Guard() noexcept {
  static_assert((sizeof...(entries) + 2) * sizeof(void (*)()) == sizeof(Calls), "every entry has a guard");
  Calls table{};
  ((table.*entries = Guarded<entries>::Call), ...);
  table.reallocate = Reallocate;
  table.closeFile = CloseFile;
  return table;
}

constexpr Calls kGuardedCalls =
    Guard<&Calls::allocate, &Calls::mapAnonymous, &Calls::remapAnonymous, &Calls::createFileMapping, &Calls::mapView,
          &Calls::createScratchFile, &Calls::resizeScratchFile, &Calls::readAt, &Calls::writeAt, &Calls::openFile,
          &Calls::readFile, &Calls::writeFile, &Calls::seekFile, &Calls::deleteFile, &Calls::temporaryPath,
          &Calls::memoryStatus, &Calls::handleCount, &Calls::milliseconds, &Calls::allocateBlock,
          &Calls::reallocateBlock, &Calls::lockBlock, &Calls::createPalette>();

}  // namespace

const Calls& System() noexcept { return kGuardedCalls; }

void FailCall(uint64_t n, bool onwards) noexcept {
  firstFailure = 0;
  calls = 0;
  hasFailed = false;
  lastFailure = onwards ? UINT64_MAX : n;
  firstFailure = n;
}

uint64_t StopFailing() noexcept {
  firstFailure = 0;
  return calls;
}

bool HasFailed() noexcept { return hasFailed; }

LiveResources Live() noexcept {
  return {Count(Resource::kBlock), Count(Resource::kMapping),      Count(Resource::kView),
          Count(Resource::kFile),  Count(Resource::kMovableBlock), Count(Resource::kSystemObject)};
}

void NoteReleased(Resource kind) noexcept { --Count(kind); }

}  // namespace vexakrn::platform
