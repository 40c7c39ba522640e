// The commands of vexa. Each throws Error, UsageError or Stopped; main turns those into one line and an exit code.
#ifndef VEXA_COMMANDS_H
#define VEXA_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "codecs/storage.h"
#include "vexa/pipeline.h"

namespace vexa {

struct InfoOptions {
  std::vector<std::string> files;
  bool json = false;
  StorageChoice storage;
};

// Of convert, and with an area of crop.
struct ConvertOptions {
  std::string input;
  std::string output;
  std::string format;  // of the output; empty: by its extension
  int32_t page = 0;    // from 1; 0: all, or the first where the format has one page
  PageChanges changes;
  StorageChoice storage;
};

struct PaletteOptions {
  std::string file;
  int32_t page = 1;
  std::string show;         // the picture to write; empty: none
  std::string exportation;  // the palette file to write; empty: none
};

struct PageRange {
  int32_t first = 1;
  int32_t last = 0;  // 0: the file's last page
};

struct SplitOptions {
  std::string input;
  std::string output;  // the pattern of the files' names
  std::string format;
  std::vector<PageRange> pages;  // none: all
  StorageChoice storage;
};

struct JoinOptions {
  std::string output;
  std::vector<std::string> inputs;
  std::string format;
  StorageChoice storage;
};

int Info(const InfoOptions& options);
int Convert(const ConvertOptions& options);
int ShowPalette(const PaletteOptions& options);
int ListPages(const std::string& path);
int SplitPages(const SplitOptions& options);
int JoinPages(const JoinOptions& options);

// Prints "vexa: FILE: REASON" on one line of the error output.
void PrintError(const std::string& file, const std::string& reason);

}  // namespace vexa

#endif
