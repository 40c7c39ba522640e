// Rows of scanned pages as run lengths: whole pages in and out of records, in nanoseconds a pixel.
//
// The libraries do more or other work than this: an entropy code of the runs (libtiff), rectangles (pixman), the runs
// of one colour only (Leptonica). The plain loops do the same work.
#include <bit>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_LEPTONICA
#include <allheaders.h>
#endif
#ifdef VEXABENCH_PIXMAN
#include <pixman.h>
#endif
#ifdef VEXABENCH_TIFF
#include <tiffio.h>
#endif

namespace vexabench {
namespace {

// Packed rows, and their records as the engine makes them. The bits that follow a row's last pixel are 0.
struct Page {
  int32_t width = 0, height = 0;
  size_t pitch = 0;
  std::vector<uint8_t> rows, records;

  Page(int32_t w, int32_t h)
      : width(w), height(h), pitch((static_cast<size_t>(w) + 31) / 32 * 4), rows(pitch * static_cast<size_t>(h)) {}
  uint8_t* Row(int32_t y) { return rows.data() + pitch * static_cast<size_t>(y); }
  double Pixels() const { return static_cast<double>(width) * height; }

  void Finish() {
    for (int32_t y = 0; y < height; ++y)
      for (auto x = static_cast<size_t>(width); x < 8 * pitch; ++x)
        Row(y)[x / 8] = static_cast<uint8_t>(Row(y)[x / 8] & ~(0x80 >> x % 8));
    records.resize(V_RECORD_BYTES(width) * static_cast<size_t>(height));
    Require(V_CompressRows(records.data(), rows.data(), width, height) == 1, "the page was not encoded");
    size_t bytes = 0;
    for (int32_t y = 0; y < height; ++y) {
      uint32_t runs = 0;
      std::memcpy(&runs, &records[bytes], sizeof runs);
      bytes += 4 + 2 * size_t{runs};
    }
    records.resize(bytes);
  }
};
using PagePointer = std::shared_ptr<Page>;

// Columns of text and a screened photograph, 2550 x 3300.
PagePointer MixedPage() {
  std::ifstream file(VEXABENCH_SAMPLES "/doc_mixed_300dpi.pbm", std::ios::binary);
  std::string magic;
  int32_t width = 0, height = 0;
  file >> magic >> width >> height;
  Require(file && magic == "P4", "the sample page cannot be read");
  file.get();
  auto page = std::make_shared<Page>(width, height);
  for (int32_t y = 0; y < height; ++y) file.read(reinterpret_cast<char*>(page->Row(y)), (width + 7) / 8);
  page->Finish();
  return page;
}

// --- plain loops ---

size_t PlainEncode(const uint8_t* row, int32_t width, uint8_t* record) {
  const auto end = static_cast<uint64_t>(width);
  uint64_t start = 0, last = 0;
  uint32_t count = 0;
  const auto put = [&](uint64_t at) {
    const auto run = static_cast<uint16_t>(at - start);
    std::memcpy(record + 4 + 2 * size_t{count++}, &run, sizeof run);
    start = at;
  };
  for (uint64_t bit = 0; bit < end; bit += 64) {
    uint64_t word = 0;
    std::memcpy(&word, row + bit / 8, end - bit > 32 ? 8 : 4);
    word = __builtin_bswap64(word);
    uint64_t changes = word ^ (word >> 1 | last << 63);
    last = word & 1;
    if (end - bit < 64) changes &= ~(~uint64_t{0} >> (end - bit));
    while (changes != 0) {
      const int zeros = std::countl_zero(changes);
      put(bit + static_cast<uint64_t>(zeros));
      changes &= ~(uint64_t{1} << 63 >> zeros);
    }
  }
  put(end);
  std::memcpy(record, &count, sizeof count);
  return 4 + 2 * size_t{count};
}

size_t PlainExpand(const uint8_t* record, uint8_t* row, size_t pitch) {
  uint32_t count = 0;
  std::memcpy(&count, record, sizeof count);
  std::memset(row, 0, pitch);
  size_t at = 0;
  for (uint32_t i = 0; i < count; ++i) {
    uint16_t run = 0;
    std::memcpy(&run, record + 4 + 2 * size_t{i}, sizeof run);
    const size_t end = at + run, first = at / 8, last = end / 8;
    if (i % 2 == 1 && run > 0) {
      const auto head = static_cast<uint8_t>(0xFF >> at % 8), tail = static_cast<uint8_t>(~(0xFF >> end % 8));
      if (first == last) {
        row[first] |= static_cast<uint8_t>(head & tail);
      } else {
        row[first] |= head;
        for (size_t byte = first + 1; byte < last; ++byte) row[byte] = 0xFF;
        if (tail) row[last] |= tail;
      }
    }
    at = end;
  }
  return 4 + 2 * size_t{count};
}

// --- contests ---

std::function<void()> Encode(const PagePointer& page) {
  auto records = std::make_shared<std::vector<uint8_t>>(page->records.size());
  return [=] { V_CompressRows(records->data(), page->rows.data(), page->width, page->height); };
}

std::function<void()> Expand(const PagePointer& page) {
  auto rows = std::make_shared<std::vector<uint8_t>>(page->rows.size());
  return [=] {
    Require(V_ExpandRows(rows->data(), page->records.data(), page->records.size(), page->width, page->height) == 1,
            "the records were refused");
  };
}

Contest AgainstPlainEncode(const PagePointer& page) {
  auto records = std::make_shared<std::vector<uint8_t>>(page->records.size());
  const auto plain = [=] {
    size_t at = 0;
    for (int32_t y = 0; y < page->height; ++y) at += PlainEncode(page->Row(y), page->width, records->data() + at);
  };
  plain();
  Require(*records == page->records, "the plain loop encodes something else");
  return {Encode(page), plain, page->Pixels()};
}

Contest AgainstPlainExpand(const PagePointer& page) {
  auto rows = std::make_shared<std::vector<uint8_t>>(page->rows.size());
  const auto plain = [=] {
    const uint8_t* record = page->records.data();
    for (size_t at = 0; at < rows->size(); at += page->pitch)
      record += PlainExpand(record, rows->data() + at, page->pitch);
  };
  plain();
  Require(*rows == page->rows, "the plain loop expands to something else");
  return {Expand(page), plain, page->Pixels()};
}

// As much as the encoder reads or the expander writes.
Contest AgainstCopy(const PagePointer& page, std::function<void()> ours) {
  auto copy = std::make_shared<std::vector<uint8_t>>(page->rows.size());
  return {std::move(ours), [=] { std::memcpy(copy->data(), page->rows.data(), copy->size()); }, page->Pixels()};
}

// --- peers ---

#ifdef VEXABENCH_TIFF
// A TIFF file in memory; only what the library asks of it.
struct MemoryFile {
  std::vector<uint8_t> bytes;
  size_t at = 0;

  static MemoryFile& Of(thandle_t handle) { return *static_cast<MemoryFile*>(handle); }
  static tmsize_t Read(thandle_t handle, void* buffer, tmsize_t size) {
    MemoryFile& file = Of(handle);
    const size_t count = std::min(static_cast<size_t>(size), file.bytes.size() - std::min(file.at, file.bytes.size()));
    if (count > 0) std::memcpy(buffer, &file.bytes[file.at], count);
    file.at += count;
    return static_cast<tmsize_t>(count);
  }
  static tmsize_t Write(thandle_t handle, void* buffer, tmsize_t size) {
    MemoryFile& file = Of(handle);
    const auto count = static_cast<size_t>(size);
    if (file.bytes.size() < file.at + count) file.bytes.resize(file.at + count);
    std::memcpy(&file.bytes[file.at], buffer, count);
    file.at += count;
    return size;
  }
  static toff_t Seek(thandle_t handle, toff_t offset, int whence) {
    MemoryFile& file = Of(handle);
    file.at = (whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file.at : file.bytes.size()) + offset;
    return file.at;
  }
  static toff_t Size(thandle_t handle) { return Of(handle).bytes.size(); }
  static int Close(thandle_t) { return 0; }

  TIFF* Open(const char* mode) {
    at = 0;
    return TIFFClientOpen("page", mode, this, Read, Write, Seek, Close, Size, nullptr, nullptr);
  }
};

// A page of an old book, 1065 x 1879, eight times below each other and each time a few pixels further right: one alone
// is so small that the branch predictor learns it by heart.
PagePointer TextPage() {
  constexpr uint32_t kCopies = 8, kStep = 9;
  const std::shared_ptr<TIFF> tiff(TIFFOpen(VEXABENCH_SAMPLES "/doc_text_300dpi.tif", "r"), TIFFClose);
  Require(tiff != nullptr, "the sample page cannot be read");
  uint32_t width = 0, height = 0;
  TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
  auto page =
      std::make_shared<Page>(static_cast<int32_t>(width + kCopies * kStep), static_cast<int32_t>(kCopies * height));
  std::fill(page->rows.begin(), page->rows.end(), uint8_t{0xFF});  // paper is 1
  std::vector<uint8_t> line((width + 7) / 8);
  for (uint32_t y = 0; y < height; ++y) {
    TIFFReadScanline(tiff.get(), line.data(), y);
    for (uint32_t copy = 0; copy < kCopies; ++copy) {
      uint8_t* row = page->Row(static_cast<int32_t>(copy * height + y));
      for (uint32_t x = 0, to = copy * kStep; x < width; ++x, ++to)
        if ((line[x / 8] & 0x80 >> x % 8) == 0) row[to / 8] = static_cast<uint8_t>(row[to / 8] & ~(0x80 >> to % 8));
    }
  }
  page->Finish();
  return page;
}

// Writes the page as one strip in CCITT group 4.
void WriteGroup4(const Page& page, std::vector<uint8_t>& packed, MemoryFile& file) {
  file.bytes.clear();
  TIFF* tiff = file.Open("w");
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, page.height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
  TIFFWriteEncodedStrip(tiff, 0, packed.data(), static_cast<tmsize_t>(packed.size()));
  TIFFClose(tiff);
}

// The page's rows without padding, and as a file.
struct Group4 {
  std::vector<uint8_t> packed;
  MemoryFile file;
  explicit Group4(Page& page) {
    for (int32_t y = 0; y < page.height; ++y)
      packed.insert(packed.end(), page.Row(y), page.Row(y) + (page.width + 7) / 8);
    file.bytes.reserve(page.rows.size());
    WriteGroup4(page, packed, file);
  }
};

Contest EncodeAgainstTiff(const PagePointer& page) {
  auto peer = std::make_shared<Group4>(*page);
  return {Encode(page), [=] { WriteGroup4(*page, peer->packed, peer->file); }, page->Pixels()};
}

Contest ExpandAgainstTiff(const PagePointer& page) {
  auto peer = std::make_shared<Group4>(*page);
  const std::shared_ptr<TIFF> tiff(peer->file.Open("rm"), TIFFClose);
  auto rows = std::make_shared<std::vector<uint8_t>>(peer->packed.size());
  const auto read = [=] {
    Require(TIFFReadEncodedStrip(tiff.get(), 0, rows->data(), static_cast<tmsize_t>(rows->size())) > 0, "not read");
  };
  read();
  Require(*rows == peer->packed, "libtiff expands to something else");
  return {Expand(page), [=, keep = peer] { read(); }, page->Pixels()};
}
#endif

#ifdef VEXABENCH_LEPTONICA
// Its words are in the machine's order, with the first pixel at the most significant bit.
Contest AgainstLeptonica(const PagePointer& page) {
  const std::shared_ptr<PIX> pix(pixCreate(page->width, page->height, 1), [](PIX* p) { pixDestroy(&p); });
  for (int32_t y = 0; y < page->height; ++y)
    std::memcpy(pixGetData(pix.get()) + y * pixGetWpl(pix.get()), page->Row(y), page->pitch);
  pixEndianByteSwap(pix.get());
  auto starts = std::make_shared<std::vector<l_int32>>(page->width);
  auto ends = std::make_shared<std::vector<l_int32>>(page->width);
  return {Encode(page),
          [=] {
            l_int32 count = 0;
            for (int32_t y = 0; y < page->height; ++y)
              pixFindHorizontalRuns(pix.get(), y, starts->data(), ends->data(), &count);
          },
          page->Pixels()};
}
#endif

#ifdef VEXABENCH_PIXMAN
// Its pixels run from the least significant bit of a byte on.
Contest AgainstPixman(const PagePointer& page) {
  auto reversed = std::make_shared<std::vector<uint32_t>>(page->rows.size() / 4);
  for (size_t i = 0; i < 8 * page->rows.size(); ++i)
    if ((page->rows[i / 8] & 0x80 >> i % 8) != 0) (*reversed)[i / 32] |= uint32_t{1} << i % 32;
  const std::shared_ptr<pixman_image_t> image(
      pixman_image_create_bits(PIXMAN_a1, page->width, page->height, reversed->data(), static_cast<int>(page->pitch)),
      pixman_image_unref);
  return {Encode(page),
          [=, keep = reversed] {
            pixman_region32_t region;
            pixman_region32_init_from_image(&region, image.get());
            pixman_region32_fini(&region);
          },
          page->Pixels()};
}
#endif

void RegisterPage(const std::string& name, PagePointer (*load)()) {
  const std::string encode = "run lengths of a page, " + name, expand = "page from run lengths, " + name;
  Compare(encode, "plain loop", SpeedAtLeast(2), [=] { return AgainstPlainEncode(load()); });
  Compare(expand, "plain loop", kNoGoal, [=] { return AgainstPlainExpand(load()); });
#ifdef VEXABENCH_TIFF
  Compare(encode, "libtiff CCITT group 4", SpeedAtLeast(8), [=] { return EncodeAgainstTiff(load()); });
  Compare(expand, "libtiff CCITT group 4", SpeedAtLeast(7), [=] { return ExpandAgainstTiff(load()); });
#endif
#ifdef VEXABENCH_PIXMAN
  Compare(encode, "pixman region from image", SpeedAtLeast(8), [=] { return AgainstPixman(load()); });
#endif
#ifdef VEXABENCH_LEPTONICA
  Compare(encode, "Leptonica pixFindHorizontalRuns", SpeedAtLeast(8), [=] { return AgainstLeptonica(load()); });
#endif
  const auto againstCopy = [=](auto ours) {
    return [=] {
      const PagePointer page = load();
      return AgainstCopy(page, ours(page));
    };
  };
  Compare(encode, "memcpy of the rows", kNoGoal, againstCopy(Encode));
  Compare(expand, "memcpy of the rows", kNoGoal, againstCopy(Expand));
}

}  // namespace

void RegisterFamily() {
#ifdef VEXABENCH_TIFF
  RegisterPage("text", TextPage);
#endif
  RegisterPage("text and photograph", MixedPage);
}

}  // namespace vexabench
