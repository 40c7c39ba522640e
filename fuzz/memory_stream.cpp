// Memory streams: the input is a sequence of calls on up to three nested streams, each held against a plain model.
#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include "input.h"
#include "platform/fault.h"
#include "vexakrn.h"

namespace {

using vexafuzz::Check;
using vexafuzz::Input;
namespace platform = vexakrn::platform;

constexpr uint64_t kStep = 32768;
constexpr uint32_t kNear = 200000;            // positions that a block may really grow to
constexpr uint64_t kFar = uint64_t{1} << 48;  // from here on no block can

struct Stream {
  void* state = nullptr;
  intptr_t file = -1;
  uint32_t flags = 0;
  std::vector<uint8_t> data;  // the bytes of data; its size is the length
  uint64_t capacity = 0;
  uint64_t position = 0;

  void Start(Input& input);
  void Read(Input& input);
  void Write(Input& input);
  void Seek(Input& input);
  void Reopen(Input& input);
  void Stop();

  bool Has(uint32_t all) const { return (flags & all) == all; }
};

void Stream::Start(Input& input) {
  flags = input.Byte();
  const uint64_t size = input.OneIn(2) ? 0 : input.Below(5000);
  const uint64_t length = size ? input.Below(static_cast<uint32_t>(size) + 1) : 0;
  void* block = nullptr;
  if (size > 0) {
    for (size_t i = 0; i < length; ++i) data.push_back(static_cast<uint8_t>(i * 31 + 7));
    block = Has(V_StreamHeap) ? V_ReallocBuffer(nullptr, size) : V_SysAllocBlock(size);
    if (length > 0) std::memcpy(Has(V_StreamHeap) ? block : V_SysLockBlock(block), data.data(), length);
    if (length > 0 && !Has(V_StreamHeap)) V_SysUnlockBlock(block);
  }
  capacity = size;
  platform::FailCall(1, true);
  Check(V_StartRedirectToBuffer(&state, &file, flags, block, length, size) == V_StatusNoMemory, "no memory to start");
  platform::StopFailing();
  Check(V_StartRedirectToBuffer(&state, &file, flags, block, length, size) == 1 && file != -1, "a start failed");
  Check(V_RedirectedSeek(file, 0, 0) == 0, "seek to the start");
}

void Stream::Read(Input& input) {
  const uint64_t count = input.Below(input.OneIn(4) ? 70000 : 300);
  std::vector<uint8_t> got(count + 1);  // never without an address
  const uint64_t left = position < data.size() ? data.size() - position : 0;
  const uint64_t want = std::min(count, left);
  // With the room for what is left any count is harmless.
  const bool huge = count >= left && input.OneIn(8);
  const int64_t done = V_RedirectedRead(file, got.data(), huge ? std::numeric_limits<uint64_t>::max() : count);
  Check(done == static_cast<int64_t>(want), "bytes read");
  Check(want == 0 || std::memcmp(got.data(), data.data() + position, want) == 0, "contents read");
  position += want;
}

void Stream::Write(Input& input) {
  const uint64_t count = input.OneIn(6) ? 0 : input.Below(input.OneIn(8) ? 70000 : 300);
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(position + 13 * i + 1);
  const bool noMemory = input.OneIn(6);
  if (noMemory) platform::FailCall(1, true);
  const int64_t done = V_RedirectedWrite(file, bytes.data(), count);
  if (noMemory) platform::StopFailing();
  if (!Has(V_StreamWrite))
    return Check(done == -1 && V_GetLastRedirectError() == V_StatusStreamNotWritable, "a stream that is not writable");
  Check((V_GetLastRedirectError() == 0) == (done >= 0), "last error of a write");
  const bool failed = noMemory && platform::HasFailed();
  if (failed && done == -1 && !Has(V_StreamHeap)) return;  // a movable block could not be locked
  if (count == 0) {
    Check(done == 0, "a cut");
    data.resize(std::min(position, capacity));
    return;
  }
  const bool grows = position > capacity || count > capacity - position;
  if (grows && Has(V_StreamGrow) && !failed && position < kFar)
    capacity = (position + count + kStep - 1) / kStep * kStep;
  if (position > capacity) return Check(done == -1, "a write beyond the block");
  const uint64_t want = std::min(count, capacity - position);
  Check(done == static_cast<int64_t>(want), "bytes written");
  if (position + want > data.size()) data.resize(position + want);  // a gap reads as zeros
  std::copy_n(bytes.begin(), want, data.begin() + static_cast<ptrdiff_t>(position));
  position += want;
}

void Stream::Seek(Input& input) {
  const int32_t origin = input.OneIn(12) ? input.Number<int32_t>() : static_cast<int32_t>(input.Below(3));
  using Limits = std::numeric_limits<int64_t>;
  const uint32_t kind = input.Below(8);
  const int64_t offset = kind == 0   ? input.Number<int64_t>()
                         : kind == 1 ? Limits::max() - static_cast<int64_t>(input.Below(200))
                         : kind == 2 ? Limits::min() + static_cast<int64_t>(input.Below(200))
                         : kind == 3 ? -static_cast<int64_t>(input.Below(kNear))
                         : kind == 4 ? static_cast<int64_t>(capacity) - static_cast<int64_t>(input.Below(3))
                                     : static_cast<int64_t>(input.Below(kNear));
  const uint64_t from = origin == 0 ? 0 : origin == 1 ? position : data.size();
  const int64_t done = V_RedirectedSeek(file, offset, origin);
  if (origin < 0 || origin > 2) return Check(done == -1, "a seek from nowhere");
  position = from + static_cast<uint64_t>(offset);  // 64 bits; what lies before the start is far beyond the end
  Check(static_cast<uint64_t>(done) == position, "the new position");
  // Between what can grow and what cannot lies what would only use up the machine.
  if (position > 2 * kNear && position < kFar) {
    Check(V_RedirectedSeek(file, 0, 0) == 0, "seek to the start");
    position = 0;
  }
}

void Stream::Reopen(Input& input) {
  platform::FailCall(1, true);
  Check(V_RedirectedClose(file) == 0, "a close that cannot trim");
  platform::StopFailing();
  Check(V_RedirectedClose(file) == 0, "a close");
  if (Has(V_StreamGrow | V_StreamTrim | V_StreamWrite)) capacity = std::min<uint64_t>(capacity, data.size());
  file = V_RedirectedOpen(input.OneIn(2) ? "any name" : "", V_OpenRead | V_OpenWrite);
  Check(file != -1, "an open of a stream");
  Check(V_RedirectedSeek(file, 0, 0) == 0, "seek to the start");
  position = 0;
}

void Stream::Stop() {
  void* block = nullptr;
  uint64_t length = 0, room = 0;
  Check(V_StopRedirectToBuffer(state, &block, &length, &room) == 1, "a stop");
  Check(length == data.size() && room == capacity, "length and capacity at the stop");
  if (length > 0) {
    const void* address = Has(V_StreamHeap) ? block : V_SysLockBlock(block);
    Check(address && std::memcmp(address, data.data(), length) == 0, "contents at the stop");
  }
  Has(V_StreamHeap) ? V_FreeBuffer(block) : V_SysFreeBlock(block);
}

void CallWithForeignHandle(Input& input) {
  alignas(8) static const uint8_t notAStream[256] = {};
  const intptr_t handles[] = {0, -1, 5, reinterpret_cast<intptr_t>(notAStream), input.Number<intptr_t>()};
  const intptr_t file = handles[input.Below(5)];
  uint8_t bytes[16] = {};
  Check(V_RedirectedRead(file, bytes, 16) == -1 && V_RedirectedWrite(file, bytes, 16) == -1 &&
            V_RedirectedSeek(file, 0, 0) == -1 && V_RedirectedClose(file) == -1,
        "a foreign handle");
  Check(V_StopRedirectToBuffer(reinterpret_cast<void*>(file), nullptr, nullptr, nullptr) == -13, "a foreign state");
}

}  // namespace

extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);  // the thread's settings exist from here on
  const platform::LiveResources before = platform::Live();
  {
    std::vector<Stream> streams(1);
    streams.back().Start(input);
    for (int step = 0; step < 300 && !input.Ended(); ++step) {
      // A handle works with the functions in force, which are those of a stream; the outer ones live on.
      Stream& stream =
          streams[input.OneIn(4) ? input.Below(static_cast<uint32_t>(streams.size())) : streams.size() - 1];
      const uint32_t what = input.Below(12);
      if (what < 3) stream.Write(input);
      if (what == 3 || what == 4) stream.Read(input);
      if (what >= 5 && what <= 7) stream.Seek(input);
      if (what == 8) streams.back().Reopen(input);
      if (what == 9 && streams.size() < 3) streams.emplace_back(), streams.back().Start(input);
      if (what == 10 && streams.size() > 1) streams.back().Stop(), streams.pop_back();
      if (what == 11) CallWithForeignHandle(input);
    }
    while (!streams.empty()) streams.back().Stop(), streams.pop_back();
  }
  Check(V_UsesRedirectIO() == 0, "functions left behind");
  Check(platform::Live() == before, "a block was leaked");
  return 0;
}
