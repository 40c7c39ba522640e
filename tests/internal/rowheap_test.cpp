// The heaps of compressed rows under rewriting without end.
#include <map>

#include "krn/rowheap.h"
#include "platform/fault.h"
#include "support/testing.h"

namespace vexatest {
namespace {

using namespace vexakrn;

// Records of drifting sizes, put with and without memory: each slot holds the last record that was taken, and the heap
// stays in proportion to what lives in it.
TEST(RowHeap, HoldsItsRecordsInBoundedSpace) {
  const auto live = platform::Live();
  Random random(3);
  RowBlock* block = MakeBlock(64);
  ASSERT_NE(block, nullptr);
  std::map<size_t, std::vector<uint8_t>> model;
  for (int step = 0; step < 40000; ++step) {
    const size_t row = random.Below(64);
    RowSlot& slot = SlotsOf(block)[row];
    const auto runs = static_cast<uint32_t>(random.Below(step / 5000 % 2 == 0 ? 300 : 20));
    std::vector<uint8_t> record = random.Bytes(4 + 2 * size_t{runs});
    std::memcpy(record.data(), &runs, 4);
    const bool failing = random.Below(10) == 0;
    if (failing) platform::FailCall(1, /*onwards=*/true);
    const bool stored = StoreRecord(*block, slot, record.data(), record.size()) == kSuccess;
    EXPECT_TRUE(stored || failing);
    if (stored) model[row] = record;
    if (failing) platform::StopFailing();
    if (random.Below(50) == 0) {
      DropRecord(*block, SlotsOf(block)[row]);
      model.erase(row);
    }
    uint64_t needed = 0;
    for (const auto& [index, bytes] : model) needed += bytes.size();
    ASSERT_LE(block->heap->used, 4 * needed + 16384) << "step " << step;
    ASSERT_GE(block->heap->live, needed);
  }
  ASSERT_EQ(V_TrimBitmapHeap(*block), kSuccess);
  EXPECT_EQ(block->heap->used, block->heap->live);
  for (size_t row = 0; row < 64; ++row) {
    const uint8_t* held = SlotsOf(block)[row].record;
    ASSERT_EQ(held != nullptr, model.count(row) == 1);
    EXPECT_TRUE(!held || std::memcmp(held, model[row].data(), model[row].size()) == 0) << row;
  }
  FreeBlock(block);
  EXPECT_TRUE(platform::Live() == live);
}

}  // namespace
}  // namespace vexatest
