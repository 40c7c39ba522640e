#include "vexa/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <memory>

#include "codecs/error.h"
#include "codecs/palettefile.h"
#include "vexa/commands.h"
#include "vexa/system.h"

namespace vexa {
namespace {

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

std::vector<std::string_view> Fields(std::string_view text) {
  std::vector<std::string_view> fields;
  for (size_t comma; (comma = text.find(',')) != std::string_view::npos; text.remove_prefix(comma + 1))
    fields.push_back(text.substr(0, comma));
  fields.push_back(text);
  return fields;
}

// False unless the text is a number from beginning to end.
bool ParseNumber(std::string_view text, int32_t* number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), *number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

// "X,Y,W,H"
Area ParseArea(const std::string& text) {
  const std::vector<std::string_view> fields = Fields(text);
  Area area;
  if (fields.size() != 4 || !ParseNumber(fields[0], &area.left) || !ParseNumber(fields[1], &area.top) ||
      !ParseNumber(fields[2], &area.width) || !ParseNumber(fields[3], &area.height))
    throw UsageError("'" + text + "' is not a rectangle X,Y,W,H such as 100,40,640,480");
  if (area.width < 1 || area.height < 1) throw UsageError("a rectangle is at least 1 pixel wide and high");
  return area;
}

// "2-4,7,9-"
std::vector<PageRange> ParsePages(const std::string& text) {
  std::vector<PageRange> ranges;
  for (const std::string_view field : Fields(text)) {
    PageRange range;
    const size_t dash = field.find('-');
    bool good = ParseNumber(field.substr(0, dash), &range.first) && range.first > 0;
    if (dash == std::string_view::npos)
      range.last = range.first;
    else if (dash + 1 < field.size())
      good = good && ParseNumber(field.substr(dash + 1), &range.last) && range.last >= range.first;
    if (!good) throw UsageError("'" + text + "' is not a choice of pages such as 2-4,7 or 9-, counted from 1");
    ranges.push_back(range);
  }
  return ranges;
}

struct StorageArguments {
  std::string kind, tileSize, memoryLimit;

  void AddTo(CLI::App& command, const std::string& otherwise = "otherwise the engine decides") {
    command.add_option("--storage", kind,
                       "Where the pixels are kept: " + StorageNames() + "; " + otherwise +
                           ". Compressed takes 1-bit images, supercompressed those of 1, 8 and 24 bits");
    command.add_option("--tile-size", tileSize, "Bytes of one tile, such as 64K or 16M");
    command.add_option("--memory-limit", memoryLimit,
                       "Most bytes that the engine maps at once; larger images go to disk or tiles");
  }
  StorageChoice Choice() const {
    StorageChoice choice;
    choice.memoryType = StorageOfName(kind);
    if (choice.memoryType == 0 && !kind.empty())
      throw UsageError("there is no storage '" + kind + "'; known are " + StorageNames());
    if (!tileSize.empty()) choice.tileBytes = ParseSize(tileSize);
    if (!memoryLimit.empty()) choice.memoryLimit = ParseSize(memoryLimit);
    return choice;
  }
};

// Another depth for the pages, of convert and crop.
struct DepthArguments {
  std::string order, dither, palette;
  int32_t bits = 0, colors = 0;
  std::vector<const CLI::Option*> details;  // that mean something beside --bits
  const CLI::Option *bitsOption = nullptr, *colorsOption = nullptr;

  void AddTo(CLI::App& command) {
    const std::string group = "Depth";
    bitsOption = command.add_option("--bits", bits,
                                    "Bits of a pixel in OUT: 1 to 8, 12, 16, 24, 32, 48 or 64; otherwise as in IN");
    const CLI::Option* orderOption = command.add_option(
        "--order", order, "The samples: rgb, bgr or gray; otherwise gray where IN is gray, and for 1 bit");
    const CLI::Option* ditherOption = command.add_option(
        "--dither", dither,
        "How up to 8 bits are dithered: " + DitherNames() +
            "; otherwise floyd-steinberg, but none for gray of more than 16 levels. What is held exactly is not");
    const CLI::Option* paletteOption = command.add_option(
        "--palette", palette,
        "Colours of up to 8 bits: fixed, optimized for the picture, or a FILE with a palette (a picture or a palette "
        "file); otherwise IN's own where it fits, else optimized");
    colorsOption = command.add_option("--colors", colors, "Most colours of an optimized palette, or levels of gray");
    details = {orderOption, ditherOption, paletteOption, colorsOption};
    for (CLI::Option* option : command.get_options())
      if (option == bitsOption || std::find(details.begin(), details.end(), option) != details.end())
        option->group(group);
  }

  std::optional<DepthChoice> Choice() const {
    for (const CLI::Option* option : details)
      if (option->count() > 0 && bitsOption->count() == 0) throw UsageError(option->get_name() + " goes with --bits");
    if (bitsOption->count() == 0) return {};
    DepthChoice choice;
    choice.bits = bits;
    choice.samples = Samples();
    choice.method = dither.empty() ? -1 : DitherMethodOfName(dither);
    if (choice.method < 0 && !dither.empty())
      throw UsageError("there is no dithering '" + dither + "'; known are " + DitherNames());
    if (colorsOption->count() > 0 && colors < 1) throw UsageError("colours are counted from 1");
    choice.colors = colors;
    ChoosePalette(&choice);
    CheckChoice(choice);
    return choice;
  }

 private:
  DepthChoice::Samples Samples() const {
    using Samples = DepthChoice::Samples;
    if (order.empty()) return Samples::kUsual;
    if (order == "rgb") return Samples::kRgb;
    if (order == "bgr") return Samples::kBgr;
    if (order == "gray") return Samples::kGray;
    throw UsageError("there is no order '" + order + "'; known are rgb, bgr, gray");
  }

  void ChoosePalette(DepthChoice* choice) const {
    using Palette = DepthChoice::Palette;
    if (palette.empty()) return;
    choice->palette = palette == "fixed"       ? Palette::kFixed
                      : palette == "optimized" ? Palette::kOptimized
                                               : Palette::kGiven;
    if (choice->palette == Palette::kGiven) choice->given = LoadPalette(palette);
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

// A command with its options, and what it does with them once they are parsed.
class Command {
 public:
  virtual ~Command() = default;
  CLI::App* App() const { return app_; }
  virtual int Run() = 0;

 protected:
  CLI::App* Add(CLI::App& parent, const char* name, const char* description) {
    return app_ = parent.add_subcommand(name, description);
  }
  void AddFormat(std::string& format) {
    app_->add_option("--format", format, "The format of OUT, whatever its name: " + KnownExtensions());
  }

 private:
  CLI::App* app_ = nullptr;
};

class InfoCommand : public Command {
 public:
  explicit InfoCommand(CLI::App& app) {
    CLI::App* info = Add(app, "info", "Say what image files hold");
    info->add_option("FILE", options_.files, "Image files")->required();
    info->add_flag("--json", options_.json, "Print a JSON array, an object for each file");
    storage_.AddTo(*info);
    info->footer(
        "Examples:\n  vexa info photo.jpg scan.tif\n  vexa info --json animation.gif\n"
        "  vexa info big.tif --memory-limit 64M\n  vexa info scan.tif --storage supercompressed");
  }
  int Run() override {
    options_.storage = storage_.Choice();
    return Info(options_);
  }

 private:
  InfoOptions options_;
  StorageArguments storage_;
};

// convert and crop.
class ConvertCommand : public Command {
 public:
  ConvertCommand(CLI::App& app, bool crops) {
    CLI::App* command =
        crops ? Add(app, "crop", "Cut a rectangle out of an image file")
              : Add(app, "convert", "Convert an image file, exactly, pixel for pixel, or to another depth");
    command->add_option("IN", options_.input, "The file to read")->required();
    command->add_option("OUT", options_.output, "The file to write; its extension names the format")->required();
    if (crops)
      command
          ->add_option("--rect", area_,
                       "X,Y,W,H: left column, top row, width and height of the picture as it is displayed, in pixels "
                       "from its top left corner")
          ->required();
    AddFormat(options_.format);
    page_ = command->add_option("--page", options_.page, "The page to take, from 1; otherwise all, or the first");
    depth_.AddTo(*command);
    storage_.AddTo(*command);
    command->footer(
        crops ? "Examples:\n  vexa crop photo.jpg face.png --rect 120,80,200,240\n"
                "  vexa crop scan.tif title.tif --rect 0,0,2480,600 --page 1\n"
                "What lies outside the page is left off. Each page is cropped as convert writes it: a frame of an\n"
                "animation is a picture of its own. Palette and resolution stay, and so do the depth, unless --bits\n"
                "changes it as convert does, and the way the rows are stored, where OUT's format can say it. OUT may\n"
                "be IN."
              : "Examples:\n  vexa convert photo.png photo.tif\n  vexa convert animation.gif frame.png --page 3\n"
                "  vexa convert big.ppm big.tif --storage tiled --tile-size 4M\n"
                "  vexa convert big.ppm big.png --memory-limit 64M\n"
                "  vexa convert photo.png small.png --bits 4 --dither stucki\n"
                "  vexa convert photo.png fax.tif --bits 1\n"
                "OUT may be IN. A format that cannot hold the image's depth is refused; JPEG loses detail.\n"
                "Transparency that a depth from --bits cannot hold is laid over the background colour, which is white\n"
                "unless a PNG file names one: (sample * alpha + background * (full - alpha) + full / 2) / full, in\n"
                "integers, full being 255 or 65535. Each page gets a palette of its own.");
  }
  int Run() override {
    if (page_->count() > 0 && options_.page < 1) throw UsageError("pages are counted from 1");
    if (!area_.empty()) options_.changes.area = ParseArea(area_);
    options_.changes.depth = depth_.Choice();
    options_.storage = storage_.Choice();
    return Convert(options_);
  }

 private:
  ConvertOptions options_;
  std::string area_;
  DepthArguments depth_;
  StorageArguments storage_;
  const CLI::Option* page_ = nullptr;
};

class PaletteCommand : public Command {
 public:
  explicit PaletteCommand(CLI::App& app) {
    CLI::App* palette = Add(app, "palette", "Say what a palette holds, draw it, or write it to a palette file");
    palette->add_option("FILE", options_.file, "A picture with a palette, or a palette file")->required();
    palette->add_option("--page", options_.page, "The page of the picture, from 1");
    palette->add_option("--show", options_.show, "Draw the colours, in rows, to this picture");
    palette->add_option("--export", options_.exportation, "Write the palette to this palette file");
    palette->footer(
        "Examples:\n  vexa palette photo.gif\n  vexa palette photo.gif --show colours.png --export photo.gpl\n"
        "  vexa convert other.png other.gif --bits 8 --palette photo.gpl\n"
        "A palette file is the text form that palette editors read: a header line, then 'RED GREEN BLUE NAME' a\n"
        "line, each from 0 to 255.");
  }
  int Run() override {
    if (options_.page < 1) throw UsageError("pages are counted from 1");
    return ShowPalette(options_);
  }

 private:
  PaletteOptions options_;
};

constexpr char kListStorage[] = "otherwise supercompressed where the depth allows it, or the engine decides by a limit";

class ListCommand : public Command {
 public:
  explicit ListCommand(CLI::App& pages) {
    CLI::App* list = Add(pages, "list", "Print a line for each page of a file");
    list->add_option("FILE", file_, "The file")->required();
  }
  int Run() override { return ListPages(file_); }

 private:
  std::string file_;
};

class SplitCommand : public Command {
 public:
  explicit SplitCommand(CLI::App& pages) {
    CLI::App* split = Add(pages, "split", "Write each page of a file to a file of its own");
    split->add_option("IN", options_.input, "The file to read")->required();
    split
        ->add_option("OUT", options_.output,
                     "The names of the files to write: {} stands for the page's number; without it, the number goes "
                     "before the extension, which names the format")
        ->required();
    split->add_option("--pages", pages_, "The pages to take, such as 2-4,7 or 9-, from 1; otherwise all");
    AddFormat(options_.format);
    storage_.AddTo(*split, kListStorage);
    split->footer(
        "Examples:\n  vexa pages split scan.tif page-{}.png\n  vexa pages split animation.gif frame.png --pages 2-4,7\n"
        "Numbers get zeros in front, so that the names sort: page-01.png of ten pages and more. Files of these names\n"
        "are replaced, and none is before all are complete. Frames of an animation are written as they are stored,\n"
        "each with its own size.");
  }
  int Run() override {
    if (!pages_.empty()) options_.pages = ParsePages(pages_);
    options_.storage = storage_.Choice();
    return SplitPages(options_);
  }

 private:
  SplitOptions options_;
  std::string pages_;
  StorageArguments storage_;
};

class JoinCommand : public Command {
 public:
  explicit JoinCommand(CLI::App& pages) {
    CLI::App* join = Add(pages, "join", "Write the pages of several files to one");
    join->add_option("OUT", options_.output, "The file to write, TIFF or GIF; its extension names the format")
        ->required();
    join->add_option("IN", options_.inputs, "The files to read, each with all its pages")->required();
    AddFormat(options_.format);
    storage_.AddTo(*join, kListStorage);
    join->footer(
        "Examples:\n  vexa pages join scan.tif page-1.png page-2.png\n  vexa pages join both.gif first.gif second.gif\n"
        "All pages are held until the file is written. OUT may be one of the files to read.");
  }
  int Run() override {
    options_.storage = storage_.Choice();
    return JoinPages(options_);
  }

 private:
  JoinOptions options_;
  StorageArguments storage_;
};

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments) {
  CLI::App app("Looks at image files and palettes, converts and crops, and splits and joins pages.", "vexa");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may start with a slash on every system
  app.set_version_flag("--version", VersionLine());
  app.footer(
      "Examples:\n  vexa info photo.jpg\n  vexa convert scan.tif page.png --page 2\n"
      "  vexa convert photo.jpg photo.gif --bits 8\n  vexa crop photo.jpg face.png --rect 120,80,200,240\n"
      "  vexa palette photo.gif --show colours.png\n  vexa pages split scan.tif page-{}.png\n"
      "'vexa COMMAND --help' says more about a command.");

  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(std::make_unique<InfoCommand>(app));
  commands.push_back(std::make_unique<ConvertCommand>(app, false));
  commands.push_back(std::make_unique<ConvertCommand>(app, true));
  commands.push_back(std::make_unique<PaletteCommand>(app));
  CLI::App* pages = app.add_subcommand("pages", "List, split or join the pages of documents and animations");
  pages->require_subcommand(1);
  pages->footer(
      "Examples:\n  vexa pages list scan.tif\n  vexa pages split scan.tif page-{}.png --pages 2-4\n"
      "  vexa pages join scan.tif page-1.png page-2.png\n'vexa pages COMMAND --help' says more about a command.");
  commands.push_back(std::make_unique<ListCommand>(*pages));
  commands.push_back(std::make_unique<SplitCommand>(*pages));
  commands.push_back(std::make_unique<JoinCommand>(*pages));

  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    std::fputs(app.help("", CLI::AppFormatMode::Normal).c_str(), stdout);
    return 0;
  } catch (const CLI::Success& success) {  // the version
    std::puts(success.what());
    return 0;
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  sys::CatchStopRequests();
  const auto chosen = std::find_if(commands.begin(), commands.end(), [](const auto& c) { return c->App()->parsed(); });
  return (*chosen)->Run();
}

}  // namespace vexa
