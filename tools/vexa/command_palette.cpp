// vexa palette: the palette of a picture or of a palette file described, drawn, and written as a palette file.
#include <algorithm>
#include <cstdio>

#include "codecs/error.h"
#include "codecs/palettefile.h"
#include "vexa/commands.h"
#include "vexa/pipeline.h"

namespace vexa {
namespace {

constexpr int32_t kSwatch = 32, kGap = 2;
constexpr uint8_t kBetween = 128;  // the gray of the gaps, seen beside light and dark

const char* GrayscaleWords(int32_t mode) {
  switch (mode) {
    case V_GrayscaleOrderedNormal:
      return "gray, from black to white in equal steps";
    case V_GrayscaleOrderedInverse:
      return "gray, from white to black in equal steps";
    case V_GrayscaleNotOrdered:
      return "gray, not in equal steps";
    default:
      return "colour";
  }
}

// The fixed palette with these entries at its start; the shortest one that has room for them is compared.
std::string FixedPaletteWords(const std::vector<RGBQUAD>& palette) {
  int bits = 1;
  while (size_t{1} << bits < palette.size()) ++bits;
  Bitmap fixed;
  fixed.Describe(1, 1, bits);
  fixed.SetFixedPalette(bits);
  if (V_CompareBitmapToPalette(&fixed.Record(), palette.data(), static_cast<uint32_t>(palette.size())) != 1)
    return "none";
  return (palette.size() == size_t{1} << bits ? "that of " : "the start of that of ") + std::to_string(bits) +
         (bits == 1 ? " bit" : " bits");
}

void PrintPalette(const std::string& file, const std::vector<RGBQUAD>& palette) {
  const uint32_t colors = static_cast<uint32_t>(palette.size());
  const std::string text = file + ": palette of " + std::to_string(colors) + (colors == 1 ? " colour" : " colours") +
                           "\n  kind           " + GrayscaleWords(V_IsGrayScalePalette(palette.data(), colors)) +
                           "\n  fixed palette  " + FixedPaletteWords(palette) + "\n";
  std::fputs(text.c_str(), stdout);
  if (std::fflush(stdout) != 0) throw Error("the output could not be written");
}

// A grid of squares, in rows of 16, or of 8 for a small palette.
void DrawPalette(const std::vector<RGBQUAD>& palette, Bitmap& picture) {
  const int32_t colors = static_cast<int32_t>(palette.size());
  const int32_t columns = std::min(colors, colors > 64 ? 16 : 8), rows = (colors + columns - 1) / columns;
  constexpr int32_t kPitch = kSwatch + kGap;
  const auto side = [](int32_t count) { return static_cast<uint64_t>(count) * kPitch + kGap; };
  picture.Describe(side(columns), side(rows), 24);
  picture.Record().Order = V_OrderBgr;
  picture.Allocate(V_MemoryConventional);
  std::vector<uint8_t> line(picture.RowBytes());
  for (int32_t y = 0; y < picture.Height(); ++y) {
    std::fill(line.begin(), line.end(), kBetween);
    for (int32_t x = 0; x < picture.Width(); ++x) {
      const int32_t entry = y / kPitch * columns + x / kPitch;
      if (x % kPitch < kGap || y % kPitch < kGap || entry >= colors) continue;
      const RGBQUAD& color = palette[static_cast<size_t>(entry)];
      uint8_t* pixel = line.data() + 3 * x;
      pixel[0] = color.rgbBlue, pixel[1] = color.rgbGreen, pixel[2] = color.rgbRed;
    }
    picture.PutRow(y, line.data());
  }
}

std::unique_ptr<Output> WriteDrawing(const std::string& path, const std::vector<RGBQUAD>& palette) {
  const Format& format = OutputFormat(path, "", nullptr);
  Bitmap picture;
  DrawPalette(palette, picture);
  About(path, [&] { RequireHolding(format, picture); });
  Progress progress(1);
  auto output = std::make_unique<Output>(path, format);
  output->Begin(Document{});
  output->Write(picture, progress);
  output->Finish();
  return output;
}

std::unique_ptr<OutputFile> WriteFile(const std::string& path, const std::string& name,
                                      const std::vector<RGBQUAD>& palette) {
  auto file = std::make_unique<OutputFile>(path, false);
  About(path, [&] { WritePaletteFile(file->Stream(), name, palette); });
  file->Close();
  return file;
}

// One line of text, whatever the file is called.
std::string NameOf(const std::string& path) {
  std::string name = Utf8Of(PathOf(path).stem());
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return c < 32; }, ' ');
  return name;
}

}  // namespace

// Neither file takes its place before both are complete.
int ShowPalette(const PaletteOptions& options) {
  const std::vector<RGBQUAD> palette = LoadPalette(options.file, options.page);
  std::unique_ptr<Output> drawing;
  std::unique_ptr<OutputFile> file;
  if (!options.show.empty()) drawing = WriteDrawing(options.show, palette);
  if (!options.exportation.empty()) file = WriteFile(options.exportation, NameOf(options.file), palette);
  if (drawing) drawing->Commit();
  if (file) file->Commit();
  PrintPalette(options.file, palette);
  return 0;
}

}  // namespace vexa
