// The temporary directory and the options of temporary files, each behind a critical section.
#include "krn/tempdir.h"

#include <atomic>
#include <cstring>

#include "common/status.h"
#include "common/utf8.h"
#include "platform/platform.h"
#include "vexakrn/tempfile.h"

namespace vexakrn {
namespace {

platform::CriticalSection directorySection;
char directory[kDirectoryCapacity];  // empty: not asked for yet

platform::CriticalSection optionsSection;
TEMPFILEOPTIONS options = {sizeof(TEMPFILEOPTIONS), V_TempFileEither, 0, 128, 8, 16};
std::atomic<uint32_t> currentMode{V_TempFileEither};  // the options' mode, for readers that need nothing else

bool IsAcceptablePath(const char* path) noexcept {
  const int64_t characters = Utf16Length(path);
  return characters > 0 && characters <= kMaxDirectoryCharacters;
}

}  // namespace

int32_t TemporaryDirectory(char* path) noexcept {
  const platform::CriticalGuard guard(directorySection);
  if (directory[0] == '\0') {
    char found[kDirectoryCapacity];
    const bool usable = platform::System().temporaryPath(found, sizeof found) == 0 && IsAcceptablePath(found);
    if (!usable) return kInternal;
    std::strcpy(directory, found);
  }
  std::strcpy(path, directory);
  return kSuccess;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL SetGlobalTempFileDirectory(const char* utf8Directory) noexcept {
  const bool resets = !utf8Directory || !*utf8Directory;
  if (!resets && !IsAcceptablePath(utf8Directory)) return kInvalidParameter;
  const platform::CriticalGuard guard(directorySection);
  std::strcpy(directory, resets ? "" : utf8Directory);
  return kSuccess;
}

int32_t V_CALL V_GetTempFileDirectoryUTF8(char* buffer, uint32_t capacity) noexcept {
  if (!buffer) return kNullPointer;
  char path[kDirectoryCapacity];
  V_TRY(TemporaryDirectory(path));
  const size_t length = std::strlen(path);
  if (length >= capacity) return kBufferTooSmall;
  std::memcpy(buffer, path, length + 1);
  return kSuccess;
}

int32_t V_CALL V_SetTempFileOptions(const TEMPFILEOPTIONS* wanted) noexcept {
  if (!wanted) return kNullPointer;
  if (wanted->uStructSize != sizeof *wanted) return kInvalidStructSize;
  const platform::CriticalGuard guard(optionsSection);
  const uint32_t mode = wanted->uMode == V_TEMPFILE_CURRENT_MODE ? options.uMode
                        : wanted->uMode == V_TempFileDefault     ? uint32_t{V_TempFileEither}
                                                                 : wanted->uMode;
  options = *wanted;
  options.uMode = mode;
  currentMode.store(mode);
  return kSuccess;
}

int32_t V_CALL V_GetTempFileOptions(TEMPFILEOPTIONS* out) noexcept {
  if (!out) return kNullPointer;
  const platform::CriticalGuard guard(optionsSection);
  *out = options;
  return kSuccess;
}

uint32_t V_CALL V_GetTempFileMode(void) noexcept { return currentMode.load(); }
