// Temporary files with every call to the system failing in turn.
#include "fault_walk.h"

namespace vexatest {
namespace {

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
  const auto make = [=] {
    WriteAll(from, std::string(1000, 'f'));
    const auto deleteBoth = [=](void*) {
      for (const std::string& name : {from, to}) V_DeleteTempFile(name.c_str());
    };
    Trial trial{std::shared_ptr<void>(nullptr, deleteBoth),
                [=] { return V_RedirectedTempFileCopy(from.c_str(), to.c_str()); }};
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
