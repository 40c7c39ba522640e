// vexa: the program, and how its failures are told.
#include <cctype>
#include <cstdio>
#include <new>

#include "codecs/error.h"
#include "vexa/command_line.h"
#include "vexa/commands.h"
#include "vexa/system.h"

namespace vexa {
namespace {

enum ExitCode { kFailed = 1, kWrongUsage = 2 };

// Whatever a file name or a library's text holds, a message is one line.
std::string OneLine(std::string text) {
  for (char& c : text)
    if (std::iscntrl(static_cast<unsigned char>(c))) c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

int Main(const std::vector<std::string>& arguments) {
  try {
    return RunCommandLine(arguments);
  } catch (const UsageError& error) {
    PrintError("", std::string(error.what()) + " (try 'vexa --help')");
    return kWrongUsage;
  } catch (const Error& error) {
    // An interrupted system call is what the user wanted.
    if (sys::StopRequested())
      PrintError("", "stopped");
    else
      PrintError(error.File(), error.what());
  } catch (const Stopped&) {
    PrintError("", "stopped");
  } catch (const std::bad_alloc&) {
    PrintError("", "not enough memory");
  } catch (const std::exception& error) {
    PrintError("", error.what());
  }
  return kFailed;
}

}  // namespace

void PrintError(const std::string& file, const std::string& reason) {
  const std::string line = OneLine("vexa: " + (file.empty() ? "" : file + ": ") + reason);
  std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace vexa

int main(int argc, char** argv) { return vexa::Main(vexa::sys::Arguments(argc, argv)); }
