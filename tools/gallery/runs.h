// The work behind the gallery: every sample through every storage kind, with what each run got and gave.
#ifndef VEXA_GALLERY_RUNS_H
#define VEXA_GALLERY_RUNS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vexa::gallery {

// One sample through one storage kind.
struct Run {
  std::string requested;
  std::string got;  // from the bitmap's flags
  std::string note;
  uint64_t bytesHeld = 0;
  double readMilliseconds = 0;
  double writeMilliseconds = 0;  // to a memory stream and from there again
  bool identical = false;
  std::string error;
};

struct Sample {
  std::string name;
  std::string format;
  std::string depth;
  int32_t width = 0;
  int32_t height = 0;
  int32_t pages = 0;
  int32_t perspective = 1;
  std::string picture;  // file name in the gallery's folder
  std::string pictureNote;
  std::vector<Run> runs;
};

// Takes a sample through the storage kinds and puts a picture of it into `folder`. Throws when the file cannot be read.
Sample RunSample(const std::filesystem::path& file, const std::filesystem::path& folder);

}  // namespace vexa::gallery

#endif
