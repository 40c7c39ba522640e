// The commands of vexa. Each throws Error, UsageError or Stopped; main turns those into one line and an exit code.
#ifndef VEXA_COMMANDS_H
#define VEXA_COMMANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "codecs/storage.h"

namespace vexa {

struct InfoOptions {
  std::vector<std::string> files;
  bool json = false;
  StorageChoice storage;
};

struct ConvertOptions {
  std::string input;
  std::string output;
  std::string format;  // of the output; empty: by its extension
  int32_t page = 0;    // from 1; 0: all, or the first where the format has one page
  StorageChoice storage;
};

int Info(const InfoOptions& options);
int Convert(const ConvertOptions& options);

// Prints "vexa: FILE: REASON" on one line of the error output.
void PrintError(const std::string& file, const std::string& reason);

}  // namespace vexa

#endif
