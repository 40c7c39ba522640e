// The few things that the tool asks of the operating system itself: signals, the terminal, and how files are replaced.
#ifndef VEXA_SYSTEM_H
#define VEXA_SYSTEM_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vexa::sys {

// The arguments after the program's name, in UTF-8.
std::vector<std::string> Arguments(int argc, char** argv);

// From here on an interrupt or termination request sets a flag; the second one ends the process the usual way.
void CatchStopRequests();
bool StopRequested();

bool ErrorOutputIsTerminal();

// Marks this machine in the names of files that are written aside, so that another machine's processes on a shared
// folder are not taken for dead.
uint32_t MachineTag();
bool ProcessIsGone(uint32_t processId);

// An Error unless the existing file may be replaced by this user.
void RequireWritable(const std::filesystem::path& file);

// Gives `file` the owner and permissions that `replaced` has, or those of an ordinary new file when it does not exist.
void AdoptPermissions(const std::filesystem::path& file, const std::filesystem::path& replaced);

// Brings the file's contents to the device.
void FlushToDevice(const std::filesystem::path& file);

}  // namespace vexa::sys

#endif
