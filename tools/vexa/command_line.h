// The command line: what vexa is asked to do.
#ifndef VEXA_COMMAND_LINE_H
#define VEXA_COMMAND_LINE_H

#include <string>
#include <vector>

namespace vexa {

// Does what the arguments ask for and returns 0, or 1 when some of it failed and that was told. Throws what the commands
// throw, and UsageError for arguments that mean nothing.
int RunCommandLine(const std::vector<std::string>& arguments);

}  // namespace vexa

#endif
