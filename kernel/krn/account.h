// The process-wide account of conventional memory.
#ifndef VEXAKRN_KRN_ACCOUNT_H
#define VEXAKRN_KRN_ACCOUNT_H

#include <cstdint>

namespace vexakrn {

// Takes bytes from the account; -1905 when its limit does not allow them.
int32_t ReserveMemory(uint64_t bytes) noexcept;

// Gives them back.
void ReturnMemory(uint64_t bytes) noexcept;

// What could be reserved at present; 2^63 - 1 without a limit.
uint64_t AvailableMemory() noexcept;

}  // namespace vexakrn

#endif
