// Pseudo file names of memory streams.
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "common/status.h"
#include "vexakrn/files.h"

namespace vexakrn {
namespace {

constexpr char kScheme[] = "VEXARedirect://";
constexpr uint32_t kLeastCapacity = 50;

std::atomic<uint64_t> counter{0};

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

int32_t V_CALL V_MakeRedirectName(char* name, uint32_t capacity) noexcept {
  if (!name) return kNullPointer;
  if (capacity < kLeastCapacity) return kBufferTooSmall;
  const uint64_t value = counter.fetch_add(1) + 1;
  std::snprintf(name, capacity, "%s%08" PRIX32 "-%08" PRIX32, kScheme, static_cast<uint32_t>(value >> 32),
                static_cast<uint32_t>(value));
  return kSuccess;
}

int32_t V_CALL V_IsRedirectName(const char* path) noexcept {
  return path && std::strncmp(path, kScheme, sizeof kScheme - 1) == 0;
}
