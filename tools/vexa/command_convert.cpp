// vexa convert and vexa crop: a file into storage of the engine, page by page, and out again, whole or in part, as it
// was or in another depth.
#include "codecs/error.h"
#include "vexa/commands.h"
#include "vexa/progress_bar.h"

namespace vexa {
namespace {

// The pages that go into the output, as first page and number.
std::pair<int32_t, int32_t> SelectPages(const ConvertOptions& options, const Format& format, const Input& input) {
  input.RequirePage(options.page);
  if (options.page > 0) return {options.page - 1, 1};
  return {0, format.manyPages ? input.Pages() : 1};
}

}  // namespace

int Convert(const ConvertOptions& options) {
  ApplyMemoryLimit(options.storage);
  const ProgressBar bar;
  Input input(options.input);
  const Format& format = OutputFormat(options.output, options.format, &input.Format());
  const auto [first, count] = SelectPages(options, format, input);

  Survey survey(format, options.storage);
  if (count > 1 && !options.changes.area) survey.AddCanvas(input);
  for (int32_t page = first; page < first + count; ++page) survey.Add(input, page, options.changes);

  Output output(options.output, format);
  output.Begin(survey.Whole());
  Progress progress(survey.Work());
  for (int32_t page = first; page < first + count; ++page) {
    Bitmap bitmap;
    input.Read(page, options.storage, bitmap, progress);
    input.AboutPage(page, [&] { ChangePage(options.changes, options.storage, bitmap, progress); });
    output.Write(bitmap, progress);
  }
  output.Finish();
  input.Close();  // it may be the file that is replaced
  output.Commit();
  return 0;
}

}  // namespace vexa
