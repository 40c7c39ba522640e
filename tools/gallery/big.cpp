#include "gallery/big.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "codecs/error.h"
#include "codecs/file.h"
#include "gallery/clock.h"

namespace vexa::gallery {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

// A picture that differs in every row and column and can be made again row by row.
void FillRow(std::vector<uint8_t>& row, uint32_t y) {
  const size_t pixels = row.size() / 3;
  for (size_t x = 0; x < pixels; ++x) {
    const uint32_t mixed = static_cast<uint32_t>(x) * 2654435761u ^ y * 40503u;
    row[3 * x] = static_cast<uint8_t>(x * 255 / pixels);
    row[3 * x + 1] = static_cast<uint8_t>((x ^ y) >> 4);
    row[3 * x + 2] = static_cast<uint8_t>(mixed >> 24);
  }
}

std::string HeaderOf(uint32_t side) {
  const std::string number = std::to_string(side);
  return "P6\n" + number + " " + number + "\n255\n";
}

void WriteBig(const std::string& path, uint32_t side) {
  File file(path, File::Mode::kRewrite);
  const std::string header = HeaderOf(side);
  file.Write(header.data(), header.size());
  std::vector<uint8_t> row(size_t{side} * 3);
  for (uint32_t y = 0; y < side; ++y) {
    FillRow(row, y);
    file.Write(row.data(), row.size());
  }
  file.Close();
}

bool IsBig(const std::string& path, uint32_t side) {
  File file(path, File::Mode::kRead);
  std::string header = HeaderOf(side);
  const std::string wanted = header;
  file.ReadExactly(header.data(), header.size());
  if (header != wanted) return false;
  std::vector<uint8_t> row(size_t{side} * 3), got(row.size());
  for (uint32_t y = 0; y < side; ++y) {
    FillRow(row, y);
    if (file.Read(got.data(), got.size()) != got.size() || got != row) return false;
  }
  return file.Byte() == -1;
}

class RemovedAtEnd {
 public:
  explicit RemovedAtEnd(fs::path path) : path_(std::move(path)) {}
  ~RemovedAtEnd() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
  std::string Name() const { return path_.string(); }

 private:
  fs::path path_;
};

Json LoadJson(const std::string& path) {
  std::ifstream in(path);
  return Json::parse(in);
}

}  // namespace

int Measure(const std::string& report, const std::vector<std::string>& command) {
  const Clock running;
  const int result = RunCommand(command);
  const double seconds = running.Milliseconds() / 1000;
  std::ofstream(report) << Json{{"seconds", seconds}, {"peak_bytes", PeakChildBytes()}};
  return result == 0 ? 0 : 1;
}

BigReport RunBig(const std::string& self, const std::string& vexa, const std::string& folder, uint32_t side,
                 const std::string& limit) {
  const RemovedAtEnd big(fs::path(folder) / "big.ppm"), copy(fs::path(folder) / "big-copy.ppm");
  const RemovedAtEnd measured(fs::path(folder) / "measured.json");
  std::printf("writing %u x %u pixels\n", side, side);
  WriteBig(big.Name(), side);
  BigReport report;
  report.side = side;
  report.limit = limit;
  report.fileBytes = fs::file_size(big.Name());
  for (const char* storage : {"tiled", "disk"}) {
    std::printf("converting by %s under %s\n", storage, limit.c_str());
    std::fflush(stdout);
    if (RunCommand({self, "measure", measured.Name(), vexa, "convert", big.Name(), copy.Name(), "--storage", storage,
                    "--memory-limit", limit}) != 0)
      throw Error("the conversion by " + std::string(storage) + " failed");
    const Json figures = LoadJson(measured.Name());
    BigRun run;
    run.storage = storage;
    run.seconds = figures["seconds"];
    run.peakBytes = figures["peak_bytes"];
    run.identical = IsBig(copy.Name(), side);
    report.runs.push_back(run);
    std::printf("  %.1f s, peak memory %.1f MB, pixels %s\n", run.seconds, static_cast<double>(run.peakBytes) / 1e6,
                run.identical ? "identical" : "DIFFERENT");
  }
  return report;
}

void SaveReport(const BigReport& report, const std::string& path) {
  Json runs = Json::array();
  for (const BigRun& run : report.runs)
    runs.push_back({{"storage", run.storage},
                    {"seconds", run.seconds},
                    {"peak_bytes", run.peakBytes},
                    {"identical", run.identical}});
  std::ofstream(path) << Json{
      {"side", report.side}, {"file_bytes", report.fileBytes}, {"limit", report.limit}, {"runs", runs}};
}

BigReport LoadReport(const std::string& path) {
  const Json json = LoadJson(path);
  BigReport report;
  report.side = json["side"];
  report.fileBytes = json["file_bytes"];
  report.limit = json["limit"];
  for (const Json& run : json["runs"])
    report.runs.push_back({run["storage"], run["seconds"], run["peak_bytes"], run["identical"]});
  return report;
}

}  // namespace vexa::gallery
