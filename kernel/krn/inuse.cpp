// The list of temporary names in use.
#include <cstring>

#include "common/buffer.h"
#include "krn/tempname.h"

namespace vexakrn {
namespace {

uint64_t Hash(const char* name) noexcept {  // FNV-1a
  uint64_t hash = 0xCBF29CE484222325;
  for (; *name; ++name) hash = (hash ^ static_cast<uint8_t>(*name)) * 0x100000001B3;
  return hash;
}

}  // namespace

constinit NamesInUse namesInUse;
constinit platform::CriticalSection namesSection;

NamesInUse::Entry* NamesInUse::Find(const char* name) noexcept {
  const uint64_t hash = Hash(name);
  for (uint64_t i = 0; i < count_; ++i)
    if (entries_[i].hash == hash && std::strcmp(entries_[i].name, name) == 0) return &entries_[i];
  return nullptr;
}

bool NamesInUse::Prepare() noexcept {
  if (count_ < room_) return true;
  const uint64_t room = room_ == 0 ? 16 : room_ * 2;
  const platform::Calls& system = platform::System();
  void* grown = entries_ ? system.reallocate(entries_, room * sizeof(Entry)) : system.allocate(room * sizeof(Entry));
  if (!grown) return false;
  entries_ = static_cast<Entry*>(grown);
  room_ = room;
  return true;
}

bool NamesInUse::Contains(const char* name) noexcept { return Find(name) != nullptr; }

bool NamesInUse::Add(const char* name) noexcept {
  const uint64_t bytes = std::strlen(name) + 1;
  char* copy = AllocateArray<char>(bytes);
  if (!copy) {
    Trim();
    return false;
  }
  std::memcpy(copy, name, bytes);
  entries_[count_++] = {Hash(name), copy, false};
  return true;
}

void NamesInUse::Remove(const char* name) noexcept {
  Entry* entry = Find(name);
  if (!entry) return;
  platform::Free(entry->name);
  *entry = entries_[--count_];
  Trim();
}

void NamesInUse::Trim() noexcept {
  if (count_ != 0) return;
  platform::Free(entries_);
  entries_ = nullptr;
  room_ = 0;
}

bool NamesInUse::IsUnopened(const char* name) noexcept {
  const Entry* entry = Find(name);
  return entry && !entry->opened;
}

void NamesInUse::MarkOpened(const char* name) noexcept {
  if (Entry* entry = Find(name)) entry->opened = true;
}

}  // namespace vexakrn
