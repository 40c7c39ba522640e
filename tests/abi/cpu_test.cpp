// The choice of processor features: what may be set, and what the environment may lower.
#include <limits>

#include "abi/child.h"

namespace {

using vexatest::Child;
using vexatest::Folder;

constexpr const char* kVariable = "VEXAKRN_CPU";

class CpuLevel : public ::testing::Test {
 protected:
  CpuLevel() : start_(V_GetCpuLevel()), best_(V_SetCpuLevel(std::numeric_limits<int32_t>::max())) {}
  ~CpuLevel() override { V_SetCpuLevel(start_); }
  const int32_t start_, best_;
};

TEST(DISABLED_Child, TellsItsCpuLevel) {
  std::ofstream(vexatest::FromUtf8(std::string(std::getenv(vexatest::kChildFolder)) + "/level"))
      << V_GetCpuLevel() << std::endl;
  vexatest::FinishChild();
}

TEST_F(CpuLevel, IsWhatWasAskedForAndTheEnvironmentLowersItFromTheStart) {
  ASSERT_LE(best_, 3);
  for (const int32_t asked : {0, 1, 2, 3, 1000, -1, std::numeric_limits<int32_t>::min()}) {
    EXPECT_EQ(V_SetCpuLevel(asked), std::clamp(asked, 0, best_)) << asked;
    EXPECT_EQ(V_GetCpuLevel(), std::clamp(asked, 0, best_));
  }
  const char* old = std::getenv(kVariable);
  const std::string saved = old ? old : "";
  Folder folder;
  const auto startLevel = [&](const char* value) {
    vexatest::SetEnvironment(kVariable, value);
    EXPECT_EQ(Child("TellsItsCpuLevel", folder.Name()).Wait(), vexatest::kChildDone);
    return std::atoi(vexatest::ReadAll(folder / "level").c_str());
  };
  EXPECT_EQ(startLevel(nullptr), best_);
  for (int32_t level : {0, 1, 2, 3}) EXPECT_EQ(startLevel(std::to_string(level).c_str()), std::min(level, best_));
  EXPECT_EQ(startLevel("9"), best_) << "the environment cannot raise the level";
  vexatest::SetEnvironment(kVariable, old ? saved.c_str() : nullptr);
}

}  // namespace
