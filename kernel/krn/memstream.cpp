// Memory streams: a memory block in the place of a file.
//
// While a stream is started, its five functions stand in the calling thread's redirect table, and the table they
// replaced is kept in the stream. A handle is valid when its stream is in the thread's list of live ones, so a foreign
// one is never looked into.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/buffer.h"
#include "common/status.h"
#include "krn/redirect.h"
#include "vexakrn/files.h"
#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

constexpr uint32_t kMagic = 0x46554256;  // "VBUF" in memory order
constexpr uint64_t kGrowthStep = 32768;
constexpr uint32_t kNameCapacity = 50;

}  // namespace

struct Stream {
  uint32_t magic;
  uint32_t flags;
  Stream* next;  // in the thread's list of live streams
  void* block;   // heap memory, or the handle of a movable block
  uint64_t position;
  uint64_t length;
  uint64_t capacity;
  char name[kNameCapacity];
  REDIRECTFUNCTIONS saved;
};

namespace {

bool Has(const Stream& stream, uint32_t flags) noexcept { return (stream.flags & flags) == flags; }

// --- the block ---

// The block's address while the object lives; null when it cannot be locked.
class BlockAddress {
 public:
  explicit BlockAddress(const Stream& stream) noexcept : stream_(stream) {
    if (Has(stream, V_StreamHeap) || !stream.block) {
      address_ = stream.block;
    } else {
      address_ = platform::System().lockBlock(stream.block);
      locked_ = address_ != nullptr;
    }
  }
  ~BlockAddress() {
    if (locked_) platform::UnlockBlock(stream_.block);
  }
  BlockAddress(const BlockAddress&) = delete;
  BlockAddress& operator=(const BlockAddress&) = delete;
  uint8_t* Get() const noexcept { return static_cast<uint8_t*>(address_); }

 private:
  const Stream& stream_;
  void* address_ = nullptr;
  bool locked_ = false;
};

void FreeStreamBlock(Stream& stream) noexcept {
  Has(stream, V_StreamHeap) ? V_FreeBuffer(stream.block) : platform::FreeBlock(stream.block);
  stream.block = nullptr;
}

// Gives the block another size; a failure leaves it as it was.
bool ResizeBlock(Stream& stream, uint64_t bytes) noexcept {
  const platform::Calls& system = platform::System();
  if (bytes == 0) {
    FreeStreamBlock(stream);
  } else {
    void* resized = Has(stream, V_StreamHeap) ? V_ReallocBuffer(stream.block, bytes)
                    : stream.block            ? system.reallocateBlock(stream.block, bytes)
                                              : system.allocateBlock(bytes);
    if (!resized) return false;
    stream.block = resized;
  }
  stream.capacity = bytes;
  return true;
}

// --- which streams there are ---

// Finds the link of the thread's list that leads to a stream; null for what is none. `state` itself is not looked into:
// it may be anything.
Stream** FindLive(const void* state) noexcept {
  Stream** link = &ThreadSettings().liveStreams;
  while (*link && *link != state) link = &(*link)->next;
  return *link ? link : nullptr;
}

// The stream of a handle; null for a foreign one. Each function starts with this: it resets the last-error value.
Stream* FindStream(intptr_t handle) noexcept {
  SetLastRedirectError(0);
  Stream** link = FindLive(reinterpret_cast<void*>(handle));
  return link && (*link)->magic == kMagic ? *link : nullptr;
}

int64_t Fail(int32_t error) noexcept {
  SetLastRedirectError(error);
  return -1;
}

// --- the five functions ---

// Any name opens the stream that is in force, but the pseudo name of another live one opens that.
intptr_t V_CALL StreamOpen(const char* path, uint32_t, void* userData) noexcept {
  Stream* stream = FindStream(reinterpret_cast<intptr_t>(userData));
  if (!stream || !path) return -1;
  for (Stream* other = ThreadSettings().liveStreams; other; other = other->next)
    if (std::strcmp(path, other->name) == 0) stream = other;
  stream->position = 0;
  return reinterpret_cast<intptr_t>(stream);
}

int64_t V_CALL StreamRead(intptr_t file, void* buffer, uint64_t bytes, void*) noexcept {
  Stream* stream = FindStream(file);
  if (!stream || (!buffer && bytes != 0)) return -1;
  if (stream->position >= stream->length) return 0;
  const BlockAddress address(*stream);
  if (!address.Get()) return Fail(kNoMemory);
  const uint64_t count = std::min(bytes, stream->length - stream->position);
  if (count != 0) std::memcpy(buffer, address.Get() + stream->position, count);
  stream->position += count;
  return static_cast<int64_t>(count);
}

// Makes the data `length` bytes long; what lies between the old end and `zeroUpTo` becomes zero.
bool ExtendData(Stream& stream, uint64_t length, uint64_t zeroUpTo, const BlockAddress& address) noexcept {
  if (zeroUpTo > stream.length) {
    if (!address.Get()) return false;
    std::memset(address.Get() + stream.length, 0, zeroUpTo - stream.length);
  }
  stream.length = length;
  return true;
}

// A write of nothing: the data ends at the position.
int64_t CutData(Stream& stream) noexcept {
  const uint64_t end = std::min(stream.position, stream.capacity);
  const BlockAddress address(stream);
  return ExtendData(stream, end, end, address) ? 0 : Fail(kNoMemory);
}

int64_t V_CALL StreamWrite(intptr_t file, const void* buffer, uint64_t bytes, void*) noexcept {
  Stream* stream = FindStream(file);
  if (!stream) return -1;
  if (!Has(*stream, V_StreamWrite)) return Fail(kStreamNotWritable);
  if (bytes == 0) return CutData(*stream);
  if (!buffer) return -1;

  const uint64_t end = SaturatingAdd(stream->position, bytes);
  // A failed growth leaves the old block, which takes what fits.
  if (end > stream->capacity && Has(*stream, V_StreamGrow)) ResizeBlock(*stream, RoundUp(end, kGrowthStep));
  if (stream->position > stream->capacity) return Fail(kNoMemory);
  const uint64_t count = std::min(bytes, stream->capacity - stream->position);

  const BlockAddress address(*stream);
  if (!address.Get()) return stream->capacity == 0 ? 0 : Fail(kNoMemory);
  const uint64_t newEnd = stream->position + count;
  ExtendData(*stream, std::max(stream->length, newEnd), stream->position, address);
  std::memcpy(address.Get() + stream->position, buffer, count);
  stream->position = newEnd;
  return static_cast<int64_t>(count);
}

// Positions are not checked against the data: a later read past it gives nothing, a later write grows or fails.
int64_t V_CALL StreamSeek(intptr_t file, int64_t offset, int32_t origin, void*) noexcept {
  Stream* stream = FindStream(file);
  if (!stream || origin < 0 || origin > 2) return -1;
  const uint64_t bases[] = {0, stream->position, stream->length};
  stream->position = bases[origin] + static_cast<uint64_t>(offset);
  return static_cast<int64_t>(stream->position);
}

int32_t V_CALL StreamClose(intptr_t file, void*) noexcept {
  Stream* stream = FindStream(file);
  if (!stream) return -1;
  const bool trims = Has(*stream, V_StreamGrow | V_StreamTrim | V_StreamWrite) && stream->length < stream->capacity;
  if (trims) ResizeBlock(*stream, stream->length);  // a failure keeps the larger block
  return 0;
}

// --- starting and stopping ---

// Whether a caller's block can hold what it is said to.
bool IsSoundBlock(uint32_t flags, void* block, uint64_t length, uint64_t capacity) noexcept {
  if (!block) return length == 0;
  return (flags & V_StreamHeap) != 0 || platform::BlockSize(block) >= std::max(length, capacity);
}

void Install(Stream& stream) noexcept {
  Settings& settings = ThreadSettings();
  stream.next = settings.liveStreams;
  settings.liveStreams = &stream;
  REDIRECTFUNCTIONS& table = settings.redirect;
  stream.saved = table;
  table = {sizeof table, StreamOpen, &stream, StreamRead,  &stream, StreamWrite,
           &stream,      StreamSeek, &stream, StreamClose, &stream};
}

// Takes a stream's functions out of a table, for those that it had replaced itself. True when there were any.
bool RemoveFrom(REDIRECTFUNCTIONS& table, const Stream& stream) noexcept {
  const REDIRECTFUNCTIONS& saved = stream.saved;
  bool found = false;
  const auto own = [&](const void* data) {
    found |= data == &stream;
    return data == &stream;
  };
  if (own(table.openData)) table.open = saved.open, table.openData = saved.openData;
  if (own(table.readData)) table.read = saved.read, table.readData = saved.readData;
  if (own(table.writeData)) table.write = saved.write, table.writeData = saved.writeData;
  if (own(table.seekData)) table.seek = saved.seek, table.seekData = saved.seekData;
  if (own(table.closeData)) table.close = saved.close, table.closeData = saved.closeData;
  return found;
}

// Puts back what the stream replaced: the whole table, or, where another stream was started since, its part in the
// tables that are to be put back later.
void Uninstall(const Stream& stream) noexcept {
  Settings& settings = ThreadSettings();
  *FindLive(&stream) = stream.next;
  bool wasBelow = false;
  for (Stream* other = settings.liveStreams; other; other = other->next) wasBelow |= RemoveFrom(other->saved, stream);
  if (wasBelow)
    RemoveFrom(settings.redirect, stream);
  else
    settings.redirect = stream.saved;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_StartRedirectToBuffer(void** stateOut, intptr_t* fileOut, uint32_t flags, void* buffer,
                                       uint64_t length, uint64_t capacity) noexcept {
  if (!stateOut || !IsSoundBlock(flags, buffer, length, capacity)) return kInvalidParameter;
  if (!HasOwnSettings()) return kNoMemory;  // in the shared block it would stand in every thread's way
  Buffer<Stream> made(1);
  if (!made) return kNoMemory;
  Stream& stream = made[0];
  stream = {};
  stream.magic = kMagic;
  stream.flags = flags;
  stream.block = buffer;
  stream.length = length;
  stream.capacity = buffer ? std::max(length, capacity) : 0;
  V_TRY(V_MakeRedirectName(stream.name, kNameCapacity));
  Install(stream);
  if (fileOut) {
    *fileOut = V_RedirectedOpen(stream.name, V_OpenRead | V_OpenWrite);
    if (*fileOut == -1) {
      Uninstall(stream);
      return kNoMemory;
    }
  }
  *stateOut = made.Release();
  return kSuccess;
}

int32_t V_CALL V_StopRedirectToBuffer(void* state, void** bufferOut, uint64_t* lengthOut,
                                      uint64_t* capacityOut) noexcept {
  if (!state || !FindLive(state)) return kInvalidParameter;
  auto* stream = static_cast<Stream*>(state);
  Uninstall(*stream);
  if (bufferOut) *bufferOut = stream->block;
  if (lengthOut) *lengthOut = stream->length;
  if (capacityOut) *capacityOut = stream->capacity;
  stream->magic = 0;
  platform::Free(stream);
  return kSuccess;
}
