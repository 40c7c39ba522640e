// Memory streams and temporary files with every call to the system failing in turn.
#include "fault_walk.h"

namespace vexatest {
namespace {

// A stream that grows, and the data that is written to it; its block is freed as its kind asks.
struct Stream {
  explicit Stream(uint32_t kind) : flags(kind | V_StreamGrow | V_StreamTrim | V_StreamWrite) {}
  ~Stream() {
    if (state != nullptr) Stop();
    (flags & V_StreamHeap) != 0 ? V_FreeBuffer(block) : V_SysFreeBlock(block);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int32_t Start() { return V_StartRedirectToBuffer(&state, &file, flags, nullptr, 0, 0); }
  int64_t Write(size_t from, size_t to) { return V_RedirectedWrite(file, data.data() + from, to - from); }
  int32_t Stop() { return V_StopRedirectToBuffer(std::exchange(state, nullptr), &block, &length, nullptr); }
  void ExpectHolds(size_t bytes) {
    ASSERT_EQ(length, bytes);
    const bool heap = (flags & V_StreamHeap) != 0;
    EXPECT_EQ(std::memcmp(heap ? block : V_SysLockBlock(block), data.data(), bytes), 0);
    if (!heap) V_SysUnlockBlock(block);
  }

  uint32_t flags;
  std::vector<uint8_t> data = Random(1).Bytes(40000);
  void *state = nullptr, *block = nullptr;
  intptr_t file = -1;
  uint64_t length = 0;
};

// A start, a write that the block cannot grow for and that keeps what it holds, and an end that may not trim it.
TEST_F(FaultWalk, Streams) {
  for (const uint32_t kind : {uint32_t{V_StreamHeap}, 0u}) {
    const auto start = [=] {
      auto state = std::make_shared<Stream>(kind);
      Trial trial{state, [=] { return state->Start(); }};
      trial.unchanged = [] { EXPECT_EQ(V_UsesRedirectIO(), 0) << "nothing is started"; };
      trial.done = [=] { EXPECT_EQ(state->Stop(), 1); };
      return trial;
    };
    EXPECT_GE(Walk("start a stream", start), 1u);
    for (const size_t before : {size_t{0}, size_t{32768}}) {
      const auto grow = [=] {
        auto state = std::make_shared<Stream>(kind);
        EXPECT_EQ(state->Start(), 1);
        EXPECT_EQ(state->Write(0, before), static_cast<int64_t>(before));
        Trial trial{state, [=] { return state->Write(before, 40000); }};
        trial.success = static_cast<int64_t>(40000 - before);
        trial.failures = {0, -1};  // there is no room left in the old block
        trial.unchanged = [=] { EXPECT_EQ(V_RedirectedSeek(state->file, 0, 1), static_cast<int64_t>(before)); };
        trial.done = [=] {
          EXPECT_EQ(state->Stop(), 1);
          state->ExpectHolds(40000);
        };
        return trial;
      };
      EXPECT_GE(Walk("stream write behind " + std::to_string(before), grow), 1u);
    }
    const auto stop = [=] {
      auto state = std::make_shared<Stream>(kind);
      EXPECT_EQ(state->Start(), 1);
      EXPECT_EQ(state->Write(0, 1000), 1000);
      Trial trial{state, [=] { return V_RedirectedClose(state->file) == 0 ? state->Stop() : -1; }};
      trial.done = [=] { state->ExpectHolds(1000); };
      return trial;
    };
    EXPECT_GE(Walk("close and stop a stream", stop), 1u);
  }
}

TEST_F(FaultWalk, TemporaryNames) {
  struct State {
    char name[600] = "untouched";
    ~State() { V_DeleteTempFile(name); }
  };
  for (const uint32_t mode : {uint32_t{V_TempFileDisk}, uint32_t{V_TempFileMemory}}) {
    const auto make = [=, this] {
      auto state = std::make_shared<State>();
      Trial trial{state, [=] { return V_GetTempFileNameUTF8(state->name, 600, mode, nullptr, nullptr, nullptr, 0); }};
      trial.failures = {V_StatusNoMemory, V_StatusInternal, V_StatusTempFileCreateAccessDenied, V_StatusTempFileCreate,
                        V_StatusTooManyTempFiles};
      trial.unchanged = [=, this] { EXPECT_TRUE(state->name[0] == 0 && directory_.Names().empty()); };
      trial.done = [=, this] {
        EXPECT_NE(state->name[0], 0);
        EXPECT_EQ(directory_.Names().size(), mode == V_TempFileDisk ? 1u : 0u);
        EXPECT_EQ(V_DeleteTempFile(state->name), 1);
      };
      return trial;
    };
    EXPECT_GE(Walk("name in mode " + std::to_string(mode), make), 1u);
  }
}

TEST_F(FaultWalk, TemporaryCopy) {
  const std::string from = directory_ / "from", to = directory_ / "to";
  struct Files {
    std::string from, to;
    ~Files() {
      V_DeleteTempFile(from.c_str());
      V_DeleteTempFile(to.c_str());
    }
  };
  const auto make = [=] {
    WriteAll(from, std::string(1000, 'f'));
    Trial trial{std::make_shared<Files>(from, to), [=] { return V_RedirectedTempFileCopy(from.c_str(), to.c_str()); }};
    trial.failures = {V_StatusFileRead, V_StatusTempFileCreateAccessDenied, V_StatusTempFileCreate, V_StatusNoMemory};
    trial.unchanged = [=] { EXPECT_EQ(ReadAll(from), std::string(1000, 'f')); };
    trial.done = [=] {
      EXPECT_EQ(ReadAll(to), std::string(1000, 'f'));
      const intptr_t file = V_RedirectedOpen(to.c_str(), V_OpenRead);
      EXPECT_EQ(V_RedirectedSeek(file, 0, 2), 1000);
      EXPECT_EQ(V_RedirectedClose(file), 0);
    };
    return trial;
  };
  EXPECT_GE(Walk("copy", make), 4u);
}

}  // namespace
}  // namespace vexatest
