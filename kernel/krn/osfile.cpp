// The system's own file functions, in the form of the redirect table. Each leaves the system's error number as the
// thread's last-error value, 0 when it succeeds.
#include "common/status.h"
#include "krn/redirect.h"
#include "platform/platform.h"

namespace vexakrn {
namespace {

// A call's result, or -1; remembers the error.
template <typename Result>
Result Finish(int32_t error, Result result) noexcept {
  SetLastRedirectError(error);
  return error == 0 ? result : Result{-1};
}

}  // namespace

intptr_t OsOpen(const char* path, uint32_t mode) noexcept {
  platform::File file = platform::kNoFile;
  const int32_t error = path ? platform::System().openFile(path, mode, &file) : int32_t{kNullPointer};
  return Finish<intptr_t>(error, file);
}

int64_t OsRead(intptr_t file, void* buffer, uint64_t bytes) noexcept {
  uint64_t done = 0;
  const int32_t error =
      buffer || bytes == 0 ? platform::System().readFile(file, buffer, bytes, &done) : int32_t{kNullPointer};
  return Finish(error, static_cast<int64_t>(done));
}

int64_t OsWrite(intptr_t file, const void* buffer, uint64_t bytes) noexcept {
  uint64_t done = 0;
  const int32_t error =
      buffer || bytes == 0 ? platform::System().writeFile(file, buffer, bytes, &done) : int32_t{kNullPointer};
  return Finish(error, static_cast<int64_t>(done));
}

int64_t OsSeek(intptr_t file, int64_t offset, int32_t origin) noexcept {
  int64_t position = 0;
  const int32_t error = platform::System().seekFile(file, offset, origin, &position);
  return Finish(error, position);
}

int32_t OsClose(intptr_t file) noexcept { return Finish<int32_t>(platform::System().closeFile(file), 0); }

}  // namespace vexakrn
