// Programs in processes of their own.
#ifndef VEXAKRN_TESTS_SUPPORT_PROCESS_H
#define VEXAKRN_TESTS_SUPPORT_PROCESS_H

#include <string>
#include <utility>
#include <vector>

#include "support/tempdir.h"

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace vexatest {

class Process {
 public:
#ifdef _WIN32
  using Id = HANDLE;
#else
  using Id = pid_t;
#endif

  // Starts a program with the environment of this one; what it writes goes to two files, where they are named.
  Process(const std::string& program, const std::vector<std::string>& arguments, const std::string& out = "",
          const std::string& err = "") {
#ifdef _WIN32
    std::wstring line = L"\"" + FromUtf8(program).wstring() + L"\"";
    for (const std::string& argument : arguments) line += L" \"" + FromUtf8(argument).wstring() + L"\"";
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    const auto create = [&](const std::string& path) {
      return CreateFileW(FromUtf8(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr);
    };
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    if (!out.empty()) {
      start.dwFlags = STARTF_USESTDHANDLES;
      start.hStdOutput = create(out);
      start.hStdError = create(err);
    }
    PROCESS_INFORMATION process = {};
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, !out.empty(), 0, nullptr, nullptr, &start, &process)) {
      CloseHandle(process.hThread);
      id_ = process.hProcess;
    }
    if (!out.empty()) CloseHandle(start.hStdOutput), CloseHandle(start.hStdError);
#else
    std::vector<char*> line = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) line.push_back(const_cast<char*>(argument.c_str()));
    line.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    if (!out.empty()) {
      posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
      posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT, 0600);
    }
    if (posix_spawn(&id_, line[0], &files, nullptr, line.data(), environ) != 0) id_ = {};
    posix_spawn_file_actions_destroy(&files);
#endif
  }
  ~Process() {
    if (Started()) Kill();
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  bool Started() const { return id_ != Id{}; }
  Id Handle() const { return id_; }

  // The exit code; -1 when a signal ended it.
  int Wait() {
    if (!Started()) return -1;
#ifdef _WIN32
    DWORD code = 0;
    WaitForSingleObject(id_, INFINITE);
    GetExitCodeProcess(id_, &code);
    CloseHandle(std::exchange(id_, nullptr));
    return static_cast<int>(code);
#else
    int status = 0;
    waitpid(std::exchange(id_, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
  }

  // Ends the process with no chance to clean up.
  void Kill() {
#ifdef _WIN32
    TerminateProcess(id_, 9);
#else
    kill(id_, SIGKILL);
#endif
    Wait();
  }

 private:
  Id id_{};
};

}  // namespace vexatest

#endif
