// Memory streams against memcpy on the same block, and redirected files against the system's own calls.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common.h"

namespace vexabench {
namespace {

constexpr size_t kBytes = 16u << 20;
constexpr size_t kSmallChunk = 16;

enum class Direction { kRead, kWrite };
constexpr Direction kDirections[] = {Direction::kRead, Direction::kWrite};
const char* Verb(Direction direction) { return direction == Direction::kRead ? "read" : "write"; }

// A started stream over a block of `bytes` bytes of data.
class Stream {
 public:
  explicit Stream(size_t bytes) : block_(static_cast<uint8_t*>(V_ReallocBuffer(nullptr, bytes))) {
    Require(block_ != nullptr, "no memory");
    std::memset(block_, 0x5A, bytes);
    Require(V_StartRedirectToBuffer(&state_, &file_, V_StreamWrite | V_StreamHeap, block_, bytes, bytes) == 1,
            "the stream could not be started");
  }
  ~Stream() {
    V_RedirectedClose(file_);
    void* block = nullptr;
    V_StopRedirectToBuffer(state_, &block, nullptr, nullptr);
    V_FreeBuffer(block);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  intptr_t File() const { return file_; }
  uint8_t* Block() const { return block_; }

 private:
  uint8_t* block_;
  void* state_ = nullptr;
  intptr_t file_ = -1;
};

// `bytes` bytes in chunks through the redirectable functions.
void MoveChunks(intptr_t file, uint8_t* buffer, size_t bytes, size_t chunk, Direction direction) {
  Require(V_RedirectedSeek(file, 0, 0) == 0, "a seek was refused");
  for (size_t at = 0; at < bytes; at += chunk) {
    const int64_t moved =
        direction == Direction::kRead ? V_RedirectedRead(file, buffer, chunk) : V_RedirectedWrite(file, buffer, chunk);
    Require(moved == static_cast<int64_t>(chunk), "a transfer was short");
  }
}

Contest StreamChunks(Direction direction, size_t bytes, size_t chunk) {
  auto stream = std::make_shared<Stream>(bytes);
  auto buffer = std::make_shared<Memory>(chunk);
  return {[=] { MoveChunks(stream->File(), buffer->data(), bytes, chunk, direction); },
          [=] {
            for (size_t at = 0; at < bytes; at += chunk) {
              uint8_t* place = stream->Block() + at;
              direction == Direction::kRead ? std::memcpy(buffer->data(), place, chunk)
                                            : std::memcpy(place, buffer->data(), chunk);
            }
          },
          static_cast<double>(bytes) / static_cast<double>(chunk)};
}

void GrowStream(uint8_t* buffer, size_t chunk) {
  void* state = nullptr;
  intptr_t file = -1;
  Require(V_StartRedirectToBuffer(&state, &file, V_StreamGrow | V_StreamWrite | V_StreamHeap, nullptr, 0, 0) == 1,
          "the stream could not be started");
  for (size_t at = 0; at < kBytes; at += chunk)
    Require(V_RedirectedWrite(file, buffer, chunk) == static_cast<int64_t>(chunk), "a write was short");
  V_RedirectedClose(file);
  void* block = nullptr;
  V_StopRedirectToBuffer(state, &block, nullptr, nullptr);
  V_FreeBuffer(block);
}

Contest Grow(size_t chunk) {
  auto buffer = std::make_shared<Memory>(chunk);
  return {[=] { GrowStream(buffer->data(), chunk); },
          [=] {
            char* block = nullptr;
            size_t size = 0;
            FILE* file = open_memstream(&block, &size);
            Require(file != nullptr, "no memory");
            for (size_t at = 0; at < kBytes; at += chunk) std::fwrite(buffer->data(), 1, chunk, file);
            std::fclose(file);
            std::free(block);
          }};
}

// A named file, open through the redirectable functions and once more through the system's.
class NamedFile {
 public:
  NamedFile() {
    Require(V_GetTempFileNameUTF8(path_, sizeof path_, V_TempFileDisk, nullptr, nullptr, nullptr, 0) == 1, "no file");
    redirected_ = V_RedirectedOpen(path_, V_OpenRead | V_OpenWrite);
    plain_ = open(path_, O_RDWR | O_CLOEXEC);
    Require(redirected_ != -1 && plain_ != -1, "the file could not be opened");
    Memory block(kBytes);
    Require(write(plain_, block.data(), kBytes) == static_cast<ssize_t>(kBytes), "the file could not be written");
  }
  ~NamedFile() {
    V_RedirectedClose(redirected_);
    close(plain_);
    V_DeleteTempFile(path_);
  }
  NamedFile(const NamedFile&) = delete;
  NamedFile& operator=(const NamedFile&) = delete;
  intptr_t Redirected() const { return redirected_; }
  int Plain() const { return plain_; }

 private:
  char path_[1024] = {};
  intptr_t redirected_ = -1;
  int plain_ = -1;
};

Contest FileChunks(Direction direction, size_t chunk) {
  auto file = std::make_shared<NamedFile>();
  auto buffer = std::make_shared<Memory>(chunk);
  return {[=] { MoveChunks(file->Redirected(), buffer->data(), kBytes, chunk, direction); },
          [=] {
            Require(lseek(file->Plain(), 0, SEEK_SET) == 0, "a seek was refused");
            for (size_t at = 0; at < kBytes; at += chunk) {
              const ssize_t moved = direction == Direction::kRead ? read(file->Plain(), buffer->data(), chunk)
                                                                  : write(file->Plain(), buffer->data(), chunk);
              Require(moved == static_cast<ssize_t>(chunk), "a transfer was short");
            }
          },
          static_cast<double>(kBytes) / static_cast<double>(chunk)};
}

}  // namespace

void RegisterFamily() {
  for (const Direction direction : kDirections) {
    const std::string verb = Verb(direction);
    Compare("stream " + verb + ", " + SizeName(kSmallChunk) + " in cache", "memcpy", kNoGoal,
            [=] { return StreamChunks(direction, 65536, kSmallChunk); });
    for (const size_t chunk : {4u << 10, 1u << 20})
      Compare("stream " + verb + ", " + SizeName(chunk) + " of 16 MB", "memcpy", kNoGoal,
              [=] { return StreamChunks(direction, kBytes, chunk); });
  }
  Compare("stream grows to 16 MB by 4 KB", "open_memstream", kNoGoal, [] { return Grow(4096); });
  for (const Direction direction : kDirections)
    for (const size_t chunk : {4u << 10, 1u << 20})
      Compare(std::string("file ") + Verb(direction) + ", " + SizeName(chunk) + " of 16 MB",
              std::string("the system's ") + Verb(direction), kNoGoal, [=] { return FileChunks(direction, chunk); });
}

}  // namespace vexabench
