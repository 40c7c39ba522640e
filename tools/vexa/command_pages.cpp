// vexa pages: the pages of a document listed, split into files, and joined from files.
//
// Between reading and writing the pages are held in a list of the engine. Unless the user chose, they lie
// super-compressed there, where their depth allows it: a scanned document takes a small share of its packed size.
#include <algorithm>
#include <cstdio>
#include <set>

#include "codecs/error.h"
#include "codecs/pagelist.h"
#include "codecs/upright.h"
#include "vexa/commands.h"
#include "vexa/pipeline.h"
#include "vexa/progress_bar.h"

namespace vexa {
namespace {

constexpr std::string_view kNumberMark = "{}";

// A memory limit is the engine's to keep: it decides by size then.
StorageChoice StorageOfList(StorageChoice storage) {
  if (storage.memoryLimit == 0) storage.otherwise = V_MemoryConventional | V_MemorySuperCompressed;
  return storage;
}

// What a person wants to know of a page: how large and deep, how fine, and where and how long a frame is shown.
std::string PageLine(int32_t number, const Bitmap& bitmap) {
  const BITMAPHANDLE& record = bitmap.Record();
  const View view(bitmap);
  std::string line = "  " + std::to_string(number) + "  " + std::to_string(view.width) + " x " +
                     std::to_string(view.height) + ", " + DepthInWords(bitmap);
  if (bitmap.ResolutionStated())
    line += ", " + std::to_string(view.xResolution) + " x " + std::to_string(view.yResolution) + " dots per inch";
  if (record.Left || record.Top) line += ", at " + std::to_string(record.Left) + ", " + std::to_string(record.Top);
  if (record.Delay) line += ", " + std::to_string(record.Delay) + " ms";
  return line + "\n";
}

// The chosen pages of a file, counted from 0, in rising order; all when none is named.
std::set<int32_t> ChosenPages(const std::vector<PageRange>& ranges, const Input& input) {
  std::set<int32_t> pages;
  for (const PageRange& range : ranges) {
    const int32_t last = range.last ? range.last : std::max(range.first, input.Pages());
    input.RequirePage(last);
    for (int32_t page = range.first; page <= last; ++page) pages.insert(pages.end(), page - 1);
  }
  if (ranges.empty())
    for (int32_t page = 0; page < input.Pages(); ++page) pages.insert(pages.end(), page);
  return pages;
}

// The name of a page's file: every "{}" of the pattern is the page's number, with zeros to the width of the last one's.
// A pattern without one gets the number before its extension.
std::string PageName(std::string pattern, int32_t number, int32_t pages) {
  if (pattern.find(kNumberMark) == std::string::npos) {
    const size_t name = pattern.find_last_of("/\\") + 1;  // 0 without a folder
    const size_t point = std::min(pattern.rfind('.'), pattern.size());
    pattern.insert(point < name ? pattern.size() : point, "-" + std::string(kNumberMark));
  }
  std::string digits = std::to_string(number);
  digits.insert(0, std::to_string(pages).size() - digits.size(), '0');
  for (size_t at = pattern.find(kNumberMark); at != std::string::npos;
       at = pattern.find(kNumberMark, at + digits.size()))
    pattern.replace(at, kNumberMark.size(), digits);
  return pattern;
}

std::string ManyPageFormats() {
  std::string names;
  for (const Format& format : Formats())
    if (format.manyPages) names.append(names.empty() ? "" : ", ").append(format.name);
  return names.empty() ? "none in this build" : names;
}

void ReadInto(PageList& list, Input& input, int32_t page, const StorageChoice& storage, Progress& progress) {
  Bitmap bitmap;
  input.Read(page, storage, bitmap, progress);
  list.Append(bitmap);
}

void WriteFirst(PageList& list, Output& output, Progress& progress) {
  Bitmap bitmap;
  list.TakeFirst(bitmap);
  output.Write(bitmap, progress);
}

}  // namespace

int ListPages(const std::string& path) {
  Input input(path);
  std::string text = path + ": " + std::string(input.Format().name) + ", " + std::to_string(input.Pages()) +
                     (input.Pages() == 1 ? " page\n" : " pages\n");
  for (int32_t page = 0; page < input.Pages(); ++page) {
    Bitmap bitmap;
    input.Describe(page, bitmap);
    text += PageLine(page + 1, bitmap);
  }
  std::fputs(text.c_str(), stdout);
  if (std::fflush(stdout) != 0) throw Error("the output could not be written");
  return 0;
}

// No file takes its place before all of them are complete.
int SplitPages(const SplitOptions& options) {
  const StorageChoice storage = StorageOfList(options.storage);
  ApplyMemoryLimit(storage);
  const ProgressBar bar;
  const Format& format = OutputFormat(options.output, options.format, nullptr);
  Input input(options.input);
  const std::set<int32_t> pages = ChosenPages(options.pages, input);
  std::vector<Survey> surveys;
  int64_t work = 0;
  for (const int32_t page : pages) {
    surveys.emplace_back(format, storage).Add(input, page);
    work += surveys.back().Work();
  }

  Progress progress(work);
  PageList list;
  for (const int32_t page : pages) ReadInto(list, input, page, storage, progress);
  input.Close();

  std::vector<std::unique_ptr<Output>> outputs;
  for (const int32_t page : pages) {
    const std::string name = PageName(options.output, page + 1, input.Pages());
    Output& output = *outputs.emplace_back(std::make_unique<Output>(name, format));
    output.Begin(surveys[outputs.size() - 1].Whole());
    WriteFirst(list, output, progress);
    output.Finish();
  }
  for (const auto& output : outputs) output->Commit();
  return 0;
}

int JoinPages(const JoinOptions& options) {
  const StorageChoice storage = StorageOfList(options.storage);
  ApplyMemoryLimit(storage);
  const ProgressBar bar;
  const Format& format = OutputFormat(options.output, options.format, nullptr);
  if (!format.manyPages)
    throw UsageError(std::string(format.name) + " files have one page; formats with more: " + ManyPageFormats());
  Output output(options.output, format);
  Survey survey(format, storage);
  PageList list;
  const auto share = [&](size_t done) { return static_cast<int32_t>(50 * done / options.inputs.size()); };
  for (size_t i = 0; i < options.inputs.size(); ++i) {
    Input input(options.inputs[i]);
    const int64_t before = survey.Work();
    survey.AddCanvas(input);
    for (int32_t page = 0; page < input.Pages(); ++page) survey.Add(input, page);
    Progress progress((survey.Work() - before) / 2, share(i), share(i + 1));
    for (int32_t page = 0; page < input.Pages(); ++page) ReadInto(list, input, page, storage, progress);
  }

  output.Begin(survey.Whole());
  Progress progress(survey.Work() / 2, 50, 100);
  while (list.Count() > 0) WriteFirst(list, output, progress);
  output.Finish();
  output.Commit();
  return 0;
}

}  // namespace vexa
