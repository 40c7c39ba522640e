// Embedding vexakrn in a C++ program with CMake: the same picture in three kinds of storage, and proof that the rest of
// the program need not know which kind it got.
#include <vexakrn.h>

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Turns a status other than success into an exception.
void Check(int64_t status, const char* what) {
  if (status < 1) throw std::runtime_error(std::string(what) + ": " + V_GetStatusText(static_cast<int32_t>(status)));
}

// Owns a bitmap: the record is ours, the pixels are the library's until V_FreeBitmap.
class Bitmap {
 public:
  Bitmap(uint32_t memory, int32_t width, int32_t height, int32_t bits) {
    Check(V_CreateBitmap(&record_, sizeof record_, memory, width, height, bits, V_OrderGray, nullptr, V_ViewTopLeft,
                         nullptr, 0),
          "V_CreateBitmap");
  }
  ~Bitmap() { V_FreeBitmap(&record_); }
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;
  BITMAPHANDLE* get() { return &record_; }

 private:
  BITMAPHANDLE record_{};
};

// Rows are moved while a bitmap is accessed.
class Access {
 public:
  explicit Access(Bitmap& bitmap) : bitmap_(bitmap.get()) { Check(V_AccessBitmap(bitmap_), "V_AccessBitmap"); }
  ~Access() { V_ReleaseBitmap(bitmap_); }
  Access(const Access&) = delete;
  Access& operator=(const Access&) = delete;

 private:
  BITMAPHANDLE* bitmap_;
};

// Concentric rings, in gray.
void Paint(Bitmap& bitmap) {
  const Access access(bitmap);
  const int32_t width = bitmap.get()->Width, height = bitmap.get()->Height;
  std::vector<uint8_t> row(bitmap.get()->BytesPerLine);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const int64_t dx = x - width / 2, dy = y - height / 2;
      row[static_cast<size_t>(x)] = static_cast<uint8_t>((dx * dx + dy * dy) / 64);
    }
    Check(V_PutBitmapRow(bitmap.get(), row.data(), y, row.size()), "V_PutBitmapRow");
  }
}

const char* KindOf(Bitmap& bitmap) {
  uint32_t kind = 0;
  Check(V_GetBitmapMemoryInfo(bitmap.get(), &kind, nullptr, nullptr, nullptr, nullptr), "V_GetBitmapMemoryInfo");
  switch (kind) {
    case V_MemoryConventional:
      return "memory";
    case V_MemoryTiled:
      return "tiles";
    case V_MemoryDisk:
      return "a temporary file";
    default:
      return "something else";
  }
}

}  // namespace

int main() try {
  constexpr int32_t kWidth = 1001, kHeight = 700;
  // Tiles of 64 KiB, for this thread's next allocations, make a picture of this size worth tiling.
  Check(V_SetMemoryThresholds(0, 0, 65536, 0, 0, V_ThresholdTileSize), "V_SetMemoryThresholds");

  Bitmap inMemory(V_MemoryConventional, kWidth, kHeight, 8);
  Paint(inMemory);
  for (const uint32_t memory : {V_MemoryConventional, V_MemoryTiled, V_MemoryDisk}) {
    Bitmap other(memory, kWidth, kHeight, 8);
    Paint(other);
    // Records of different kinds differ in where their data lies; their pixels must not.
    const Access a(inMemory), b(other);
    std::vector<uint8_t> want(inMemory.get()->BytesPerLine), got(want.size());
    for (int32_t y = 0; y < kHeight; ++y) {
      Check(V_GetBitmapRow(inMemory.get(), want.data(), y, want.size()), "V_GetBitmapRow");
      Check(V_GetBitmapRow(other.get(), got.data(), y, got.size()), "V_GetBitmapRow");
      if (want != got) throw std::runtime_error("row " + std::to_string(y) + " differs");
    }
    std::printf("%d x %d pixels in %s: the same\n", kWidth, kHeight, KindOf(other));
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
