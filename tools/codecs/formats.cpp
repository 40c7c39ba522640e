// The list of formats, and the questions that are asked of it.
#include <algorithm>
#include <cctype>

#include "codecs/codec.h"
#include "codecs/error.h"

namespace vexa {
namespace {

template <size_t N>
bool StartsWith(std::span<const uint8_t> start, const char (&magic)[N]) {
  return start.size() >= N - 1 && std::equal(magic, magic + N - 1, start.begin(),
                                             [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

Format WithSignature(Format format, bool (*matches)(std::span<const uint8_t>)) {
  format.matches = matches;
  return format;
}

// What this build lacks it still knows by name, to say so.
[[maybe_unused]] Format Absent(std::string_view name, std::vector<std::string_view> extensions) {
  Format format;
  format.name = name;
  format.extensions = std::move(extensions);
  return format;
}

#ifndef VEXA_WITH_PNG
Format PngFormatHere() { return Absent("PNG", {"png"}); }
#else
Format PngFormatHere() { return PngFormat(); }
#endif
#ifndef VEXA_WITH_JPEG
Format JpegFormatHere() { return Absent("JPEG", {"jpg", "jpeg"}); }
#else
Format JpegFormatHere() { return JpegFormat(); }
#endif
#ifndef VEXA_WITH_TIFF
Format TiffFormatHere() { return Absent("TIFF", {"tif", "tiff"}); }
#else
Format TiffFormatHere() { return TiffFormat(); }
#endif
#ifndef VEXA_WITH_GIF
Format GifFormatHere() { return Absent("GIF", {"gif"}); }
#else
Format GifFormatHere() { return GifFormat(); }
#endif

std::vector<Format> MakeFormats() {
  using Start = std::span<const uint8_t>;
  std::vector<Format> formats = {
      WithSignature(PngFormatHere(), [](Start s) { return StartsWith(s, "\x89PNG\r\n\x1a\n"); }),
      WithSignature(JpegFormatHere(), [](Start s) { return StartsWith(s, "\xFF\xD8\xFF"); }),
      WithSignature(TiffFormatHere(),
                    [](Start s) {
                      return StartsWith(s, "II*\0") || StartsWith(s, "MM\0*") || StartsWith(s, "II+\0") ||
                             StartsWith(s, "MM\0+");
                    }),
      WithSignature(GifFormatHere(), [](Start s) { return StartsWith(s, "GIF87a") || StartsWith(s, "GIF89a"); })};
  for (Format& format : PnmFormats()) formats.push_back(std::move(format));
  return formats;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

}  // namespace

const std::vector<Format>& Formats() {
  static const std::vector<Format> formats = MakeFormats();
  return formats;
}

const Format& FormatOfContent(File& file) {
  uint8_t start[16];
  const size_t length = static_cast<size_t>(file.Read(start, sizeof start));
  file.Seek(0);
  if (length == 0) throw Error("the file is empty");
  for (const Format& format : Formats()) {
    if (!format.matches || !format.matches({start, length})) continue;
    if (!format.open) throw Error("this build of vexa has no " + std::string(format.name) + " codec");
    return format;
  }
  throw Error("not an image in a format that vexa reads");
}

const Format* FormatOfName(std::string_view nameOrExtension) {
  const std::string wanted = Lower(nameOrExtension);
  for (const Format& format : Formats())
    if (std::find(format.extensions.begin(), format.extensions.end(), wanted) != format.extensions.end() ||
        Lower(format.name) == wanted)
      return &format;
  return nullptr;
}

const Format* FormatOfExtension(std::string_view path) {
  const size_t slash = path.find_last_of("/\\");
  if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
  const size_t point = path.rfind('.');
  return point == std::string_view::npos ? nullptr : FormatOfName(path.substr(point + 1));
}

std::string KnownExtensions() {
  std::string list;
  for (const Format& format : Formats()) {
    if (!format.create) continue;
    for (const std::string_view extension : format.extensions) {
      if (!list.empty()) list += ", ";
      list += extension;
    }
  }
  return list;
}

std::string DepthInWords(const Bitmap& bitmap) {
  std::string words = std::to_string(bitmap.Bits()) + "-bit";
  if (bitmap.Flags() & V_FlagSigned) words += " signed";
  if (bitmap.Flags() & V_FlagPremultiplyAlpha) words += " premultiplied";
  if (bitmap.IsGray() || bitmap.IsInvertedGray()) return words + " gray";
  if (bitmap.Bits() <= 8) return words + " palette";
  return words + (bitmap.HasAlpha() ? " colour with alpha" : " colour");
}

void RequireHolding(const Format& format, const Bitmap& bitmap) {
  if (format.canHold(bitmap)) return;
  throw Error(std::string(format.name) + " holds " + std::string(format.holds) + ", not " + DepthInWords(bitmap));
}

void RequirePlausible(uint64_t width, uint64_t height, int bits, uint64_t fileBytes, uint64_t ratio) {
  CheckSize(width, height);
  const double needed = static_cast<double>(width) * static_cast<double>(height) * bits / 8;
  if (needed > static_cast<double>(fileBytes) * static_cast<double>(ratio))
    throw Error("the file is cut short: it is too small for the " + std::to_string(width) + " x " +
                std::to_string(height) + " pixels that its header promises");
}

}  // namespace vexa
