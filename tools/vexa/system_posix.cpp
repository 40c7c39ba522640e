#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "codecs/error.h"
#include "vexa/system.h"

namespace vexa::sys {
namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void OnStopSignal(int signal) {
  if (!stopRequested.exchange(true)) return;
  std::signal(signal, SIG_DFL);
  raise(signal);
}

[[noreturn]] void ThrowErrno() { throw Error(std::system_category().message(errno)); }

}  // namespace

std::vector<std::string> Arguments(int argc, char** argv) {
  return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

void CatchStopRequests() {
  struct sigaction action = {};
  action.sa_handler = OnStopSignal;  // without SA_RESTART: a waiting read ends
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction old = {};
    sigaction(signal, nullptr, &old);
    if (old.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
  // These become errors of the write.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

bool StopRequested() { return stopRequested; }

bool ErrorOutputIsTerminal() { return isatty(STDERR_FILENO) == 1; }

uint32_t MachineTag() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  uint32_t hash = 2166136261u;
  for (const char* c = name; *c; ++c) hash = (hash ^ static_cast<unsigned char>(*c)) * 16777619u;
  return hash;
}

bool ProcessIsGone(uint32_t processId) { return kill(static_cast<pid_t>(processId), 0) != 0 && errno == ESRCH; }

void RequireWritable(const std::filesystem::path& file) {
  if (access(file.c_str(), W_OK) != 0) ThrowErrno();
}

void AdoptPermissions(const std::filesystem::path& file, const std::filesystem::path& replaced) {
  struct stat old = {};
  mode_t mode;
  if (stat(replaced.c_str(), &old) == 0) {
    // Without the right to give files away the new one stays the user's own; set-id bits are not for such a file.
    const bool sameOwner = chown(file.c_str(), old.st_uid, old.st_gid) == 0;
    mode = old.st_mode & (sameOwner ? 07777u : 0777u);
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666u & ~mask;
  }
  if (chmod(file.c_str(), mode) != 0) ThrowErrno();
}

void FlushToDevice(const std::filesystem::path& file) {
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) ThrowErrno();
  const bool flushed = fsync(descriptor) == 0;
  const int error = errno;
  close(descriptor);
  errno = error;
  if (!flushed && error != EINVAL && error != EROFS) ThrowErrno();
}

}  // namespace vexa::sys
