// Holds many operating-system handles open, to bring the process near the engine's handle budget.
#ifndef VEXAKRN_TESTS_SUPPORT_HANDLES_H
#define VEXAKRN_TESTS_SUPPORT_HANDLES_H

#include <cstddef>
#include <vector>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace vexatest {

class ManyHandles {
 public:
  explicit ManyHandles(size_t count) {
#ifdef _WIN32
    while (handles_.size() < count) {
      const HANDLE handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
      if (handle == nullptr) break;
      handles_.push_back(handle);
    }
    DWORD counted = 0;  // stays 0 on compatible systems that never count
    reached_ = GetProcessHandleCount(GetCurrentProcess(), &counted) && counted >= count;
#else
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    while (handles_.size() < count) {
      const int handle = open("/dev/null", O_RDONLY | O_CLOEXEC);
      if (handle < 0) break;
      handles_.push_back(handle);
    }
    reached_ = handles_.size() == count;
#endif
  }
  ~ManyHandles() {
#ifdef _WIN32
    for (const HANDLE handle : handles_) CloseHandle(handle);
#else
    for (const int handle : handles_) close(handle);
#endif
  }
  ManyHandles(const ManyHandles&) = delete;
  ManyHandles& operator=(const ManyHandles&) = delete;
  bool Reached() const { return reached_; }

 private:
#ifdef _WIN32
  std::vector<HANDLE> handles_;
#else
  std::vector<int> handles_;
#endif
  bool reached_ = false;
};

}  // namespace vexatest

#endif
