// Run-length records at every processor level, against runs and pixels that are counted one by one.
#include "krn/runs.h"
#include "support/testing.h"

namespace vexatest {
namespace {

using vexakrn::CheckRuns;
using vexakrn::EncodeRecord;
using vexakrn::ExpandRecord;
using Runs = std::vector<uint16_t>;
using Pixels = std::vector<uint8_t>;  // one a byte

struct Records : testing::Test {
  Random random_{0x5EED};
};

// A piece of a long run ends at the last whole byte of the source that keeps it within 65535.
Runs CountRuns(const Pixels& pixels, uint64_t offset) {
  Runs runs;
  uint64_t start = offset;
  for (uint64_t i = 0, colour = 0; i <= pixels.size(); ++i) {
    if (i < pixels.size() && pixels[i] == colour) continue;
    for (; i + offset - start > 65535; start += runs[runs.size() - 2]) {
      runs.push_back(static_cast<uint16_t>((start + 65535) / 8 * 8 - start));
      runs.push_back(0);
    }
    runs.push_back(static_cast<uint16_t>(i + offset - start));
    start = i + offset;
    colour ^= 1;
  }
  return runs;
}

std::vector<uint8_t> RecordOf(const Runs& runs) {
  const auto count = static_cast<uint32_t>(runs.size());
  std::vector<uint8_t> record(4 + 2 * runs.size());
  std::memcpy(record.data(), &count, 4);
  for (size_t i = 0; i < runs.size(); ++i) std::memcpy(&record[4 + 2 * i], &runs[i], 2);
  return record;
}

// Puts pixels into packed bytes from bit `offset` on; the other bits stay as they are.
template <typename Bytes>
void Pack(const Pixels& pixels, uint64_t offset, Bytes& bytes) {
  for (uint64_t i = 0; i < pixels.size(); ++i) {
    uint8_t& byte = bytes.data()[(i + offset) / 8];
    const auto bit = static_cast<uint8_t>(0x80 >> (i + offset) % 8);
    byte = static_cast<uint8_t>(pixels[i] ? byte | bit : byte & ~bit);
  }
}

// A copy that ends where its guards begin, and starts at any alignment.
struct Placed {
  Placed(const std::vector<uint8_t>& bytes, size_t shift) : room(bytes.size() + shift), data(room.data() + shift) {
    std::copy(bytes.begin(), bytes.end(), data);
  }
  GuardedBytes room;
  uint8_t* data;
};

void ExpectExpands(const Placed& record, const Pixels& pixels, uint64_t firstPixel, uint64_t bytes) {
  std::vector<uint8_t> want(bytes);
  if (firstPixel < pixels.size()) {
    const uint64_t last = std::min<uint64_t>(pixels.size(), firstPixel + 8 * bytes);
    Pack({pixels.begin() + static_cast<ptrdiff_t>(firstPixel), pixels.begin() + static_cast<ptrdiff_t>(last)}, 0, want);
  }
  GuardedBytes got(bytes);
  ExpandRecord(record.data, firstPixel, got.data(), bytes);
  EXPECT_TRUE(got == want && got.GuardsIntact()) << bytes << " bytes from pixel " << firstPixel;
}

// The record is accepted for these pixels and no others, and gives them back, whole or from any byte on.
void ExpectHolds(const std::vector<uint8_t>& bytes, const Pixels& pixels, Random& random) {
  const Placed record(bytes, random.Below(32));
  EXPECT_EQ(CheckRuns(record.data, bytes.size(), pixels.size()), 1);
  EXPECT_EQ(CheckRuns(record.data, bytes.size() - 1, pixels.size()), -13);
  for (const size_t wrong : {pixels.size() + 1, pixels.size() - 1})
    EXPECT_EQ(CheckRuns(record.data, bytes.size(), wrong), -13);
  const uint64_t whole = (pixels.size() + 7) / 8;
  ExpectExpands(record, pixels, 0, whole + random.Below(9));
  for (int i = 0; i < 3; ++i) {
    const uint64_t first = random.Below(whole + 2);
    ExpectExpands(record, pixels, 8 * first, random.Below(whole + 9 - std::min(first, whole)));
  }
}

void ExpectEncodes(const Pixels& pixels, uint32_t offset, Random& random) {
  std::vector<uint8_t> bytes = random.Bytes((offset + pixels.size() + 7) / 8);  // what is around the pixels is anything
  Pack(pixels, offset, bytes);
  const Placed source(bytes, random.Below(32));
  const std::vector<uint8_t> want = RecordOf(CountRuns(pixels, offset));
  GuardedBytes record(want.size());
  EXPECT_EQ(EncodeRecord(record.data(), source.data, offset, static_cast<uint32_t>(pixels.size())), want.size());
  EXPECT_TRUE(record == want && record.GuardsIntact());
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), source.data)) << "the source was changed";
  ExpectHolds(want, pixels, random);
}

// Colours change about every `length` pixels.
Pixels MakePixels(Random& random, uint64_t count, uint64_t length) {
  Pixels pixels(count);
  auto colour = static_cast<uint8_t>(random.Below(2));
  for (uint8_t& pixel : pixels) pixel = colour = static_cast<uint8_t>(colour ^ (random.Below(length) == 0));
  return pixels;
}

TEST_F(Records, HoldTheRunsOfAnyRowAtEveryWidthAndOffset) {
  AtEachLevel([this] {  // from 4096 pixels on the encoders take more than one step
    for (uint64_t width = 1; width < 13000; width += width < 300 ? 1 : 1 + random_.Below(800))
      for (uint32_t offset = 0; offset < 8; ++offset) {
        SCOPED_TRACE(testing::Message() << width << " pixels, offset " << offset);
        constexpr uint64_t kLengths[] = {1, 2, 5, 20, 100, 1000};
        ExpectEncodes(MakePixels(random_, width, kLengths[random_.Below(6)]), offset, random_);
        if (HasFailure()) return;
      }
  });
}

TEST_F(Records, CutLongRunsAtWholeBytes) {
  AtEachLevel([this] {
    for (const uint64_t limit : {65535u, 65528u + 65535u, 2 * 65528u + 65535u})
      for (uint64_t length = limit - 8; length <= limit + 10; ++length) {
        // The run alone, and between others, from any bit of a byte on.
        Pixels pixels = MakePixels(random_, random_.Below(10), 2);
        pixels.insert(pixels.end(), length, random_.Coin());
        const Pixels behind = MakePixels(random_, random_.Below(2) * random_.Below(9), 2);
        pixels.insert(pixels.end(), behind.begin(), behind.end());
        SCOPED_TRACE(testing::Message() << "a run of about " << length);
        ExpectEncodes(pixels, static_cast<uint32_t>(random_.Below(8)), random_);
      }
  });
}

// What the encoder never writes and callers may: pieces of any length, and chains of zeros anywhere.
TEST_F(Records, MayHoldRunsOfNoPixelsAnywhere) {
  AtEachLevel([this] {
    for (uint64_t i = 0; i < 2000; ++i) {
      Runs runs;
      Pixels pixels;
      const uint64_t longest = i % 3 == 0 ? 1 : i % 50 == 1 ? 3000 : 90;
      for (uint64_t count = random_.Below(i % 3 == 0 ? 9 : 200); count > 0; --count) {
        runs.push_back(static_cast<uint16_t>(random_.Below(i % 2 + 2) == 0 ? 0 : random_.Below(longest + 1)));
        pixels.insert(pixels.end(), runs.back(), runs.size() % 2 == 0);
      }
      const Placed record(RecordOf(runs), random_.Below(32));
      const bool tooMany = runs.size() > pixels.size() + 1;
      EXPECT_EQ(CheckRuns(record.data, 4 + 2 * runs.size(), pixels.size()), tooMany ? -13 : 1);
      for (uint64_t first = 0; first <= pixels.size() + 8; first += 8 * (1 + longest / 200))
        ExpectExpands(record, pixels, first, random_.Below(40));
      ASSERT_FALSE(HasFailure()) << "record " << i;
    }
  });
}

TEST_F(Records, OfRowsGoInAndOutThroughTheInterface) {
  std::vector<uint8_t> record(64), source(8751);
  for (const auto& [offset, pixels, runs] : {std::tuple(3, 70000, Runs{65533, 0, 4467}), {7, 0, {0}}}) {
    EXPECT_EQ(V_CompressRow(record.data(), source.data(), offset, pixels), pixels);
    EXPECT_EQ(std::memcmp(record.data(), RecordOf(runs).data(), 4 + 2 * runs.size()), 0) << pixels;
  }
  for (const auto& [offset, pixels] : {std::pair(-1, 1), {8, 1}, {0, -1}})
    EXPECT_EQ(V_CompressRow(record.data(), source.data(), offset, pixels), -13);
  EXPECT_EQ(V_CompressRows(record.data(), source.data(), -1, 1), -13);
  EXPECT_EQ(V_ExpandRows(source.data(), record.data(), record.size(), 1, -1), -13);

  // The last byte of a row has one pixel, and a byte of padding follows it.
  constexpr int32_t kWidth = 12337, kRows = 5;
  constexpr size_t kPitch = 1544;
  std::vector<uint8_t> rows = random_.Bytes(kRows * kPitch), records(kRows * V_RECORD_BYTES(kWidth));
  ASSERT_EQ(V_CompressRows(records.data(), rows.data(), kWidth, kRows), 1);
  for (size_t row = 0; row < kRows; ++row) rows[row * kPitch + 1542] &= 0x80, rows[row * kPitch + 1543] = 0;
  std::vector<uint64_t> ends{0};
  while (ends.size() <= kRows) ends.push_back(ends.back() + vexakrn::RecordBytes(&records[ends.back()]));
  GuardedBytes got(rows.size());
  EXPECT_EQ(V_ExpandRows(got.data(), records.data(), ends[kRows], kWidth, kRows), 1);
  EXPECT_TRUE(got == rows && got.GuardsIntact());
  EXPECT_EQ(V_ExpandRows(got.data(), records.data(), ends[kRows] - 1, kWidth, kRows), -13);
  records[ends[2]] ^= 1;  // one run more or less: the rows before it are written, and no others
  std::fill_n(got.data(), rows.size(), uint8_t{0xCD});
  std::fill(rows.begin() + 2 * kPitch, rows.end(), uint8_t{0xCD});
  EXPECT_EQ(V_ExpandRows(got.data(), records.data(), ends[kRows], kWidth, kRows), -13);
  EXPECT_TRUE(got == rows);
}

// A record of a row's beginning with the rest as a trailing run is that of the row; pieces of a long one add up.
TEST_F(Records, TrailingRunsContinueTheRow) {
  for (const uint32_t begun : {0u, 8u, 40u})
    for (const uint16_t rest : std::initializer_list<uint16_t>{0, 1, 300, 65494, 65495, 65496, 65535})
      for (const uint8_t colour : {uint8_t{0}, uint8_t{1}}) {
        SCOPED_TRACE(testing::Message() << begun << " pixels, then " << rest << " of colour " << +colour);
        Pixels pixels = MakePixels(random_, begun, 20);
        std::vector<uint8_t> source(begun / 8 + 1), record(64 + 2 * begun);
        Pack(pixels, 0, source);
        EncodeRecord(record.data(), source.data(), 0, begun);
        record.resize(vexakrn::AppendRun(record.data(), rest, colour));
        pixels.insert(pixels.end(), rest, colour);
        ExpectHolds(record, pixels, random_);
      }
}

}  // namespace
}  // namespace vexatest
