// What the commands have in common: pages come from an input, are surveyed before anything is written, and go into an
// output. Each step names its file when it fails.
#ifndef VEXA_PIPELINE_H
#define VEXA_PIPELINE_H

#include <memory>
#include <optional>
#include <string>

#include "codecs/codec.h"
#include "codecs/depth.h"
#include "codecs/error.h"
#include "codecs/storage.h"
#include "vexa/output_file.h"

namespace vexa {

// A rectangle of displayed pixels, counted from the top left corner. It may reach outside the picture.
struct Area {
  int32_t left = 0;
  int32_t top = 0;
  int32_t width = 0;
  int32_t height = 0;
};

// What is done to each page between reading and writing: first cropped, then brought to another depth.
struct PageChanges {
  std::optional<Area> area;
  std::optional<DepthChoice> depth;
};

// A file that pages come from.
class Input {
 public:
  explicit Input(const std::string& path);

  const std::string& Path() const { return path_; }
  const vexa::Format& Format() const { return *format_; }
  int32_t Pages() const { return pages_; }
  void RequirePage(int32_t number) const;  // counted from 1

  // Pages are counted from 0 here. Read describes the bitmap and gives it storage.
  void Canvas(Document* document);
  void Describe(int32_t page, Bitmap& bitmap);
  void Read(int32_t page, const StorageChoice& storage, Bitmap& bitmap, Progress& progress);
  void Close();

  // Failures of `work` on a page are about this file, and about the page where it has several.
  template <typename Work>
  void AboutPage(int32_t page, Work&& work) const {
    About(path_, [&] {
      try {
        work();
      } catch (const Error& error) {
        if (pages_ < 2 || !error.File().empty()) throw;
        throw Error("page " + std::to_string(page + 1) + ": " + error.what());
      }
    });
  }

 private:
  std::string path_;
  File file_;
  const vexa::Format* format_ = nullptr;
  int32_t pages_ = 0;
  std::unique_ptr<Reader> reader_;  // behind the file that it reads
};

// Changes a page that has been read. What is cropped has no place in an animation any more.
void ChangePage(const PageChanges& changes, const StorageChoice& storage, Bitmap& bitmap, Progress& progress);

// Looks at the pages of one output: can its format and their storage hold them, changed, and how large is the whole?
class Survey {
 public:
  Survey(const Format& format, const StorageChoice& storage) : format_(format), storage_(storage) {
    document_.pages = 0;
  }

  void Add(Input& input, int32_t page, const PageChanges& changes = {});
  void AddCanvas(Input& input) { input.Canvas(&document_); }

  const Document& Whole() const { return document_; }
  int64_t Work() const { return work_; }  // rows to read, to change and to write

 private:
  const Format& format_;
  const StorageChoice& storage_;
  Document document_;
  int64_t work_ = 0;
};

// The format of an output: the one asked for, or the one of its name, or `otherwise` where that may be.
const Format& OutputFormat(const std::string& path, const std::string& asked, const Format* otherwise);

// A file that pages go to: begun, written, finished, and in its place after Commit, not before.
class Output {
 public:
  Output(const std::string& path, const Format& format);

  void Begin(const Document& document);
  void Write(Bitmap& bitmap, Progress& progress);
  void Finish();
  void Commit() { file_.Commit(); }

 private:
  std::string path_;
  const Format& format_;
  OutputFile file_;
  std::unique_ptr<Writer> writer_;
};

}  // namespace vexa

#endif
