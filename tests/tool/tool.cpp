#include "tool/tool.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <sstream>
#include <thread>

#include "codecs/error.h"
#include "support/process.h"
#include "support/random.h"

namespace tool {

Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::function<bool(vexatest::Process&)>& whileRunning) {
  const Folder folder;
  const std::string out = folder / "out", err = folder / "err";
  vexatest::Process process(program, arguments, out, err);
  while (whileRunning && !whileRunning(process)) std::this_thread::sleep_for(std::chrono::microseconds(500));
  Outcome outcome = {process.Wait(), Load(out), Load(err)};
  for (std::string* text : {&outcome.output, &outcome.errors}) std::erase(*text, '\r');
  return outcome;
}

std::vector<std::string> Words(const std::string& line, const Folder* folder) {
  std::istringstream in(line);
  std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
  for (std::string& word : words)
    if (word[0] == '@' || word[0] == '~') word = word[0] == '@' ? *folder / word.substr(1) : SamplePath(word.substr(1));
  return words;
}

bool CanRead(const std::string& name) {
  const vexa::Format* format = vexa::FormatOfExtension(name);
  return format && format->create;
}

std::vector<std::string> SampleNames() {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(VEXA_SAMPLES))
    if (CanRead(entry.path().filename().string())) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<uint8_t> Decoded::Row(int32_t y) {
  std::vector<uint8_t> row(bitmap.RowBytes());
  bitmap.GetRow(y, row.data());
  return row;
}

void Decode(const std::string& path, Decoded* decoded, int32_t page) {
  vexa::File file(path, vexa::File::Mode::kRead);
  const std::unique_ptr<vexa::Reader> reader = vexa::FormatOfContent(file).open(file);
  vexa::Progress progress(1);
  decoded->pages = reader->Pages();
  reader->Describe(page, decoded->bitmap);
  decoded->bitmap.Allocate(V_MemoryConventional);
  reader->Read(page, decoded->bitmap, progress);
}

std::string DisplayedColors(vexa::Bitmap& bitmap) {
  const bool turned = bitmap.Perspective() >= V_ViewLeftTop;
  const int32_t width = turned ? bitmap.Height() : bitmap.Width(), height = turned ? bitmap.Width() : bitmap.Height();
  std::string colors;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      uint32_t color = 0;
      vexa::CheckStatus(V_GetPixelColor(&bitmap.Record(), y, x, &color));
      for (int shift = 0; shift < 24; shift += 8) colors += static_cast<char>(color >> shift & 255);
    }
  }
  return colors;
}

std::string RandomPnm(const std::string& header, size_t samples, uint32_t maximum) {
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
