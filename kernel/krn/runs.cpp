// Run-length records: the public functions, the checks, and the choice of the inner loops.
#include "krn/runs.h"

#include "common/cpu.h"
#include "common/record.h"
#include "krn/runkernels.h"
#include "vexakrn/runs.h"

namespace vexakrn {
namespace {

const RunKernels& ActiveRunKernels() noexcept {
  switch (ActiveCpuLevel()) {
    case CpuLevel::Avx512:
      return kRunKernelsAvx512;
    case CpuLevel::Avx2:
      return kRunKernelsAvx2;
    default:
      return kRunKernelsScalar;
  }
}

}  // namespace

uint64_t EncodeRecord(uint8_t* record, const uint8_t* source, uint32_t bitOffset, uint32_t pixels) noexcept {
  uint8_t* words = record + kRecordHeader;
  uint32_t count = 1;
  if (pixels == 0) {
    std::memset(words, 0, 2);
  } else {
    count = ActiveRunKernels().encode(words, source, bitOffset, pixels);
  }
  std::memcpy(record, &count, sizeof count);
  return kRecordHeader + 2 * uint64_t{count};
}

uint64_t AppendRun(uint8_t* record, uint16_t pixels, uint32_t colour) noexcept {
  constexpr uint32_t kLongest = 65535;
  uint32_t count = RunCount(record);
  if (pixels == 0) return RecordBytes(record);
  const auto put = [&](uint32_t run) noexcept {
    const auto word = static_cast<uint16_t>(run);
    std::memcpy(record + kRecordHeader + 2 * uint64_t{count++}, &word, sizeof word);
  };
  uint32_t run = 0;
  if (count > 0 && (count - 1) % 2 == colour) {
    uint16_t last = 0;
    std::memcpy(&last, record + kRecordHeader + 2 * uint64_t{--count}, sizeof last);
    run = last;
  } else if (count == 0 && colour == 1) {
    put(0);
  }
  if (run + pixels > kLongest) {
    put(run);
    put(0);
    run = 0;
  }
  put(run + pixels);
  std::memcpy(record, &count, sizeof count);
  return RecordBytes(record);
}

int32_t CheckRuns(const uint8_t* record, uint64_t available, uint64_t pixels) noexcept {
  if (available < kRecordHeader) return kInvalidParameter;
  const uint32_t count = RunCount(record);
  if (count > pixels + 1 || RecordBytes(record) > available) return kInvalidParameter;
  return ActiveRunKernels().sum(record + kRecordHeader, count) == pixels ? kSuccess : kInvalidParameter;
}

void ExpandRecord(const uint8_t* record, uint64_t firstPixel, uint8_t* destination, uint64_t bytes) noexcept {
  ActiveRunKernels().expand(record + kRecordHeader, RunCount(record), firstPixel, destination, bytes);
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_CompressRow(void* record, uint8_t* source, int32_t bitOffset, int32_t pixelCount) noexcept {
  if (!record || !source || bitOffset < 0 || bitOffset > 7 || pixelCount < 0) return kInvalidParameter;
  EncodeRecord(static_cast<uint8_t*>(record), source, static_cast<uint32_t>(bitOffset),
               static_cast<uint32_t>(pixelCount));
  return pixelCount;
}

int32_t V_CALL V_CompressRows(void* records, uint8_t* source, int32_t width, int32_t rowCount) noexcept {
  if (rowCount == 0) return kSuccess;
  if (!records || !source || width < 0 || rowCount < 0) return kInvalidParameter;
  auto* record = static_cast<uint8_t*>(records);
  const uint64_t pitch = RowPitch(width, 1);
  for (int32_t row = 0; row < rowCount; ++row, source += pitch)
    record += EncodeRecord(record, source, 0, static_cast<uint32_t>(width));
  return kSuccess;
}

int32_t V_CALL V_ExpandRows(uint8_t* destination, const void* records, uint64_t recordBytes, int32_t width,
                            int32_t rowCount) noexcept {
  if (rowCount == 0) return kSuccess;
  if (!destination || !records || width < 0 || rowCount < 0) return kInvalidParameter;
  const auto* record = static_cast<const uint8_t*>(records);
  const uint64_t pitch = RowPitch(width, 1);
  for (int32_t row = 0; row < rowCount; ++row, destination += pitch) {
    V_TRY(CheckRuns(record, recordBytes, static_cast<uint64_t>(width)));
    ExpandRecord(record, 0, destination, pitch);
    recordBytes -= RecordBytes(record);
    record += RecordBytes(record);
  }
  return kSuccess;
}
