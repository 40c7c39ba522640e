#include "vexa/pipeline.h"

#include <algorithm>

#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/upright.h"

namespace vexa {
namespace {

// The displayed pixels that lie in the area; an Error when there are none.
RECT ClippedArea(const Bitmap& bitmap, const Area& area) {
  const View view(bitmap);
  const int32_t left = std::max(area.left, 0), top = std::max(area.top, 0);
  const int64_t right = std::min<int64_t>(int64_t{area.left} + area.width, view.width);
  const int64_t bottom = std::min<int64_t>(int64_t{area.top} + area.height, view.height);
  if (left >= right || top >= bottom)
    throw Error("nothing of the rectangle lies inside the " + std::to_string(view.width) + " x " +
                std::to_string(view.height) + " pixels of the picture");
  return {left, top, static_cast<int32_t>(right), static_cast<int32_t>(bottom)};
}

}  // namespace

Input::Input(const std::string& path) : path_(path), file_(path, File::Mode::kRead) {
  About(path_, [&] {
    format_ = &FormatOfContent(file_);
    reader_ = format_->open(file_);
    pages_ = reader_->Pages();
  });
}

void Input::RequirePage(int32_t number) const {
  if (number > pages_)
    throw Error(path_, "there is no page " + std::to_string(number) + ", the file has " + std::to_string(pages_));
}

void Input::Canvas(Document* document) {
  int32_t width = 0, height = 0;
  About(path_, [&] { reader_->Canvas(&width, &height); });
  document->canvasWidth = std::max(document->canvasWidth, width);
  document->canvasHeight = std::max(document->canvasHeight, height);
}

void Input::Describe(int32_t page, Bitmap& bitmap) {
  AboutPage(page, [&] { reader_->Describe(page, bitmap); });
}

void Input::Read(int32_t page, const StorageChoice& storage, Bitmap& bitmap, Progress& progress) {
  AboutPage(page, [&] {
    reader_->Describe(page, bitmap);
    AllocateStorage(bitmap, storage);
    reader_->Read(page, bitmap, progress);
  });
}

void Input::Close() {
  reader_.reset();
  file_.Close();
}

void ChangePage(const PageChanges& changes, const StorageChoice& storage, Bitmap& bitmap, Progress& progress) {
  // The change is that of the description, which a crop does not touch: it is known before the first row is read.
  const std::optional<DepthChange> depth =
      changes.depth ? std::optional<DepthChange>(std::in_place, *changes.depth, bitmap) : std::nullopt;
  if (changes.area) {
    bitmap.Crop(StoredRectangle(bitmap, ClippedArea(bitmap, *changes.area)), StorageRequest(storage));
    bitmap.Record().Left = bitmap.Record().Top = 0;
  }
  if (depth) depth->Apply(bitmap, storage, progress);
}

void Survey::Add(Input& input, int32_t page, const PageChanges& changes) {
  Bitmap bitmap, result;
  input.Describe(page, bitmap);
  input.AboutPage(page, [&] {
    RequireStorageHolds(storage_, bitmap);
    const View view(bitmap);
    const bool cropped = changes.area.has_value();
    const RECT kept = cropped ? ClippedArea(bitmap, *changes.area) : RECT{0, 0, view.width, view.height};
    const RECT stored = StoredRectangle(bitmap, kept);
    const int32_t rows = stored.bottom - stored.top;
    work_ += int64_t{bitmap.Height()} + rows;
    if (changes.depth) {
      const DepthChange depth(*changes.depth, bitmap);
      work_ += depth.Work(rows);
      depth.DescribeResult(bitmap, result);
    }
    const Bitmap& written = changes.depth ? result : bitmap;
    RequireHolding(format_, written);
    const int32_t left = cropped ? 0 : bitmap.Record().Left, top = cropped ? 0 : bitmap.Record().Top;
    ++document_.pages;
    document_.canvasWidth = std::max(document_.canvasWidth, left + static_cast<int32_t>(kept.right - kept.left));
    document_.canvasHeight = std::max(document_.canvasHeight, top + static_cast<int32_t>(kept.bottom - kept.top));
    document_.pixelBytes +=
        uint64_t{PackedBytes(stored.right - stored.left, written.Bits())} * static_cast<uint64_t>(rows);
  });
}

const Format& OutputFormat(const std::string& path, const std::string& asked, const Format* otherwise) {
  const Format* format = nullptr;
  if (!asked.empty()) {
    format = FormatOfName(asked);
    if (!format) throw UsageError("there is no format '" + asked + "'; known are " + KnownExtensions());
  } else {
    format = FormatOfExtension(path);
    std::error_code error;
    if (!format && std::filesystem::is_directory(PathOf(path), error)) throw Error(path, "is a directory");
    if (!format && IsSpecialFile(path)) format = otherwise;
    if (!format)
      throw UsageError("'" + path + "' does not end in the name of a format; known are " + KnownExtensions());
  }
  if (!format->create) throw Error(path, "this build of vexa has no " + std::string(format->name) + " codec");
  return *format;
}

Output::Output(const std::string& path, const Format& format)
    : path_(path), format_(format), file_(path, format.seeksToWrite) {}

void Output::Begin(const Document& document) {
  About(path_, [&] { writer_ = format_.create(file_.Stream(), document); });
}

void Output::Write(Bitmap& bitmap, Progress& progress) {
  About(path_, [&] { writer_->Write(bitmap, progress); });
}

void Output::Finish() {
  About(path_, [&] { writer_->Finish(); });
  writer_.reset();
  file_.Close();
}

}  // namespace vexa
