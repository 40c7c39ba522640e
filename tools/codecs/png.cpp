// PNG. Gray of 1 to 8 bits has a gray palette, palettes stay palettes, everything with a second or fourth channel
// becomes 32 or 64 bits, and 16-bit samples are little-endian in memory.
//
// The library leaves on errors by longjmp. Only calls of the library run between setjmp and that jump, in frames
// without destructors; what goes wrong in a callback is noted, and thrown once the jump has landed.
#include <png.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstring>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/upright.h"

namespace vexa {
namespace {

constexpr double kInchesPerMeter = 39.37007874015748;

class PngBase {
 public:
  explicit PngBase(File& file) : file_(file) {}
  PngBase(const PngBase&) = delete;

 protected:
  // Runs `call`, which calls the library on plain data, and makes its error an Error.
  template <typename Call>
  __attribute__((noinline)) void Try(Call&& call) {
    if (setjmp(jump_) == 0) {
      call();
      return;
    }
    throw Error(reason_);
  }

  static void OnError(png_structp png, png_const_charp message) {
    PngBase* self = static_cast<PngBase*>(png_get_error_ptr(png));
    self->Note(message);
    std::longjmp(self->jump_, 1);
  }
  static void OnWarning(png_structp, png_const_charp) {}

  static void OnRead(png_structp png, png_bytep data, size_t bytes) {
    PngBase* self = static_cast<PngBase*>(png_get_io_ptr(png));
    if (!self->Guard([&] { self->file_.ReadExactly(data, bytes); })) png_error(png, "");
  }
  static void OnWrite(png_structp png, png_bytep data, size_t bytes) {
    PngBase* self = static_cast<PngBase*>(png_get_io_ptr(png));
    if (!self->Guard([&] { self->file_.Write(data, bytes); })) png_error(png, "");
  }
  static void OnFlush(png_structp) {}

 private:
  template <typename Call>
  bool Guard(Call&& call) {
    try {
      call();
      return true;
    } catch (const std::exception& error) {
      Note(error.what());
      return false;
    }
  }
  void Note(const char* message) {
    if (message[0]) std::snprintf(reason_, sizeof reason_, "%s", message);
  }

  File& file_;
  std::jmp_buf jump_;
  char reason_[200] = "the PNG data is damaged";
};

// --- reading ----------------------------------------------------------------------------------------------------

class PngReader : public Reader, private PngBase {
 public:
  explicit PngReader(File& file) : PngBase(file) {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, static_cast<PngBase*>(this), OnError, OnWarning);
    info_ = png_ ? png_create_info_struct(png_) : nullptr;
    if (!info_) {
      png_destroy_read_struct(&png_, nullptr, nullptr);
      throw Error("not enough memory");
    }
    try {
      Try([this] {
        png_set_user_limits(png_, 0x7FFFFFFF, 0x7FFFFFFF);
        png_set_read_fn(png_, static_cast<PngBase*>(this), OnRead);
        png_set_check_for_invalid_index(png_, 0);
        png_read_info(png_, info_);
        png_get_IHDR(png_, info_, &width_, &height_, &fileBits_, &colorType_, &interlace_, nullptr, nullptr);
      });
      const uint32_t channels = png_get_channels(png_, info_);
      RequirePlausible(width_, height_, fileBits_ * static_cast<int>(channels), file.Size(), 1100);
      ChooseDepth();
    } catch (...) {
      png_destroy_read_struct(&png_, &info_, nullptr);
      throw;
    }
  }
  ~PngReader() override { png_destroy_read_struct(&png_, &info_, nullptr); }

  void Describe(int32_t, Bitmap& bitmap) override {
    bitmap.Describe(width_, height_, bits_);
    BITMAPHANDLE& record = bitmap.Record();
    if (colorType_ == PNG_COLOR_TYPE_PALETTE && bits_ <= 8)
      DescribePalette(bitmap);
    else if (bits_ <= 8)
      bitmap.SetGrayRamp(1u << bits_);
    else
      record.Order = bits_ == 16 ? V_OrderGray : V_OrderBgr;
    if (transparentIndex_ >= 0) {
      record.Transparency = IndexColor(static_cast<uint32_t>(transparentIndex_));
      record.Flags |= V_FlagTransparency;
    }
    if (interlace_ != PNG_INTERLACE_NONE) record.Flags |= V_FlagInterlaced;
    DescribeBackground(bitmap);
    png_uint_32 x = 0, y = 0;
    int unit = 0;
    if (png_get_pHYs(png_, info_, &x, &y, &unit) && unit == PNG_RESOLUTION_METER)
      bitmap.SetResolution(x / kInchesPerMeter, y / kInchesPerMeter);
  }

  void Read(int32_t, Bitmap& bitmap, Progress& progress) override {
    std::vector<uint8_t> row;
    int passes = 1;
    Try([&] {
      passes = png_set_interlace_handling(png_);
      png_read_update_info(png_, info_);
    });
    row.resize(png_get_rowbytes(png_, info_));
    progress.BeginPart(bitmap.Height(), int64_t{bitmap.Height()} * passes);
    for (int pass = 0; pass < passes; ++pass) {
      for (int32_t y = 0; y < bitmap.Height(); ++y) {
        // The passes of an interlaced picture meet in the bitmap's own rows; there is no second copy of the picture.
        const bool touched = passes == 1 || PNG_ROW_IN_INTERLACE_PASS(static_cast<uint32_t>(y), pass);
        if (touched && pass > 0) bitmap.GetRow(y, row.data());
        Try([&] { png_read_row(png_, row.data(), nullptr); });
        if (touched) bitmap.PutRow(y, row.data());
        progress.Step();
      }
    }
    Try([&] { png_read_end(png_, nullptr); });
  }

 private:
  // The depth in memory, and what the library has to do to the rows to get there.
  void ChooseDepth() {
    png_bytep alpha = nullptr;
    png_color_16p key = nullptr;
    int alphas = 0;
    const bool keyed = png_get_tRNS(png_, info_, &alpha, &alphas, &key) != 0;
    bool expand = false;
    if (colorType_ == PNG_COLOR_TYPE_PALETTE) {
      expand = keyed && !SingleTransparentEntry(alpha, alphas);
      bits_ = expand ? 32 : fileBits_;
    } else if (colorType_ == PNG_COLOR_TYPE_GRAY && (fileBits_ <= 8 || !keyed)) {
      bits_ = fileBits_;
      if (keyed) transparentIndex_ = key->gray;
    } else {
      expand = keyed;
      const bool hasAlpha = keyed || (colorType_ & PNG_COLOR_MASK_ALPHA);
      bits_ = fileBits_ * (hasAlpha ? 4 : 3);
    }
    Try([&] {
      if (expand && colorType_ == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png_);
      if (expand) png_set_tRNS_to_alpha(png_);
      if (bits_ > 16 && !(colorType_ & PNG_COLOR_MASK_COLOR)) png_set_gray_to_rgb(png_);
      if (bits_ > 16) png_set_bgr(png_);
      if (fileBits_ == 16) png_set_swap(png_);
    });
  }

  // True when the alpha table says no more than that one entry is transparent (or none).
  bool SingleTransparentEntry(const uint8_t* alpha, int count) {
    int found = -1;
    for (int i = 0; i < count; ++i) {
      if (alpha[i] == 255) continue;
      if (alpha[i] != 0 || found >= 0) return false;
      found = i;
    }
    transparentIndex_ = found;
    return true;
  }

  void DescribePalette(Bitmap& bitmap) {
    png_colorp colors = nullptr;
    int count = 0;
    png_get_PLTE(png_, info_, &colors, &count);
    std::vector<RGBQUAD> palette(static_cast<size_t>(count));
    std::transform(colors, colors + count, palette.begin(), [](const png_color& c) {
      return RGBQUAD{c.blue, c.green, c.red, 0};
    });
    bitmap.SetPalette(palette);
  }

  void DescribeBackground(Bitmap& bitmap) {
    png_color_16p color = nullptr;
    if (!png_get_bKGD(png_, info_, &color)) return;
    if (colorType_ == PNG_COLOR_TYPE_PALETTE) {
      png_colorp colors = nullptr;
      int count = 0;
      png_get_PLTE(png_, info_, &colors, &count);
      if (color->index >= count) return;
      const png_color& entry = colors[color->index];
      return bitmap.SetBackground({entry.blue, entry.green, entry.red, 0});
    }
    const uint32_t full = (1u << fileBits_) - 1;
    const auto byte = [full](uint32_t sample) {
      return static_cast<uint8_t>((std::min(sample, full) * 255 + full / 2) / full);
    };
    const bool gray = !(colorType_ & PNG_COLOR_MASK_COLOR);
    bitmap.SetBackground({byte(gray ? color->gray : color->blue), byte(gray ? color->gray : color->green),
                          byte(gray ? color->gray : color->red), 0});
  }

  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  png_uint_32 width_ = 0;
  png_uint_32 height_ = 0;
  int fileBits_ = 0;
  int colorType_ = 0;
  int interlace_ = 0;
  int bits_ = 0;
  int transparentIndex_ = -1;
};

// --- writing ----------------------------------------------------------------------------------------------------

bool CanHold(const Bitmap& bitmap) {
  return bitmap.Bits() != 12 && !(bitmap.Flags() & (V_FlagSigned | V_FlagPremultiplyAlpha)) &&
         !(bitmap.Bits() == 16 && bitmap.Order() != V_OrderGray);
}

class PngWriter : public Writer, private PngBase {
 public:
  explicit PngWriter(File& file) : PngBase(file) {
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, static_cast<PngBase*>(this), OnError, OnWarning);
    info_ = png_ ? png_create_info_struct(png_) : nullptr;
    if (!info_) {
      png_destroy_write_struct(&png_, nullptr);
      throw Error("not enough memory");
    }
  }
  ~PngWriter() override { png_destroy_write_struct(&png_, &info_); }

  void Write(Bitmap& bitmap, Progress& progress) override {
    UprightRows rows(bitmap);
    const int bits = bitmap.Bits();
    const bool gray = bitmap.IsGray() && (bits == 16 || bitmap.Palette().size() == size_t{1} << bits) &&
                      (bits == 16 || WidenedBits(bits) == bits);
    const int fileBits = bits <= 8 ? WidenedBits(bits) : bits == 24 || bits == 32 ? 8 : 16;
    const int colorType = gray        ? PNG_COLOR_TYPE_GRAY
                          : bits <= 8 ? PNG_COLOR_TYPE_PALETTE
                                      : (bitmap.HasAlpha() ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB);
    const std::vector<RGBQUAD> palette = bitmap.Palette();
    png_color colors[256];
    for (size_t i = 0; i < palette.size(); ++i)
      colors[i] = png_color{palette[i].rgbRed, palette[i].rgbGreen, palette[i].rgbBlue};
    Try([&] {
      png_set_user_limits(png_, 0x7FFFFFFF, 0x7FFFFFFF);
      png_set_check_for_invalid_index(png_, 0);
      png_set_write_fn(png_, static_cast<PngBase*>(this), OnWrite, OnFlush);
      png_set_IHDR(png_, info_, static_cast<png_uint_32>(rows.Width()), static_cast<png_uint_32>(rows.Height()),
                   fileBits, colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
      if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png_, info_, colors, static_cast<int>(palette.size()));
      SetTransparency(bitmap, colorType);
      if (bitmap.ResolutionStated())
        png_set_pHYs(png_, info_, static_cast<png_uint_32>(std::lround(rows.XResolution() * kInchesPerMeter)),
                     static_cast<png_uint_32>(std::lround(rows.YResolution() * kInchesPerMeter)), PNG_RESOLUTION_METER);
      png_write_info(png_, info_);
      if (bits > 16 && bitmap.Order() == V_OrderBgr) png_set_bgr(png_);
      if (fileBits == 16) png_set_swap(png_);
    });
    std::vector<uint8_t> widened(PackedBytes(rows.Width(), fileBits <= 8 && bits <= 8 ? fileBits : 0));
    progress.BeginPart(bitmap.Height(), rows.Height());
    for (int32_t y = 0; y < rows.Height(); ++y) {
      const uint8_t* row = rows.Row(y);
      if (bits < 8 && fileBits != bits) {
        WidenIndices(row, rows.Width(), bits, fileBits, widened.data());
        row = widened.data();
      }
      Try([&] { png_write_row(png_, row); });
      progress.Step();
    }
    Try([&] { png_write_end(png_, info_); });
  }

 private:
  // A palette image's transparent index becomes an alpha table, or the key of a gray image.
  void SetTransparency(const Bitmap& bitmap, int colorType) {
    const uint32_t color = static_cast<uint32_t>(bitmap.Record().Transparency);
    if (!(bitmap.Flags() & V_FlagTransparency) || color >> 24 != 1 || bitmap.Bits() > 8) return;
    const uint32_t index = color & 0xFFFF;
    if (index >= static_cast<uint32_t>(bitmap.Record().nColors)) return;
    png_byte alpha[256];
    std::memset(alpha, 255, sizeof alpha);
    alpha[index] = 0;
    png_color_16 key = {};
    key.gray = static_cast<png_uint_16>(index);
    if (colorType == PNG_COLOR_TYPE_PALETTE)
      png_set_tRNS(png_, info_, alpha, static_cast<int>(index) + 1, nullptr);
    else
      png_set_tRNS(png_, info_, nullptr, 0, &key);
  }

  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

}  // namespace

Format PngFormat() {
  return {.name = "PNG",
          .extensions = {"png"},
          .holds = "palettes and gray of 1 to 8 bits, 16-bit gray, and 24-, 32-, 48- and 64-bit colour",
          .canHold = CanHold,
          .open = [](File& file) -> std::unique_ptr<Reader> { return std::make_unique<PngReader>(file); },
          .create = [](File& file, const Document&) -> std::unique_ptr<Writer> {
            return std::make_unique<PngWriter>(file);
          }};
}

}  // namespace vexa
