// A file that a command writes: aside first, put in its place when it is complete.
#ifndef VEXA_OUTPUT_FILE_H
#define VEXA_OUTPUT_FILE_H

#include <filesystem>
#include <memory>
#include <string>

#include "codecs/file.h"

namespace vexa {

// A path as the standard library wants it, from UTF-8 and back.
std::filesystem::path PathOf(const std::string& utf8);
std::string Utf8Of(const std::filesystem::path& path);

// True for what is no ordinary file and cannot be replaced by one: devices, pipes.
bool IsSpecialFile(const std::string& path);

// Writes to a new file in the output's own folder. Commit puts it in the output's place in one step; anything else
// removes it. A special file is written directly, or from a temporary file when its format has to seek.
class OutputFile {
 public:
  OutputFile(const std::string& path, bool seeks);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  File& Stream() { return *stream_; }
  void Close();   // everything is written
  void Commit();  // after that

 private:
  void CreateAside(const std::string& folder);
  void CopyToSpecial();

  std::string path_;
  std::filesystem::path target_;  // what the path leads to
  std::string aside_;             // empty when the output is written directly
  bool special_;
  std::unique_ptr<File> stream_;  // until it is closed
};

}  // namespace vexa

#endif
