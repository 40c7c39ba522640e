// Run-length records from outside, as they are or put together from runs: every processor level refuses them or expands
// them alike.
#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "input.h"
#include "vexakrn.h"

namespace {

using vexafuzz::Check;
using vexafuzz::Input;
using Bytes = std::vector<uint8_t>;

struct Rows {
  int32_t width = 0, count = 1;
  Bytes records;
};

Rows Take(Input& input) {
  Rows rows;
  if (input.OneIn(4)) {
    rows.width = input.Hostile(100000) % 1000000;
    rows.count = static_cast<int32_t>(input.Below(5)) - 1;
    while (!input.Ended()) rows.records.push_back(input.Byte());
    return rows;
  }
  rows.records.resize(4);
  while (!input.Ended() && rows.width < 400000) {
    const uint32_t run = input.OneIn(6) ? input.Number<uint16_t>() : input.Below(40) * input.Below(2);
    rows.width += static_cast<int32_t>(run);
    rows.records.insert(rows.records.end(), {static_cast<uint8_t>(run), static_cast<uint8_t>(run >> 8)});
  }
  const auto count = static_cast<uint32_t>(rows.records.size() / 2 - 2);
  std::memcpy(rows.records.data(), &count, 4);
  return rows;
}

// What a level makes of the rows, in a block of the size that is needed and no more.
std::pair<int32_t, Bytes> Expand(const Rows& rows) {
  const size_t pitch = rows.width < 0 ? 0 : static_cast<size_t>(rows.width + 31) / 8 & ~size_t{3};
  Bytes pixels(pitch * static_cast<size_t>(std::max(rows.count, 1)) + 1, 0xCD);
  const int32_t status = V_ExpandRows(pixels.data(), rows.records.data(), rows.records.size(), rows.width, rows.count);
  Check(pixels.back() == 0xCD, "a byte behind the rows");
  return {status, pixels};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Rows rows = Take(input);
  V_SetCpuLevel(0);
  const auto want = Expand(rows);
  for (int32_t level = 1; V_SetCpuLevel(level) == level; ++level) Check(Expand(rows) == want, "the levels differ");
  return 0;
}
