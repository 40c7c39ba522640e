// Rows in and out of every storage kind.
//
// Whole images of 64 MiB move row by row; single calls move a few bytes of an image that stays in the processor's
// caches. Conventional storage is compared with memcpy on the very same bytes, tiles with conventional storage, disk
// storage with the same system calls on a file of the same kind.
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_OPENCV
#include <opencv2/core.hpp>
#endif
#ifdef VEXABENCH_LIBYUV
#include <libyuv/planar_functions.h>
#endif

namespace vexabench {
namespace {

constexpr size_t kImageBytes = 64u << 20;

enum class Direction { kGet, kPut };
constexpr Direction kDirections[] = {Direction::kGet, Direction::kPut};
const char* Verb(Direction direction) { return direction == Direction::kGet ? "get" : "put"; }

// An 8-bit image of 64 MiB.
std::shared_ptr<Image> MakeImage(size_t rowBytes, uint32_t memory = V_MemoryConventional) {
  return std::make_shared<Image>(memory, static_cast<int32_t>(rowBytes), static_cast<int32_t>(kImageBytes / rowBytes),
                                 8);
}

// A buffer for the rows: one row that is used again and again, or with a stride the whole picture.
struct RowBuffer {
  RowBuffer(size_t bytes, size_t step) : memory(bytes), stride(step) {}
  uint8_t* Row(int32_t row) { return memory.data() + stride * static_cast<size_t>(row); }
  Memory memory;
  size_t stride;
};

void MoveRows(Image& image, RowBuffer& buffer, Direction direction) {
  const size_t bytes = image.Pitch();
  for (int32_t row = 0; row < image.Height(); ++row) {
    const int64_t moved = direction == Direction::kGet ? V_GetBitmapRow(image.get(), buffer.Row(row), row, bytes)
                                                       : V_PutBitmapRow(image.get(), buffer.Row(row), row, bytes);
    Require(moved == static_cast<int64_t>(bytes), "a row was refused");
  }
}

void CopyBytes(uint8_t* image, uint8_t* buffer, size_t bytes, Direction direction) {
  direction == Direction::kGet ? std::memcpy(buffer, image, bytes) : std::memcpy(image, buffer, bytes);
}

void CopyRows(Image& image, RowBuffer& buffer, Direction direction) {
  const size_t bytes = image.Pitch();
  for (int32_t row = 0; row < image.Height(); ++row)
    CopyBytes(image.Data() + bytes * static_cast<size_t>(row), buffer.Row(row), bytes, direction);
}

// --- conventional storage ---

Contest ByRows(Direction direction, size_t rowBytes) {
  auto image = MakeImage(rowBytes);
  auto buffer = std::make_shared<RowBuffer>(rowBytes, 0);
  return {[=] { MoveRows(*image, *buffer, direction); }, [=] { CopyRows(*image, *buffer, direction); }};
}

// A whole picture, each row to or from its place; the other side is one memcpy, which may use stores that
// pass the caches by.
Contest Whole(Direction direction, size_t rowBytes) {
  auto image = MakeImage(rowBytes);
  auto buffer = std::make_shared<RowBuffer>(kImageBytes, rowBytes);
  return {[=] { MoveRows(*image, *buffer, direction); },
          [=] { CopyBytes(image->Data(), buffer->Row(0), kImageBytes, direction); }};
}

Contest InOneCall(Direction direction) {
  auto image = MakeImage(4096);
  auto buffer = std::make_shared<RowBuffer>(kImageBytes, 0);
  return {[=] {
            const int64_t moved = direction == Direction::kGet
                                      ? V_GetBitmapRow(image->get(), buffer->Row(0), 0, kImageBytes)
                                      : V_PutBitmapRow(image->get(), buffer->Row(0), 0, kImageBytes);
            Require(moved == static_cast<int64_t>(kImageBytes), "the picture was refused");
          },
          [=] { CopyBytes(image->Data(), buffer->Row(0), kImageBytes, direction); }};
}

#ifdef VEXABENCH_OPENCV
Contest AgainstOpenCv(size_t rowBytes) {
  auto image = MakeImage(rowBytes);
  auto buffer = std::make_shared<RowBuffer>(rowBytes, 0);
  const auto width = static_cast<int>(rowBytes);
  auto matrix = std::make_shared<cv::Mat>(image->Height(), width, CV_8UC1, image->Data());
  return {[=] { MoveRows(*image, *buffer, Direction::kGet); },
          [=] {
            cv::Mat row(1, width, CV_8UC1, buffer->Row(0));
            for (int y = 0; y < matrix->rows; ++y) matrix->row(y).copyTo(row);
          }};
}
#endif

#ifdef VEXABENCH_LIBYUV
Contest AgainstLibyuv(size_t rowBytes) {
  auto image = MakeImage(rowBytes);
  auto buffer = std::make_shared<RowBuffer>(kImageBytes, rowBytes);
  const auto width = static_cast<int>(rowBytes);
  return {[=] { MoveRows(*image, *buffer, Direction::kGet); },
          [=] { libyuv::CopyPlane(image->Data(), width, buffer->Row(0), width, width, image->Height()); }};
}
#endif

// --- tiles and disk ---

// `tilesInMemory` as the fifth threshold: 0 all, 1 leaves the others in a file.
Contest Tiled(Direction direction, size_t rowBytes, int64_t tileBytes, int32_t tilesInMemory) {
  auto conventional = MakeImage(rowBytes);
  const TileSettings settings(tileBytes, tilesInMemory);
  auto tiled = MakeImage(rowBytes, V_MemoryTiled);
  int32_t total = 0, inMemory = 0;
  V_GetBitmapMemoryInfo(tiled->get(), nullptr, nullptr, &total, &inMemory, nullptr);
  Require(total > 1 && inMemory == (tilesInMemory == 0 ? total : tilesInMemory),
          "the tiles are not where they should be");
  auto buffer = std::make_shared<RowBuffer>(rowBytes, 0);
  return {[=] { MoveRows(*tiled, *buffer, direction); }, [=] { MoveRows(*conventional, *buffer, direction); }};
}

Contest Disk(Direction direction, size_t rowBytes) {
  auto image = MakeImage(rowBytes, V_MemoryDisk);
  Require((image->get()->Flags & V_FlagDiskMemory) != 0, "the image is not on disk");
  auto file = std::make_shared<ScratchFile>(kImageBytes, rowBytes);
  auto buffer = std::make_shared<RowBuffer>(rowBytes, 0);
  return {[=] { MoveRows(*image, *buffer, direction); },
          [=] {
            for (size_t at = 0; at < kImageBytes; at += rowBytes) {
              const ssize_t moved = direction == Direction::kGet
                                        ? pread(file->Descriptor(), buffer->Row(0), rowBytes, static_cast<off_t>(at))
                                        : pwrite(file->Descriptor(), buffer->Row(0), rowBytes, static_cast<off_t>(at));
              Require(moved == static_cast<ssize_t>(rowBytes), "a transfer was short");
            }
          }};
}

// --- single calls ---

constexpr int32_t kSmallWidth = 4096, kSmallHeight = 8;
constexpr int32_t kCalls = 1024;

Contest SingleCall(Direction direction, size_t bytes, int32_t column) {
  auto image = std::make_shared<Image>(V_MemoryConventional, kSmallWidth, kSmallHeight, 8);
  auto buffer = std::make_shared<RowBuffer>(kSmallWidth, 0);
  const auto ours = [=] {
    uint8_t* at = buffer->Row(0);
    int64_t moved = 0;
    for (int32_t call = 0; call < kCalls; ++call) {
      const int32_t row = call % kSmallHeight;
      if (column == 0)
        moved += direction == Direction::kGet ? V_GetBitmapRow(image->get(), at, row, bytes)
                                              : V_PutBitmapRow(image->get(), at, row, bytes);
      else
        moved += direction == Direction::kGet ? V_GetBitmapRowCol(image->get(), at, row, column, bytes)
                                              : V_PutBitmapRowCol(image->get(), at, row, column, bytes);
    }
    Require(moved == static_cast<int64_t>(bytes) * kCalls, "a call was refused");
  };
  const auto other = [=] {
    for (int32_t call = 0; call < kCalls; ++call)
      CopyBytes(image->Data() + call % kSmallHeight * kSmallWidth + column, buffer->Row(0), bytes, direction);
  };
  return {ours, other, kCalls};
}

// Stretches of `pixels` pixels with gaps between them. `shift` moves them off the byte boundaries of 1-bit rows.
Contest Segments(int32_t bits, int32_t count, int32_t pixels, int32_t shift) {
  auto image = std::make_shared<Image>(V_MemoryConventional, kSmallWidth, kSmallHeight, bits);
  struct Line {
    std::vector<uint8_t> pixels;
    std::vector<BITMAPROWSEGMENT> segments;
  };
  auto line = std::make_shared<Line>();
  const auto bytes = static_cast<size_t>(pixels) * static_cast<size_t>(bits) / 8;
  line->pixels.assign(bytes * static_cast<size_t>(count), 0xA5);
  for (int32_t i = 0; i < count; ++i)
    line->segments.push_back({shift + i * 2 * pixels, pixels, line->pixels.data() + bytes * static_cast<size_t>(i)});
  const auto ours = [=] {
    int64_t moved = 0;
    for (int32_t call = 0; call < kCalls; ++call)
      moved = V_PutBitmapRowSegments(image->get(), line->segments.data(), count, call % kSmallHeight);
    Require(moved >= static_cast<int64_t>(bytes) * count, "a call was refused");
  };
  const auto other = [=] {
    for (int32_t call = 0; call < kCalls; ++call) {
      uint8_t* row = image->Data() + image->Pitch() * static_cast<size_t>(call % kSmallHeight);
      for (const BITMAPROWSEGMENT& segment : line->segments)
        std::memcpy(row + segment.column * bits / 8, segment.data, bytes);
    }
  };
  return {ours, other, kCalls};
}

void RegisterWholeImages() {
  for (const Direction direction : kDirections) {
    const std::string verb = Verb(direction);
    for (const size_t rowBytes : {4u << 10, 16u << 10, 64u << 10})
      Compare(verb + " 64 MB, rows of " + SizeName(rowBytes), "memcpy by rows", SpeedAtLeast(0.95),
              [=] { return ByRows(direction, rowBytes); });
    Compare(verb + " 64 MB in one call", "memcpy, whole", SpeedAtLeast(0.95), [=] { return InOneCall(direction); });
    Compare(verb + " 64 MB, each row of 4 KB in its place", "memcpy, whole", kNoGoal,
            [=] { return Whole(direction, 4096); });
  }
#ifdef VEXABENCH_OPENCV
  Compare("get 64 MB, rows of 4 KB", "OpenCV row copyTo", kNoGoal, [] { return AgainstOpenCv(4096); });
#endif
#ifdef VEXABENCH_LIBYUV
  Compare("get 64 MB, each row of 4 KB in its place", "libyuv CopyPlane", kNoGoal, [] { return AgainstLibyuv(4096); });
#endif
}

void RegisterOtherKinds() {
  for (const Direction direction : kDirections) {
    const std::string verb = Verb(direction);
    for (const int64_t tile : {64 << 10, 1 << 20, 16 << 20})
      Compare(verb + " 64 MB, rows of 4 KB, tiles of " + SizeName(static_cast<uint64_t>(tile)), "conventional",
              TimesAtMost(1.1), [=] { return Tiled(direction, 4096, tile, 0); });
    for (const int64_t tile : {1 << 20, 16 << 20})
      Compare(verb + " 64 MB, rows of 4 KB, file tiles of " + SizeName(static_cast<uint64_t>(tile)), "conventional",
              TimesAtMost(1.1), [=] { return Tiled(direction, 4096, tile, 1); });
    for (const size_t rowBytes : {4u << 10, 64u << 10})
      Compare(verb + " 64 MB on disk, rows of " + SizeName(rowBytes),
              direction == Direction::kGet ? "pread by rows" : "pwrite by rows", SpeedAtLeast(0.8),
              [=] { return Disk(direction, rowBytes); });
  }
}

void RegisterSingleCalls() {
  for (const Direction direction : kDirections) {
    const std::string verb = Verb(direction);
    for (const size_t bytes : {1u, 16u, 64u, 256u, 4096u})
      Compare(verb + " row, " + SizeName(bytes), "memcpy", ExtraAtMost(25),
              [=] { return SingleCall(direction, bytes, 0); });
    Compare(verb + " from a column on, 64 bytes", "memcpy", ExtraAtMost(25),
            [=] { return SingleCall(direction, 64, 1001); });
  }
  Compare("put 1 segment of 64 bytes", "memcpy", ExtraAtMost(25), [] { return Segments(8, 1, 64, 0); });
  Compare("put 32 segments of 48 bytes", "memcpy of each", kNoGoal, [] { return Segments(24, 32, 16, 0); });
  Compare("put 32 segments of 64 bits at odd bits", "memcpy of each", kNoGoal, [] { return Segments(1, 32, 64, 3); });
}

}  // namespace

void RegisterFamily() {
  RegisterWholeImages();
  RegisterOtherKinds();
  RegisterSingleCalls();
}

}  // namespace vexabench
