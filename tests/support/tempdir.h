// A directory of its own for temporary files, so that a test sees every file that is left behind.
#ifndef VEXAKRN_TESTS_SUPPORT_TEMPDIR_H
#define VEXAKRN_TESTS_SUPPORT_TEMPDIR_H

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "vexakrn.h"

namespace vexatest {

class TempDirectory {
 public:
  TempDirectory() {
    const auto seed = std::chrono::steady_clock::now().time_since_epoch().count();
    for (int try_ = 0; try_ < 100 && path_.empty(); ++try_) {
      const auto candidate =
          std::filesystem::temp_directory_path() / ("vexatest-" + std::to_string(seed) + "-" + std::to_string(try_));
      if (std::filesystem::create_directory(candidate)) path_ = candidate;
    }
    EXPECT_EQ(SetGlobalTempFileDirectory(Utf8().c_str()), 1);
  }
  ~TempDirectory() {
    SetGlobalTempFileDirectory(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  std::string Utf8() const { return reinterpret_cast<const char*>(path_.u8string().c_str()); }
  std::string File(const std::string& name) const {
    return reinterpret_cast<const char*>((path_ / name).u8string().c_str());
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
      names.push_back(entry.path().filename().string());
    return names;
  }
  void Clear() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) std::filesystem::remove(entry.path());
  }

 private:
  std::filesystem::path path_;
};

}  // namespace vexatest

#endif
