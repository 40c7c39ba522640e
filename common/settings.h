// Settings of the calling thread.
//
// Each thread has a block of its own, made on first use and freed with the thread. When it cannot be made, the
// process-wide fallback block serves, shared and unguarded. All values start at zero but those with an initialiser.
#ifndef VEXAKRN_COMMON_SETTINGS_H
#define VEXAKRN_COMMON_SETTINGS_H

#include <cstdint>

#include "platform/platform.h"
#include "vexakrn/bitmap.h"
#include "vexakrn/files.h"
#include "vexakrn/status.h"

namespace vexakrn {

struct Stream;  // a memory stream: krn/memstream.cpp

struct MemoryThresholds {
  int32_t reserve;
  int64_t maxConventional;
  int64_t tileSize;
  int32_t fourth;
  int32_t fifth;
};

struct StatusCallbackPair {
  STATUSCALLBACK callback;
  void* userData;
};

// A reading of the system's memory, kept for a few milliseconds.
struct MemoryReading {
  bool valid;
  uint64_t milliseconds;  // when it was read
  platform::MemoryStatus value;
};

struct Settings {
  uint32_t defaultMemoryType = V_MemoryConventional;
  MemoryThresholds thresholds;
  StatusCallbackPair status;
  StatusCallbackPair copyStatus;
  REDIRECTFUNCTIONS redirect;
  Stream* liveStreams;  // memory streams that this thread has started, the newest first
  int32_t lastRedirectError;
  int32_t defaultXResolution;
  int32_t defaultYResolution;
  int32_t defaultDithering;
  MemoryReading memoryStatus;
};

Settings& ThreadSettings() noexcept;

// Whether the thread has a block of its own: what must not end up in the shared fallback block asks first.
bool HasOwnSettings() noexcept;

}  // namespace vexakrn

#endif
