#include "gallery/document.h"

#include <algorithm>
#include <memory>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/storage.h"
#include "codecs/upright.h"
#include "gallery/clock.h"

namespace vexa::gallery {
namespace {

constexpr int32_t kWidth = 4960, kHeight = 7016;
constexpr int kRounds = 9;

using Rows = std::vector<std::vector<uint8_t>>;

// The displayed pixels, a byte each.
Rows PixelsOf(Bitmap& sample) {
  UprightRows from(sample);
  Rows pixels(static_cast<size_t>(from.Height()), std::vector<uint8_t>(static_cast<size_t>(from.Width())));
  for (size_t y = 0; y < pixels.size(); ++y) {
    const uint8_t* row = from.Row(static_cast<int32_t>(y));
    for (size_t x = 0; x < pixels[y].size(); ++x)
      pixels[y][x] = static_cast<uint8_t>(GetPixel<1>(row, static_cast<int64_t>(x)));
  }
  return pixels;
}

// The pixel at (x, y) of the picture in twice its size, repeated without end. A quarter of a pixel takes the value of
// the two neighbours at its corner when these agree and the two opposite ones do not: slanted edges stay smooth, as in
// a scan of that resolution.
uint8_t EnlargedPixel(const Rows& pixels, size_t x, size_t y) {
  const size_t height = pixels.size(), width = pixels[0].size();
  const size_t row = y / 2 % height, column = x / 2 % width;
  const uint8_t above = pixels[(row + height - 1) % height][column], below = pixels[(row + 1) % height][column];
  const uint8_t left = pixels[row][(column + width - 1) % width], right = pixels[row][(column + 1) % width];
  const uint8_t vertical = y % 2 ? below : above, oppositeVertical = y % 2 ? above : below;
  const uint8_t horizontal = x % 2 ? right : left, oppositeHorizontal = x % 2 ? left : right;
  const bool takesCorner = vertical == horizontal && vertical != oppositeHorizontal && horizontal != oppositeVertical;
  return takesCorner ? vertical : pixels[row][column];
}

Rows EnlargedRows(Bitmap& sample) {
  const Rows pixels = PixelsOf(sample);
  Rows rows(kHeight, std::vector<uint8_t>(PackedBytes(kWidth, 1)));
  for (size_t y = 0; y < rows.size(); ++y)
    for (size_t x = 0; x < kWidth; ++x)
      PutPixel<1>(rows[y].data(), static_cast<int64_t>(x), EnlargedPixel(pixels, x, y));
  return rows;
}

DocumentRun RunStorage(const Rows& rows, const std::vector<RGBQUAD>& palette, const std::string& storage) {
  DocumentRun run;
  run.storage = storage;
  run.identical = true;
  StorageChoice choice;
  choice.memoryType = StorageOfName(storage);
  std::vector<uint8_t> row(rows[0].size());
  for (int round = 0; round < kRounds; ++round) {
    Bitmap page;
    page.Describe(kWidth, kHeight, 1);
    page.SetPalette(palette);
    AllocateStorage(page, choice);
    const Clock putting;
    for (int32_t y = 0; y < kHeight; ++y) page.PutRow(y, rows[static_cast<size_t>(y)].data());
    const double put = putting.Milliseconds();
    const Clock getting;
    for (int32_t y = 0; y < kHeight; ++y) page.GetRow(y, row.data());
    const double get = getting.Milliseconds();
    run.putMilliseconds = round ? std::min(run.putMilliseconds, put) : put;
    run.getMilliseconds = round ? std::min(run.getMilliseconds, get) : get;
    run.bytesHeld = page.DataBytes();
    for (int32_t y = 0; y < kHeight && run.identical; ++y) {
      page.GetRow(y, row.data());
      run.identical = row == rows[static_cast<size_t>(y)];
    }
  }
  return run;
}

}  // namespace

DocumentReport RunDocument(const std::filesystem::path& sampleFile) {
  const std::string path = sampleFile.string();
  DocumentReport report;
  report.sample = sampleFile.filename().string();
  report.width = kWidth;
  report.height = kHeight;
  Bitmap sample;
  File file(path, File::Mode::kRead);
  const std::unique_ptr<Reader> reader = FormatOfContent(file).open(file);
  reader->Describe(0, sample);
  if (sample.Bits() != 1) throw Error(path, "the document page is made from a 1-bit image");
  sample.Allocate(V_MemoryConventional);
  Progress progress(1);
  reader->Read(0, sample, progress);
  const Rows rows = EnlargedRows(sample);
  for (const char* storage : {"conventional", "compressed", "supercompressed"})
    report.runs.push_back(RunStorage(rows, sample.Palette(), storage));
  return report;
}

}  // namespace vexa::gallery
