// The trace of unbalanced accesses.
#ifndef VEXAKRN_KRN_DIAGNOSTICS_H
#define VEXAKRN_KRN_DIAGNOSTICS_H

#include "common/atomicpair.h"
#include "common/record.h"
#include "vexakrn/system.h"

namespace vexakrn {

// The process-wide diagnostic switch.
extern AtomicPair<DIAGNOSTICTRACE> diagnosticTrace;

// Writes "pBitmap->nLockCount = %d" and the line end when the switch is on. Records of the older layout count nothing.
void WriteLockCount(const char* tag, const BITMAPHANDLE& bitmap, const char* lineEnd) noexcept;

inline void TraceLockCount(const char* tag, const BITMAPHANDLE& bitmap, const char* lineEnd) noexcept {
  if (diagnosticTrace.IsSet()) [[unlikely]]
    WriteLockCount(tag, bitmap, lineEnd);
}

}  // namespace vexakrn

#endif
