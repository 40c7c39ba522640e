// Detection of processor features, and the switch that lowers them.
#include "common/cpu.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace vexakrn {
namespace {

int32_t DetectedLevel() noexcept {
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("sse4.1")) return 0;
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi2")) return 1;
  // What the 512-bit kernels are written for: byte and word lanes, shorter vectors, byte permutes and compression.
  const bool wide = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                    __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
                    __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2");
  return wide ? 3 : 2;
#else
  return 0;
#endif
}

bool DetectedBlockMove() noexcept {
#if defined(__x86_64__)
  constexpr uint32_t kEnhancedRepMovsb = 1u << 9;
  uint32_t a = 0, b = 0, c = 0, d = 0;
  return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kEnhancedRepMovsb) != 0;
#else
  return false;
#endif
}

int32_t Clamp(int64_t level) noexcept {
  static const int32_t best = DetectedLevel();
  return static_cast<int32_t>(std::clamp<int64_t>(level, 0, best));
}

// VEXAKRN_CPU=0 to 3; anything else is no limit.
int32_t InitialLevel() noexcept {
  const char* text = std::getenv("VEXAKRN_CPU");
  const bool isLevel = text && text[0] >= '0' && text[0] <= '3' && text[1] == '\0';
  return Clamp(isLevel ? text[0] - '0' : 3);
}

std::atomic<int32_t>& Level() noexcept {
  static std::atomic<int32_t> level{InitialLevel()};
  return level;
}

}  // namespace

CpuLevel ActiveCpuLevel() noexcept { return static_cast<CpuLevel>(Level().load(std::memory_order_relaxed)); }

CpuLevel SetCpuLevel(int32_t level) noexcept {
  Level().store(Clamp(level), std::memory_order_relaxed);
  return ActiveCpuLevel();
}

bool HasFastBlockMove() noexcept {
  static const bool has = DetectedBlockMove();
  return has && ActiveCpuLevel() != CpuLevel::Scalar;
}

}  // namespace vexakrn
