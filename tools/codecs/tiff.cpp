// TIFF, pages in order. The orientation tag and the view perspective are the same numbers: rows stay as they are
// stored.
//
// Gray and palettes of 1 to 8 bits, gray of 12 and 16 bits, and colour of 8 and 16 bits a sample are read row by row,
// or a few tiles at a time. Other kinds (inks, luminance and chrominance, ...) go through the library's own conversion
// to 8-bit colour.
#include <tiffio.h>

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdio>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/tiff_rows.h"

namespace vexa {
namespace {

constexpr uint64_t kClassicLimit = 0xF0000000;  // beyond this a file needs 64-bit offsets
constexpr uint64_t kLargestBlock = uint64_t{1} << 28;
constexpr uint64_t kBandBytes = uint64_t{4} << 20;  // of tiles that are put into a bitmap together

// The library on a File. Callbacks never throw: they note the reason, which Fail throws.
class TiffLink {
 public:
  TiffLink(File& file, const char* mode) : file_(file), writes_(mode[0] == 'w') {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, OnError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options, OnWarning, this);
    tiff_ = TIFFClientOpenExt("image", mode, this, OnRead, OnWrite, OnSeek, OnClose, OnSize, OnMap, OnUnmap, options);
    TIFFOpenOptionsFree(options);
    if (!tiff_) Fail();
  }
  ~TiffLink() {
    if (tiff_) TIFFCleanup(tiff_);
  }
  TiffLink(const TiffLink&) = delete;
  TiffLink& operator=(const TiffLink&) = delete;

  TIFF* Get() const { return tiff_; }
  [[noreturn]] void Fail() const {
    if (!fileReason_.empty()) throw Error(fileReason_);
    const std::string reason = reason_.empty() ? "" : ": " + reason_;
    throw Error((writes_ ? "the TIFF file could not be written" : "the TIFF data is damaged or cut short") + reason);
  }
  void Require(bool success) const {
    if (!success || !reason_.empty() || !fileReason_.empty()) Fail();
  }
  void Forget() {
    reason_.clear();
    fileReason_.clear();
  }

 private:
  static TiffLink& Of(thandle_t handle) { return *static_cast<TiffLink*>(handle); }

  template <typename Call>
  auto Guard(Call&& call) -> decltype(call()) {
    try {
      return call();
    } catch (const std::exception& error) {
      if (fileReason_.empty()) fileReason_ = error.what();
      return {};
    }
  }

  // The first reason counts: what follows it are consequences.
  static int OnError(TIFF*, void* self, const char*, const char* format, va_list arguments) {
    char text[200];
    std::vsnprintf(text, sizeof text, format, arguments);
    std::string& reason = static_cast<TiffLink*>(self)->reason_;
    if (reason.empty()) reason = std::string_view(text).starts_with("image: ") ? text + 7 : text;
    return 1;
  }
  static int OnWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

  static tmsize_t OnRead(thandle_t handle, void* buffer, tmsize_t bytes) {
    TiffLink& self = Of(handle);
    return static_cast<tmsize_t>(self.Guard([&] { return self.file_.Read(buffer, static_cast<uint64_t>(bytes)); }));
  }
  static tmsize_t OnWrite(thandle_t handle, void* data, tmsize_t bytes) {
    TiffLink& self = Of(handle);
    return self.Guard([&] {
      self.file_.Write(data, static_cast<uint64_t>(bytes));
      return bytes;
    });
  }
  static toff_t OnSeek(thandle_t handle, toff_t offset, int origin) {
    TiffLink& self = Of(handle);
    return self.Guard([&] { return toff_t{self.file_.Seek(static_cast<int64_t>(offset), origin)}; });
  }
  static int OnClose(thandle_t) { return 0; }
  static toff_t OnSize(thandle_t handle) {
    TiffLink& self = Of(handle);
    return self.Guard([&] { return toff_t{self.file_.Size()}; });
  }
  static int OnMap(thandle_t, void**, toff_t*) { return 0; }
  static void OnUnmap(thandle_t, void*, toff_t) {}

  File& file_;
  bool writes_;
  std::string reason_;      // the library's own
  std::string fileReason_;  // of a file function, which comes first
  TIFF* tiff_ = nullptr;
};

// --- reading ----------------------------------------------------------------------------------------------------

class TiffReader : public Reader {
 public:
  explicit TiffReader(File& file) : fileBytes_(file.Size()), link_(file, "rm") {
    pages_ = static_cast<int32_t>(std::min<uint32_t>(TIFFNumberOfDirectories(link_.Get()), 0x7FFFFFFF));
    link_.Require(pages_ > 0);
  }

  int32_t Pages() override { return pages_; }

  void Describe(int32_t page, Bitmap& bitmap) override {
    Select(page);
    bitmap.Describe(layout_.width, layout_.height, layout_.bits);
    BITMAPHANDLE& record = bitmap.Record();
    if (layout_.kind == TiffLayout::kPalette)
      bitmap.SetPalette(Palette());
    else if (layout_.kind == TiffLayout::kGray && layout_.bits <= 8)
      DescribeGray(bitmap);
    else
      record.Order = layout_.kind == TiffLayout::kGray ? V_OrderGray : V_OrderBgr;
    DescribeSamples(record);
    record.ViewPerspective = static_cast<int32_t>(Tag(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT));
    if (record.ViewPerspective < 1 || record.ViewPerspective > 8) record.ViewPerspective = V_ViewTopLeft;
    float x = 0, y = 0;
    if (TIFFGetField(tiff(), TIFFTAG_XRESOLUTION, &x) && TIFFGetField(tiff(), TIFFTAG_YRESOLUTION, &y)) {
      const double perInch = Tag(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) == RESUNIT_CENTIMETER ? 2.54 : 1;
      if (Tag(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) != RESUNIT_NONE) bitmap.SetResolution(x * perInch, y * perInch);
    }
  }

  void Read(int32_t page, Bitmap& bitmap, Progress& progress) override {
    Select(page);
    if (layout_.kind == TiffLayout::kConverted)
      ReadConverted(bitmap, progress);
    else if (TIFFIsTiled(tiff()))
      ReadTiles(bitmap, progress);
    else
      ReadRows(bitmap, progress);
  }

 private:
  TIFF* tiff() const { return link_.Get(); }

  uint32_t Tag(uint32_t tag, uint32_t absent) const {
    uint16_t value = 0;
    return TIFFGetFieldDefaulted(tiff(), tag, &value) ? value : absent;
  }

  void Select(int32_t page) {
    if (selected_ == page) return;
    link_.Forget();
    link_.Require(TIFFSetDirectory(tiff(), static_cast<tdir_t>(page)) != 0);
    selected_ = page;
    layout_ = {};
    TIFFGetField(tiff(), TIFFTAG_IMAGEWIDTH, &layout_.width);
    TIFFGetField(tiff(), TIFFTAG_IMAGELENGTH, &layout_.height);
    const uint32_t compression = Tag(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    uint32_t photometric = Tag(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    if (compression == COMPRESSION_JPEG && photometric == PHOTOMETRIC_YCBCR) {
      TIFFSetField(tiff(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
      photometric = PHOTOMETRIC_RGB;
    }
    layout_.sampleBits = static_cast<int>(Tag(TIFFTAG_BITSPERSAMPLE, 1));
    layout_.samples = static_cast<int>(Tag(TIFFTAG_SAMPLESPERPIXEL, 1));
    layout_.separate = layout_.samples > 1 && Tag(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    sampleFormat_ = Tag(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    if (sampleFormat_ != SAMPLEFORMAT_UINT && sampleFormat_ != SAMPLEFORMAT_INT && sampleFormat_ != SAMPLEFORMAT_VOID)
      throw Error("TIFF images of floating-point or complex samples are not supported");
    layout_.Choose(photometric);
    if (layout_.kind == TiffLayout::kUnsupported)
      throw Error("TIFF images of " + std::to_string(layout_.samples) + " samples of " +
                  std::to_string(layout_.sampleBits) + " bits are not supported");
    RequirePlausible(layout_.width, layout_.height, layout_.sampleBits * layout_.samples, fileBytes_,
                     LargestRatio(compression));
  }

  // Most bytes of pixels that one stored byte can stand for.
  static uint64_t LargestRatio(uint32_t compression) {
    switch (compression) {
      case COMPRESSION_NONE:
        return 1;
      case COMPRESSION_PACKBITS:
        return 128;
      case COMPRESSION_LZW:
        return 4096;
      case COMPRESSION_DEFLATE:
      case COMPRESSION_ADOBE_DEFLATE:
        return 1100;
      case COMPRESSION_JPEG:
        return 2048;
      default:
        return uint64_t{1} << 40;
    }
  }

  std::vector<RGBQUAD> Palette() const {
    uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (!TIFFGetField(tiff(), TIFFTAG_COLORMAP, &red, &green, &blue)) throw Error("the colour map is missing");
    const size_t count = size_t{1} << layout_.bits;
    const auto wide = [count](const uint16_t* map) {
      return std::any_of(map, map + count, [](uint16_t v) { return v > 255; });
    };
    const int shift = wide(red) || wide(green) || wide(blue) ? 8 : 0;  // some writers stop at 255
    std::vector<RGBQUAD> palette(count);
    for (size_t i = 0; i < count; ++i)
      palette[i] = RGBQUAD{static_cast<uint8_t>(blue[i] >> shift), static_cast<uint8_t>(green[i] >> shift),
                           static_cast<uint8_t>(red[i] >> shift), 0};
    return palette;
  }

  void DescribeGray(Bitmap& bitmap) const {
    bitmap.SetGrayRamp(1u << layout_.bits);
    if (!layout_.inverted) return;
    std::vector<RGBQUAD> palette = bitmap.Palette();
    std::reverse(palette.begin(), palette.end());
    bitmap.SetPalette(palette);
  }

  void DescribeSamples(BITMAPHANDLE& record) const {
    if (sampleFormat_ == SAMPLEFORMAT_INT) record.Flags |= V_FlagSigned;
    uint16_t greatest = 0;
    const bool wide = layout_.bits == 16 || layout_.bits == 48;
    if (wide && TIFFGetField(tiff(), TIFFTAG_MAXSAMPLEVALUE, &greatest) && greatest > 255)
      record.HighBit = record.PaintHighBit = static_cast<int32_t>(std::bit_width(greatest)) - 1;
    uint16_t extras = 0;
    uint16_t* kinds = nullptr;
    if (layout_.alpha && TIFFGetField(tiff(), TIFFTAG_EXTRASAMPLES, &extras, &kinds) && extras > 0 &&
        kinds[0] == EXTRASAMPLE_ASSOCALPHA)
      record.Flags |= V_FlagPremultiplyAlpha;
  }

  void ReadRows(Bitmap& bitmap, Progress& progress) {
    const int planes = layout_.separate ? layout_.samples : 1;
    std::vector<uint8_t> scan(static_cast<size_t>(TIFFScanlineSize64(tiff())) + 8);
    if (scan.size() < layout_.ScanBytes(layout_.width)) link_.Fail();
    std::vector<uint8_t> row(bitmap.RowBytes());
    progress.BeginPart(bitmap.Height(), int64_t{bitmap.Height()} * planes);
    // Planes lie one after the other in the file: each is put into the rows that the earlier ones began.
    for (int plane = 0; plane < planes; ++plane) {
      for (int32_t y = 0; y < bitmap.Height(); ++y) {
        link_.Require(TIFFReadScanline(tiff(), scan.data(), static_cast<uint32_t>(y), static_cast<uint16_t>(plane)) ==
                      1);
        if (plane > 0) bitmap.GetRow(y, row.data());
        layout_.Unpack(scan.data(), row.data(), bitmap.Width(), plane);
        bitmap.PutRow(y, row.data());
        progress.Step();
      }
    }
  }

  // Tiles side by side are put together before they go into the bitmap: storage that is compressed or on disk wants
  // whole rows, or long stretches of them.
  struct Tiles {
    uint32_t width = 0;
    uint32_t height = 0;
    uint64_t rowBytes = 0;
    std::vector<uint8_t> one;
    std::vector<uint8_t> band;
  };

  Tiles TilesOfPage() const {
    Tiles tiles;
    TIFFGetField(tiff(), TIFFTAG_TILEWIDTH, &tiles.width);
    TIFFGetField(tiff(), TIFFTAG_TILELENGTH, &tiles.height);
    if (tiles.width == 0 || tiles.height == 0 || tiles.width % 8 != 0) throw Error("the size of the tiles is damaged");
    const uint64_t bytes = TIFFTileSize64(tiff());
    tiles.rowBytes = TIFFTileRowSize64(tiff());
    if (bytes == 0 || bytes > kLargestBlock || tiles.rowBytes < layout_.ScanBytes(tiles.width) ||
        bytes < tiles.rowBytes * tiles.height)
      throw Error("the size of the tiles is damaged or too large");
    tiles.one.resize(bytes + 8);
    return tiles;
  }

  void ReadTiles(Bitmap& bitmap, Progress& progress) {
    Tiles tiles = TilesOfPage();
    const int planes = layout_.separate ? layout_.samples : 1;
    const uint32_t down = (layout_.height - 1) / tiles.height + 1, across = (layout_.width - 1) / tiles.width + 1;
    const uint64_t tileBytes = uint64_t{PackedBytes(tiles.width, layout_.bits)} * tiles.height;
    const uint64_t bandWidth = std::clamp<uint64_t>(kBandBytes / tileBytes, 1, across) * tiles.width;
    progress.BeginPart(bitmap.Height(), int64_t{down} * across * planes);
    for (int plane = 0; plane < planes; ++plane)
      for (uint64_t top = 0; top < layout_.height; top += tiles.height)
        for (uint64_t left = 0; left < layout_.width; left += bandWidth)
          ReadBand(tiles, plane, static_cast<int32_t>(top), static_cast<int32_t>(left),
                   static_cast<int32_t>(std::min(bandWidth, layout_.width - left)), bitmap, progress);
  }

  void ReadBand(Tiles& tiles, int plane, int32_t top, int32_t left, int32_t width, Bitmap& bitmap, Progress& progress) {
    const int32_t rows = static_cast<int32_t>(std::min(tiles.height, layout_.height - static_cast<uint32_t>(top)));
    const size_t bytes = PackedBytes(width, layout_.bits);
    tiles.band.resize(bytes * static_cast<size_t>(rows));
    uint8_t* const band = tiles.band.data();
    if (plane > 0)  // it goes into the rows that the earlier ones began
      for (int32_t y = 0; y < rows; ++y) bitmap.GetPart(top + y, left, band + bytes * static_cast<size_t>(y), bytes);
    for (int64_t x = 0; x < width; x += tiles.width) {
      link_.Require(TIFFReadTile(tiff(), tiles.one.data(), static_cast<uint32_t>(left + x), static_cast<uint32_t>(top),
                                 0, static_cast<uint16_t>(plane)) != -1);
      const int32_t columns = static_cast<int32_t>(std::min<int64_t>(tiles.width, width - x));
      for (size_t y = 0; y < static_cast<size_t>(rows); ++y)
        layout_.Unpack(tiles.one.data() + tiles.rowBytes * y, band + bytes * y + PackedBytes(x, layout_.bits), columns,
                       plane);
      progress.Step();
    }
    for (int32_t y = 0; y < rows; ++y) bitmap.PutPart(top + y, left, band + bytes * static_cast<size_t>(y), bytes);
  }

  // The library's conversion gives blocks of red, green, blue, alpha words whose first row is the lowest.
  void ReadConverted(Bitmap& bitmap, Progress& progress) {
    char reason[1024] = "";
    if (!TIFFRGBAImageOK(tiff(), reason)) throw Error(reason);
    TIFFSetField(tiff(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);  // rows are wanted as they are stored
    uint32_t blockWidth = layout_.width, blockHeight = layout_.height;
    const bool tiled = TIFFIsTiled(tiff());
    if (tiled) {
      TIFFGetField(tiff(), TIFFTAG_TILEWIDTH, &blockWidth);
      TIFFGetField(tiff(), TIFFTAG_TILELENGTH, &blockHeight);
    } else {
      TIFFGetFieldDefaulted(tiff(), TIFFTAG_ROWSPERSTRIP, &blockHeight);
      blockHeight = std::min(blockHeight, layout_.height);
    }
    const uint64_t pixels = uint64_t{blockWidth} * blockHeight;
    if (pixels == 0 || pixels > kLargestBlock / 4)
      throw Error("the size of the tiles or strips is damaged or too large");
    std::vector<uint32_t> block(pixels);
    std::vector<uint8_t> part(PackedBytes(std::min(blockWidth, layout_.width), 24));
    const uint32_t down = (layout_.height - 1) / blockHeight + 1, across = (layout_.width - 1) / blockWidth + 1;
    progress.BeginPart(bitmap.Height(), int64_t{down} * across);
    for (uint64_t top = 0; top < layout_.height; top += blockHeight) {
      const uint32_t rows = static_cast<uint32_t>(std::min<uint64_t>(blockHeight, layout_.height - top));
      for (uint64_t left = 0; left < layout_.width; left += blockWidth) {
        const uint32_t columns = static_cast<uint32_t>(std::min<uint64_t>(blockWidth, layout_.width - left));
        const uint32_t x = static_cast<uint32_t>(left), y = static_cast<uint32_t>(top);
        link_.Require((tiled ? TIFFReadRGBATileExt(tiff(), x, y, block.data(), 1)
                             : TIFFReadRGBAStripExt(tiff(), y, block.data(), 1)) != 0);
        const uint32_t lowest = tiled ? blockHeight : rows;
        for (uint32_t row = 0; row < rows; ++row) {
          const uint32_t* pixel = block.data() + uint64_t{lowest - 1 - row} * blockWidth;
          for (uint32_t i = 0; i < columns; ++i, ++pixel)
            PutPixel<24>(part.data(), i, TIFFGetB(*pixel) | TIFFGetG(*pixel) << 8 | TIFFGetR(*pixel) << 16);
          bitmap.PutPart(static_cast<int32_t>(y + row), static_cast<int32_t>(x), part.data(), PackedBytes(columns, 24));
        }
        progress.Step();
      }
    }
  }

  uint64_t fileBytes_;
  TiffLink link_;
  int32_t pages_ = 0;
  int32_t selected_ = -1;
  TiffLayout layout_;
  uint32_t sampleFormat_ = SAMPLEFORMAT_UINT;
};

// --- writing ----------------------------------------------------------------------------------------------------

bool CanHold(const Bitmap& bitmap) { return bitmap.Bits() != 16 || bitmap.Order() == V_OrderGray; }

class TiffWriter : public Writer {
 public:
  TiffWriter(File& file, const Document& document)
      : pages_(document.pages), link_(file, document.pixelBytes > kClassicLimit ? "w8" : "w") {}

  void Write(Bitmap& bitmap, Progress& progress) override {
    TIFF* const tiff = link_.Get();
    const TiffLayout layout = SetTags(bitmap);
    std::vector<uint8_t> row(bitmap.RowBytes());
    std::vector<uint8_t> scan(layout.ScanBytes(static_cast<uint32_t>(bitmap.Width())) + 8);
    progress.BeginPart(bitmap.Height(), bitmap.Height());
    for (int32_t y = 0; y < bitmap.Height(); ++y) {
      bitmap.GetRow(y, row.data());
      layout.Pack(row.data(), scan.data(), bitmap.Width());
      link_.Require(TIFFWriteScanline(tiff, scan.data(), static_cast<uint32_t>(y), 0) == 1);
      progress.Step();
    }
    link_.Require(TIFFWriteDirectory(tiff) != 0);
    ++page_;
  }

  void Finish() override { link_.Require(TIFFFlush(link_.Get()) != 0); }

 private:
  template <typename... Values>
  void Set(uint32_t tag, Values... values) {
    link_.Require(TIFFSetField(link_.Get(), tag, values...) != 0);
  }

  TiffLayout SetTags(const Bitmap& bitmap) {
    const BITMAPHANDLE& record = bitmap.Record();
    TiffLayout layout;
    layout.ForBitmap(bitmap);
    Set(TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(bitmap.Width()));
    Set(TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(bitmap.Height()));
    Set(TIFFTAG_BITSPERSAMPLE, layout.sampleBits);
    Set(TIFFTAG_SAMPLESPERPIXEL, layout.samples);
    Set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    Set(TIFFTAG_COMPRESSION, bitmap.Bits() == 1 ? COMPRESSION_CCITTFAX4 : COMPRESSION_LZW);
    Set(TIFFTAG_ORIENTATION, bitmap.Perspective());
    if (bitmap.Flags() & V_FlagSigned) Set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT);
    SetColors(bitmap, layout);
    if (bitmap.ResolutionStated()) {
      Set(TIFFTAG_XRESOLUTION, static_cast<double>(record.XResolution));
      Set(TIFFTAG_YRESOLUTION, static_cast<double>(record.YResolution));
      Set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    }
    if (layout.sampleBits == 16 && bitmap.SampleMaximum() < 0xFFFF)
      Set(TIFFTAG_MAXSAMPLEVALUE, static_cast<int>(bitmap.SampleMaximum()));
    if (pages_ > 1) {
      Set(TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
      if (pages_ <= 0xFFFF) Set(TIFFTAG_PAGENUMBER, page_, pages_);
    }
    Set(TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(link_.Get(), bitmap.Bits() == 1 ? 0xFFFFFFFF : 0));
    return layout;
  }

  void SetColors(const Bitmap& bitmap, const TiffLayout& layout) {
    if (layout.kind == TiffLayout::kColor) {
      Set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
      const uint16_t alpha = bitmap.Flags() & V_FlagPremultiplyAlpha ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
      if (layout.alpha) Set(TIFFTAG_EXTRASAMPLES, 1, &alpha);
      if (layout.sampleBits == 8) Set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    } else if (layout.kind == TiffLayout::kGray) {
      Set(TIFFTAG_PHOTOMETRIC, layout.inverted ? PHOTOMETRIC_MINISWHITE : PHOTOMETRIC_MINISBLACK);
    } else {
      Set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
      std::vector<uint16_t> red(size_t{1} << layout.sampleBits), green(red.size()), blue(red.size());
      const std::vector<RGBQUAD> palette = bitmap.Palette();
      for (size_t i = 0; i < std::min(palette.size(), red.size()); ++i) {
        red[i] = static_cast<uint16_t>(palette[i].rgbRed * 257);
        green[i] = static_cast<uint16_t>(palette[i].rgbGreen * 257);
        blue[i] = static_cast<uint16_t>(palette[i].rgbBlue * 257);
      }
      Set(TIFFTAG_COLORMAP, red.data(), green.data(), blue.data());
    }
  }

  int32_t pages_;
  int32_t page_ = 0;
  TiffLink link_;
};

}  // namespace

Format TiffFormat() {
  return {.name = "TIFF",
          .extensions = {"tif", "tiff"},
          .manyPages = true,
          .seeksToWrite = true,
          .holds = "gray and palettes of 1 to 8 bits, gray of 12 and 16 bits, and 24-, 32-, 48- and 64-bit colour",
          .canHold = CanHold,
          .open = [](File& file) -> std::unique_ptr<Reader> { return std::make_unique<TiffReader>(file); },
          .create = [](File& file, const Document& document) -> std::unique_ptr<Writer> {
            return std::make_unique<TiffWriter>(file, document);
          }};
}

}  // namespace vexa
