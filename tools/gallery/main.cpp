// vexa_gallery: makes the page of `make demo`.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "gallery/big.h"
#include "gallery/dithering.h"
#include "gallery/document.h"
#include "gallery/page.h"
#include "gallery/runs.h"

namespace vexa::gallery {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::string samples, folder, bigReport, program, limit = "64M", report;
  uint32_t side = 40000;
};

std::vector<fs::path> SampleFiles(const std::string& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const Format* format = FormatOfExtension(entry.path().string());
    if (entry.is_regular_file() && format && format->create) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Made from a sample that this build may lack the codec for.
std::optional<DocumentReport> MakeDocument(const std::string& samples) {
  const fs::path sample = fs::path(samples) / "doc_text_300dpi.tif";
  const Format* format = FormatOfExtension(sample.string());
  if (!fs::exists(sample) || !format->open) return {};
  DocumentReport report = RunDocument(sample);
  for (const DocumentRun& run : report.runs)
    std::printf("%d x %d pixels, %-16s %9llu bytes, put %.2f ms, get %.2f ms, rows %s\n", report.width, report.height,
                run.storage.c_str(), static_cast<unsigned long long>(run.bytesHeld), run.putMilliseconds,
                run.getMilliseconds, run.identical ? "identical" : "DIFFERENT");
  return report;
}

std::optional<DitheringReport> MakeDithering(const std::string& samples, const std::string& folder) {
  const fs::path sample = fs::path(samples) / "photo_cat.png";
  if (!fs::exists(sample) || !FormatOfExtension(sample.string())->open) return {};
  DitheringReport report = RunDithering(sample, folder);
  for (const DitheredDepth& depth : report.depths) {
    std::printf("%-38s", depth.name.c_str());
    for (const DitheredPicture& picture : depth.pictures)
      std::printf(" %s %.2f", picture.method.c_str(), picture.error);
    std::printf("\n");
  }
  return report;
}

// 0 when every image came through every storage kind.
int MakeGallery(const Options& options) {
  fs::create_directories(options.folder);
  std::vector<Sample> samples;
  bool allIdentical = true;
  for (const fs::path& file : SampleFiles(options.samples)) {
    samples.push_back(RunSample(file, options.folder));
    const Sample& sample = samples.back();
    std::string kinds;
    for (const Run& run : sample.runs) {
      kinds += " " + run.requested + (run.identical ? "" : run.error.empty() ? "=DIFFERENT" : "=FAILED:" + run.error);
      allIdentical = allIdentical && run.identical;
    }
    std::printf("%-26s %-26s%s\n", sample.name.c_str(), sample.depth.c_str(), kinds.c_str());
  }
  if (samples.empty()) throw Error(options.samples, "there are no images in this folder");
  const std::optional<DocumentReport> document = MakeDocument(options.samples);
  if (document)
    for (const DocumentRun& run : document->runs) allIdentical = allIdentical && run.identical;
  const std::optional<DitheringReport> dithering = MakeDithering(options.samples, options.folder);
  std::optional<BigReport> big;
  if (!options.bigReport.empty()) {
    big = LoadReport(options.bigReport);
    for (const BigRun& run : big->runs) allIdentical = allIdentical && run.identical;
  }
  std::ofstream page(fs::path(options.folder) / "index.html", std::ios::binary);
  page << MakePage(samples, dithering, document, big);
  page.close();
  if (!page) throw Error(options.folder, "the page could not be written");
  return allIdentical ? 0 : 1;
}

int RunCommandLine(int argc, char** argv) {
  // What this program runs of itself: the rest of the line is another program's.
  if (argc > 3 && std::string(argv[1]) == "measure") return Measure(argv[2], {argv + 3, argv + argc});

  Options options;
  CLI::App app("Makes the gallery page of vexa.", "vexa_gallery");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may start with a slash on every system
  CLI::App* page = app.add_subcommand("page", "Convert all samples through all storage kinds and write the page");
  page->add_option("SAMPLES", options.samples, "Folder of images")->required();
  page->add_option("FOLDER", options.folder, "Folder of the page")->required();
  page->add_option("--big", options.bigReport, "Report of the large picture, to show");
  CLI::App* big = app.add_subcommand("big", "Convert a picture larger than memory and write a report");
  big->add_option("VEXA", options.program, "The program to run")->required();
  big->add_option("FOLDER", options.folder, "Folder for the files, which are removed")->required();
  big->add_option("REPORT", options.report, "The report")->required();
  big->add_option("--side", options.side, "Width and height");
  big->add_option("--limit", options.limit, "Memory limit");
  CLI11_PARSE(app, argc, argv);
  if (page->parsed()) return MakeGallery(options);
  fs::create_directories(options.folder);
  const BigReport report = RunBig(argv[0], options.program, options.folder, options.side, options.limit);
  SaveReport(report, options.report);
  return std::all_of(report.runs.begin(), report.runs.end(), [](const BigRun& run) { return run.identical; }) ? 0 : 1;
}

}  // namespace
}  // namespace vexa::gallery

int main(int argc, char** argv) {
  try {
    return vexa::gallery::RunCommandLine(argc, argv);
  } catch (const vexa::Error& error) {
    std::fprintf(stderr, "vexa_gallery: %s: %s\n", error.File().c_str(), error.what());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vexa_gallery: %s\n", error.what());
  }
  return 1;
}
