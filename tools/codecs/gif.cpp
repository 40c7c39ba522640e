// GIF: a page is a frame, with its own rectangle, delay, disposal, transparent index and palette in the record. Frames
// are read one after the other; rows of an interlaced frame go to their place in the bitmap as they come.
//
// A frame has the depth of its palette, 1 to 8 bits, as the file counts it.
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/pixels.h"
#include "codecs/upright.h"

namespace vexa {
namespace {

constexpr int32_t kLargestSide = 65535;
constexpr int32_t kMillisecondsPerTick = 10;

// What the extensions before a frame say.
struct FrameControl {
  int disposal = 0;
  int32_t delay = 0;  // milliseconds
  int transparent = -1;
  bool waits = false;
};

// --- reading ----------------------------------------------------------------------------------------------------

// One pass over the file, frame by frame.
class GifPass {
 public:
  explicit GifPass(File& file) : file_(file) {
    file_.Seek(0);
    int error = 0;
    gif_ = DGifOpen(this, OnRead, &error);
    if (!gif_) Fail(error);
  }
  ~GifPass() { DGifCloseFile(gif_, nullptr); }
  GifPass(const GifPass&) = delete;
  GifPass& operator=(const GifPass&) = delete;

  // Goes to the next frame's rows; false at the end of the file.
  bool Next() {
    control = {};
    for (;;) {
      GifRecordType type = UNDEFINED_RECORD_TYPE;
      if (DGifGetRecordType(gif_, &type) == GIF_ERROR) Fail(gif_->Error);
      if (type == TERMINATE_RECORD_TYPE) return false;
      if (type == IMAGE_DESC_RECORD_TYPE) {
        if (DGifGetImageDesc(gif_) == GIF_ERROR) Fail(gif_->Error);
        return true;
      }
      if (type == EXTENSION_RECORD_TYPE) TakeExtension();
    }
  }

  // Passes over the rows of the frame.
  void SkipRows() {
    int codeSize = 0;
    GifByteType* block = nullptr;
    if (DGifGetCode(gif_, &codeSize, &block) == GIF_ERROR) Fail(gif_->Error);
    while (block)
      if (DGifGetCodeNext(gif_, &block) == GIF_ERROR) Fail(gif_->Error);
    DropSaved();
  }

  void ReadRow(std::vector<uint8_t>& indices) {
    if (DGifGetLine(gif_, indices.data(), static_cast<int>(indices.size())) == GIF_ERROR) Fail(gif_->Error);
  }

  // The library keeps a description of every frame it passes; nobody asks for it again.
  void DropSaved() {
    if (gif_->ImageCount == 0) return;
    for (int i = 0; i < gif_->ImageCount; ++i) GifFreeMapObject(gif_->SavedImages[i].ImageDesc.ColorMap);
    free(gif_->SavedImages);
    gif_->SavedImages = nullptr;
    gif_->ImageCount = 0;
  }

  const GifFileType& Gif() const { return *gif_; }
  FrameControl control;

 private:
  static int OnRead(GifFileType* gif, GifByteType* data, int bytes) {
    GifPass& self = *static_cast<GifPass*>(gif->UserData);
    try {
      return static_cast<int>(self.file_.Read(data, static_cast<uint64_t>(bytes)));
    } catch (const std::exception& error) {
      self.reason_ = error.what();
      return 0;
    }
  }

  [[noreturn]] void Fail(int error) const {
    if (!reason_.empty()) throw Error(reason_);
    if (error == D_GIF_ERR_READ_FAILED || error == D_GIF_ERR_EOF_TOO_SOON || error == D_GIF_ERR_NO_SCRN_DSCR)
      throw Error("the file is cut short");
    const char* text = GifErrorString(error);
    throw Error(std::string("the GIF data is damaged") + (text ? std::string(": ") + text : ""));
  }

  void TakeExtension() {
    int code = 0;
    GifByteType* block = nullptr;
    if (DGifGetExtension(gif_, &code, &block) == GIF_ERROR) Fail(gif_->Error);
    if (code == GRAPHICS_EXT_FUNC_CODE && block && block[0] >= 4) {
      GraphicsControlBlock graphics = {};
      DGifExtensionToGCB(block[0], block + 1, &graphics);
      control.disposal = graphics.DisposalMode <= 3 ? graphics.DisposalMode : 0;
      control.delay = graphics.DelayTime * kMillisecondsPerTick;
      control.transparent = graphics.TransparentColor;
      control.waits = graphics.UserInputFlag;
    }
    while (block)
      if (DGifGetExtensionNext(gif_, &block) == GIF_ERROR) Fail(gif_->Error);
  }

  File& file_;
  std::string reason_;
  GifFileType* gif_ = nullptr;
};

int BitsFor(size_t colors) {
  int bits = 1;
  while (size_t{1} << bits < colors) ++bits;
  return bits;
}

class GifReader : public Reader {
 public:
  explicit GifReader(File& file) : file_(file) {
    const uint64_t fileBytes = file.Size();
    GifPass counting(file);
    for (; counting.Next(); ++pages_) {
      const GifImageDesc& image = counting.Gif().Image;
      RequirePlausible(static_cast<uint64_t>(image.Width), static_cast<uint64_t>(image.Height), 8, fileBytes, 4096);
      counting.SkipRows();
    }
    if (pages_ == 0) throw Error("the file has no frame");
    canvasWidth_ = counting.Gif().SWidth;
    canvasHeight_ = counting.Gif().SHeight;
  }

  int32_t Pages() override { return pages_; }
  void Canvas(int32_t* width, int32_t* height) override {
    *width = canvasWidth_;
    *height = canvasHeight_;
  }

  void Describe(int32_t page, Bitmap& bitmap) override {
    GoTo(page);
    const GifFileType& gif = pass_->Gif();
    const ColorMapObject* colors = gif.Image.ColorMap ? gif.Image.ColorMap : gif.SColorMap;
    if (!colors) throw Error("a frame has no palette");
    std::vector<RGBQUAD> palette(static_cast<size_t>(colors->ColorCount));
    std::transform(colors->Colors, colors->Colors + colors->ColorCount, palette.begin(), Quad);
    bitmap.Describe(static_cast<uint64_t>(gif.Image.Width), static_cast<uint64_t>(gif.Image.Height),
                    BitsFor(palette.size()));
    bitmap.SetPalette(palette);
    BITMAPHANDLE& record = bitmap.Record();
    record.Left = gif.Image.Left;
    record.Top = gif.Image.Top;
    record.Delay = pass_->control.delay;
    record.DisposalMethod = pass_->control.disposal;
    if (pass_->control.transparent >= 0) {
      record.Transparency = IndexColor(static_cast<uint32_t>(pass_->control.transparent));
      record.Flags |= V_FlagTransparency;
    }
    if (pass_->control.waits) record.Flags |= V_FlagWaitUserInput;
    if (gif.Image.Interlace) record.Flags |= V_FlagInterlaced;
    if (gif.SColorMap && gif.SBackGroundColor < gif.SColorMap->ColorCount) {
      const GifColorType& color = gif.SColorMap->Colors[gif.SBackGroundColor];
      record.Background = color.Red | color.Green << 8 | color.Blue << 16;
    }
  }

  void Read(int32_t page, Bitmap& bitmap, Progress& progress) override {
    GoTo(page);
    std::vector<uint8_t> indices(static_cast<size_t>(bitmap.Width()));
    std::vector<uint8_t> row(bitmap.RowBytes());
    const bool interlaced = pass_->Gif().Image.Interlace;
    progress.BeginPart(bitmap.Height(), bitmap.Height());
    static constexpr struct { int32_t first, step; } kPasses[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
    for (const auto& part : kPasses) {
      for (int32_t y = interlaced ? part.first : 0; y < bitmap.Height(); y += interlaced ? part.step : 1) {
        pass_->ReadRow(indices);
        PackIndices(indices, row, bitmap.Bits());
        bitmap.PutRow(y, row.data());
        progress.Step();
      }
      if (!interlaced) break;
    }
    pass_->DropSaved();
    atRows_ = false;
  }

 private:
  static RGBQUAD Quad(const GifColorType& color) { return {color.Blue, color.Green, color.Red, 0}; }

  static void PackIndices(const std::vector<uint8_t>& indices, std::vector<uint8_t>& row, int bits) {
    WithDepth(bits, [&](auto depth) {
      for (size_t x = 0; x < indices.size(); ++x) {
        if constexpr (depth < 8) {
          if (indices[x] >> depth != 0) throw Error("the GIF data is damaged: a pixel is beyond the palette");
        }
        PutPixel<depth>(row.data(), static_cast<int64_t>(x), indices[x]);
      }
    });
  }

  // Stands at the rows of a frame afterwards; going back means starting again.
  void GoTo(int32_t page) {
    if (pass_ && atRows_ && current_ == page) return;
    if (!pass_ || page <= current_) {
      pass_.emplace(file_);
      current_ = -1;
      atRows_ = false;
    }
    while (current_ < page) {
      if (atRows_) pass_->SkipRows();
      if (!pass_->Next()) throw Error("the file has no frame " + std::to_string(page + 1));
      ++current_;
      atRows_ = true;
    }
  }

  File& file_;
  int32_t pages_ = 0;
  int32_t canvasWidth_ = 0;
  int32_t canvasHeight_ = 0;
  std::optional<GifPass> pass_;
  int32_t current_ = -1;
  bool atRows_ = false;
};

// --- writing ----------------------------------------------------------------------------------------------------

bool CanHold(const Bitmap& bitmap) { return bitmap.Bits() <= 8 && !(bitmap.Flags() & V_FlagSigned); }

class GifWriter : public Writer {
 public:
  GifWriter(File& file, const Document& document) : file_(file), document_(document) {
    int error = 0;
    gif_ = EGifOpen(this, OnWrite, &error);
    if (!gif_) throw Error("not enough memory");
  }
  ~GifWriter() override {
    finished_ = true;  // whatever the library still has to say is not for the file
    if (gif_) EGifCloseFile(gif_, nullptr);
  }

  void Write(Bitmap& bitmap, Progress& progress) override {
    UprightRows rows(bitmap);
    const BITMAPHANDLE& record = bitmap.Record();
    const std::vector<RGBQUAD> palette = bitmap.Palette();
    const int colorBits = BitsFor(palette.size());
    RequireRoom(int64_t{record.Left} + rows.Width(), int64_t{record.Top} + rows.Height(), record);
    const std::unique_ptr<ColorMapObject, void (*)(ColorMapObject*)> map(MakeMap(palette, colorBits), GifFreeMapObject);
    if (!started_) Start(rows, record, *map);
    const bool ownPalette = !SamePalette(*map, *gif_->SColorMap);
    PutControl(record);
    GifFreeMapObject(gif_->Image.ColorMap);  // the library forgets the last frame's when this one has none
    gif_->Image.ColorMap = nullptr;
    Require(EGifPutImageDesc(gif_, record.Left, record.Top, rows.Width(), rows.Height(), false,
                             ownPalette ? map.get() : nullptr));
    std::vector<GifByteType> indices(static_cast<size_t>(rows.Width()));
    const int limit = 1 << (ownPalette ? map->BitsPerPixel : gif_->SColorMap->BitsPerPixel);
    progress.BeginPart(bitmap.Height(), rows.Height());
    for (int32_t y = 0; y < rows.Height(); ++y) {
      const uint8_t* row = rows.Row(y);
      WithDepth(bitmap.Bits(), [&](auto depth) {
        for (int32_t x = 0; x < rows.Width(); ++x)
          indices[static_cast<size_t>(x)] = static_cast<GifByteType>(depth <= 8 ? GetPixel<depth>(row, x) : 0);
      });
      if (std::any_of(indices.begin(), indices.end(), [limit](int index) { return index >= limit; }))
        throw Error("a pixel is beyond the image's palette, which GIF cannot hold");
      Require(EGifPutLine(gif_, indices.data(), static_cast<int>(indices.size())));
      progress.Step();
    }
  }

  void Finish() override {
    GifFileType* const gif = gif_;
    gif_ = nullptr;
    int error = 0;
    if (EGifCloseFile(gif, &error) == GIF_ERROR) Fail(error);
    finished_ = true;
  }

 private:
  static int OnWrite(GifFileType* gif, const GifByteType* data, int bytes) {
    GifWriter& self = *static_cast<GifWriter*>(gif->UserData);
    if (self.finished_) return bytes;
    try {
      self.file_.Write(data, static_cast<uint64_t>(bytes));
      return bytes;
    } catch (const std::exception& error) {
      self.reason_ = error.what();
      return 0;
    }
  }

  [[noreturn]] void Fail(int error) const {
    if (!reason_.empty()) throw Error(reason_);
    const char* text = GifErrorString(error);
    throw Error(text ? text : "the GIF data could not be written");
  }
  void Require(int result) const {
    if (result == GIF_ERROR) Fail(gif_->Error);
  }

  static void RequireRoom(int64_t right, int64_t bottom, const BITMAPHANDLE& record) {
    if (record.Left < 0 || record.Top < 0 || right > kLargestSide || bottom > kLargestSide)
      throw Error("GIF holds images of at most 65535 pixels a side");
  }

  static ColorMapObject* MakeMap(const std::vector<RGBQUAD>& palette, int bits) {
    ColorMapObject* map = GifMakeMapObject(1 << bits, nullptr);
    if (!map) throw Error("not enough memory");
    for (int i = 0; i < map->ColorCount; ++i) {
      const RGBQUAD color = static_cast<size_t>(i) < palette.size() ? palette[static_cast<size_t>(i)] : RGBQUAD{};
      map->Colors[i] = GifColorType{color.rgbRed, color.rgbGreen, color.rgbBlue};
    }
    return map;
  }

  static bool SamePalette(const ColorMapObject& a, const ColorMapObject& b) {
    return a.ColorCount == b.ColorCount &&
           std::memcmp(a.Colors, b.Colors, sizeof(GifColorType) * static_cast<size_t>(a.ColorCount)) == 0;
  }

  // The first frame's palette is the file's own; the background is looked up in it.
  void Start(const UprightRows& rows, const BITMAPHANDLE& record, const ColorMapObject& map) {
    started_ = true;
    int background = 0;
    for (int i = map.ColorCount - 1; i >= 0; --i) {
      const GifColorType& color = map.Colors[i];
      if ((color.Red | color.Green << 8 | color.Blue << 16) == record.Background) background = i;
    }
    const int32_t width = std::max(document_.canvasWidth, record.Left + rows.Width());
    const int32_t height = std::max(document_.canvasHeight, record.Top + rows.Height());
    if (width > kLargestSide || height > kLargestSide) throw Error("GIF holds images of at most 65535 pixels a side");
    EGifSetGifVersion(gif_, true);
    Require(EGifPutScreenDesc(gif_, width, height, 8, background, &map));
    if (document_.pages < 2) return;
    static constexpr GifByteType kForEver[] = {1, 0, 0};
    Require(EGifPutExtensionLeader(gif_, APPLICATION_EXT_FUNC_CODE));
    Require(EGifPutExtensionBlock(gif_, 11, "NETSCAPE2.0"));
    Require(EGifPutExtensionBlock(gif_, sizeof kForEver, kForEver));
    Require(EGifPutExtensionTrailer(gif_));
  }

  void PutControl(const BITMAPHANDLE& record) {
    const uint32_t transparent = static_cast<uint32_t>(record.Transparency);
    const bool keyed = (record.Flags & V_FlagTransparency) && transparent >> 24 == 1 && (transparent & 0xFFFF) < 256;
    if (document_.pages < 2 && !keyed && record.Delay == 0 && record.DisposalMethod == 0) return;
    GraphicsControlBlock control = {};
    control.DisposalMode = record.DisposalMethod & 7;
    control.UserInputFlag = (record.Flags & V_FlagWaitUserInput) != 0;
    control.DelayTime = std::clamp((record.Delay + kMillisecondsPerTick / 2) / kMillisecondsPerTick, 0, 0xFFFF);
    control.TransparentColor = keyed ? static_cast<int>(transparent & 0xFF) : NO_TRANSPARENT_COLOR;
    GifByteType block[4];
    Require(
        EGifPutExtension(gif_, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(EGifGCBToExtension(&control, block)), block));
  }

  File& file_;
  Document document_;
  GifFileType* gif_ = nullptr;
  std::string reason_;
  bool started_ = false;
  bool finished_ = false;
};

}  // namespace

Format GifFormat() {
  return {.name = "GIF",
          .extensions = {"gif"},
          .manyPages = true,
          .holds = "palettes and gray of 1 to 8 bits",
          .canHold = CanHold,
          .open = [](File& file) -> std::unique_ptr<Reader> { return std::make_unique<GifReader>(file); },
          .create = [](File& file, const Document& document) -> std::unique_ptr<Writer> {
            return std::make_unique<GifWriter>(file, document);
          }};
}

}  // namespace vexa
