// Memory that passes between caller and engine: heap blocks and movable blocks.
#include "common/status.h"
#include "platform/platform.h"
#include "vexakrn/memory.h"

using namespace vexakrn;

void* V_CALL V_ReallocBuffer(void* block, uint64_t bytes) noexcept {
  if (bytes == 0) {
    platform::Free(block);
    return nullptr;
  }
  const platform::Calls& system = platform::System();
  return block ? system.reallocate(block, bytes) : system.allocate(bytes);
}

void V_CALL V_FreeBuffer(void* block) noexcept { platform::Free(block); }

void* V_CALL V_SysAllocBlock(uint64_t bytes) noexcept { return platform::System().allocateBlock(bytes); }
void* V_CALL V_SysLockBlock(void* block) noexcept { return block ? platform::System().lockBlock(block) : nullptr; }

int32_t V_CALL V_SysUnlockBlock(void* block) noexcept {
  if (!block) return kNullPointer;
  return platform::UnlockBlock(block) ? kSuccess : kInvalidParameter;
}

void V_CALL V_SysFreeBlock(void* block) noexcept { platform::FreeBlock(block); }
