// Running the tool, files to run it on, and what is expected of both.
#ifndef VEXA_TESTS_TOOL_H
#define VEXA_TESTS_TOOL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "support/process.h"
#include "support/random.h"

namespace tool {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using vexatest::Folder;

inline std::string Load(const std::string& path) { return vexatest::ReadAll(path); }
inline void Save(const std::string& path, const std::string& content) { vexatest::WriteAll(path, content); }
inline std::string SamplePath(const std::string& name) { return std::string(VEXA_SAMPLES) + "/" + name; }

// --- runs ---

struct Outcome {
  int exitCode = -1;
  std::string output, errors;
};

// Runs a program to its end. `whileRunning` is called again and again until it returns true.
inline Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                          const std::function<bool(vexatest::Process&)>& whileRunning = {}) {
  const Folder folder;
  const std::string out = folder / "out", err = folder / "err";
  vexatest::Process process(program, arguments, out, err);
  while (whileRunning && !whileRunning(process)) std::this_thread::sleep_for(std::chrono::microseconds(500));
  Outcome outcome = {process.Wait(), Load(out), Load(err)};
  for (std::string* text : {&outcome.output, &outcome.errors}) std::erase(*text, '\r');
  return outcome;
}
inline Outcome Vexa(const std::vector<std::string>& arguments) { return RunProgram(VEXA_PROGRAM, arguments); }

// The words of a line; `@name` is a file of the folder, `~name` a sample.
inline std::vector<std::string> Words(const std::string& line, const Folder* folder = nullptr) {
  std::istringstream in(line);
  std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
  for (std::string& word : words)
    if (word[0] == '~')
      word = SamplePath(word.substr(1));
    else if (word[0] == '@' && folder)
      word = *folder / word.substr(1);
  return words;
}

// Success, without a word.
inline void ExpectQuiet(const std::vector<std::string>& line) {
  const Outcome outcome = Vexa(line);
  ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output + outcome.errors, "") << "a tool that succeeds is quiet";
}

// A failure that is told in one line.
inline void ExpectOneLine(const Outcome& outcome, int exitCode, const std::string& part) {
  EXPECT_EQ(outcome.exitCode, exitCode) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
  EXPECT_TRUE(outcome.errors.starts_with("vexa: ")) << outcome.errors;
  EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors << " lacks: " << part;
}

// What `vexa info` says of one file.
inline Json InfoOf(const std::string& path, const std::string& options = "") {
  std::vector<std::string> arguments = Words("info --json " + options);
  arguments.push_back(path);
  const Outcome outcome = Vexa(arguments);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  return Json::parse(outcome.output).at(0);
}

// --- pictures ---

inline bool CanRead(const std::string& name) {
  const vexa::Format* format = vexa::FormatOfExtension(name);
  return format && format->create;
}

inline std::vector<std::string> SampleNames() {  // those that this build can read
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(VEXA_SAMPLES))
    if (CanRead(entry.path().filename().string())) names.push_back(entry.path().filename().string());
  return names;
}

// A page of a file, decoded in this process.
struct Decoded {
  explicit Decoded(const std::string& path, int32_t page = 0) {
    vexa::File file(path, vexa::File::Mode::kRead);
    const std::unique_ptr<vexa::Reader> reader = vexa::FormatOfContent(file).open(file);
    vexa::Progress progress(1);
    pages = reader->Pages();
    reader->Describe(page, bitmap);
    bitmap.Allocate(V_MemoryConventional);
    reader->Read(page, bitmap, progress);
  }
  std::vector<uint8_t> Row(int32_t y) {
    std::vector<uint8_t> row(bitmap.RowBytes());
    bitmap.GetRow(y, row.data());
    return row;
  }
  bool IsTurned() const { return bitmap.Perspective() >= V_ViewLeftTop; }
  int32_t Width() const { return IsTurned() ? bitmap.Height() : bitmap.Width(); }  // as it is displayed
  int32_t Height() const { return IsTurned() ? bitmap.Width() : bitmap.Height(); }

  // Red, green, blue of all displayed pixels, as the engine's own pixel function tells them (8 bits a channel).
  std::string Colors() {
    std::string colors;
    for (int32_t y = 0; y < Height(); ++y)
      for (int32_t x = 0; x < Width(); ++x) {
        uint32_t color = 0;
        vexa::CheckStatus(V_GetPixelColor(&bitmap.Record(), y, x, &color));
        for (int shift = 0; shift < 24; shift += 8) colors += static_cast<char>(color >> shift & 255);
      }
    return colors;
  }

  vexa::Bitmap bitmap;
  int32_t pages = 0;
};

inline void ExpectSameRows(Decoded& a, Decoded& b) {
  ASSERT_EQ(a.bitmap.Width(), b.bitmap.Width());
  ASSERT_EQ(a.bitmap.Height(), b.bitmap.Height());
  ASSERT_EQ(a.bitmap.Bits(), b.bitmap.Bits());
  for (int32_t y = 0; y < a.bitmap.Height(); ++y) ASSERT_EQ(a.Row(y), b.Row(y)) << "row " << y;
}

inline void ExpectSamePages(const std::string& a, const std::string& b) {
  Json before = InfoOf(a)["images"], after = InfoOf(b)["images"];
  for (Json* list : {&before, &after})
    for (Json& image : *list) image.erase("interlaced");
  EXPECT_EQ(before, after);
  for (int32_t page = 0; page < static_cast<int32_t>(before.size()); ++page) {
    Decoded one(a, page), other(b, page);
    ExpectSameRows(one, other);
  }
}

// Raw PNM or PAM of pseudo-random samples.
inline std::string RandomPnm(const std::string& header, size_t samples, uint32_t maximum) {
  vexatest::Random random(0x5eed);
  std::string content = header;
  for (size_t i = 0; i < samples; ++i) {
    const uint32_t sample = i == 0 ? maximum : static_cast<uint32_t>(random.Below(maximum + 1));
    if (maximum > 255) content += static_cast<char>(sample >> 8);
    content += static_cast<char>(sample & 255);
  }
  return content;
}

}  // namespace tool

#endif
