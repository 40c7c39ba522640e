// Running other programs and what they used.
#include <sys/resource.h>

#include <cstdlib>

#include "gallery/big.h"

namespace vexa::gallery {
namespace {

std::string Quoted(const std::string& argument) {
  std::string quoted(1, '\'');
  for (const char c : argument) {
    if (c == '\'')
      quoted.append("'\\''");
    else
      quoted.push_back(c);
  }
  quoted.push_back('\'');
  return quoted;
}

}  // namespace

int RunCommand(const std::vector<std::string>& command) {
  std::string line;
  for (const std::string& argument : command) line.append(line.empty() ? "" : " ").append(Quoted(argument));
  return std::system(line.c_str());
}

uint64_t PeakChildBytes() {
  struct rusage usage = {};
  return getrusage(RUSAGE_CHILDREN, &usage) == 0 ? static_cast<uint64_t>(usage.ru_maxrss) * 1024 : 0;
}

}  // namespace vexa::gallery
