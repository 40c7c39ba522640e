// Default memory type and thresholds of the calling thread.
#include "krn/thresholds.h"

#include <algorithm>
#include <limits>

#include "common/checked.h"
#include "common/settings.h"
#include "common/status.h"
#include "common/systemstatus.h"
#include "vexakrn/memory.h"

namespace vexakrn {
namespace {

constexpr int64_t kDefaultTileSize = 0x1000000;
constexpr int64_t kPercentFloor = -100;

// A negative threshold as a percentage of `whole`.
uint64_t Percentage(int64_t threshold, uint64_t whole) noexcept {
  return PercentOf(whole, static_cast<uint32_t>(-threshold));
}

}  // namespace

uint64_t ConventionalLimit() noexcept {
  const MemoryThresholds& thresholds = ThreadSettings().thresholds;
  platform::MemoryStatus memory{};
  // Where the system does not tell, its own refusal is the limit.
  uint64_t limit = std::numeric_limits<uint64_t>::max();
  const bool known = ReadMemoryStatus(&memory);
  const uint64_t available = SaturatingAdd(memory.availablePhysical, memory.availablePageFile);
  if (known) {
    const uint64_t total = SaturatingAdd(memory.totalPhysical, memory.totalPageFile);
    const uint64_t reserve =
        thresholds.reserve < 0 ? Percentage(thresholds.reserve, total) : static_cast<uint64_t>(thresholds.reserve);
    limit = reserve > available ? 0 : available - reserve;
  }
  const int64_t maximum = thresholds.maxConventional;
  if (maximum < 0) return known ? std::min(limit, Percentage(maximum, available)) : limit;
  // An absolute maximum counts with its low 32 bits; 0 is none.
  return maximum == 0 ? limit : std::min<uint64_t>(limit, static_cast<uint32_t>(maximum));
}

int64_t TileSize() noexcept {
  const int64_t size = ThreadSettings().thresholds.tileSize;
  return size > 0 ? size : kDefaultTileSize;
}

}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_SetDefaultMemoryType(uint32_t type) noexcept {
  if (type != V_MemoryConventional && type != V_MemoryDisk) return kInvalidParameter;
  ThreadSettings().defaultMemoryType = type;
  return kSuccess;
}

int32_t V_CALL V_GetDefaultMemoryType(uint32_t* type) noexcept {
  if (!type) return kInvalidParameter;
  *type = ThreadSettings().defaultMemoryType;
  return kSuccess;
}

int32_t V_CALL V_SetMemoryThresholds(int32_t reserve, int64_t maxConventional, int64_t tileSize, int32_t fourth,
                                     int32_t fifth, uint32_t which) noexcept {
  MemoryThresholds& thresholds = ThreadSettings().thresholds;
  // In this order; what was stored before a refused value stays.
  const auto store = [which](uint32_t bit, auto value, int64_t floor, auto& target) {
    if ((which & bit) == 0) return true;
    if (value < floor) return false;
    target = value;
    return true;
  };
  const bool stored = store(V_ThresholdReserve, reserve, kPercentFloor, thresholds.reserve) &&
                      store(V_ThresholdMaxConventional, maxConventional, kPercentFloor, thresholds.maxConventional) &&
                      store(V_ThresholdTileSize, tileSize, 0, thresholds.tileSize) &&
                      store(V_ThresholdFourth, fourth, kPercentFloor, thresholds.fourth) &&
                      store(V_ThresholdFifth, fifth, kPercentFloor, thresholds.fifth);
  return stored ? kSuccess : kInvalidParameter;
}

int32_t V_CALL V_GetMemoryThresholds(int32_t* reserve, int64_t* maxConventional, int64_t* tileSize, int32_t* fourth,
                                     int32_t* fifth) noexcept {
  const MemoryThresholds& thresholds = ThreadSettings().thresholds;
  if (reserve) *reserve = thresholds.reserve;
  if (maxConventional) *maxConventional = thresholds.maxConventional;
  if (tileSize) *tileSize = thresholds.tileSize;
  if (fourth) *fourth = thresholds.fourth;
  if (fifth) *fifth = thresholds.fifth;
  return kSuccess;
}
