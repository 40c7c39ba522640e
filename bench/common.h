// Measuring by contest: the engine's work and the limit or peer it is compared with run alternately, round by round, so
// that a slow phase of the machine hits both. The result of a comparison is the median of its rounds' ratios. Times are
// the thread's own processor time: what other programs take from it does not count, and files lie in the page cache.
//
// Each family is a program of its own: common.cpp has its main, which asks RegisterFamily for the comparisons.
#ifndef VEXAKRN_BENCH_COMMON_H
#define VEXAKRN_BENCH_COMMON_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "vexakrn.h"

namespace vexabench {

// What a comparison is to reach: a ratio of times (ours / the other's), nanoseconds over the other's, or a count.
struct Goal {
  const char* kind;  // the counter's name in the results
  double limit;
};
inline constexpr Goal kNoGoal = {nullptr, 0};
constexpr Goal TimesAtMost(double ratio) { return {"goal_ratio", ratio}; }
constexpr Goal SpeedAtLeast(double speed) { return {"goal_ratio", 1 / speed}; }
constexpr Goal ExtraAtMost(double nanoseconds) { return {"goal_extra_ns", nanoseconds}; }

// Both sides of a comparison. One run of either does `operations` operations; times are reported for one.
struct Contest {
  std::function<void()> ours;
  std::function<void()> other;
  double operations = 1;
};

// Adds a comparison. `prepare` runs just before it, so that only one comparison's images are alive at a time.
void Compare(const std::string& operation, const std::string& other, Goal goal, const std::function<Contest()>& prepare,
             int rounds = 31);

// Adds a count, such as page faults, with the most it may be. The result is the median of a few.
void Count(const std::string& operation, const std::string& unit, double limit, const std::function<double()>& measure);

// Adds a contest of two figures that are no times, ours first: the lower wins.
void Contend(const std::string& operation, const std::string& other,
             const std::function<std::pair<double, double>()>& measure);

// Defined by each family.
void RegisterFamily();

// Ends a comparison, with the reason in the results.
inline void Require(bool condition, const char* what) {
  if (!condition) [[unlikely]]
    throw std::runtime_error(what);
}

// "4 KB", "1 MB".
std::string SizeName(uint64_t bytes);

// Memory as the engine's own large blocks get it, touched: the other side should not lose by small pages.
class Memory {
 public:
  explicit Memory(size_t bytes);
  ~Memory();
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  uint8_t* data() { return data_; }
  size_t size() const { return bytes_; }

 private:
  uint8_t* data_;
  size_t bytes_;
};

// An accessed bitmap whose pages have all been written.
class Image {
 public:
  Image(uint32_t memory, int32_t width, int32_t height, int32_t bitsPerPixel);
  ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  BITMAPHANDLE* get() { return &record_; }
  uint8_t* Data() const { return record_.Addr.Windows.pData; }
  size_t Pitch() const { return record_.BytesPerLine; }
  int32_t Height() const { return record_.Height; }

 private:
  BITMAPHANDLE record_;
};

// The thread's tile thresholds for a scope.
class TileSettings {
 public:
  TileSettings(int64_t tileBytes, int32_t tilesInMemory) {
    V_SetMemoryThresholds(0, 0, tileBytes, 0, tilesInMemory, V_ThresholdTileSize | V_ThresholdFifth);
  }
  ~TileSettings() { V_SetMemoryThresholds(0, 0, 0, 0, 0, V_ThresholdTileSize | V_ThresholdFifth); }
  TileSettings(const TileSettings&) = delete;
  TileSettings& operator=(const TileSettings&) = delete;
};

// A file without a name in the engine's temporary directory, its blocks reserved, then written in steps: how a file was
// written decides how it lies in the page cache.
class ScratchFile {
 public:
  ScratchFile(size_t bytes, size_t step);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  int Descriptor() const { return file_; }

 private:
  int file_;
};

}  // namespace vexabench

#endif
