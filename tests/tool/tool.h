// Running the tool, and files to run it on.
#ifndef VEXA_TESTS_TOOL_H
#define VEXA_TESTS_TOOL_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "codecs/codec.h"
#include "support/process.h"
#include "support/tempdir.h"

namespace tool {

namespace fs = std::filesystem;

struct Outcome {
  int exitCode = -1;
  std::string output;
  std::string errors;
};

// Runs a program to its end. `whileRunning` is called again and again until it returns true.
Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::function<bool(vexatest::Process&)>& whileRunning = {});
inline Outcome Vexa(const std::vector<std::string>& arguments) { return RunProgram(VEXA_PROGRAM, arguments); }

using vexatest::Folder;
inline std::string Load(const std::string& path) { return vexatest::ReadAll(path); }
inline void Save(const std::string& path, const std::string& content) { vexatest::WriteAll(path, content); }
inline std::string SamplePath(const std::string& name) { return std::string(VEXA_SAMPLES) + "/" + name; }

// The words of a line; `@name` is a file of the folder, `~name` a sample.
std::vector<std::string> Words(const std::string& line, const Folder* folder = nullptr);

std::vector<std::string> SampleNames();  // those that this build can read
bool CanRead(const std::string& name);

// A page of a file, decoded in this process.
struct Decoded {
  vexa::Bitmap bitmap;
  int32_t pages = 0;
  std::vector<uint8_t> Row(int32_t y);
};
void Decode(const std::string& path, Decoded* decoded, int32_t page = 0);

// Red, green, blue of all displayed pixels, as the engine's own pixel function tells them (8 bits a channel).
std::string DisplayedColors(vexa::Bitmap& bitmap);

// Raw PNM or PAM of pseudo-random samples.
std::string RandomPnm(const std::string& header, size_t samples, uint32_t maximum);

}  // namespace tool

#endif
