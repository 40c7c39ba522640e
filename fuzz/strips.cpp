// The coders of super-compressed strips: arbitrary bytes into the decoders, and images made from the input through both.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "input.h"
#include "krn/changes.h"
#include "krn/lz.h"

namespace {

using vexafuzz::Check;
using vexafuzz::Input;

// Blocks of the exact size: the sanitizer sees a byte too many.
using Block = std::unique_ptr<uint8_t[]>;
Block MakeBlock(size_t size) { return std::make_unique<uint8_t[]>(size); }

struct Coder {
  bool changes;
  vexakrn::LzDistances distances;

  uint64_t Encode(uint8_t* coded, uint64_t capacity, const uint8_t* strip, uint64_t bytes) const {
    return changes ? vexakrn::EncodeChanges(coded, capacity, strip, bytes, distances.above)
                   : vexakrn::LzEncode(coded, capacity, strip, bytes, distances);
  }
  bool Decode(uint8_t* strip, uint64_t bytes, const uint8_t* coded, uint64_t size) const {
    return changes ? vexakrn::DecodeChanges(strip, bytes, coded, size, distances.above)
                   : vexakrn::LzDecode(strip, bytes, coded, size, distances);
  }
};

void DecodeAnything(Input& input, const Coder& coder) {
  const size_t bytes = 1 + input.Below(input.OneIn(4) ? 100000 : 600);
  std::vector<uint8_t> rest;
  while (!input.Ended()) rest.push_back(input.Byte());
  const Block coded = MakeBlock(rest.size()), strip = MakeBlock(bytes);
  std::copy(rest.begin(), rest.end(), coded.get());
  coder.Decode(strip.get(), bytes, coded.get(), rest.size());
}

// Runs of new bytes and of copies, as images have them.
std::vector<uint8_t> MakeStrip(Input& input, uint64_t above) {
  std::vector<uint8_t> strip = {input.Byte()};
  while (!input.Ended() && strip.size() < 200000) {
    const uint32_t kind = input.Below(5);
    const size_t count = 1 + input.Below(input.OneIn(16) ? 70000 : 40);
    const size_t asked = kind == 1 ? above : kind == 2 ? 1 : kind == 3 ? 3 : 1 + input.Below(70000);
    const size_t distance = std::min<size_t>(asked, strip.size());
    for (size_t i = 0; i < count; ++i) strip.push_back(kind == 0 ? input.Byte() : strip[strip.size() - distance]);
  }
  return strip;
}

void ThereAndBack(Input& input, const Coder& coder) {
  const uint32_t room = input.Below(256);  // of 255: how much of its size a strip may take
  const std::vector<uint8_t> made = MakeStrip(input, coder.distances.above);
  const size_t bytes = made.size(), capacity = bytes * room / 255 + (room == 255 ? bytes / 7 + 100 : 0);
  const Block strip = MakeBlock(bytes), coded = MakeBlock(capacity), back = MakeBlock(bytes);
  std::copy(made.begin(), made.end(), strip.get());
  const uint64_t size = coder.Encode(coded.get(), capacity, strip.get(), bytes);
  Check(size <= capacity, "more than the capacity");
  Check(size > 0 || room < 255 || !coder.changes, "no room where there is enough");
  if (size == 0) return;
  const Block exact = MakeBlock(size);
  std::memcpy(exact.get(), coded.get(), size);
  Check(coder.Decode(back.get(), bytes, exact.get(), size), "its own output is refused");
  Check(std::memcmp(back.get(), strip.get(), bytes) == 0, "a strip came back changed");
  Check(!coder.Decode(back.get(), bytes, exact.get(), size - 1), "a cut strip is accepted");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t mode = input.Byte();
  const Coder coder = {(mode & 1) != 0, {64 + input.Below(mode & 8 ? 70000 : 200), (mode & 2) != 0 ? 3u : 1u}};
  (mode & 4) != 0 ? DecodeAnything(input, coder) : ThereAndBack(input, coder);
  return 0;
}
