// JPEG: gray and colour of 8 bits a sample, with orientation and resolution from the file's EXIF block.
//
// The library leaves on errors by longjmp. Only calls of the library run between setjmp and that jump, in frames
// without destructors; what goes wrong in a callback is noted, and thrown once the jump has landed.
#include <cstdio>

#include <jerror.h>
#include <jpeglib.h>

#include <csetjmp>
#include <cstring>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "codecs/exif.h"

namespace vexa {
namespace {

constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr int kQuality = 95;
constexpr size_t kBufferBytes = 65536;

// The library's error record, with the way back to us.
struct Errors {
  jpeg_error_mgr library;
  std::jmp_buf jump;
  char reason[JMSG_LENGTH_MAX] = "";

  static Errors& Of(j_common_ptr info) { return *reinterpret_cast<Errors*>(info->err); }

  static void OnExit(j_common_ptr info) {
    Errors& errors = Of(info);
    if (!errors.reason[0]) info->err->format_message(info, errors.reason);
    std::longjmp(errors.jump, 1);
  }
  // Some warnings mean that pixels were made up: the picture is not all there.
  static void OnMessage(j_common_ptr info, int level) {
    if (level >= 0) return;
    const int code = info->err->msg_code;
    if (code == JWRN_HIT_MARKER || code == JWRN_JPEG_EOF || code == JWRN_HUFF_BAD_CODE || code == JWRN_MUST_RESYNC)
      OnExit(info);
  }
  static void OnOutput(j_common_ptr) {}

  jpeg_error_mgr* Install() {
    jpeg_std_error(&library);
    library.error_exit = OnExit;
    library.emit_message = OnMessage;
    library.output_message = OnOutput;
    return &library;
  }
  void Note(const char* message) { std::snprintf(reason, sizeof reason, "%s", message); }

  // Runs `call`, which calls the library on plain data, and makes its error an Error.
  template <typename Call>
  __attribute__((noinline)) void Try(Call&& call) {
    if (setjmp(jump) == 0) {
      call();
      return;
    }
    throw Error(reason);
  }
};

// --- reading ----------------------------------------------------------------------------------------------------

struct Source {
  jpeg_source_mgr library;
  File* file;
  JOCTET buffer[kBufferBytes];

  static Source& Of(j_decompress_ptr info) { return *reinterpret_cast<Source*>(info->src); }

  static boolean OnFill(j_decompress_ptr info) {
    Source& source = Of(info);
    Errors& errors = Errors::Of(reinterpret_cast<j_common_ptr>(info));
    size_t done = 0;
    try {
      done = static_cast<size_t>(source.file->Read(source.buffer, kBufferBytes));
      if (done == 0) errors.Note("the file is cut short");
    } catch (const std::exception& error) {
      errors.Note(error.what());
    }
    if (done == 0) errors.library.error_exit(reinterpret_cast<j_common_ptr>(info));
    source.library.next_input_byte = source.buffer;
    source.library.bytes_in_buffer = done;
    return TRUE;
  }
  static void OnSkip(j_decompress_ptr info, long bytes) {
    Source& source = Of(info);
    for (size_t left = bytes > 0 ? static_cast<size_t>(bytes) : 0; left > 0;) {
      if (source.library.bytes_in_buffer == 0) OnFill(info);
      const size_t part = left < source.library.bytes_in_buffer ? left : source.library.bytes_in_buffer;
      source.library.next_input_byte += part;
      source.library.bytes_in_buffer -= part;
      left -= part;
    }
  }
};

class JpegReader : public Reader {
 public:
  explicit JpegReader(File& file) {
    info_.err = errors_.Install();
    source_ = std::make_unique<Source>();
    source_->file = &file;
    source_->library = {};
    source_->library.init_source = [](j_decompress_ptr) {};
    source_->library.fill_input_buffer = Source::OnFill;
    source_->library.skip_input_data = Source::OnSkip;
    source_->library.resync_to_restart = jpeg_resync_to_restart;
    source_->library.term_source = [](j_decompress_ptr) {};
    const uint64_t fileBytes = file.Size();
    try {
      errors_.Try([this] {
        jpeg_create_decompress(&info_);
        info_.src = &source_->library;
        jpeg_save_markers(&info_, kExifMarker, 0xFFFF);
        jpeg_read_header(&info_, TRUE);
      });
      // Every block of 64 samples takes a bit at the least.
      if (!info_.arith_code)
        RequirePlausible(info_.image_width, info_.image_height, 8 * info_.num_components, fileBytes, 2048);
    } catch (...) {
      jpeg_destroy_decompress(&info_);
      throw;
    }
  }
  ~JpegReader() override { jpeg_destroy_decompress(&info_); }

  void Describe(int32_t, Bitmap& bitmap) override {
    const bool gray = info_.jpeg_color_space == JCS_GRAYSCALE;
    bitmap.Describe(info_.image_width, info_.image_height, gray ? 8 : 24);
    if (gray) bitmap.SetGrayRamp(256);
    if (info_.saw_JFIF_marker && info_.density_unit != 0) {
      const double perInch = info_.density_unit == 2 ? 2.54 : 1;
      bitmap.SetResolution(info_.X_density * perInch, info_.Y_density * perInch);
    }
    for (jpeg_saved_marker_ptr marker = info_.marker_list; marker; marker = marker->next) {
      if (marker->marker != kExifMarker) continue;
      const ExifFacts facts = ParseExif({marker->data, marker->data_length});
      if (facts.orientation) bitmap.Record().ViewPerspective = facts.orientation;
      if (!bitmap.ResolutionStated()) bitmap.SetResolution(facts.xResolution, facts.yResolution);
    }
  }

  void Read(int32_t, Bitmap& bitmap, Progress& progress) override {
    const bool inks = info_.jpeg_color_space == JCS_CMYK || info_.jpeg_color_space == JCS_YCCK;
    info_.out_color_space = bitmap.Bits() == 8 ? JCS_GRAYSCALE : inks ? JCS_CMYK : JCS_EXT_BGR;
    errors_.Try([this] { jpeg_start_decompress(&info_); });
    std::vector<uint8_t> row(static_cast<size_t>(info_.output_width) * static_cast<size_t>(info_.output_components));
    progress.BeginPart(bitmap.Height(), bitmap.Height());
    for (int32_t y = 0; y < bitmap.Height(); ++y) {
      JSAMPROW rows[1] = {row.data()};
      errors_.Try([&] { jpeg_read_scanlines(&info_, rows, 1); });
      if (inks) BgrFromInks(row.data(), info_.output_width);
      bitmap.PutRow(y, row.data());
      progress.Step();
    }
    errors_.Try([this] { jpeg_finish_decompress(&info_); });
  }

 private:
  // Four inks a pixel, in place. Files with an Adobe marker keep them inverted.
  void BgrFromInks(uint8_t* row, size_t pixels) const {
    const uint8_t invert = info_.saw_Adobe_marker ? 0 : 255;
    for (size_t i = 0; i < pixels; ++i) {
      const uint8_t* ink = row + 4 * i;
      const int black = ink[3] ^ invert;
      const int red = (ink[0] ^ invert) * black, green = (ink[1] ^ invert) * black, blue = (ink[2] ^ invert) * black;
      row[3 * i] = static_cast<uint8_t>((blue + 127) / 255);
      row[3 * i + 1] = static_cast<uint8_t>((green + 127) / 255);
      row[3 * i + 2] = static_cast<uint8_t>((red + 127) / 255);
    }
  }

  jpeg_decompress_struct info_ = {};
  Errors errors_;
  std::unique_ptr<Source> source_;
};

// --- writing ----------------------------------------------------------------------------------------------------

struct Destination {
  jpeg_destination_mgr library;
  File* file;
  JOCTET buffer[kBufferBytes];

  static void Send(j_compress_ptr info, size_t bytes) {
    Destination& out = *reinterpret_cast<Destination*>(info->dest);
    Errors& errors = Errors::Of(reinterpret_cast<j_common_ptr>(info));
    bool sent = false;
    try {
      out.file->Write(out.buffer, bytes);
      sent = true;
    } catch (const std::exception& error) {
      errors.Note(error.what());
    }
    if (!sent) errors.library.error_exit(reinterpret_cast<j_common_ptr>(info));
    out.library.next_output_byte = out.buffer;
    out.library.free_in_buffer = kBufferBytes;
  }
  static boolean OnFull(j_compress_ptr info) {
    Send(info, kBufferBytes);
    return TRUE;
  }
  static void OnEnd(j_compress_ptr info) { Send(info, kBufferBytes - info->dest->free_in_buffer); }
};

bool CanHold(const Bitmap& bitmap) {
  if (bitmap.Flags() & V_FlagSigned) return false;
  if (bitmap.Bits() == 8) return (bitmap.IsGray() && bitmap.Palette().size() == 256) || bitmap.IsInvertedGray();
  return bitmap.Bits() == 24;
}

class JpegWriter : public Writer {
 public:
  explicit JpegWriter(File& file) {
    info_.err = errors_.Install();
    destination_ = std::make_unique<Destination>();
    destination_->file = &file;
    destination_->library = {};
    destination_->library.next_output_byte = destination_->buffer;
    destination_->library.free_in_buffer = kBufferBytes;
    destination_->library.init_destination = [](j_compress_ptr) {};
    destination_->library.empty_output_buffer = Destination::OnFull;
    destination_->library.term_destination = Destination::OnEnd;
    errors_.Try([this] {
      jpeg_create_compress(&info_);
      info_.dest = &destination_->library;
    });
  }
  ~JpegWriter() override { jpeg_destroy_compress(&info_); }

  void Write(Bitmap& bitmap, Progress& progress) override {
    const bool gray = bitmap.Bits() == 8;
    const bool inverted = gray && bitmap.IsInvertedGray();
    const std::vector<uint8_t> exif = MakeExif(bitmap.Perspective());
    errors_.Try([&] {
      info_.image_width = static_cast<JDIMENSION>(bitmap.Width());
      info_.image_height = static_cast<JDIMENSION>(bitmap.Height());
      info_.input_components = gray ? 1 : 3;
      info_.in_color_space = gray ? JCS_GRAYSCALE : bitmap.Order() == V_OrderRgb ? JCS_RGB : JCS_EXT_BGR;
      jpeg_set_defaults(&info_);
      jpeg_set_quality(&info_, kQuality, TRUE);
      for (int i = 0; i < info_.num_components; ++i) {  // no colour sample is shared
        info_.comp_info[i].h_samp_factor = 1;
        info_.comp_info[i].v_samp_factor = 1;
      }
      SetDensity(bitmap);
      jpeg_start_compress(&info_, TRUE);
      if (bitmap.Perspective() != V_ViewTopLeft)
        jpeg_write_marker(&info_, kExifMarker, exif.data(), static_cast<unsigned>(exif.size()));
    });
    std::vector<uint8_t> row(bitmap.RowBytes());
    progress.BeginPart(bitmap.Height(), bitmap.Height());
    for (int32_t y = 0; y < bitmap.Height(); ++y) {
      bitmap.GetRow(y, row.data());
      if (inverted)
        for (uint8_t& value : row) value = static_cast<uint8_t>(~value);
      JSAMPROW rows[1] = {row.data()};
      errors_.Try([&] { jpeg_write_scanlines(&info_, rows, 1); });
      progress.Step();
    }
    errors_.Try([this] { jpeg_finish_compress(&info_); });
  }

 private:
  void SetDensity(const Bitmap& bitmap) {
    const int32_t x = bitmap.Record().XResolution, y = bitmap.Record().YResolution;
    if (!bitmap.ResolutionStated() || x > 0xFFFF || y > 0xFFFF) return;
    info_.density_unit = 1;
    info_.X_density = static_cast<UINT16>(x);
    info_.Y_density = static_cast<UINT16>(y);
  }

  jpeg_compress_struct info_ = {};
  Errors errors_;
  std::unique_ptr<Destination> destination_;
};

}  // namespace

Format JpegFormat() {
  return {.name = "JPEG",
          .extensions = {"jpg", "jpeg"},
          .holds = "8-bit gray and 24-bit colour",
          .canHold = CanHold,
          .open = [](File& file) -> std::unique_ptr<Reader> { return std::make_unique<JpegReader>(file); },
          .create = [](File& file, const Document&) -> std::unique_ptr<Writer> {
            return std::make_unique<JpegWriter>(file);
          }};
}

}  // namespace vexa
