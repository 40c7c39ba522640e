// Memory streams, redirected files and temporary files with every call to the system failing in turn.
#include "fault_walk.h"

#include <cstring>

#include "support/random.h"
#include "vexakrn.h"

namespace vexatest {
namespace {

class FileFaultWalk : public FaultWalk {};

// --- memory streams -----------------------------------------------------------------------------------------------

// A running stream; its block is freed as its kind asks.
struct Stream {
  explicit Stream(uint32_t streamFlags) : flags(streamFlags) {}
  ~Stream() {
    if (state != nullptr) Stop();
    if ((flags & V_StreamHeap) != 0)
      V_FreeBuffer(block);
    else
      V_SysFreeBlock(block);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int32_t Start() { return V_StartRedirectToBuffer(&state, &file, flags, nullptr, 0, 0); }
  int32_t Stop() { return V_StopRedirectToBuffer(std::exchange(state, nullptr), &block, &length, &capacity); }

  std::vector<uint8_t> Contents() {
    std::vector<uint8_t> bytes(length);
    if (length == 0) return bytes;
    const bool heap = (flags & V_StreamHeap) != 0;
    const void* data = heap ? block : V_SysLockBlock(block);
    memcpy(bytes.data(), data, bytes.size());
    if (!heap) V_SysUnlockBlock(block);
    return bytes;
  }

  uint32_t flags;
  void* state = nullptr;
  intptr_t file = -1;
  void* block = nullptr;
  uint64_t length = 0, capacity = 0;
};

constexpr uint32_t kGrowing = V_StreamGrow | V_StreamWrite;

TEST_F(FileFaultWalk, StreamStart) {
  EXPECT_GE(Walk("start a stream",
                 [] {
                   auto state = std::make_shared<Stream>(kGrowing | V_StreamHeap);
                   Trial trial{state, [=] { return state->Start(); }};
                   trial.unchanged = [] { EXPECT_EQ(V_UsesRedirectIO(), 0) << "nothing is started"; };
                   trial.done = [=] {
                     EXPECT_EQ(V_UsesRedirectIO(), 1);
                     EXPECT_EQ(V_RedirectedWrite(state->file, "abc", 3), 3);
                     EXPECT_EQ(V_RedirectedClose(state->file), 0);
                     EXPECT_EQ(state->Stop(), 1);
                     EXPECT_EQ(state->length, 3u);
                     EXPECT_EQ(V_UsesRedirectIO(), 0);
                   };
                   return trial;
                 }),
            1u);
}

// A write that the block cannot grow for keeps the old block and what it holds.
TEST_F(FileFaultWalk, StreamGrowth) {
  for (const uint32_t kind : {uint32_t{V_StreamHeap}, 0u})
    for (const size_t before : {size_t{0}, size_t{32768}}) {
      const uint64_t failures = Walk("stream write behind " + std::to_string(before), [=] {
        struct State : Stream {
          using Stream::Stream;
          std::vector<uint8_t> data = Random(1).Bytes(40000);
        };
        auto state = std::make_shared<State>(kGrowing | kind);
        EXPECT_EQ(state->Start(), 1);
        EXPECT_EQ(V_RedirectedWrite(state->file, state->data.data(), before), static_cast<int64_t>(before));
        Trial trial{state, [=] {
                      return V_RedirectedWrite(state->file, state->data.data() + before, state->data.size() - before);
                    }};
        trial.success = static_cast<int64_t>(state->data.size() - before);
        trial.failures = {0, -1};  // there is no room left in the old block
        trial.unchanged = [=] { EXPECT_EQ(V_RedirectedSeek(state->file, 0, 1), static_cast<int64_t>(before)); };
        trial.done = [=] {
          EXPECT_EQ(V_RedirectedClose(state->file), 0);
          EXPECT_EQ(state->Stop(), 1);
          EXPECT_EQ(state->Contents(), state->data);
        };
        return trial;
      });
      EXPECT_GE(failures, 1u);
    }
}

// Closing trims the block; when that fails, it stays as it is.
TEST_F(FileFaultWalk, StreamCloseAndStop) {
  for (const uint32_t kind : {uint32_t{V_StreamHeap}, 0u})
    EXPECT_GE(Walk("close and stop a stream",
                   [=] {
                     struct State : Stream {
                       using Stream::Stream;
                       std::vector<uint8_t> data = Random(1).Bytes(1000);
                     };
                     auto state = std::make_shared<State>(kGrowing | V_StreamTrim | kind);
                     EXPECT_EQ(state->Start(), 1);
                     EXPECT_EQ(V_RedirectedWrite(state->file, state->data.data(), 1000), 1000);
                     Trial trial{state, [=] {
                                   const int32_t status = V_RedirectedClose(state->file);
                                   return status == 0 ? state->Stop() : status;
                                 }};
                     trial.done = [=] {
                       EXPECT_EQ(state->Contents(), state->data);
                       EXPECT_TRUE(state->capacity == 1000 || state->capacity == 32768) << state->capacity;
                     };
                     return trial;
                   }),
              1u);
}

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::vector<uint8_t> bytes(5000);
  const intptr_t file = V_RedirectedOpen(path.c_str(), V_OpenRead);
  const int64_t got = V_RedirectedRead(file, bytes.data(), bytes.size());
  EXPECT_GE(got, 0) << path;
  V_RedirectedClose(file);
  bytes.resize(static_cast<size_t>(std::max<int64_t>(got, 0)));
  return bytes;
}

// A file of 1000 bytes, open at position 10.
struct OpenFile {
  explicit OpenFile(const std::string& name) : path(name) {
    file = V_RedirectedOpen(path.c_str(), V_OpenRead | V_OpenWrite | V_OpenCreate);
    EXPECT_NE(file, -1);
    EXPECT_EQ(V_RedirectedWrite(file, data.data(), data.size()), static_cast<int64_t>(data.size()));
    EXPECT_EQ(V_RedirectedSeek(file, 10, 0), 10);
  }
  ~OpenFile() {
    if (file != -1) V_RedirectedClose(file);
    V_DeleteTempFile(path.c_str());
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  std::vector<uint8_t> Contents() const { return ReadFile(path); }

  std::string path;
  std::vector<uint8_t> data = Random(5).Bytes(1000);
  intptr_t file = -1;
};

// --- temporary files --------------------------------------------------------------------------------------------------

const std::vector<int64_t> kNameFailures = {V_StatusNoMemory, V_StatusInternal, V_StatusTempFileCreateAccessDenied,
                                            V_StatusTempFileCreate, V_StatusTooManyTempFiles};

TEST_F(FileFaultWalk, TemporaryNames) {
  for (const uint32_t mode : {uint32_t{V_TempFileDisk}, uint32_t{V_TempFileMemory}}) {
    const uint64_t failures = Walk("name in mode " + std::to_string(mode), [=, this] {
      struct State {
        char name[600] = "untouched";
        ~State() { V_DeleteTempFile(name); }
      };
      auto state = std::make_shared<State>();
      Trial trial{state, [=] {
                    return V_GetTempFileNameUTF8(state->name, sizeof(state->name), mode, nullptr, nullptr, nullptr, 0);
                  }};
      trial.failures = kNameFailures;
      trial.unchanged = [=, this] {
        EXPECT_STREQ(state->name, "");
        EXPECT_EQ(directory_.Names(), std::vector<std::string>{});
      };
      trial.done = [=, this] {
        EXPECT_NE(std::string(state->name), "");
        EXPECT_EQ(directory_.Names().size(), mode == V_TempFileDisk ? 1u : 0u);
        EXPECT_EQ(V_DeleteTempFile(state->name), 1);
      };
      return trial;
    });
    EXPECT_GE(failures, 1u);
  }
}

TEST_F(FileFaultWalk, TemporaryCopy) {
  const std::string from = directory_.File("from"), to = directory_.File("to");
  EXPECT_GE(Walk("copy",
                 [=] {
                   struct State : OpenFile {
                     State(const std::string& source, const std::string& target) : OpenFile(source), copy(target) {
                       V_RedirectedClose(std::exchange(file, -1));
                     }
                     ~State() { V_DeleteTempFile(copy.c_str()); }
                     std::string copy;
                   };
                   auto state = std::make_shared<State>(from, to);
                   Trial trial{state, [=] { return V_RedirectedTempFileCopy(from.c_str(), to.c_str()); }};
                   trial.failures = {V_StatusFileRead, V_StatusTempFileCreateAccessDenied, V_StatusTempFileCreate,
                                     V_StatusNoMemory};
                   trial.unchanged = [=] { EXPECT_EQ(state->Contents(), state->data); };
                   trial.done = [=] {
                     EXPECT_EQ(state->Contents(), state->data);
                     EXPECT_EQ(ReadFile(to), state->data);
                   };
                   return trial;
                 }),
            4u);
}

}  // namespace
}  // namespace vexatest
