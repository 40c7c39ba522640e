// Version, diagnostic switch, processor level.
#include "vexakrn/system.h"

#include <cstdio>

#include "common/cpu.h"
#include "krn/diagnostics.h"

namespace vexakrn {

AtomicPair<DIAGNOSTICTRACE> diagnosticTrace;

void WriteLockCount(const char* tag, const BITMAPHANDLE& bitmap, const char* lineEnd) noexcept {
  if (IsOldLayout(bitmap)) return;
  const auto trace = diagnosticTrace.Load();
  if (!trace.function) return;
  char text[64];
  std::snprintf(text, sizeof text, "pBitmap->nLockCount = %d%s", static_cast<int>(bitmap.nLockCount), lineEnd);
  trace.function(tag, text, trace.userData);
}

}  // namespace vexakrn

using namespace vexakrn;

uint32_t V_CALL V_GetVersion(void) noexcept {
  return VEXAKRN_VERSION_MAJOR << 16 | VEXAKRN_VERSION_MINOR << 8 | VEXAKRN_VERSION_PATCH;
}

int32_t V_CALL V_SetDiagnostics(DIAGNOSTICTRACE trace, void* userData) noexcept {
  diagnosticTrace.Store(trace, userData);
  return kSuccess;
}

int32_t V_CALL V_SetCpuLevel(int32_t level) noexcept { return static_cast<int32_t>(SetCpuLevel(level)); }
int32_t V_CALL V_GetCpuLevel(void) noexcept { return static_cast<int32_t>(ActiveCpuLevel()); }
