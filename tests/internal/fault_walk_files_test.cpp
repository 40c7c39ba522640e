// Memory streams and temporary files with every call to the system failing in turn.
#include "fault_walk.h"

namespace vexatest {
namespace {

// A start, a write that the block grows for, and an end that trims it where it can. What a failed write leaves is held
// against a model by the fuzz target of streams.
TEST_F(FaultWalk, Streams) {
  struct State {
    uint32_t flags;
    void* block = nullptr;
    uint64_t length = 0;
    std::vector<uint8_t> data = Random(1).Bytes(40000);
    bool OnHeap() const { return (flags & V_StreamHeap) != 0; }
    ~State() { OnHeap() ? V_FreeBuffer(block) : V_SysFreeBlock(block); }
  };
  for (const uint32_t kind : {uint32_t{V_StreamHeap}, 0u}) {
    const auto make = [=] {
      const auto s = std::make_shared<State>(kind | V_StreamGrow | V_StreamTrim | V_StreamWrite);
      Trial trial{s, [=]() -> int64_t {
                    void* stream = nullptr;
                    intptr_t file = -1;
                    const int32_t status = V_StartRedirectToBuffer(&stream, &file, s->flags, nullptr, 0, 0);
                    EXPECT_EQ(V_UsesRedirectIO(), status == 1);
                    if (status != 1) return status;
                    const int64_t done = V_RedirectedWrite(file, s->data.data(), s->data.size());
                    V_RedirectedWrite(file, nullptr, 0);  // cuts what follows, which is nothing
                    EXPECT_EQ(V_RedirectedClose(file), 0);
                    EXPECT_EQ(V_StopRedirectToBuffer(stream, &s->block, &s->length, nullptr), 1);
                    return done == 40000 ? 1 : V_StatusNoMemory;
                  }};
      trial.unchanged = [=] { EXPECT_EQ(s->length, 0u); };
      trial.done = [=] {
        ASSERT_EQ(s->length, 40000u);
        const void* bytes = s->OnHeap() ? s->block : V_SysLockBlock(s->block);
        EXPECT_EQ(std::memcmp(bytes, s->data.data(), s->length), 0);
        if (!s->OnHeap()) V_SysUnlockBlock(s->block);
      };
      return trial;
    };
    EXPECT_GE(Walk("a stream", make), 3u);
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
