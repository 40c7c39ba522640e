#include "gallery/picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/upright.h"

namespace vexa::gallery {
namespace {

constexpr int32_t kPictureSide = 420;
constexpr int kSampleValues = 65536;

bool IsWide(const Bitmap& bitmap) { return bitmap.Bits() == 12 || bitmap.Bits() == 16 || bitmap.Bits() >= 48; }

// The samples of a pixel as 0 to 65535 in the order red, green, blue, alpha.
using Samples = std::array<uint32_t, 4>;

template <int Bits>
Samples SamplesOf(uint64_t pixel, const std::vector<RGBQUAD>& palette) {
  if constexpr (Bits <= 8) {
    const RGBQUAD color = pixel < palette.size() ? palette[pixel] : RGBQUAD{};
    return {color.rgbRed * 257u, color.rgbGreen * 257u, color.rgbBlue * 257u, 65535u};
  } else if constexpr (Bits <= 16) {
    const uint32_t gray = static_cast<uint32_t>(pixel);
    return {gray, gray, gray, 65535u};
  } else if constexpr (Bits <= 32) {
    const auto part = [pixel](int shift) { return static_cast<uint32_t>(pixel >> shift & 255) * 257; };
    return {part(16), part(8), part(0), Bits == 32 ? part(24) : 65535u};
  } else {
    const auto part = [pixel](int shift) { return static_cast<uint32_t>(pixel >> shift & 65535); };
    return {part(32), part(16), part(0), Bits == 64 ? part(48) : 65535u};
  }
}

// Gray of signed bit patterns is moved to where its order is kept. The format of the sample slices cannot say that they
// are signed; a large share of samples at both ends of the range says it.
uint32_t Unfold(uint32_t value, bool folded) { return folded ? (value + 32768) & 65535 : value; }

// What the eye is shown of each sample value.
struct Stretch {
  bool folded = false;
  std::vector<uint8_t> shown = std::vector<uint8_t>(kSampleValues);
};

std::vector<uint64_t> CountSamples(Bitmap& bitmap) {
  std::vector<uint64_t> counts(kSampleValues);
  std::vector<uint8_t> row(bitmap.RowBytes());
  WithDepth(bitmap.Bits(), [&](auto depth) {
    for (int32_t y = 0; y < bitmap.Height(); ++y) {
      bitmap.GetRow(y, row.data());
      for (int32_t x = 0; x < bitmap.Width(); ++x) {
        const Samples samples = SamplesOf<depth>(GetPixel<depth>(row.data(), x), {});
        for (int i = 0; i < 3; ++i) ++counts[samples[static_cast<size_t>(i)]];
      }
    }
  });
  return counts;
}

// The value below which `share` of all samples lie.
uint32_t Quantile(const std::vector<uint64_t>& counts, bool folded, double share) {
  uint64_t total = 0, below = 0;
  for (const uint64_t count : counts) total += count;
  for (uint32_t i = 0; i < kSampleValues; ++i) {
    below += counts[folded ? (i + 32768) & 65535 : i];
    if (static_cast<double>(below) >= share * static_cast<double>(total)) return i;
  }
  return kSampleValues - 1;
}

Stretch StretchFor(Bitmap& bitmap) {
  Stretch stretch;
  if (!IsWide(bitmap)) {
    for (size_t i = 0; i < kSampleValues; ++i) stretch.shown[i] = static_cast<uint8_t>(i / 257);
    return stretch;
  }
  const std::vector<uint64_t> counts = CountSamples(bitmap);
  const bool gray = bitmap.Bits() <= 16;
  uint64_t high = 0;
  for (size_t i = 32768; i < kSampleValues; ++i) high += counts[i];
  uint64_t middle = 0;
  for (size_t i = 16384; i < 49152; ++i) middle += counts[i];
  stretch.folded = bitmap.Bits() == 16 && high > 0 && middle == 0;
  const double low = Quantile(counts, stretch.folded, gray ? 0.25 : 0.001);
  const double top = std::max<double>(Quantile(counts, stretch.folded, 0.998), low + 1);
  for (uint32_t i = 0; i < kSampleValues; ++i) {
    const double part = std::clamp((Unfold(i, stretch.folded) - low) / (top - low), 0.0, 1.0);
    stretch.shown[i] = static_cast<uint8_t>(std::lround(255 * (gray ? part : std::pow(part, 1 / 2.2))));
  }
  return stretch;
}

// Sums displayed pixels into the boxes of the reduced picture.
class Reducer {
 public:
  Reducer(Bitmap& bitmap, const Stretch& stretch) : bitmap_(bitmap), rows_(bitmap), shown_(stretch.shown) {
    const int32_t longest = std::max(rows_.Width(), rows_.Height());
    factor_ = std::max(1, (longest + kPictureSide - 1) / kPictureSide);
    width_ = (rows_.Width() + factor_ - 1) / factor_;
    height_ = (rows_.Height() + factor_ - 1) / factor_;
  }

  void Into(Bitmap& picture) {
    picture.Describe(static_cast<uint64_t>(width_), static_cast<uint64_t>(height_), 32);
    picture.Allocate(V_MemoryConventional);
    const std::vector<RGBQUAD> palette = bitmap_.Palette();
    std::vector<uint8_t> line(picture.RowBytes());
    for (int32_t top = 0; top < rows_.Height(); top += factor_) {
      sums_.assign(static_cast<size_t>(width_) * 5, 0);
      for (int32_t y = top; y < std::min(top + factor_, rows_.Height()); ++y)
        WithDepth(bitmap_.Bits(), [&](auto depth) { AddRow<depth>(rows_.Row(y), palette); });
      for (int32_t x = 0; x < width_; ++x) PutBox(x, line.data() + static_cast<size_t>(x) * 4);
      picture.PutRow(top / factor_, line.data());
    }
  }

 private:
  template <int Bits>
  void AddRow(const uint8_t* row, const std::vector<RGBQUAD>& palette) {
    for (int32_t x = 0; x < rows_.Width(); ++x) {
      const Samples samples = SamplesOf<Bits>(GetPixel<Bits>(row, x), palette);
      uint64_t* sum = sums_.data() + static_cast<size_t>(x / factor_) * 5;
      const uint64_t alpha = samples[3] / 257;
      for (size_t i = 0; i < 3; ++i) sum[i] += shown_[samples[i]] * alpha;  // unseen pixels have no colour to give
      sum[3] += alpha;
      ++sum[4];
    }
  }

  void PutBox(int32_t x, uint8_t* pixel) const {
    const uint64_t* sum = sums_.data() + static_cast<size_t>(x) * 5;
    for (size_t i = 0; i < 3; ++i) pixel[2 - i] = static_cast<uint8_t>(sum[3] ? (sum[i] + sum[3] / 2) / sum[3] : 0);
    pixel[3] = static_cast<uint8_t>(sum[4] ? sum[3] / sum[4] : 0);
  }

  Bitmap& bitmap_;
  UprightRows rows_;
  const std::vector<uint8_t>& shown_;
  int32_t factor_ = 1;
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::vector<uint64_t> sums_;
};

// Without an alpha channel that says something the picture is a third smaller, and every format holds it.
void DropAlpha(Bitmap& from, Bitmap& to) {
  to.Describe(static_cast<uint64_t>(from.Width()), static_cast<uint64_t>(from.Height()), 24);
  to.Allocate(V_MemoryConventional);
  std::vector<uint8_t> in(from.RowBytes()), out(to.RowBytes());
  for (int32_t y = 0; y < from.Height(); ++y) {
    from.GetRow(y, in.data());
    for (size_t x = 0; x < static_cast<size_t>(from.Width()); ++x) std::memcpy(&out[3 * x], &in[4 * x], 3);
    to.PutRow(y, out.data());
  }
}

const Format& PictureFormat() {
  const Format* png = FormatOfName("png");
  return png->create ? *png : *FormatOfName("ppm");
}

}  // namespace

std::string SavePicture(Bitmap& bitmap, const std::filesystem::path& folder, const std::string& name) {
  const Format& format = PictureFormat();
  std::string file = name + "." + std::string(format.extensions[0]);
  const std::u8string path = (folder / file).u8string();
  File out(std::string(path.begin(), path.end()), File::Mode::kRewrite);
  Progress progress(1);
  const std::unique_ptr<Writer> writer = format.create(out, Document{});
  writer->Write(bitmap, progress);
  writer->Finish();
  out.Close();
  return file;
}

std::string WritePicture(Bitmap& bitmap, const std::filesystem::path& folder, const std::string& name,
                         std::string* note) {
  const Stretch stretch = StretchFor(bitmap);
  if (IsWide(bitmap)) *note = bitmap.Bits() <= 16 ? "levels stretched for display" : "brightened for display";
  Bitmap reduced, opaque;
  Reducer(bitmap, stretch).Into(reduced);
  if (bitmap.HasAlpha() && PictureFormat().canHold(reduced)) return SavePicture(reduced, folder, name);
  DropAlpha(reduced, opaque);
  return SavePicture(opaque, folder, name);
}

bool SamePixels(Bitmap& a, Bitmap& b) {
  UprightRows rowsA(a), rowsB(b);
  if (rowsA.Width() != rowsB.Width() || rowsA.Height() != rowsB.Height()) return false;
  if (a.Bits() != b.Bits() && (a.Bits() > 8 || b.Bits() > 8)) return false;
  const std::vector<RGBQUAD> paletteA = a.Palette(), paletteB = b.Palette();
  for (int32_t y = 0; y < rowsA.Height(); ++y) {
    const uint8_t* rowA = rowsA.Row(y);
    const uint8_t* rowB = rowsB.Row(y);
    bool same = true;
    WithDepth(a.Bits(), [&](auto depthA) {
      WithDepth(b.Bits(), [&](auto depthB) {
        for (int32_t x = 0; x < rowsA.Width() && same; ++x)
          same = SamplesOf<depthA>(GetPixel<depthA>(rowA, x), paletteA) ==
                 SamplesOf<depthB>(GetPixel<depthB>(rowB, x), paletteB);
      });
    });
    if (!same) return false;
  }
  return true;
}

}  // namespace vexa::gallery
