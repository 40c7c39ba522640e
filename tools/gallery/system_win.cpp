// Running other programs and what they used.
#include <cstdlib>

#include "gallery/big.h"

namespace vexa::gallery {

int RunCommand(const std::vector<std::string>& command) {
  const auto quoted = [](const std::string& argument) { return "\"" + argument + "\""; };
  std::string line;
  for (const std::string& argument : command) line.append(line.empty() ? "" : " ").append(quoted(argument));
  return std::system(quoted(line).c_str());  // the shell takes off the outermost pair
}

// The system keeps no such figure about processes that ended.
uint64_t PeakChildBytes() { return 0; }

}  // namespace vexa::gallery
