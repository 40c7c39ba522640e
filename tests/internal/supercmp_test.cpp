// The super-compressed store against a plain byte array, with and without memory, and how often it codes a strip.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "krn/storage.h"
#include "platform/fault.h"
#include "support/bitmap.h"
#include "support/random.h"

namespace {

using namespace vexatest;
namespace platform = vexakrn::platform;
const vexakrn::Storage& storage = vexakrn::kSuperCompressedStorage;

// What rows of images look like to a coder.
void FillLikeAnImage(Random& random, uint8_t* bytes, size_t count, size_t pitch) {
  const uint64_t kind = random.Below(4);
  for (size_t i = 0; i < count; ++i) {
    const bool changes = random.Below(20) == 0;
    const auto noise = static_cast<uint8_t>(random.Next());
    if (kind == 0 || (kind < 3 && changes)) bytes[i] = noise;                   // noise; changes from
    if (kind == 1 && !changes) bytes[i] = i < pitch ? 0xFF : bytes[i - pitch];  // the row above,
    if (kind == 2 && !changes) bytes[i] = i < 3 ? 7 : bytes[i - 3];             // the pixel to the left
    if (kind == 3) bytes[i] = static_cast<uint8_t>(i * 5 / 64 % 3);             // a pattern
  }
}

class Shadowed {
 public:
  Shadowed(Random& random, int32_t width, int32_t height, int32_t bits) : random_(random) {
    EXPECT_EQ(bitmap_.Create(V_MemorySuperCompressed, width, height, bits), 1);
    EXPECT_TRUE((bitmap_->Flags & V_FlagSuperCompressed) != 0);
    bytes_.assign(Pitch() * Rows(), 0);
  }

  // One call, perhaps with failures of the system.
  void Step() {
    const bool failing = random_.Below(3) == 0;
    const uint64_t call = random_.Below(4) + 1;
    const bool onwards = random_.Coin();
    const auto attempt = [&](auto call_) {
      if (failing) platform::FailCall(call, onwards);
      const int64_t status = call_();
      platform::StopFailing();
      return status;
    };
    const uint64_t what = random_.Below(24);
    if (what == 0) {
      Resize(attempt);
    } else {
      what < 14 ? Write(attempt) : Read(attempt);
    }
    EXPECT_LE(storage.heldBytes(*bitmap_), bytes_.size());
  }

  void ExpectEqual(const char* when) {
    std::vector<uint8_t> got(bytes_.size());
    ASSERT_EQ(storage.read(*bitmap_, got.data(), 0, 0, got.size()), static_cast<int64_t>(got.size()));
    ASSERT_TRUE(got == bytes_) << when << ", first difference at byte "
                               << std::mismatch(got.begin(), got.end(), bytes_.begin()).first - got.begin();
  }
  uint32_t Refusals() const { return refusals_; }

 private:
  size_t Pitch() { return bitmap_->BytesPerLine; }
  size_t Rows() { return static_cast<size_t>(bitmap_->Height); }
  size_t StripBytes() { return std::max<size_t>(65536 / Pitch(), 1) * Pitch(); }

  struct Range {
    int32_t row;
    uint32_t offset;
    size_t at, count;
  };
  Range AnyRange() {
    const size_t row = random_.Below(Rows());
    const size_t offset = random_.Coin() ? 0 : random_.Below(Pitch());
    const size_t at = row * Pitch() + offset, left = bytes_.size() - at;
    const uint64_t scale = random_.Below(4);
    size_t count = scale == 0 ? random_.Below(left + 1) : scale == 1 ? Pitch() : random_.Below(2 * Pitch());
    if (scale == 3 && offset == 0) count = StripBytes();  // often a whole strip
    return {static_cast<int32_t>(row), static_cast<uint32_t>(offset), at, std::min(count, left)};
  }

  template <typename Attempt>
  void Write(Attempt attempt) {
    const Range range = AnyRange();
    std::vector<uint8_t> data(range.count);
    FillLikeAnImage(random_, data.data(), data.size(), Pitch());
    const auto put = [&] { return storage.write(*bitmap_, data.data(), range.row, range.offset, range.count); };
    if (const int64_t status = attempt(put); status != static_cast<int64_t>(range.count)) {
      ExpectRefusal(status);
      if (range.at / StripBytes() == (range.at + range.count - 1) / StripBytes()) ExpectEqual("after a failed put");
      EXPECT_EQ(put(), static_cast<int64_t>(range.count)) << "the next call";
    }
    std::copy(data.begin(), data.end(), bytes_.begin() + static_cast<ptrdiff_t>(range.at));
  }

  template <typename Attempt>
  void Read(Attempt attempt) {
    const Range range = AnyRange();
    GuardedBytes got(range.count);
    const int64_t status =
        attempt([&] { return storage.read(*bitmap_, got.data(), range.row, range.offset, range.count); });
    EXPECT_TRUE(got.GuardsIntact());
    if (status != static_cast<int64_t>(range.count)) return ExpectRefusal(status);
    EXPECT_TRUE(std::equal(got.data(), got.data() + range.count, bytes_.begin() + static_cast<ptrdiff_t>(range.at)))
        << "row " << range.row << ", offset " << range.offset << ", " << range.count << " bytes";
  }

  template <typename Attempt>
  void Resize(Attempt attempt) {
    const int32_t height = random_.Between(1, bitmap_->Height * 2);
    if (const int64_t status = attempt([&] { return storage.resize(*bitmap_, height); }); status != 1) {
      ExpectRefusal(status);
      return ExpectEqual("after a failed resize");
    }
    bitmap_->Height = height;
    bytes_.resize(Pitch() * Rows(), 0);
  }

  void ExpectRefusal(int64_t status) {
    ++refusals_;
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(platform::HasFailed()) << "a refusal without a reason";
  }

  Random& random_;
  Bitmap bitmap_;
  std::vector<uint8_t> bytes_;
  uint32_t refusals_ = 0;
};

TEST(SuperCompressed, EveryAccessEqualsPlainBytesAndFailuresLoseNothing) {
  constexpr struct {
    int32_t width, height, bits;
  } kShapes[] = {{1000, 1600, 1}, {9, 50, 1}, {300, 700, 8}, {1, 3, 8}, {500, 150, 24}, {30000, 4, 24}, {600000, 3, 1}};
  V_GetDefaultXResolution();  // this thread's settings exist from here on
  const auto live = platform::Live();
  uint32_t refusals = 0;
  for (const auto& shape : kShapes) {
    SCOPED_TRACE(testing::Message() << shape.width << " x " << shape.height << ", " << shape.bits << " bits");
    for (uint64_t seed = 1; seed <= 4; ++seed) {
      SCOPED_TRACE(testing::Message() << "seed " << seed);
      Random random(seed);
      Shadowed shadowed(random, shape.width, shape.height, shape.bits);
      for (int step = 0; step < 250; ++step) {
        shadowed.Step();
        if (step % 25 == 0) shadowed.ExpectEqual("now and then");
        if (HasFailure()) return;
      }
      shadowed.ExpectEqual("at the end");
      refusals += shadowed.Refusals();
    }
  }
  EXPECT_GT(refusals, 100u) << "hardly a call was refused: the failures test nothing";
  EXPECT_TRUE(platform::Live() == live) << "something is left";
}

// Every coding of a strip asks for memory twice: for its work and for its result.
uint64_t CodingsIn(const std::function<void()>& work) {
  platform::FailCall(UINT64_MAX, false);
  work();
  return platform::StopFailing() / 2;
}

TEST(SuperCompressed, RowsInOrderAndExchangedRowsCodeEachStripOnceAndASizeIsRightAtOnce) {
  constexpr int32_t kWidth = 2000, kHeight = 2600;
  for (const int32_t bits : {1, 8, 24}) {
    SCOPED_TRACE(testing::Message() << bits << " bits");
    Bitmap page;
    ASSERT_EQ(page.Create(V_MemorySuperCompressed, kWidth, kHeight, bits), 1);
    const size_t pitch = page->BytesPerLine, packed = pitch * kHeight, stripRows = 65536 / pitch;
    const uint64_t strips = (kHeight + stripRows - 1) / stripRows;
    Random random(1);
    const std::vector<uint8_t> noise = random.Bytes(packed), line(pitch, 0x33);

    const auto putAll = [&](auto rowOf) {
      for (int32_t row = 0; row < kHeight; ++row)
        ASSERT_EQ(V_PutBitmapRow(page, rowOf(static_cast<size_t>(row)), row, pitch), static_cast<int64_t>(pitch));
    };
    EXPECT_LE(CodingsIn([&] { putAll([&](size_t) { return line.data(); }); }), strips + 1);
    EXPECT_LT(page.DataSize(), packed / 50) << "equal rows";
    V_PutBitmapRow(page, noise.data(), 1, pitch);
    EXPECT_GE(page.DataSize(), stripRows * pitch) << "a strip that was changed counts as it is";
    EXPECT_LT(page.DataSize(), stripRows * pitch + packed / 50);
    ASSERT_EQ(storage.resize(*page, kHeight - 1), 1);
    ASSERT_EQ(storage.resize(*page, kHeight), 1);
    EXPECT_LT(storage.heldBytes(*page), stripRows * pitch + packed / 50) << "a strip that was cut is coded again";
    EXPECT_LE(CodingsIn([&] { putAll([&](size_t row) { return noise.data() + row * pitch; }); }), strips + 1);
    EXPECT_EQ(page.DataSize(), packed) << "what cannot be coded is held as it is";

    // Rows of two strips at a time, whichever comes first.
    std::vector<uint8_t> a(pitch), b(pitch);
    for (const bool upwards : {false, true}) {
      const auto flip = [&] {
        for (int32_t i = 0; i < kHeight / 2; ++i) {
          const int32_t row = upwards ? kHeight - 1 - i : i, other = kHeight - 1 - row;
          V_GetBitmapRow(page, a.data(), row, pitch);
          V_GetBitmapRow(page, b.data(), other, pitch);
          V_PutBitmapRow(page, b.data(), row, pitch);
          V_PutBitmapRow(page, a.data(), other, pitch);
        }
      };
      EXPECT_LE(CodingsIn(flip), 2 * strips + 2);
    }
    for (int32_t row = 0; row < kHeight; ++row) {
      V_GetBitmapRow(page, a.data(), row, pitch);
      ASSERT_EQ(std::memcmp(a.data(), noise.data() + static_cast<size_t>(row) * pitch, pitch), 0) << row;
    }
  }
}

}  // namespace
