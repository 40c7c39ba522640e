// Folders of a test's own, so that it sees every file that is left behind, and whole files in them.
#ifndef VEXAKRN_TESTS_SUPPORT_TEMPDIR_H
#define VEXAKRN_TESTS_SUPPORT_TEMPDIR_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "vexakrn.h"

namespace vexatest {

inline std::string Utf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}
inline std::filesystem::path FromUtf8(const std::string& text) { return std::u8string(text.begin(), text.end()); }

inline std::string ReadAll(const std::string& path) {
  std::ifstream in(FromUtf8(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
inline void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream(FromUtf8(path), std::ios::binary) << bytes;
}

// An empty folder that disappears with everything in it.
class Folder {
 public:
  Folder() {
    static std::random_device random;
    while (!std::filesystem::create_directory(path_))
      path_ = std::filesystem::temp_directory_path() / ("vexatest-" + std::to_string(random()));
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::string Name() const { return Utf8(path_); }
  std::string operator/(const std::string& name) const { return Utf8(path_ / FromUtf8(name)); }
  std::vector<std::string> Names() const {  // sorted
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.push_back(Utf8(entry.path().filename()));
    std::sort(names.begin(), names.end());
    return names;
  }
  void Clear() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) std::filesystem::remove(entry.path());
  }

 private:
  std::filesystem::path path_ = std::filesystem::temp_directory_path() / "vexatest";
};

// One that is the directory for temporary files as long as it lives.
struct TempDirectory : Folder {
  TempDirectory() { SetGlobalTempFileDirectory(Name().c_str()); }
  ~TempDirectory() { SetGlobalTempFileDirectory(nullptr); }
};

}  // namespace vexatest

#endif
