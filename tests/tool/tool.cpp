#include "tool/tool.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "codecs/error.h"
#include "support/random.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace tool {

#ifdef _WIN32

namespace {

HANDLE CreateFor(const fs::path& path) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr);
}

}  // namespace

Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::function<bool(int)>&) {
  const Folder folder;
  std::wstring line = L"\"" + fs::path(program).wstring() + L"\"";
  for (const std::string& argument : arguments)
    line += L" \"" + fs::path(std::u8string(argument.begin(), argument.end())).wstring() + L"\"";
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = CreateFor(folder.Path() / "out");
  start.hStdError = CreateFor(folder.Path() / "err");
  PROCESS_INFORMATION process = {};
  Outcome outcome;
  if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process)) {
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    outcome.exitCode = static_cast<int>(code);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
  }
  CloseHandle(start.hStdOutput);
  CloseHandle(start.hStdError);
  outcome.output = Load(folder / "out");
  outcome.errors = Load(folder / "err");
  for (std::string* text : {&outcome.output, &outcome.errors}) std::erase(*text, '\r');
  return outcome;
}

#else

Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::function<bool(int)>& whileRunning) {
  const Folder folder;
  const std::string out = folder / "out", err = folder / "err";
  std::vector<char*> line = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) line.push_back(const_cast<char*>(argument.c_str()));
  line.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    dup2(open(err.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    execv(line[0], line.data());
    _exit(127);
  }
  int status = 0;
  bool running = true;
  for (bool watched = whileRunning != nullptr; running && watched; usleep(500)) {
    running = waitpid(child, &status, WNOHANG) == 0;
    watched = running && !whileRunning(child);
  }
  if (running) waitpid(child, &status, 0);
  Outcome outcome;
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  outcome.output = Load(out);
  outcome.errors = Load(err);
  return outcome;
}

#endif

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
