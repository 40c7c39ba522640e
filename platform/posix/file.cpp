// Files by name, and scratch files that have none.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/posix/posix.h"

namespace vexakrn::platform {
namespace {

constexpr uint64_t kLargestOffset = std::numeric_limits<off_t>::max();
constexpr uint64_t kLargestTransfer = 1u << 30;  // one system call moves a little less than 2 GiB at most

// A number that cannot be a descriptor becomes one that is none.
int Descriptor(File file) noexcept {
  return file >= 0 && file <= std::numeric_limits<int>::max() ? static_cast<int>(file) : -1;
}

// The process's file size limit. Growing a file past it would raise a signal, so it is asked first.
uint64_t FileSizeLimit() noexcept {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kLargestOffset;
  return std::min<uint64_t>(limit.rlim_cur, kLargestOffset);
}

// Repeats a transfer until all bytes are done, it ends early, or it fails. `transfer(bytesDone, bytesLeft)` is one
// call.
template <typename Transfer>
int32_t TransferAll(uint64_t bytes, uint64_t* done, Transfer transfer) noexcept {
  *done = 0;
  while (*done < bytes) {
    const ssize_t moved = transfer(*done, static_cast<size_t>(std::min(bytes - *done, kLargestTransfer)));
    if (moved > 0) {
      *done += static_cast<uint64_t>(moved);
    } else if (moved == 0) {
      return 0;
    } else if (errno != EINTR) {
      return *done != 0 ? 0 : LastError();
    }
  }
  return 0;
}

// For file systems that cannot reserve: writes the blocks.
int32_t WriteZeros(int file, uint64_t from, uint64_t to) noexcept {
  static const uint8_t zeros[65536] = {};
  while (from < to) {
    const uint64_t part = std::min<uint64_t>(to - from, sizeof zeros);
    if (const int32_t error = WriteAt(file, zeros, part, from); error != 0) return error;
    from += part;
  }
  return 0;
}

// Gives the file its size with every block reserved.
int32_t Reserve(int file, uint64_t from, uint64_t to) noexcept {
  if (to > FileSizeLimit()) return EFBIG;
  int error = 0;
  do {
    error = fallocate(file, 0, static_cast<off_t>(from), static_cast<off_t>(to - from)) == 0 ? 0 : LastError();
  } while (error == EINTR);
  return error == EOPNOTSUPP || error == ENOSYS ? WriteZeros(file, from, to) : error;
}

// A file without a name in the folder of `path`, where the file system can; else the name lives for a moment.
int OpenNameless(const char* path) noexcept {
#ifdef O_TMPFILE
  const char* slash = std::strrchr(path, '/');
  const size_t length = slash ? static_cast<size_t>(slash - path) : 0;
  char folder[4096];
  if (length < sizeof folder) {
    std::memcpy(folder, path, length);
    std::strcpy(folder + length, !slash ? "." : length == 0 ? "/" : "");
    const int file = open(folder, O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600);
    if (file >= 0) return file;
  }
#endif
  const int named = open(path, O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (named >= 0) unlink(path);
  return named;
}

int OpenFlags(uint32_t mode) noexcept {
  const bool writes = (mode & (kOpenWrite | kOpenCreate)) != 0;
  int flags = O_CLOEXEC | (!writes ? O_RDONLY : (mode & kOpenRead) != 0 ? O_RDWR : O_WRONLY);
  if ((mode & kOpenCreate) != 0)
    flags |= (mode & kOpenExclusive) != 0 ? O_CREAT | O_EXCL | O_NOFOLLOW : O_CREAT | O_TRUNC;
  return flags;
}

}  // namespace

int32_t CreateScratchFile(const char* path, uint64_t bytes, File* file) noexcept {
  const int made = OpenNameless(path);
  if (made < 0) return LastError();
  if (const int32_t error = Reserve(made, 0, bytes); error != 0) {
    close(made);
    return error;
  }
  *file = made;
  return 0;
}

int32_t ResizeScratchFile(File file, uint64_t oldBytes, uint64_t newBytes) noexcept {
  if (newBytes > oldBytes) {
    const int32_t error = Reserve(Descriptor(file), oldBytes, newBytes);
    // What was reserved before the failure is given back.
    return error != 0 && ftruncate(Descriptor(file), static_cast<off_t>(oldBytes)) != 0 ? LastError() : error;
  }
  return ftruncate(Descriptor(file), static_cast<off_t>(newBytes)) == 0 ? 0 : LastError();
}

void CloseScratchFile(File file) noexcept {
  if (file == kNoFile) return;
  close(Descriptor(file));
  VEXAKRN_RELEASED(File);
}

int32_t ReadAt(File file, void* buffer, uint64_t bytes, uint64_t offset) noexcept {
  if (offset > kLargestOffset || bytes > kLargestOffset - offset) return EINVAL;
  uint64_t done = 0;
  const int32_t error = TransferAll(bytes, &done, [&](uint64_t at, size_t count) {
    return pread(Descriptor(file), static_cast<uint8_t*>(buffer) + at, count, static_cast<off_t>(offset + at));
  });
  return error != 0 ? error : done == bytes ? 0 : EIO;
}

int32_t WriteAt(File file, const void* buffer, uint64_t bytes, uint64_t offset) noexcept {
  if (offset > kLargestOffset || bytes > kLargestOffset - offset) return EINVAL;
  uint64_t done = 0;
  const int32_t error = TransferAll(bytes, &done, [&](uint64_t at, size_t count) {
    return pwrite(Descriptor(file), static_cast<const uint8_t*>(buffer) + at, count, static_cast<off_t>(offset + at));
  });
  return error != 0 ? error : done == bytes ? 0 : ENOSPC;
}

int32_t OpenFile(const char* path, uint32_t mode, File* file) noexcept {
  if ((mode & (kOpenRead | kOpenWrite | kOpenCreate)) == 0) return EINVAL;
  const mode_t permissions = (mode & kOpenExclusive) != 0 ? 0600 : 0666;
  int opened = -1;
  do {
    opened = open(path, OpenFlags(mode), permissions);
  } while (opened < 0 && errno == EINTR);
  if (opened < 0) return LastError();
  struct stat status {};
  if (fstat(opened, &status) == 0 && S_ISDIR(status.st_mode)) {
    close(opened);
    return EISDIR;
  }
  *file = opened;
  return 0;
}

int32_t ReadFile(File file, void* buffer, uint64_t bytes, uint64_t* done) noexcept {
  return TransferAll(bytes, done, [&](uint64_t at, size_t count) {
    return read(Descriptor(file), static_cast<uint8_t*>(buffer) + at, count);
  });
}

int32_t WriteFile(File file, const void* buffer, uint64_t bytes, uint64_t* done) noexcept {
  const uint64_t limit = FileSizeLimit();
  if (limit != kLargestOffset) {
    const off_t position = lseek(Descriptor(file), 0, SEEK_CUR);  // fails on pipes, which have no limit
    if (position >= 0 && bytes > 0) {
      if (static_cast<uint64_t>(position) >= limit) return EFBIG;
      bytes = std::min(bytes, limit - static_cast<uint64_t>(position));
    }
  }
  return TransferAll(bytes, done, [&](uint64_t at, size_t count) {
    return write(Descriptor(file), static_cast<const uint8_t*>(buffer) + at, count);
  });
}

int32_t SeekFile(File file, int64_t offset, int32_t origin, int64_t* position) noexcept {
  constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (origin < 0 || origin > 2) return EINVAL;
  const off_t reached = lseek(Descriptor(file), offset, kOrigins[origin]);
  if (reached < 0) return LastError();
  *position = reached;
  return 0;
}

int32_t CloseFile(File file) noexcept {
  const int32_t error = close(Descriptor(file)) == 0 ? 0 : LastError();
  if (error != EBADF) VEXAKRN_RELEASED(File);
  return error;
}

int32_t DeleteFile(const char* path) noexcept { return unlink(path) == 0 ? 0 : LastError(); }

bool SameFile(const char* a, const char* b) noexcept {
  struct stat first {
  }, second{};
  return stat(a, &first) == 0 && stat(b, &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

bool PathExists(const char* path) noexcept {
  struct stat status {};
  return lstat(path, &status) == 0;
}

int32_t TemporaryPath(char* buffer, size_t capacity) noexcept {
  const char* path = std::getenv("TMPDIR");
  if (!path || !*path) path = "/tmp";
  if (std::strlen(path) >= capacity) return ENAMETOOLONG;
  std::strcpy(buffer, path);
  return 0;
}

bool IsAccessDenied(int32_t error) noexcept { return error == EACCES || error == EPERM || error == EROFS; }
bool IsNotFound(int32_t error) noexcept { return error == ENOENT || error == ENOTDIR; }

}  // namespace vexakrn::platform
