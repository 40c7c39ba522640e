// What every codec offers: a reader and a writer over a file, and what its format can hold.
//
// A reader describes a page (an initialised record with depth, palette, perspective, resolution and animation fields)
// and then puts the page's rows, as the file stores them, into the storage that the caller chose. A writer takes
// bitmaps one after the other. Neither keeps more than a few rows of its own.
#ifndef VEXA_CODECS_CODEC_H
#define VEXA_CODECS_CODEC_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "codecs/bitmap.h"
#include "codecs/file.h"
#include "codecs/progress.h"

namespace vexa {

// The file as a whole.
struct Document {
  int32_t pages = 1;
  int32_t canvasWidth = 0;  // of an animation: the area that its frames lie in
  int32_t canvasHeight = 0;
  uint64_t pixelBytes = 0;  // of all pages, without padding
};

class Reader {
 public:
  virtual ~Reader() = default;
  virtual int32_t Pages() { return 1; }
  virtual void Canvas(int32_t* /*width*/, int32_t* /*height*/) {}
  virtual void Describe(int32_t page, Bitmap& bitmap) = 0;

  // Reads the page's rows into a bitmap that was described for it and has storage. Each page is read at most once.
  // The work is one part of `progress`, with the bitmap's height as its weight.
  virtual void Read(int32_t page, Bitmap& bitmap, Progress& progress) = 0;
};

class Writer {
 public:
  virtual ~Writer() = default;
  virtual void Write(Bitmap& bitmap, Progress& progress) = 0;
  virtual void Finish() {}
};

struct Format {
  std::string_view name;
  std::vector<std::string_view> extensions;
  bool manyPages = false;
  bool seeksToWrite = false;
  std::string_view holds;  // "PNG holds <this>"
  bool (*matches)(std::span<const uint8_t> start) = nullptr;
  bool (*canHold)(const Bitmap& bitmap) = nullptr;
  // Null in a build without the format's library.
  std::unique_ptr<Reader> (*open)(File& file) = nullptr;
  std::unique_ptr<Writer> (*create)(File& file, const Document& document) = nullptr;
};

const std::vector<Format>& Formats();

// The format of a file's first bytes; an Error when there is none, or this build cannot read it. Leaves the file at its
// start.
const Format& FormatOfContent(File& file);

// The format that a file name's extension stands for; null when none.
const Format* FormatOfExtension(std::string_view path);
const Format* FormatOfName(std::string_view nameOrExtension);
std::string KnownExtensions();

// Refuses, with what the format does hold, a bitmap that it cannot hold.
void RequireHolding(const Format& format, const Bitmap& bitmap);

// Refuses a header whose pixels could not come from a file of this size, at `ratio` bytes of pixels for each stored
// byte.
void RequirePlausible(uint64_t width, uint64_t height, int bits, uint64_t fileBytes, uint64_t ratio);

// "24-bit", "8-bit palette", "16-bit signed gray": a bitmap's kind in words.
std::string DepthInWords(const Bitmap& bitmap);

// The codecs, each in its own file.
Format PngFormat();
Format JpegFormat();
Format TiffFormat();
Format GifFormat();
std::vector<Format> PnmFormats();

}  // namespace vexa

#endif
