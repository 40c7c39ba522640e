// The processor features that kernels may use: what the CPU has, lowered by request.
#ifndef VEXAKRN_COMMON_CPU_H
#define VEXAKRN_COMMON_CPU_H

#include <cstdint>

namespace vexakrn {

enum class CpuLevel : int32_t { Scalar = 0, Sse41 = 1, Avx2 = 2, Avx512 = 3 };

CpuLevel ActiveCpuLevel() noexcept;

// Asks for a level; the one in force afterwards is the result.
CpuLevel SetCpuLevel(int32_t level) noexcept;

// Whether the processor moves large blocks fastest by its own instruction for that.
bool HasFastBlockMove() noexcept;

}  // namespace vexakrn

#endif
