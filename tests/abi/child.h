// A second process of the test program.
//
// A child runs one test of this program whose name starts with DISABLED_Child; it ends with FinishChild(), so that
// its exit code tells "ran to the end" from "was never found".
#ifndef VEXAKRN_TESTS_ABI_CHILD_H
#define VEXAKRN_TESTS_ABI_CHILD_H

#include <chrono>

#include "support/process.h"
#include "support/testing.h"

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

struct Child : Process {
  // Starts the test `test` (of DISABLED_Child) in a new process, which inherits the environment.
  Child(const std::string& test, const std::string& folder)
      : Process(Self(folder), {"--gtest_filter=DISABLED_Child." + test, "--gtest_also_run_disabled_tests",
                               "--gtest_brief=1", "--gtest_output="}) {
    SetEnvironment(kChildFolder, nullptr);
  }

 private:
  static std::string Self(const std::string& folder) {
    SetEnvironment(kChildFolder, folder.c_str());
#ifdef _WIN32
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    return self;
#else
    return std::filesystem::read_symlink("/proc/self/exe").string();
#endif
  }
};

}  // namespace vexatest

#endif
