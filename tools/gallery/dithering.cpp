#include "gallery/dithering.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "codecs/codec.h"
#include "codecs/depth.h"
#include "codecs/error.h"
#include "gallery/picture.h"

namespace vexa::gallery {
namespace {

namespace fs = std::filesystem;
using Palette = DepthChoice::Palette;

constexpr RECT kPart = {126, 60, 360, 276};  // of the photograph: what can be shown beside its likes in its own size

struct Depth {
  const char* name;
  int32_t bits;
  Palette palette;
  bool shown;
};

constexpr Depth kDepths[] = {{"1 bit, black and white", 1, Palette::kUsual, true},
                             {"4 bits, palette made for the picture", 4, Palette::kOptimized, true},
                             {"4 bits, fixed palette", 4, Palette::kFixed, false},
                             {"8 bits, fixed palette", 8, Palette::kFixed, true},
                             {"8 bits, palette made for the picture", 8, Palette::kOptimized, false}};

void ReadPart(const fs::path& sample, Bitmap& bitmap) {
  const std::string path = sample.string();
  File file(path, File::Mode::kRead);
  const std::unique_ptr<Reader> reader = FormatOfContent(file).open(file);
  Progress progress(1);
  reader->Describe(0, bitmap);
  if (bitmap.Width() < kPart.right || bitmap.Height() < kPart.bottom) throw Error(path, "the photograph is too small");
  bitmap.Allocate(V_MemoryConventional);
  reader->Read(0, bitmap, progress);
  bitmap.Crop(kPart, V_MemoryConventional);
}

void CopyBitmap(Bitmap& from, Bitmap& to) {
  BITMAPHANDLE copy;
  CheckStatus(V_CopyBitmap(&copy, &from.Record(), V_BITMAPHANDLE_SIZE));
  to.Adopt(copy);
}

void ChangeDepth(const DepthChoice& choice, Bitmap& bitmap) {
  CheckChoice(choice);
  Progress progress(1);
  DepthChange(choice, bitmap).Apply(bitmap, {}, progress);
}

// The samples of all rows, three a pixel.
std::vector<uint8_t> SamplesOf(Bitmap& bitmap) {
  Bitmap color;
  CopyBitmap(bitmap, color);
  ChangeDepth({.bits = 24}, color);
  const size_t row = color.RowBytes();
  std::vector<uint8_t> samples(row * static_cast<size_t>(color.Height()));
  for (int32_t y = 0; y < color.Height(); ++y) color.GetRow(y, samples.data() + row * static_cast<size_t>(y));
  return samples;
}

// Each value becomes the mean of five, `step` apart, with the weights 1 4 6 4 1; values at the ends are repeated.
// `stride` values on, the next line starts, of `count` values.
std::vector<double> Blurred(const std::vector<double>& values, size_t lines, size_t stride, size_t count, size_t step) {
  static constexpr double kWeights[] = {1. / 16, 4. / 16, 6. / 16, 4. / 16, 1. / 16};
  std::vector<double> blurred(values.size());
  for (size_t line = 0; line < lines; ++line)
    for (size_t i = 0; i < count; ++i)
      for (size_t tap = 0; tap < 5; ++tap) {
        const size_t at = std::clamp<size_t>(i + tap, 2, count + 1) - 2;
        blurred[line * stride + i * step] += kWeights[tap] * values[line * stride + at * step];
      }
  return blurred;
}

double MeanError(Bitmap& original, Bitmap& dithered) {
  const std::vector<uint8_t> a = SamplesOf(original), b = SamplesOf(dithered);
  const size_t height = static_cast<size_t>(original.Height()), width = static_cast<size_t>(original.Width());
  double sum = 0;
  for (size_t channel = 0; channel < 3; ++channel) {
    std::vector<double> difference(width * height);
    for (size_t i = 0; i < difference.size(); ++i)
      difference[i] = static_cast<double>(a[3 * i + channel]) - b[3 * i + channel];
    difference = Blurred(difference, height, width, width, 1);
    difference = Blurred(difference, width, 1, height, width);
    for (const double value : difference) sum += std::abs(value);
  }
  return sum / static_cast<double>(a.size());
}

DitheredPicture Dithered(Bitmap& original, const Depth& depth, int32_t method, const fs::path& folder) {
  Bitmap bitmap;
  CopyBitmap(original, bitmap);
  DepthChoice choice;
  choice.bits = depth.bits;
  choice.palette = depth.palette;
  choice.method = method;
  ChangeDepth(choice, bitmap);
  DitheredPicture result;
  result.method = NameOfDitherMethod(method);
  if (depth.shown)
    result.picture = SavePicture(bitmap, folder, "dithered-" + std::to_string(depth.bits) + "-" + result.method);
  result.error = MeanError(original, bitmap);
  return result;
}

}  // namespace

DitheringReport RunDithering(const fs::path& sample, const fs::path& folder) {
  DitheringReport report;
  Bitmap original, gray;
  ReadPart(sample, original);
  CopyBitmap(original, gray);
  ChangeDepth({.bits = 8, .samples = DepthChoice::Samples::kGray}, gray);
  report.sample = sample.filename().string();
  report.original = SavePicture(original, folder, "dithered-original");
  report.width = original.Width();
  report.height = original.Height();
  for (const Depth& depth : kDepths) {
    DitheredDepth& results = report.depths.emplace_back();
    results.name = depth.name;
    for (int32_t method = V_DitheringNone; method <= V_DitheringClustered; ++method)
      results.pictures.push_back(Dithered(depth.bits == 1 ? gray : original, depth, method, folder));
  }
  return report;
}

}  // namespace vexa::gallery
