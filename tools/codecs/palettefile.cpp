#include "codecs/palettefile.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <memory>
#include <string_view>

#include "codecs/codec.h"
#include "codecs/error.h"

namespace vexa {
namespace {

constexpr std::string_view kHeader = "GIMP Palette";
constexpr size_t kMostColors = 256;
constexpr uint64_t kMostBytes = 1 << 16;

bool StartsWithHeader(File& file) {
  char start[kHeader.size()] = {};
  const uint64_t length = file.Read(start, sizeof start);
  file.Seek(0);
  return std::string_view(start, static_cast<size_t>(length)) == kHeader;
}

std::string_view WithoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Takes a number from 0 to 255 and the blanks around it off the start of the text.
uint8_t TakeLevel(std::string_view* text, size_t lineNumber) {
  *text = WithoutBlanks(*text);
  const char* const end = text->data() + text->size();
  uint8_t level = 0;
  const auto result = std::from_chars(text->data(), end, level);
  if (result.ec != std::errc() || (result.ptr != end && *result.ptr != ' ' && *result.ptr != '\t'))
    throw Error("line " + std::to_string(lineNumber) + " is not red, green and blue from 0 to 255");
  text->remove_prefix(static_cast<size_t>(result.ptr - text->data()));
  return level;
}

std::vector<RGBQUAD> ReadPaletteFile(File& file) {
  std::string content(std::min(file.Size(), kMostBytes + 1), '\0');
  file.ReadExactly(content.data(), content.size());
  if (content.size() > kMostBytes) throw Error("the palette file is too long");
  std::vector<RGBQUAD> palette;
  std::string_view rest = content;
  for (size_t number = 1; !rest.empty(); ++number) {
    const size_t end = rest.find('\n');
    std::string_view line = WithoutBlanks(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    const bool isEntry = !line.empty() && line[0] != '#' && !line.starts_with("Name:") && !line.starts_with("Columns:");
    if (number == 1 || !isEntry) continue;
    const uint8_t red = TakeLevel(&line, number), green = TakeLevel(&line, number), blue = TakeLevel(&line, number);
    palette.push_back({blue, green, red, 0});
    if (palette.size() > kMostColors) throw Error("the palette has more than 256 colours");
  }
  if (palette.empty()) throw Error("the palette has no colours");
  return palette;
}

std::vector<RGBQUAD> PaletteOfPicture(File& file, int32_t page) {
  const std::unique_ptr<Reader> reader = FormatOfContent(file).open(file);
  if (page > reader->Pages())
    throw Error("there is no page " + std::to_string(page) + ", the file has " + std::to_string(reader->Pages()));
  Bitmap bitmap;
  reader->Describe(page - 1, bitmap);
  if (bitmap.Palette().empty()) throw Error("the picture has no palette, its pixels are " + DepthInWords(bitmap));
  return bitmap.Palette();
}

}  // namespace

std::vector<RGBQUAD> LoadPalette(const std::string& path, int32_t page) {
  File file(path, File::Mode::kRead);
  return About(path, [&] { return StartsWithHeader(file) ? ReadPaletteFile(file) : PaletteOfPicture(file, page); });
}

void WritePaletteFile(File& file, const std::string& name, const std::vector<RGBQUAD>& palette) {
  std::string text = std::string(kHeader) + "\nName: " + name + "\nColumns: 16\n#\n";
  for (size_t i = 0; i < palette.size(); ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%3d %3d %3d\tIndex %zu\n", palette[i].rgbRed, palette[i].rgbGreen,
                  palette[i].rgbBlue, i);
    text += line;
  }
  file.Write(text.data(), text.size());
}

}  // namespace vexa
