// vexa: looks at image files and converts them, through any storage that the engine has.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <new>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "vexa/commands.h"
#include "vexa/system.h"

namespace vexa {
namespace {

enum ExitCode { kSuccess = 0, kFailed = 1, kWrongUsage = 2 };

// "64K", "16M", "2G" or plain bytes.
uint64_t ParseSize(const std::string& text) {
  size_t end = 0;
  while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) ++end;
  static constexpr std::string_view kUnits = "KMG";
  uint64_t factor = 1;
  if (end + 1 == text.size()) {
    const size_t unit = kUnits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(text[end]))));
    if (unit == std::string_view::npos)
      end = 0;
    else
      factor = uint64_t{1} << 10 * (unit + 1);
  } else if (end != text.size()) {
    end = 0;
  }
  if (end == 0 || end > 12) throw UsageError("'" + text + "' is not a size such as 65536, 64K, 16M or 2G");
  const uint64_t value = std::stoull(text.substr(0, end)) * factor;
  if (value == 0) throw UsageError("a size of 0 bytes is not possible");
  return value;
}

struct StorageArguments {
  std::string kind, tileSize, memoryLimit;

  void AddTo(CLI::App& command) {
    command.add_option("--storage", kind,
                       "Where the pixels are kept: conventional, tiled or disk; the engine decides otherwise");
    command.add_option("--tile-size", tileSize, "Bytes of one tile, such as 64K or 16M");
    command.add_option("--memory-limit", memoryLimit,
                       "Most bytes that the engine maps at once; larger images go to disk or tiles");
  }
  StorageChoice Choice() const {
    StorageChoice choice;
    if (kind == "conventional")
      choice.kind = StorageChoice::kConventional;
    else if (kind == "tiled")
      choice.kind = StorageChoice::kTiled;
    else if (kind == "disk")
      choice.kind = StorageChoice::kDisk;
    else if (!kind.empty())
      throw UsageError("there is no storage '" + kind + "'; known are conventional, tiled, disk");
    if (!tileSize.empty()) choice.tileBytes = ParseSize(tileSize);
    if (!memoryLimit.empty()) choice.memoryLimit = ParseSize(memoryLimit);
    return choice;
  }
};

std::string VersionLine() {
  const uint32_t version = V_GetVersion();
  std::string line = "vexa " + std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 255) + "." +
                     std::to_string(version & 255) + " (formats:";
  for (const Format& format : Formats())
    if (format.create) line += " " + std::string(format.name);
  return line + ")";
}

int Run(const std::vector<std::string>& arguments) {
  CLI::App app("Looks at image files and converts them.", "vexa");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may start with a slash on every system
  app.set_version_flag("--version", VersionLine());
  app.footer(
      "Examples:\n  vexa info photo.jpg\n  vexa convert scan.tif page.png --page 2\n"
      "'vexa COMMAND --help' says more about a command.");

  InfoOptions infoOptions;
  StorageArguments infoStorage;
  CLI::App* info = app.add_subcommand("info", "Say what image files hold");
  info->add_option("FILE", infoOptions.files, "Image files")->required();
  info->add_flag("--json", infoOptions.json, "Print a JSON array, an object for each file");
  infoStorage.AddTo(*info);
  info->footer(
      "Examples:\n  vexa info photo.jpg scan.tif\n  vexa info --json animation.gif\n"
      "  vexa info big.tif --memory-limit 64M");

  ConvertOptions convertOptions;
  StorageArguments convertStorage;
  CLI::App* convert = app.add_subcommand("convert", "Convert an image file, exactly, pixel for pixel");
  convert->add_option("IN", convertOptions.input, "The file to read")->required();
  convert->add_option("OUT", convertOptions.output, "The file to write; its extension names the format")->required();
  convert->add_option("--format", convertOptions.format, "The format of OUT, whatever its name: " + KnownExtensions());
  const CLI::Option* page =
      convert->add_option("--page", convertOptions.page, "The page to convert, from 1; otherwise all, or the first");
  convertStorage.AddTo(*convert);
  convert->footer(
      "Examples:\n  vexa convert photo.png photo.tif\n  vexa convert animation.gif frame.png --page 3\n"
      "  vexa convert big.ppm big.tif --storage tiled --tile-size 4M\n"
      "  vexa convert big.ppm big.png --memory-limit 64M\n"
      "OUT may be IN. A format that cannot hold the image's depth is refused; JPEG loses detail.");

  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    std::fputs(app.help("", CLI::AppFormatMode::Normal).c_str(), stdout);
    return kSuccess;
  } catch (const CLI::Success& success) {  // the version
    std::puts(success.what());
    return kSuccess;
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  sys::CatchStopRequests();
  if (info->parsed()) {
    infoOptions.storage = infoStorage.Choice();
    return Info(infoOptions);
  }
  if (page->count() > 0 && convertOptions.page < 1) throw UsageError("pages are counted from 1");
  convertOptions.storage = convertStorage.Choice();
  return Convert(convertOptions);
}

// Whatever a file name or a library's text holds, a message is one line.
std::string OneLine(std::string text) {
  for (char& c : text)
    if (std::iscntrl(static_cast<unsigned char>(c))) c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

int Main(const std::vector<std::string>& arguments) {
  try {
    return Run(arguments);
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
