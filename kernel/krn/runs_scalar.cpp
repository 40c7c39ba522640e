// Run-length records byte by byte: the definition, to which the other levels are equal bit for bit.
#include <cstring>

#include "krn/runkernels.h"

namespace vexakrn {
namespace {

constexpr uint32_t kMaxRun = 65535;

// The runs of every byte from its most significant bit on.
struct ByteRuns {
  uint16_t lengths[256][8];
  uint8_t count[256];
};

constexpr ByteRuns kByteRuns = [] {
  ByteRuns runs{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t last = 0;
    for (uint32_t bit = 0; bit < 8; ++bit) {
      if (bit > 0 && ((byte << bit ^ byte << (bit - 1)) & 0x80) != 0) ++last;
      ++runs.lengths[byte][last];
    }
    runs.count[byte] = static_cast<uint8_t>(last + 1);
  }
  return runs;
}();

uint32_t RunAt(const uint8_t* words, uint64_t index) noexcept {
  uint16_t run = 0;
  std::memcpy(&run, words + 2 * index, sizeof run);
  return run;
}

// Collects runs into run words; the current run is still open.
class RunWriter {
 public:
  RunWriter(uint8_t* words, int32_t firstRun) noexcept : words_(words), run_(firstRun) {}

  void Add(uint32_t colour, int32_t pixels) noexcept {
    if (colour != colour_) {
      End();
      colour_ = colour;
      run_ = pixels;
    } else if (run_ + pixels > static_cast<int32_t>(kMaxRun)) {  // a run of 0 lets the colour go on in a new word
      End();
      run_ = 0;
      End();
      run_ = pixels;
    } else {
      run_ += pixels;
    }
  }

  uint32_t Finish() noexcept {
    End();
    return count_;
  }

 private:
  void End() noexcept {
    const auto word = static_cast<uint16_t>(run_);
    std::memcpy(words_ + 2 * uint64_t{count_++}, &word, sizeof word);
  }

  uint8_t* words_;
  uint32_t count_ = 0, colour_ = 0;
  int32_t run_;
};

// The bits before the offset are pixels of colour 0 that the first run does not count.
uint32_t Encode(uint8_t* words, const uint8_t* source, uint32_t bitOffset, uint32_t pixels) noexcept {
  RunWriter writer(words, -static_cast<int32_t>(bitOffset));
  const uint64_t end = uint64_t{bitOffset} + pixels;
  uint32_t mask = 0xFFu >> bitOffset;
  for (uint64_t bit = 0; bit < end; bit += 8, mask = 0xFF) {
    const uint32_t byte = source[bit / 8] & mask;
    auto left = static_cast<int32_t>(end - bit < 8 ? end - bit : 8);
    uint32_t colour = byte >> 7;
    for (uint32_t i = 0; i < kByteRuns.count[byte] && left > 0; ++i, colour ^= 1) {
      const int32_t length = kByteRuns.lengths[byte][i] < left ? kByteRuns.lengths[byte][i] : left;
      writer.Add(colour, length);
      left -= length;
    }
  }
  return writer.Finish();
}

uint64_t Sum(const uint8_t* words, uint64_t count) noexcept {
  uint64_t sum = 0;
  for (uint64_t i = 0; i < count; ++i) sum += RunAt(words, i);
  return sum;
}

void SetPixels(uint8_t* row, uint64_t first, uint64_t end) noexcept {
  const auto head = static_cast<uint8_t>(0xFF >> first % 8), tail = static_cast<uint8_t>(~(0xFF >> end % 8));
  if (first / 8 == end / 8) {
    row[first / 8] = static_cast<uint8_t>(row[first / 8] | (head & tail));
    return;
  }
  row[first / 8] |= head;
  std::memset(row + first / 8 + 1, 0xFF, end / 8 - first / 8 - 1);
  if (tail != 0) row[end / 8] |= tail;
}

void Expand(const uint8_t* words, uint64_t count, uint64_t firstPixel, uint8_t* destination, uint64_t bytes) noexcept {
  std::memset(destination, 0, bytes);
  const uint64_t windowEnd = firstPixel + 8 * bytes;
  uint64_t end = 0;
  for (uint64_t i = 0; i < count && end < windowEnd; ++i) {
    const uint64_t first = end < firstPixel ? firstPixel : end;
    end += RunAt(words, i);
    const uint64_t last = end < windowEnd ? end : windowEnd;
    if (i % 2 == 1 && first < last) SetPixels(destination, first - firstPixel, last - firstPixel);
  }
}

}  // namespace

const RunKernels kRunKernelsScalar = {Encode, Sum, Expand};

}  // namespace vexakrn
