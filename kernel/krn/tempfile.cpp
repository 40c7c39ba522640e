// Opening, copying and deleting temporary files by name.
#include "vexakrn/tempfile.h"

#include <cstring>

#include "common/buffer.h"
#include "common/status.h"
#include "krn/redirect.h"
#include "krn/tempname.h"
#include "vexakrn/files.h"

namespace vexakrn {
namespace {

constexpr uint64_t kCopyBytes = 256 * 1024;

// Closes a file of the thread's functions on every path.
class OpenedFile {
 public:
  explicit OpenedFile(intptr_t file) noexcept : file_(file) {}
  ~OpenedFile() { Close(); }
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;

  explicit operator bool() const noexcept { return file_ != -1; }
  intptr_t Get() const noexcept { return file_; }
  void Forget() noexcept { file_ = -1; }
  bool Close() noexcept {
    const intptr_t file = std::exchange(file_, -1);
    return file == -1 || V_RedirectedClose(file) == 0;
  }

 private:
  intptr_t file_;
};

int32_t CopyContents(intptr_t from, intptr_t to) noexcept {
  const Buffer<uint8_t> buffer(kCopyBytes);
  if (!buffer) return kNoMemory;
  for (;;) {
    const int64_t got = V_RedirectedRead(from, buffer.data(), kCopyBytes);
    if (got < 0) return kFileRead;
    if (got == 0) return kSuccess;
    if (V_RedirectedWrite(to, buffer.data(), static_cast<uint64_t>(got)) != got) return kNoMemory;
  }
}

int32_t CreationFailure() noexcept {
  return platform::IsAccessDenied(V_GetLastRedirectError()) ? kTempFileCreateAccessDenied : kTempFileCreate;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

intptr_t V_CALL V_RedirectedTempFileOpenA(const char* path, uint32_t mode) noexcept {
  bool claims = false;  // makes a name that was only reserved a file: nobody else's may be there
  if (path && (mode & V_OpenCreate) != 0) {
    const platform::CriticalGuard guard(namesSection);
    claims = namesInUse.IsUnopened(path);
  }
  const intptr_t file = V_RedirectedOpen(path, claims ? mode | V_OpenExclusive : mode);
  if (claims && file != -1) {
    const platform::CriticalGuard guard(namesSection);
    namesInUse.MarkOpened(path);
  }
  return file;
}

int32_t V_CALL V_RedirectedTempFileCopy(const char* from, const char* to) noexcept {
  if (!from || !to) return kNullPointer;
  // Creating the target would empty the source.
  if (std::strcmp(from, to) == 0) return kInvalidParameter;
  if (!RedirectTable().open && platform::SameFile(from, to)) return kInvalidParameter;
  OpenedFile source(V_RedirectedOpen(from, V_OpenRead));
  if (!source) return kFileRead;
  OpenedFile target(V_RedirectedTempFileOpenA(to, V_OpenWrite | V_OpenCreate));
  if (!target) return CreationFailure();
  if (target.Get() == source.Get()) {  // one memory stream, whatever the names
    target.Forget();
    return kInvalidParameter;
  }
  int32_t status = CopyContents(source.Get(), target.Get());
  if (!target.Close() && status == kSuccess) status = kNoMemory;
  // There is no function of the host's to delete with; the system's would look for a file of that name elsewhere.
  if (status != kSuccess && !RedirectTable().open) V_RedirectedTempFileDelete(to);
  return status;
}

int32_t V_CALL V_RedirectedTempFileDelete(const char* path) noexcept {
  if (!path) return kNullPointer;
  const int32_t error = V_IsRedirectName(path) ? 0 : platform::System().deleteFile(path);
  if (error != 0 && !platform::IsNotFound(error))
    return platform::IsAccessDenied(error) ? kTempFileCreateAccessDenied : kNoMemory;
  const platform::CriticalGuard guard(namesSection);
  namesInUse.Remove(path);
  return kSuccess;
}

int32_t V_CALL V_DeleteTempFile(const char* utf8Path) noexcept { return V_RedirectedTempFileDelete(utf8Path); }
