// The calling thread's settings block.
#include "common/settings.h"

#include "common/buffer.h"

namespace vexakrn {
namespace {

Settings fallbackSettings{};

void FreeSettings(void* block) noexcept { platform::Free(block); }

Settings* MakeSettings() noexcept {
  Settings* block = AllocateArray<Settings>(1);
  if (!block) return nullptr;
  *block = Settings{};
  if (platform::SetThreadValue(block, FreeSettings)) return block;
  platform::Free(block);
  return nullptr;
}

}  // namespace

Settings& ThreadSettings() noexcept {
  if (void* block = platform::ThreadValue()) return *static_cast<Settings*>(block);
  Settings* made = MakeSettings();
  return made ? *made : fallbackSettings;
}

bool HasOwnSettings() noexcept { return &ThreadSettings() != &fallbackSettings; }

}  // namespace vexakrn
