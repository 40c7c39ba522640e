// Rows held super-compressed: how fast they go in and out, and how much memory they take.
//
// The pictures are a scanned page, the same page in gray at a third of its resolution, in 8 and in 24 bits, and a
// photograph. The limit is a copy of the packed rows; the peer codes and decodes them in pieces of 64 KiB from and into
// plain memory, without being a store of rows.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_LZ4
#include <lz4.h>
#endif

namespace vexabench {
namespace {

struct Picture {
  int32_t width = 0, height = 0, bits = 0;
  size_t pitch = 0;
  std::vector<uint8_t> rows;

  Picture(int32_t w, int32_t h, int32_t b)
      : width(w), height(h), bits(b), pitch(static_cast<size_t>((int64_t{w} * b + 31) / 32 * 4)) {
    rows.resize(pitch * static_cast<size_t>(h));
  }
  uint8_t* Row(int32_t row) { return rows.data() + pitch * static_cast<size_t>(row); }
};

// The samples of a PBM or PPM file of bytes, as its format packs them.
struct Netpbm {
  int32_t width = 0, height = 0;
  std::vector<char> data;

  Netpbm(const std::string& name, const std::string& magic) {
    std::ifstream file(VEXABENCH_SAMPLES "/" + name, std::ios::binary);
    std::string found;
    file >> found >> width >> height;
    int maximum = 0;
    if (magic != "P4") file >> maximum;
    file.get();
    data.assign(std::istreambuf_iterator<char>(file), {});
    Require(found == magic && !data.empty(), "a sample picture could not be read");
  }
  uint8_t At(size_t index) const { return static_cast<uint8_t>(data.at(index)); }
};

Picture ScannedPage() {
  const Netpbm file("doc_mixed_300dpi.pbm", "P4");
  Picture page(file.width, file.height, 1);
  const size_t bytes = static_cast<size_t>(file.width + 7) / 8;
  for (int32_t y = 0; y < file.height; ++y)
    std::memcpy(page.Row(y), &file.data.at(bytes * static_cast<size_t>(y)), bytes);
  return page;
}

// Each pixel is the mean of three by three pixels of the scanned page.
Picture GrayPage(int32_t bits) {
  Picture page = ScannedPage();
  Picture gray(page.width / 3, page.height / 3, bits);
  for (int32_t y = 0; y < gray.height; ++y)
    for (int32_t x = 0; x < gray.width; ++x) {
      int black = 0;
      for (int32_t i = 0; i < 9; ++i) {
        const int32_t column = 3 * x + i % 3;
        black += page.Row(3 * y + i / 3)[column / 8] >> (7 - column % 8) & 1;
      }
      const int32_t samples = bits / 8;
      std::memset(gray.Row(y) + x * samples, 255 - black * 255 / 9, static_cast<size_t>(samples));
    }
  return gray;
}

// 16-bit samples in linear light, as 8-bit samples with a gamma of 2.2.
Picture Photograph() {
  const Netpbm file("rgb48_calla.ppm", "P6");
  Picture photo(file.width, file.height, 24);
  for (int32_t y = 0; y < file.height; ++y)
    for (int32_t i = 0; i < 3 * file.width; ++i) {
      const size_t at = 2 * static_cast<size_t>(y * 3 * file.width + i);
      const double linear = (file.At(at) << 8 | file.At(at + 1)) / 65535.0;
      photo.Row(y)[i / 3 * 3 + 2 - i % 3] = static_cast<uint8_t>(std::lround(255 * std::pow(linear, 1 / 2.2)));
    }
  return photo;
}

struct Sample {
  const char* name;
  Picture (*make)();
  double mostHeld;  // percent of the packed rows
};
const Sample kSamples[] = {{"1-bit page", ScannedPage, 100.0 / 3},
                           {"8-bit gray page", [] { return GrayPage(8); }, 100.0 / 3},
                           {"24-bit gray page", [] { return GrayPage(24); }, 100.0 / 3},
                           {"24-bit photograph", Photograph, 103}};

// A picture, a place of the same size, and the bitmap that holds it.
class Held {
 public:
  explicit Held(const Sample& sample) : picture(sample.make()), copy(picture), record_{} {
    Put();
    Get();
    Require(copy.rows == picture.rows, "the picture came back changed");
  }
  ~Held() { V_FreeBitmap(&record_); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

  // Into a new bitmap.
  void Put() {
    V_FreeBitmap(&record_);
    Require(V_CreateBitmap(&record_, sizeof record_, V_MemorySuperCompressed, picture.width, picture.height,
                           picture.bits, V_OrderBgr, nullptr, V_ViewTopLeft, nullptr, 0) == 1,
            "the bitmap could not be created");
    V_AccessBitmap(&record_);
    for (int32_t row = 0; row < picture.height; ++row)
      Require(V_PutBitmapRow(&record_, picture.Row(row), row, picture.pitch) > 0, "a row was refused");
    V_ReleaseBitmap(&record_);
  }
  void Get() {
    V_AccessBitmap(&record_);
    for (int32_t row = 0; row < picture.height; ++row)
      Require(V_GetBitmapRow(&record_, copy.Row(row), row, picture.pitch) > 0, "a row was refused");
    V_ReleaseBitmap(&record_);
  }
  uint64_t Bytes() const { return record_.Size64; }

  Picture picture, copy;

 private:
  BITMAPHANDLE record_;
};

Contest AgainstCopy(const Sample& sample, bool put) {
  auto held = std::make_shared<Held>(sample);
  return {[=] { put ? held->Put() : held->Get(); },
          [=] { std::memcpy(held->copy.rows.data(), held->picture.rows.data(), held->picture.rows.size()); }};
}

double PercentHeld(const Sample& sample) {
  Held held(sample);
  return 100.0 * static_cast<double>(held.Bytes()) / static_cast<double>(held.picture.rows.size());
}

#ifdef VEXABENCH_LZ4
// The picture in pieces, as LZ4 codes them.
class Lz4Pieces {
 public:
  explicit Lz4Pieces(std::vector<uint8_t>& bytes) : bytes_(bytes) {
    for (size_t at = 0; at < bytes.size(); at += kPiece)
      pieces_.emplace_back(static_cast<size_t>(LZ4_compressBound(Size(at))));
    sizes_.resize(pieces_.size());
    Encode();
  }
  void Encode() {
    for (size_t i = 0; i < pieces_.size(); ++i)
      sizes_[i] =
          LZ4_compress_default(Bytes(i), pieces_[i].data(), Size(i * kPiece), static_cast<int>(pieces_[i].size()));
  }
  void Decode() {
    for (size_t i = 0; i < pieces_.size(); ++i)
      Require(LZ4_decompress_safe(pieces_[i].data(), Bytes(i), sizes_[i], Size(i * kPiece)) > 0, "LZ4 failed");
  }

 private:
  static constexpr size_t kPiece = 65536;
  char* Bytes(size_t index) { return reinterpret_cast<char*>(bytes_.data() + index * kPiece); }
  int Size(size_t at) const { return static_cast<int>(std::min(kPiece, bytes_.size() - at)); }

  std::vector<uint8_t>& bytes_;
  std::vector<std::vector<char>> pieces_;
  std::vector<int> sizes_;
};

void RegisterLz4(const Sample& sample) {
  const auto prepare = [=](bool put) -> Contest {
    auto held = std::make_shared<Held>(sample);
    auto pieces = std::make_shared<Lz4Pieces>(held->copy.rows);
    return {[=] { put ? held->Put() : held->Get(); }, [=] { put ? pieces->Encode() : pieces->Decode(); }};
  };
  Compare(std::string("put rows, super-compressed, ") + sample.name, "LZ4_compress_default", kNoGoal,
          [=] { return prepare(true); });
  Compare(std::string("get rows, super-compressed, ") + sample.name, "LZ4_decompress_safe", kNoGoal,
          [=] { return prepare(false); });
}
#else
void RegisterLz4(const Sample&) {}
#endif

}  // namespace

void RegisterFamily() {
  for (const Sample& sample : kSamples) {
    for (const bool put : {true, false})
      Compare(std::string(put ? "put" : "get") + " rows, super-compressed, " + sample.name, "memcpy", kNoGoal,
              [=] { return AgainstCopy(sample, put); });
    RegisterLz4(sample);
    Count(std::string("held super-compressed, ") + sample.name, "% of the packed rows", sample.mostHeld,
          [=] { return PercentHeld(sample); });
  }
}

}  // namespace vexabench
