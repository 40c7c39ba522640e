#include "gallery/runs.h"

#include <algorithm>
#include <memory>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/storage.h"
#include "gallery/clock.h"
#include "gallery/picture.h"

namespace vexa::gallery {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kTileBytes = 65536;
constexpr const char* kKinds[] = {"conventional", "user", "tiled", "disk", "compressed", "supercompressed"};

// A page in memory: the bitmap, and its bytes when they are the program's own.
struct Page {
  Bitmap bitmap;
  std::vector<uint8_t> own;
};
using Pages = std::vector<std::unique_ptr<Page>>;

std::string Utf8(const fs::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

// Everything that the thread opens is this stream, whatever its name, from here to the end of the scope.
class MemoryStream {
 public:
  MemoryStream() {
    CheckStatus(V_StartRedirectToBuffer(&state_, nullptr, V_StreamGrow | V_StreamWrite | V_StreamHeap, nullptr, 0, 0));
  }
  ~MemoryStream() {
    void* block = nullptr;
    V_StopRedirectToBuffer(state_, &block, nullptr, nullptr);
    V_FreeBuffer(block);
  }
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

 private:
  void* state_ = nullptr;
};

void AllocateAs(Page& page, const std::string& kind) {
  if (kind == "user") return page.bitmap.AllocateUser(page.own);
  StorageChoice choice;
  choice.memoryType = StorageOfName(kind);
  if (kind == "tiled" && page.bitmap.DataBytes() > kTileBytes) choice.tileBytes = kTileBytes;
  AllocateStorage(page.bitmap, choice);
}

Pages ReadPages(const std::string& path, const std::string& kind, std::string* format) {
  File file(path, File::Mode::kRead);
  const Format& found = FormatOfContent(file);
  if (format) *format = found.name;
  const std::unique_ptr<Reader> reader = found.open(file);
  Progress progress(1);
  Pages pages;
  for (int32_t i = 0; i < reader->Pages(); ++i) {
    pages.push_back(std::make_unique<Page>());
    reader->Describe(i, pages.back()->bitmap);
    AllocateAs(*pages.back(), kind);
    reader->Read(i, pages.back()->bitmap, progress);
  }
  return pages;
}

bool SamePages(const Pages& a, const Pages& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (!SamePixels(a[i]->bitmap, b[i]->bitmap)) return false;
  return true;
}

// A format that holds every page of the sample exactly.
const Format& ExactFormat(const Pages& pages) {
  for (const char* name : {"tiff", "png", "gif", "pnm", "pam"}) {
    const Format* format = FormatOfName(name);
    if (!format->create || (pages.size() > 1 && !format->manyPages)) continue;
    bool holds = true;
    for (const auto& page : pages) holds = holds && format->canHold(page->bitmap);
    if (holds) return *format;
  }
  throw Error("no format of this build holds the image exactly");
}

// Out to a memory stream and back again.
Pages ThroughStream(const Pages& pages) {
  const Format& format = ExactFormat(pages);
  Document document;
  document.pages = static_cast<int32_t>(pages.size());
  const MemoryStream stream;
  File file("stream", File::Mode::kRewrite);
  Progress progress(1);
  {
    const std::unique_ptr<Writer> writer = format.create(file, document);
    for (const auto& page : pages) writer->Write(page->bitmap, progress);
    writer->Finish();
  }
  file.Close();
  return ReadPages("stream", "conventional", nullptr);
}

Run RunKind(const std::string& path, const std::string& kind, const Pages& reference) {
  Run run;
  run.requested = kind;
  try {
    const Clock reading;
    const Pages pages = ReadPages(path, kind, nullptr);
    run.readMilliseconds = reading.Milliseconds();
    int64_t tileBytes = 0;
    int64_t tiles = 0;
    for (const auto& page : pages) {
      const StorageFacts facts = FactsOfStorage(page->bitmap);
      run.got = run.got.empty() || run.got == facts.kind ? facts.kind : "mixed";
      run.bytesHeld += facts.bytes;
      tileBytes = std::max(tileBytes, facts.tileBytes);
      tiles += facts.tiles;
    }
    if (tiles > 0) run.note = std::to_string(tiles) + " tiles, " + std::to_string(tileBytes) + " bytes at most";
    const Clock writing;
    const Pages back = ThroughStream(pages);
    run.writeMilliseconds = writing.Milliseconds();
    run.identical = run.got == kind && SamePages(pages, reference) && SamePages(back, reference);
  } catch (const std::exception& error) {
    run.error = error.what();
  }
  return run;
}

}  // namespace

Sample RunSample(const fs::path& file, const fs::path& folder) {
  Sample sample;
  sample.name = Utf8(file.filename());
  const std::string path = Utf8(file);
  const Pages reference = ReadPages(path, "conventional", &sample.format);
  Bitmap& first = reference.front()->bitmap;
  sample.depth = DepthInWords(first);
  sample.width = first.Width();
  sample.height = first.Height();
  sample.pages = static_cast<int32_t>(reference.size());
  sample.perspective = first.Perspective();
  if (sample.format == "GIF") {  // every browser plays it
    sample.picture = sample.name;
    fs::copy_file(file, folder / file.filename(), fs::copy_options::overwrite_existing);
  } else {
    sample.picture = WritePicture(first, folder, Utf8(file.stem()), &sample.pictureNote);
  }
  for (const char* kind : kKinds) {
    const auto holds = [&](const auto& page) { return StorageHolds(StorageOfName(kind), page->bitmap.Bits()); };
    if (std::all_of(reference.begin(), reference.end(), holds)) sample.runs.push_back(RunKind(path, kind, reference));
  }
  return sample;
}

}  // namespace vexa::gallery
