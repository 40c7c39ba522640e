// A picture far larger than the memory that its conversion may use.
#ifndef VEXA_GALLERY_BIG_H
#define VEXA_GALLERY_BIG_H

#include <cstdint>
#include <string>
#include <vector>

namespace vexa::gallery {

struct BigRun {
  std::string storage;
  double seconds = 0;
  uint64_t peakBytes = 0;  // most memory that the process had resident; 0 where the system does not tell
  bool identical = false;
};

struct BigReport {
  uint32_t side = 0;
  uint64_t fileBytes = 0;
  std::string limit;
  std::vector<BigRun> runs;
};

// Writes a generated square PPM to `folder`, has the program `vexa` convert it by tiles and by disk under `limit`, and
// checks every pixel of the results. The files are removed. `self` is this program, which measures a run of its own.
BigReport RunBig(const std::string& self, const std::string& vexa, const std::string& folder, uint32_t side,
                 const std::string& limit);

// Runs a command and writes its exit code, seconds and peak memory to `report`.
int Measure(const std::string& report, const std::vector<std::string>& command);

// The report as a file between two runs of this program.
void SaveReport(const BigReport& report, const std::string& path);
BigReport LoadReport(const std::string& path);

// system_posix.cpp and system_win.cpp:

// Runs a program with arguments through the system's shell and waits for it. Returns what the shell says of it.
int RunCommand(const std::vector<std::string>& command);

// Most memory that any finished child of this process had resident.
uint64_t PeakChildBytes();

}  // namespace vexa::gallery

#endif
