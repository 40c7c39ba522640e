// Run-length records from outside, as they are or put together from runs: every processor level refuses them or expands
// them alike, and encodes what they hold alike.
#include <algorithm>
#include <cstring>
#include <vector>

#include "input.h"
#include "krn/runs.h"
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

// What a level makes of the rows. Blocks have the size that is needed and no more.
struct Outcome {
  int32_t status = 0;
  Bytes pixels, window, encoded;
  bool operator==(const Outcome&) const = default;
};

Outcome Run(const Rows& rows, Input input) {
  const size_t pitch = rows.width < 0 ? 0 : static_cast<size_t>(rows.width + 31) / 8 & ~size_t{3};
  Outcome got;
  got.pixels.assign(pitch * static_cast<size_t>(std::max(rows.count, 1)) + 1, 0xCD);
  got.status = V_ExpandRows(got.pixels.data(), rows.records.data(), rows.records.size(), rows.width, rows.count);
  Check(got.pixels.back() == 0xCD, "a byte behind the rows");
  if (got.status != 1 || rows.count < 1) return got;

  const size_t first = input.Below(static_cast<uint32_t>(pitch) + 1);
  got.window.resize(input.Below(static_cast<uint32_t>(pitch - first) + 1));
  if (!got.window.empty()) vexakrn::ExpandRecord(rows.records.data(), 8 * first, got.window.data(), got.window.size());
  Check(std::equal(got.window.begin(), got.window.end(), got.pixels.begin() + static_cast<ptrdiff_t>(first)),
        "a window differs from the row");

  const uint32_t offset = rows.width > 0 ? input.Below(8) % static_cast<uint32_t>(rows.width) : 0;
  const auto pixels = static_cast<uint32_t>(rows.width) - offset;
  const Bytes source(got.pixels.data(), got.pixels.data() + (rows.width + 7) / 8);
  Bytes room(vexakrn::MaxRecordBytes(pixels));
  got.encoded.resize(vexakrn::EncodeRecord(room.data(), source.data(), offset, pixels));
  vexakrn::EncodeRecord(got.encoded.data(), source.data(), offset, pixels);
  Check(vexakrn::CheckRuns(got.encoded.data(), got.encoded.size(), pixels) == 1, "an encoded row is malformed");
  return got;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Input choices = input;
  const Rows rows = Take(input);
  V_SetCpuLevel(0);
  const Outcome want = Run(rows, choices);
  for (int32_t level = 1; V_SetCpuLevel(level) == level; ++level)
    Check(Run(rows, choices) == want, "the levels differ");
  return 0;
}
