// A second process of the test program.
//
// A child runs one test of this program whose name starts with DISABLED_Child; it ends with FinishChild(), so that
// its exit code tells "ran to the end" from "was never found".
#ifndef VEXAKRN_TESTS_ABI_CHILD_H
#define VEXAKRN_TESTS_ABI_CHILD_H

#include "support/testing.h"

#include <chrono>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace vexatest {

inline unsigned long OwnProcessId() {
#ifdef _WIN32
  return GetCurrentProcessId();
#else
  return static_cast<unsigned long>(getpid());
#endif
}

inline void SetEnvironment(const char* name, const char* value) {  // null removes
#ifdef _WIN32
  SetEnvironmentVariableA(name, value);
#else
  value ? setenv(name, value, 1) : unsetenv(name);
#endif
}

// Waits until `condition` holds; false after ten seconds.
template <class Condition>
bool Eventually(Condition condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return condition();
}

inline constexpr int kChildDone = 42;
inline constexpr int kChildSkipped = 43;
inline constexpr const char* kChildFolder = "VEXAKRN_TEST_FOLDER";  // tells a child where to work

[[noreturn]] inline void FinishChild() { std::exit(::testing::Test::HasFailure() ? 1 : kChildDone); }

class Child {
 public:
  // Starts the test `test` (of DISABLED_Child) in a new process, which inherits the environment.
  Child(const std::string& test, const std::string& folder) {
    SetEnvironment(kChildFolder, folder.c_str());
    const std::string filter = "--gtest_filter=DISABLED_Child." + test;
    const std::vector<std::string> options = {filter, "--gtest_also_run_disabled_tests", "--gtest_brief=1",
                                              "--gtest_output="};
#ifdef _WIN32
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string line(1, '"');
    line.append(self).append(1, '"');
    for (const std::string& option : options) line.append(1, ' ').append(option);
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (CreateProcessA(self, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
      CloseHandle(info.hThread);
      process_ = info.hProcess;
    }
#else
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::vector<char*> arguments = {const_cast<char*>(self.c_str())};
    for (const std::string& option : options) arguments.push_back(const_cast<char*>(option.c_str()));
    arguments.push_back(nullptr);
    if (posix_spawn(&process_, self.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) process_ = 0;
#endif
    SetEnvironment(kChildFolder, nullptr);
  }
  ~Child() {
    if (process_) Kill();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool Started() const { return process_ != 0; }

  // The exit code; -1 when a signal ended it.
  int Wait() {
    if (!process_) return -1;
#ifdef _WIN32
    WaitForSingleObject(process_, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process_, &code);
    CloseHandle(std::exchange(process_, nullptr));
    return static_cast<int>(code);
#else
    int status = 0;
    waitpid(std::exchange(process_, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  }

  // Ends the process with no chance to clean up.
  void Kill() {
    if (!process_) return;
#ifdef _WIN32
    TerminateProcess(process_, 9);
#else
    kill(process_, SIGKILL);
#endif
    Wait();
  }

 private:
#ifdef _WIN32
  HANDLE process_ = nullptr;
#else
  pid_t process_ = 0;
#endif
};

}  // namespace vexatest

#endif
