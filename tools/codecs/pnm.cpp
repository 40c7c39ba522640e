// PBM, PGM, PPM and PAM: raw and plain forms are read, raw forms are written.
//
// Samples keep their values. A maximum of 2^n - 1 up to 255 is an n-bit image with a gray palette; another one below
// 255 is an 8-bit image whose palette has as many grays as the file, so that the maximum is known when it is written
// again. 4095 is 12-bit; the other wide maxima are 16 bits a sample with HighBit at their top bit. Colour samples below
// 255 keep their values too, with HighBit. In PBM 1 is black: its palette is white, black.
#include <algorithm>
#include <bit>
#include <cctype>
#include <cstring>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/upright.h"

namespace vexa {
namespace {

enum class Kind { kBits, kGray, kColor };

struct Header {
  Kind kind = Kind::kGray;
  bool plain = false;  // numbers as text
  bool alpha = false;
  uint64_t width = 0;
  uint64_t height = 0;
  uint32_t maximum = 1;

  uint32_t Samples() const { return (kind == Kind::kColor ? 3u : 1u) + (alpha ? 1u : 0u); }
  size_t SampleBytes() const { return maximum > 255 ? 2 : 1; }
};

// --- header ---------------------------------------------------------------------------------------------------

[[noreturn]] void BadHeader(const char* what) { throw Error(std::string("the header is damaged: ") + what); }

// Next character of a header; a comment counts as the end of its line.
int HeaderByte(File& file) {
  int c = file.Byte();
  if (c == '#')
    while (c != '\n' && c != '\r' && c != -1) c = file.Byte();
  return c;
}

// A number and the one separator after it.
uint64_t HeaderNumber(File& file, const char* what) {
  int c = HeaderByte(file);
  while (c != -1 && std::isspace(c)) c = HeaderByte(file);
  if (c == -1) throw Error("the file is cut short in its header");
  uint64_t value = 0;
  if (!std::isdigit(c)) BadHeader(what);
  for (; c != -1 && std::isdigit(c); c = HeaderByte(file)) {
    value = value * 10 + static_cast<uint64_t>(c - '0');
    if (value > uint64_t{1} << 40) BadHeader(what);
  }
  if (c != -1 && !std::isspace(c)) BadHeader(what);
  return value;
}

std::string HeaderLine(File& file) {
  std::string line;
  int c = file.Byte();
  if (c == -1) throw Error("the file is cut short in its header");
  for (; c != '\n' && c != -1; c = file.Byte()) {
    if (line.size() > 4096) BadHeader("a line without end");
    line += static_cast<char>(c);
  }
  return line;
}

uint64_t LineNumber(const std::string& value, const char* what) {
  if (value.empty() || value.size() > 12 ||
      !std::all_of(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c); }))
    BadHeader(what);
  return std::stoull(value);
}

Header ReadPamHeader(File& file) {
  Header header;
  uint64_t depth = 0, maximum = 0;
  std::string tuple;
  for (std::string line = HeaderLine(file); line != "ENDHDR"; line = HeaderLine(file)) {
    if (line.empty() || line[0] == '#') continue;
    const size_t space = line.find(' ');
    const std::string key = line.substr(0, space);
    std::string value = space == std::string::npos ? "" : line.substr(space + 1);
    while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back()))) value.pop_back();
    if (key == "WIDTH")
      header.width = LineNumber(value, "WIDTH");
    else if (key == "HEIGHT")
      header.height = LineNumber(value, "HEIGHT");
    else if (key == "DEPTH")
      depth = LineNumber(value, "DEPTH");
    else if (key == "MAXVAL")
      maximum = LineNumber(value, "MAXVAL");
    else if (key == "TUPLTYPE")
      tuple = value;
  }
  if (depth < 1 || depth > 4)
    throw Error("a PAM file of " + std::to_string(depth) + " samples a pixel is not supported");
  if (maximum < 1 || maximum > 65535) BadHeader("the maximum is not in 1 to 65535");
  header.kind = depth >= 3 ? Kind::kColor : Kind::kGray;
  header.alpha = depth == 2 || depth == 4;
  header.maximum = static_cast<uint32_t>(maximum);
  static constexpr std::pair<const char*, uint64_t> kTuples[] = {
      {"BLACKANDWHITE", 1},   {"GRAYSCALE", 1}, {"BLACKANDWHITE_ALPHA", 2},
      {"GRAYSCALE_ALPHA", 2}, {"RGB", 3},       {"RGB_ALPHA", 4}};
  for (const auto& [name, samples] : kTuples)
    if (tuple == name && samples != depth) BadHeader("DEPTH does not go with TUPLTYPE");
  return header;
}

Header ReadHeader(File& file) {
  uint8_t magic[2];
  file.ReadExactly(magic, 2);
  const int kind = magic[1] - '0';
  if (kind == 7) {
    if (!HeaderLine(file).empty()) BadHeader("the first line");
    return ReadPamHeader(file);
  }
  Header header;
  header.plain = kind <= 3;
  header.kind = kind % 3 == 1 ? Kind::kBits : kind % 3 == 2 ? Kind::kGray : Kind::kColor;
  header.width = HeaderNumber(file, "the width is not a number");
  header.height = HeaderNumber(file, "the height is not a number");
  if (header.kind != Kind::kBits) {
    const uint64_t maximum = HeaderNumber(file, "the maximum is not a number");
    if (maximum < 1 || maximum > 65535) BadHeader("the maximum is not in 1 to 65535");
    header.maximum = static_cast<uint32_t>(maximum);
  }
  return header;
}

// --- reading ----------------------------------------------------------------------------------------------------

int DepthOf(const Header& header) {
  const bool wide = header.maximum > 255;
  if (header.kind == Kind::kBits) return 1;
  if (header.alpha) return wide ? 64 : 32;
  if (header.kind == Kind::kColor) return wide ? 48 : 24;
  if (header.maximum == 4095) return 12;
  if (wide) return 16;
  return std::has_single_bit(header.maximum + 1) ? static_cast<int>(std::bit_width(header.maximum)) : 8;
}

class PnmReader : public Reader {
 public:
  explicit PnmReader(File& file) : file_(file), header_(ReadHeader(file)) {
    const uint64_t rest = file_.Size() - file_.Position();
    const int bitsPerPixel = header_.kind == Kind::kBits ? (header_.plain ? 8 : 1)
                             : header_.plain             ? static_cast<int>(header_.Samples()) * 16 - 8
                                             : static_cast<int>(header_.Samples() * header_.SampleBytes()) * 8;
    RequirePlausible(header_.width, header_.height, bitsPerPixel, rest, 1);
  }

  void Describe(int32_t, Bitmap& bitmap) override {
    const int bits = DepthOf(header_);
    bitmap.Describe(header_.width, header_.height, bits);
    const int32_t highBit = static_cast<int32_t>(std::bit_width(header_.maximum)) - 1;
    if (header_.kind == Kind::kBits) {
      bitmap.SetPalette({RGBQUAD{255, 255, 255, 0}, RGBQUAD{0, 0, 0, 0}});
    } else if (bits <= 8) {
      bitmap.SetGrayRamp(header_.maximum + 1);
      bitmap.Record().HighBit = highBit;
    } else {
      bitmap.Record().Order = bits <= 16 ? V_OrderGray : V_OrderBgr;
      if (bits != 32 || header_.maximum != 255) bitmap.Record().HighBit = highBit;
    }
    bitmap.Record().PaintHighBit = bitmap.Record().HighBit;
  }

  void Read(int32_t, Bitmap& bitmap, Progress& progress) override {
    std::vector<uint8_t> row(bitmap.RowBytes());
    samples_.resize(static_cast<size_t>(header_.width) * header_.Samples());
    progress.BeginPart(bitmap.Height(), bitmap.Height());
    for (int32_t y = 0; y < bitmap.Height(); ++y) {
      if (header_.kind == Kind::kBits)
        ReadBits(row);
      else
        WithDepth(bitmap.Bits(), [&](auto depth) { ReadSamples<depth>(row.data()); });
      bitmap.PutRow(y, row.data());
      progress.Step();
    }
  }

 private:
  void ReadBits(std::vector<uint8_t>& row) {
    if (!header_.plain) {
      file_.ReadExactly(row.data(), row.size());
      if (header_.width % 8 != 0) row.back() &= static_cast<uint8_t>(0xFF00u >> header_.width % 8);
      return;
    }
    for (uint64_t x = 0; x < header_.width; ++x) {
      int c = HeaderByte(file_);
      while (c != -1 && std::isspace(c)) c = HeaderByte(file_);
      if (c == -1) throw Error("the file is cut short");
      if (c != '0' && c != '1') throw Error("the data is damaged: a pixel is neither 0 nor 1");
      PutPixel<1>(row.data(), static_cast<int64_t>(x), static_cast<uint64_t>(c - '0'));
    }
  }

  // One row's samples in file order.
  void FetchSamples() {
    if (header_.plain) {
      for (uint16_t& sample : samples_) {
        const uint64_t value = PlainNumber();
        if (value > header_.maximum) TooLarge();
        sample = static_cast<uint16_t>(value);
      }
      return;
    }
    raw_.resize(samples_.size() * header_.SampleBytes());
    file_.ReadExactly(raw_.data(), raw_.size());
    if (header_.SampleBytes() == 1)
      std::copy(raw_.begin(), raw_.end(), samples_.begin());
    else
      for (size_t i = 0; i < samples_.size(); ++i)
        samples_[i] = static_cast<uint16_t>(raw_[2 * i] << 8 | raw_[2 * i + 1]);
    if (header_.maximum == 255 || header_.maximum == 65535) return;
    for (const uint16_t sample : samples_)
      if (sample > header_.maximum) TooLarge();
  }

  uint64_t PlainNumber() {
    int c = HeaderByte(file_);
    while (c != -1 && std::isspace(c)) c = HeaderByte(file_);
    if (c == -1) throw Error("the file is cut short");
    if (!std::isdigit(c)) throw Error("the data is damaged: a sample is not a number");
    uint64_t value = 0;
    for (; c != -1 && std::isdigit(c); c = file_.Byte())
      value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(c - '0'), 1 << 20);
    return value;
  }

  [[noreturn]] void TooLarge() const {
    throw Error("the data is damaged: a sample is greater than the maximum " + std::to_string(header_.maximum));
  }

  template <int Bits>
  void ReadSamples(uint8_t* row) {
    if constexpr (Bits == 24) {
      if (!header_.plain && header_.maximum == 255) return ReadBytes(row);
    }
    FetchSamples();
    const uint16_t* sample = samples_.data();
    const int64_t width = static_cast<int64_t>(header_.width);
    if constexpr (Bits <= 16) {
      for (int64_t x = 0; x < width; ++x) PutPixel<Bits>(row, x, sample[x]);
    } else {
      constexpr int kSample = Bits == 24 || Bits == 32 ? 8 : 16;
      const bool gray = header_.kind == Kind::kGray;
      for (int64_t x = 0; x < width; ++x) {
        const uint64_t red = sample[0], green = gray ? red : sample[1], blue = gray ? red : sample[2];
        sample += gray ? 1 : 3;
        uint64_t pixel = blue | green << kSample | red << 2 * kSample;
        if constexpr (Bits == 32 || Bits == 64) pixel |= static_cast<uint64_t>(*sample++) << 3 * kSample;
        PutPixel<Bits>(row, x, pixel);
      }
    }
  }

  // The everyday case, without the detour by samples.
  void ReadBytes(uint8_t* row) {
    const size_t bytes = static_cast<size_t>(header_.width) * 3;
    file_.ReadExactly(row, bytes);
    for (size_t i = 0; i < bytes; i += 3) std::swap(row[i], row[i + 2]);
  }

  File& file_;
  Header header_;
  std::vector<uint8_t> raw_;
  std::vector<uint16_t> samples_;
};

// --- writing ----------------------------------------------------------------------------------------------------

bool Unsigned(const Bitmap& bitmap) { return !(bitmap.Flags() & (V_FlagSigned | V_FlagPremultiplyAlpha)); }
bool IsBits(const Bitmap& bitmap) { return bitmap.Bits() == 1 && (bitmap.IsGray() || bitmap.IsInvertedGray()); }
bool HoldsGray(const Bitmap& bitmap) { return (bitmap.IsGray() || bitmap.IsInvertedGray()) && Unsigned(bitmap); }
bool HoldsColor(const Bitmap& bitmap) { return (bitmap.Bits() == 24 || bitmap.Bits() == 48) && Unsigned(bitmap); }
bool HoldsAlpha(const Bitmap& bitmap) { return bitmap.HasAlpha() && Unsigned(bitmap); }
bool HoldsPam(const Bitmap& bitmap) { return HoldsGray(bitmap) || HoldsColor(bitmap) || HoldsAlpha(bitmap); }
bool HoldsAny(const Bitmap& bitmap) { return HoldsGray(bitmap) || HoldsColor(bitmap); }

class PnmWriter : public Writer {
 public:
  PnmWriter(File& file, bool pam, bool bitsAsGray) : file_(file), pam_(pam), bitsAsGray_(bitsAsGray) {}

  void Write(Bitmap& bitmap, Progress& progress) override {
    UprightRows rows(bitmap);
    const bool bits = IsBits(bitmap) && !bitsAsGray_;
    WriteHeader(bitmap, rows, bits);
    // Indices are turned over where the file means black by what the palette means white by: 1 is black in PBM alone.
    const bool zeroIsBlack = !bitmap.IsInvertedGray();
    const bool flip = zeroIsBlack == (bits && !pam_);
    progress.BeginPart(bitmap.Height(), rows.Height());
    for (int32_t y = 0; y < rows.Height(); ++y) {
      const uint8_t* row = rows.Row(y);
      if (bits && !pam_)
        WriteBits(row, rows.Width(), flip);
      else
        WithDepth(bitmap.Bits(),
                  [&](auto depth) { WriteSamples<depth>(row, rows.Width(), flip, bitmap.Order() == V_OrderRgb); });
      progress.Step();
    }
  }

 private:
  void WriteHeader(const Bitmap& bitmap, const UprightRows& rows, bool bits) {
    const int depth = bitmap.Bits();
    const size_t grays = depth <= 8 ? bitmap.Palette().size() : 0;
    const uint32_t maximum = grays ? static_cast<uint32_t>(grays - 1) : bitmap.SampleMaximum();
    wide_ = maximum > 255;
    const std::string size = std::to_string(rows.Width());
    std::string text;
    if (pam_) {
      const int samples = depth <= 16 ? 1 : depth == 24 || depth == 48 ? 3 : 4;
      const char* tuple = bits ? "BLACKANDWHITE" : samples == 1 ? "GRAYSCALE" : samples == 3 ? "RGB" : "RGB_ALPHA";
      text = "P7\nWIDTH " + size + "\nHEIGHT " + std::to_string(rows.Height()) + "\nDEPTH " + std::to_string(samples) +
             "\nMAXVAL " + std::to_string(maximum) + "\nTUPLTYPE " + tuple + "\nENDHDR\n";
    } else {
      text = std::string(bits          ? "P4"
                         : depth <= 16 ? "P5"
                                       : "P6") +
             "\n" + size + " " + std::to_string(rows.Height()) + "\n" + (bits ? "" : std::to_string(maximum) + "\n");
    }
    file_.Write(text.data(), text.size());
  }

  void WriteBits(const uint8_t* row, int32_t width, bool flip) {
    out_.assign(row, row + PackedBytes(width, 1));
    for (uint8_t& byte : out_) byte ^= flip ? 0xFF : 0;
    if (width % 8 != 0) out_.back() &= static_cast<uint8_t>(0xFF00u >> width % 8);
    file_.Write(out_.data(), out_.size());
  }

  template <int Bits>
  void WriteSamples(const uint8_t* row, int32_t width, bool flip, bool redFirst) {
    constexpr int kSamples = Bits <= 16 ? 1 : Bits == 24 || Bits == 48 ? 3 : 4;
    constexpr int kSample = Bits <= 16 ? 16 : Bits / kSamples;
    constexpr uint64_t kMask = (uint64_t{1} << kSample) - 1;
    out_.resize(static_cast<size_t>(width) * kSamples * (wide_ ? 2 : 1));
    uint8_t* out = out_.data();
    const auto put = [&](uint64_t sample) {
      if (wide_) *out++ = static_cast<uint8_t>(sample >> 8);
      *out++ = static_cast<uint8_t>(sample);
    };
    for (int32_t x = 0; x < width; ++x) {
      const uint64_t pixel = GetPixel<Bits>(row, x);
      if constexpr (kSamples == 1) {
        put(flip ? pixel ^ ((1u << Bits) - 1) : pixel);
      } else {
        const uint64_t first = pixel & kMask, third = pixel >> 2 * kSample & kMask;
        put(redFirst ? first : third);
        put(pixel >> kSample & kMask);
        put(redFirst ? third : first);
        if constexpr (kSamples == 4) put(pixel >> 3 * kSample);
      }
    }
    file_.Write(out_.data(), out_.size());
  }

  File& file_;
  bool pam_;
  bool bitsAsGray_;
  bool wide_ = false;
  std::vector<uint8_t> out_;
};

template <uint8_t... Kinds>
bool Matches(std::span<const uint8_t> start) {
  return start.size() >= 3 && start[0] == 'P' && ((start[1] == Kinds) || ...) &&
         (std::isspace(start[2]) || start[2] == '#');
}

std::unique_ptr<Reader> Open(File& file) { return std::make_unique<PnmReader>(file); }

template <bool Pam, bool BitsAsGray>
std::unique_ptr<Writer> Create(File& file, const Document&) {
  return std::make_unique<PnmWriter>(file, Pam, BitsAsGray);
}

}  // namespace

std::vector<Format> PnmFormats() {
  Format any{.name = "PNM",
             .extensions = {"pnm"},
             .holds = "1-bit black and white, gray of 1 to 8, 12 and 16 bits, and 24- and 48-bit colour",
             .matches = nullptr,  // a name for whichever of the next three fits
             .canHold = HoldsAny,
             .open = nullptr,
             .create = Create<false, false>};
  Format pbm{.name = "PBM",
             .extensions = {"pbm"},
             .holds = "1-bit black and white",
             .matches = Matches<'1', '4'>,
             .canHold = IsBits,
             .open = Open,
             .create = Create<false, false>};
  Format pgm{.name = "PGM",
             .extensions = {"pgm"},
             .holds = "gray of 1 to 8, 12 and 16 bits",
             .matches = Matches<'2', '5'>,
             .canHold = HoldsGray,
             .open = Open,
             .create = Create<false, true>};
  Format ppm{.name = "PPM",
             .extensions = {"ppm"},
             .holds = "24- and 48-bit colour",
             .matches = Matches<'3', '6'>,
             .canHold = HoldsColor,
             .open = Open,
             .create = Create<false, false>};
  Format pam{.name = "PAM",
             .extensions = {"pam"},
             .holds = "gray of 1 to 8, 12 and 16 bits, 24- and 48-bit colour, and 32- and 64-bit colour with alpha",
             .matches = Matches<'7'>,
             .canHold = HoldsPam,
             .open = Open,
             .create = Create<true, false>};
  return {any, pbm, pgm, ppm, pam};
}

}  // namespace vexa
