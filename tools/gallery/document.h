// A page of text at the resolution of archives, held packed and compressed.
#ifndef VEXA_GALLERY_DOCUMENT_H
#define VEXA_GALLERY_DOCUMENT_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vexa::gallery {

// The page in one kind of storage. Times are the best of several rounds.
struct DocumentRun {
  std::string storage;
  uint64_t bytesHeld = 0;
  double putMilliseconds = 0;  // all rows, one after the other
  double getMilliseconds = 0;
  bool identical = false;
};

struct DocumentReport {
  std::string sample;  // its file name
  int32_t width = 0;
  int32_t height = 0;
  std::vector<DocumentRun> runs;  // the first is that of packed rows
};

// Enlarges a 1-bit sample twice, with smooth edges, and repeats it over an A4 page at 600 dots per inch.
DocumentReport RunDocument(const std::filesystem::path& sample);

}  // namespace vexa::gallery

#endif
