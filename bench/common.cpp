// The measuring loop, on Google Benchmark's manual timing, and the main of every family.
#include "common.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace vexabench {
namespace {

constexpr double kSampleSeconds = 0.004;  // of the faster side: the clock and the scheduler are to be small against it
constexpr size_t kLargePage = 2u << 20;

// The thread's own processor time: what other programs take from it does not count.
double Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double Seconds(const std::function<void()>& work, int64_t repeats) {
  const double start = Now();
  for (int64_t i = 0; i < repeats; ++i) work();
  return Now() - start;
}

// Warms both sides up and finds how many runs make a sample.
int64_t Calibrate(const Contest& contest) {
  contest.ours();
  contest.other();
  for (int64_t repeats = 1;; repeats *= 2) {
    const double shorter = std::min(Seconds(contest.ours, repeats), Seconds(contest.other, repeats));
    if (shorter >= kSampleSeconds / 2) return repeats;
  }
}

double Quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  const double at = share * static_cast<double>(values.size() - 1);
  const auto below = static_cast<size_t>(at);
  const size_t above = std::min(below + 1, values.size() - 1);
  return std::lerp(values[below], values[above], at - std::floor(at));
}

struct Rounds {
  std::vector<double> ours, other, ratio, extra;  // times in nanoseconds of one operation
  void Add(double oursNs, double otherNs) {
    ours.push_back(oursNs);
    other.push_back(otherNs);
    ratio.push_back(oursNs / otherNs);
    extra.push_back(oursNs - otherNs);
  }
};

void RunRounds(benchmark::State& state, const Contest& contest, Rounds& rounds) {
  const int64_t repeats = Calibrate(contest);
  const double toNs = 1e9 / (static_cast<double>(repeats) * contest.operations);
  bool oursFirst = false;
  for ([[maybe_unused]] auto iteration : state) {
    double ours = 0;
    if (oursFirst) ours = Seconds(contest.ours, repeats);
    const double other = Seconds(contest.other, repeats);
    if (!oursFirst) ours = Seconds(contest.ours, repeats);
    oursFirst = !oursFirst;
    rounds.Add(ours * toNs, other * toNs);
    state.SetIterationTime(ours);
  }
}

void Report(benchmark::State& state, const Rounds& rounds, Goal goal) {
  auto& counters = state.counters;
  counters["ours_ns"] = Quantile(rounds.ours, 0.5);
  counters["other_ns"] = Quantile(rounds.other, 0.5);
  counters["ratio"] = Quantile(rounds.ratio, 0.5);
  counters["ratio_low"] = Quantile(rounds.ratio, 0.25);
  counters["ratio_high"] = Quantile(rounds.ratio, 0.75);
  counters["extra_ns"] = Quantile(rounds.extra, 0.5);
  if (goal.kind) counters[goal.kind] = goal.limit;
}

// Registers a body whose exceptions become errors in the results.
void Register(const std::string& name, int iterations, std::function<void(benchmark::State&)> body) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [body = std::move(body)](benchmark::State& state) {
                                 try {
                                   body(state);
                                 } catch (const std::exception& error) {
                                   state.SkipWithError(error.what());
                                 }
                               })
      ->UseManualTime()
      ->Iterations(iterations);
}

std::string ProcessorName() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);)
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  return "unknown processor";
}

std::string TemporaryDirectory() {
  char path[1024];
  Require(V_GetTempFileDirectoryUTF8(path, sizeof path) == 1, "no temporary directory");
  return path;
}

}  // namespace

void Compare(const std::string& operation, const std::string& other, Goal goal, const std::function<Contest()>& prepare,
             int rounds) {
  Register(operation + " | " + other, rounds, [=](benchmark::State& state) {
    state.SetLabel(other);
    Rounds times;
    RunRounds(state, prepare(), times);
    Report(state, times, goal);
  });
}

void Count(const std::string& operation, const std::string& unit, double limit,
           const std::function<double()>& measure) {
  Register(operation + " | " + unit, 5, [=](benchmark::State& state) {
    state.SetLabel(unit);
    std::vector<double> counts;
    for ([[maybe_unused]] auto iteration : state) {
      const double start = Now();
      counts.push_back(measure());
      state.SetIterationTime(Now() - start);
    }
    state.counters["count"] = Quantile(counts, 0.5);
    state.counters["goal_count"] = limit;
  });
}

void Contend(const std::string& operation, const std::string& other,
             const std::function<std::pair<double, double>()>& measure) {
  Register(operation + " | " + other, 1, [=](benchmark::State& state) {
    state.SetLabel(other);
    for ([[maybe_unused]] auto iteration : state) {
      const double start = Now();
      const auto [ours, theirs] = measure();
      state.SetIterationTime(Now() - start);
      state.counters["count"] = ours;
      state.counters["goal_count"] = theirs;
    }
  });
}

std::string SizeName(uint64_t bytes) {
  if (bytes >= 1u << 20) return std::to_string(bytes >> 20) + " MB";
  if (bytes >= 1u << 10) return std::to_string(bytes >> 10) + " KB";
  return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

Memory::Memory(size_t bytes) : data_(nullptr), bytes_((bytes + kLargePage - 1) / kLargePage * kLargePage) {
  data_ = static_cast<uint8_t*>(std::aligned_alloc(kLargePage, bytes_));
  Require(data_ != nullptr, "no memory");
  madvise(data_, bytes_, MADV_HUGEPAGE);
  std::memset(data_, 0x5A, bytes_);
}

Memory::~Memory() { std::free(data_); }

Image::Image(uint32_t memory, int32_t width, int32_t height, int32_t bitsPerPixel) : record_{} {
  Require(V_CreateBitmap(&record_, sizeof record_, memory, width, height, bitsPerPixel, V_OrderBgr, nullptr,
                         V_ViewTopLeft, nullptr, 0) == 1,
          "the bitmap could not be created");
  V_AccessBitmap(&record_);
  const std::vector<uint8_t> row(record_.BytesPerLine, 0x5A);
  for (int32_t y = 0; y < height; ++y)
    if (V_PutBitmapRow(&record_, row.data(), y, row.size()) != static_cast<int64_t>(row.size())) std::abort();
}

Image::~Image() {
  V_ReleaseBitmap(&record_);
  V_FreeBitmap(&record_);
}

ScratchFile::ScratchFile(size_t bytes, size_t step)
    : file_(open(TemporaryDirectory().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)) {
  Require(file_ >= 0, "the scratch file could not be created");
  const std::vector<uint8_t> block(step, 0x5A);
  Require(posix_fallocate(file_, 0, static_cast<off_t>(bytes)) == 0, "no room for the scratch file");
  for (size_t at = 0; at < bytes; at += step)
    Require(pwrite(file_, block.data(), step, static_cast<off_t>(at)) == static_cast<ssize_t>(step), "a write failed");
}

ScratchFile::~ScratchFile() { close(file_); }

}  // namespace vexabench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("processor", vexabench::ProcessorName());
  vexabench::RegisterFamily();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
