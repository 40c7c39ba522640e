// Fault injection, in test builds only: makes calls of the platform's table fail, and counts what is alive.
#ifndef VEXAKRN_PLATFORM_FAULT_H
#define VEXAKRN_PLATFORM_FAULT_H

#ifdef VEXAKRN_FAULT_INJECTION
#include <cstdint>

namespace vexakrn::platform {

// The error number of injected failures: an I/O error, neither "access denied" nor "not found".
#ifdef _WIN32
inline constexpr int32_t kInjectedError = 1117;
#else
inline constexpr int32_t kInjectedError = 5;
#endif

// From now on the n-th call (1 is the next) of any thread fails, and with `onwards` every later one too. A call that
// fails has no effect. closeFile is no such call: it is neither counted nor failed.
void FailCall(uint64_t n, bool onwards) noexcept;

// Ends the injection. Returns the number of calls made since FailCall.
uint64_t StopFailing() noexcept;

// Whether a call has been failed since FailCall.
bool HasFailed() noexcept;

// Resources alive by the count of the table, for leak checks. `files` are those of openFile and createScratchFile.
// The objects between a file and its views (createFileMapping) are not counted: some systems have none.
struct LiveResources {
  int64_t blocks, mappings, views, files, movableBlocks, systemObjects;
  bool operator==(const LiveResources&) const = default;
};
LiveResources Live() noexcept;

// The platform's own functions report through VEXAKRN_RELEASED what they gave back.
enum class Resource { kBlock, kMapping, kView, kFile, kMovableBlock, kSystemObject };
void NoteReleased(Resource kind) noexcept;

}  // namespace vexakrn::platform

#define VEXAKRN_RELEASED(kind) NoteReleased(Resource::k##kind)
#else
#define VEXAKRN_RELEASED(kind) static_cast<void>(0)
#endif
#endif
