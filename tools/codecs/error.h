// Failures of the tools: what went wrong, in words for the person at the terminal.
#ifndef VEXA_CODECS_ERROR_H
#define VEXA_CODECS_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace vexa {

// A reason that fits one line, and the file that it is about once somebody knew it.
class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& reason) : std::runtime_error(reason) {}
  Error(std::string file, const std::string& reason) : std::runtime_error(reason), file_(std::move(file)) {}
  const std::string& File() const { return file_; }

 private:
  std::string file_;
};

// The command line asks for something that does not exist.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The status callback ended the work with this status.
class Stopped : public std::exception {
 public:
  explicit Stopped(int32_t status) : status_(status) {}
  const char* what() const noexcept override { return "stopped"; }
  int32_t Status() const { return status_; }

 private:
  int32_t status_;
};

// Runs `work`; an Error that names no file yet leaves with this one.
template <typename Work>
decltype(auto) About(const std::string& file, Work&& work) {
  try {
    return std::forward<Work>(work)();
  } catch (const Error& error) {
    if (!error.File().empty()) throw;
    throw Error(file, error.what());
  }
}

// Throws unless an engine function succeeded.
void CheckStatus(int32_t status);

// The reason of the calling thread's last failure of a file function.
std::string LastFileError();

}  // namespace vexa

#endif
