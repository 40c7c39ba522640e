// Run-length records of 1-bit rows: the encoder, the check and the expander that everything shares.
//
// A record is a 32-bit count and so many 16-bit run words (include/vexakrn/runs.h), without alignment. `words` below is
// the address of the first run word.
#ifndef VEXAKRN_KRN_RUNS_H
#define VEXAKRN_KRN_RUNS_H

#include <cstdint>
#include <cstring>

#include "common/status.h"

namespace vexakrn {

inline constexpr uint64_t kRecordHeader = 4;

inline uint32_t RunCount(const uint8_t* record) noexcept {
  uint32_t count = 0;
  std::memcpy(&count, record, sizeof count);
  return count;
}

inline uint64_t RecordBytes(const uint8_t* record) noexcept { return kRecordHeader + 2 * uint64_t{RunCount(record)}; }

// The longest record of a row.
inline constexpr uint64_t MaxRecordBytes(uint64_t pixels) noexcept { return kRecordHeader + 2 * (pixels + 1); }

// Encodes `pixels` pixels, the first of them `bitOffset` (0 to 7) bits into `source`. Returns the record's bytes and
// writes no byte beyond them; reads no byte beyond that of the last pixel.
uint64_t EncodeRecord(uint8_t* record, const uint8_t* source, uint32_t bitOffset, uint32_t pixels) noexcept;

// Adds a trailing run to a record, which has room for it: it extends the last run where the colour is the same. Returns
// the record's bytes.
uint64_t AppendRun(uint8_t* record, uint16_t pixels, uint32_t colour) noexcept;

// -13 unless the record lies within `available` bytes, has at most pixels + 1 runs, and they add up to `pixels`.
int32_t CheckRuns(const uint8_t* record, uint64_t available, uint64_t pixels) noexcept;

// Expands a checked record into packed pixels: `bytes` bytes, of which the first holds the pixels from `firstPixel` (a
// multiple of 8) on. Bits after the row's last pixel become 0.
void ExpandRecord(const uint8_t* record, uint64_t firstPixel, uint8_t* destination, uint64_t bytes) noexcept;

}  // namespace vexakrn

#endif
