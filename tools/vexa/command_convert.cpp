// vexa convert: a file into storage of the engine, page by page, and out again in another format.
#include <algorithm>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "vexa/commands.h"
#include "vexa/output_file.h"
#include "vexa/progress_bar.h"

namespace vexa {
namespace {

// The output's format: as asked for, or by its name. A device without one in its name gets the input's.
const Format& OutputFormat(const ConvertOptions& options, const Format& input) {
  const Format* format = nullptr;
  if (!options.format.empty()) {
    format = FormatOfName(options.format);
    if (!format) throw UsageError("there is no format '" + options.format + "'; known are " + KnownExtensions());
  } else {
    format = FormatOfExtension(options.output);
    std::error_code error;
    if (!format && std::filesystem::is_directory(PathOf(options.output), error))
      throw Error(options.output, "is a directory");
    if (!format && IsSpecialFile(options.output)) format = &input;
    if (!format)
      throw UsageError("'" + options.output + "' does not end in the name of a format; known are " + KnownExtensions());
  }
  if (!format->create) throw Error(options.output, "this build of vexa has no " + std::string(format->name) + " codec");
  return *format;
}

// The pages that go into the output, as first page and number.
std::pair<int32_t, int32_t> SelectPages(const ConvertOptions& options, const Format& format, int32_t pages) {
  if (options.page > pages)
    throw Error(options.input,
                "there is no page " + std::to_string(options.page) + ", the file has " + std::to_string(pages));
  if (options.page > 0) return {options.page - 1, 1};
  return {0, format.manyPages ? pages : 1};
}

// Looks at all pages before anything is written: can the format hold them, and how large is the whole?
Document Survey(Reader& reader, const Format& format, const std::string& output, int32_t first, int32_t count,
                int64_t* rows) {
  Document document;
  document.pages = count;
  if (count > 1) reader.Canvas(&document.canvasWidth, &document.canvasHeight);
  for (int32_t page = first; page < first + count; ++page) {
    Bitmap bitmap;
    reader.Describe(page, bitmap);
    About(output, [&] { RequireHolding(format, bitmap); });
    const bool turned = bitmap.Perspective() >= V_ViewLeftTop;
    document.canvasWidth =
        std::max(document.canvasWidth, bitmap.Record().Left + (turned ? bitmap.Height() : bitmap.Width()));
    document.canvasHeight =
        std::max(document.canvasHeight, bitmap.Record().Top + (turned ? bitmap.Width() : bitmap.Height()));
    document.pixelBytes += uint64_t{bitmap.RowBytes()} * static_cast<uint64_t>(bitmap.Height());
    *rows += bitmap.Height();
  }
  return document;
}

}  // namespace

int Convert(const ConvertOptions& options) {
  ApplyMemoryLimit(options.storage);
  const ProgressBar bar;
  const std::string& input = options.input;
  File file(input, File::Mode::kRead);
  const Format& inputFormat = About(input, [&]() -> const Format& { return FormatOfContent(file); });
  const Format& format = OutputFormat(options, inputFormat);
  std::unique_ptr<Reader> reader = About(input, [&] { return inputFormat.open(file); });

  int64_t rows = 0;
  const auto [first, count] = SelectPages(options, format, About(input, [&] { return reader->Pages(); }));
  const Document document = About(input, [&, start = first, number = count] {
    return Survey(*reader, format, options.output, start, number, &rows);
  });

  OutputFile output(options.output, format.seeksToWrite);
  Progress progress(2 * rows);
  {
    const std::unique_ptr<Writer> writer =
        About(options.output, [&] { return format.create(output.Stream(), document); });
    for (int32_t page = first; page < first + count; ++page) {
      Bitmap bitmap;
      About(input, [&] {
        reader->Describe(page, bitmap);
        AllocateStorage(bitmap, options.storage);
        reader->Read(page, bitmap, progress);
      });
      About(options.output, [&] { writer->Write(bitmap, progress); });
    }
    About(options.output, [&] { writer->Finish(); });
  }
  reader.reset();
  file.Close();
  output.Commit();
  return 0;
}

}  // namespace vexa
