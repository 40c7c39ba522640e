// Thresholds that are percentages of the system's memory, against a reading of that memory.
#include "platform/platform.h"
#include "support/testing.h"

namespace vexatest {
namespace {

// Allocates in memory or not at all, about `share` of `bytes`; the memory is never touched.
int32_t AllocateShare(uint64_t bytes, double share) {
  constexpr uint64_t kPitch = 1 << 20;
  Bitmap bitmap;
  EXPECT_EQ(bitmap.Init(kPitch, static_cast<int32_t>(static_cast<double>(bytes) * share / kPitch) + 1, 8), 1);
  return V_AllocateBitmap(bitmap, V_MemoryConventional | V_MemoryNoTiled | V_MemoryNoDisk);
}

TEST(PercentThresholds, AreTakenOfTheRightMemory) {
  AccountBalance balance;
  ScopedThresholds thresholds;
  vexakrn::platform::MemoryStatus status{};
  ASSERT_EQ(vexakrn::platform::System().memoryStatus(&status), 0);
  const uint64_t available = status.availablePhysical + status.availablePageFile;
  const uint64_t total = status.totalPhysical + status.totalPageFile;
  if (available < (uint64_t{1} << 28)) GTEST_SKIP() << "too little memory to tell shares of it apart";

  thresholds.MaxConventional(-10);
  EXPECT_EQ(AllocateShare(available, 0.05), 1);
  EXPECT_EQ(AllocateShare(available, 0.2), -1) << "more than a tenth of what is available";
  thresholds.MaxConventional(0);
  EXPECT_EQ(AllocateShare(available, 0.2), 1);

  // The reserve is a share of all memory, taken off what is available.
  const double free = static_cast<double>(available) / static_cast<double>(total);
  const auto half = static_cast<int32_t>(free * 50);
  if (half < 4) GTEST_SKIP() << "too little of the memory is available";
  thresholds.Reserve(-half);
  EXPECT_EQ(AllocateShare(available, 0.35), 1);
  EXPECT_EQ(AllocateShare(available, 0.7), -1) << "the reserve would be touched";
  thresholds.Reserve(-100);
  EXPECT_EQ(AllocateShare(available, 0.01), -1);
}

}  // namespace
}  // namespace vexatest
