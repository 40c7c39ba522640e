// Heap, anonymous memory, views of files and movable blocks.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/posix/posix.h"

namespace vexakrn::platform {
namespace {

constexpr uint64_t kLargePage = 2u << 20;

uint64_t PageSize() noexcept {
  static const auto size = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  return size;
}

uint64_t WholePages(uint64_t bytes) noexcept { return (bytes + PageSize() - 1) / PageSize() * PageSize(); }

bool FitsAddressSpace(uint64_t bytes) noexcept { return bytes != 0 && bytes <= (uint64_t{1} << 47); }

void* MapPages(uint64_t bytes) noexcept {
  void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return address == MAP_FAILED ? nullptr : address;
}

// Memory that starts at a large page: maps one page too many and gives both ends back.
void* MapLargePages(uint64_t bytes) noexcept {
  auto* raw = static_cast<uint8_t*>(MapPages(bytes + kLargePage));
  if (!raw) return nullptr;
  const uint64_t misalignment = reinterpret_cast<uintptr_t>(raw) % kLargePage;
  const uint64_t head = misalignment == 0 ? 0 : kLargePage - misalignment;
  if (head != 0) munmap(raw, head);
  munmap(raw + head + bytes, kLargePage - head);
  madvise(raw + head, bytes, MADV_HUGEPAGE);  // a wish: without it the block is as good, only slower to touch
  return raw + head;
}

// A movable block: the handle stays when the data moves.
struct MovableBlock {
  uint64_t size;
  uint32_t locks;
  void* data;
};

}  // namespace

void* AllocateHeap(size_t bytes) noexcept { return std::malloc(bytes); }
void* ReallocateHeap(void* block, size_t bytes) noexcept { return std::realloc(block, bytes); }

void Free(void* block) noexcept {
  if (!block) return;
  std::free(block);
  VEXAKRN_RELEASED(Block);
}

int32_t MapAnonymous(uint64_t bytes, Mapping* mapping) noexcept {
  if (!FitsAddressSpace(bytes)) return ENOMEM;
  const uint64_t length = WholePages(bytes);
  void* address = length >= kLargePage ? MapLargePages(length) : nullptr;
  if (!address) address = MapPages(length);
  if (!address) return LastError();
  *mapping = {address, static_cast<uint8_t*>(address)};
  return 0;
}

int32_t RemapAnonymous(Mapping* mapping, uint64_t oldBytes, uint64_t newBytes) noexcept {
  if (!FitsAddressSpace(newBytes)) return ENOMEM;
  void* moved = mremap(mapping->address, WholePages(oldBytes), WholePages(newBytes), MREMAP_MAYMOVE);
  if (moved == MAP_FAILED) return LastError();
  *mapping = {moved, static_cast<uint8_t*>(moved)};
  // What a later growth uncovers in the last page is to be zero.
  if (newBytes < oldBytes) std::memset(mapping->address + newBytes, 0, WholePages(newBytes) - newBytes);
  return 0;
}

void UnmapAnonymous(const Mapping& mapping, uint64_t bytes) noexcept {
  if (!mapping.address) return;
  munmap(mapping.address, WholePages(bytes));
  VEXAKRN_RELEASED(Mapping);
}

// A mapping of a file needs no object here: the handle is the descriptor plus one, which is never null.
int32_t CreateFileMapping(File file, uint64_t, void** fileMapping) noexcept {
  *fileMapping = reinterpret_cast<void*>(file + 1);
  return 0;
}

void CloseFileMapping(void*) noexcept {}

int32_t MapView(void* fileMapping, uint64_t offset, uint64_t bytes, uint8_t** view) noexcept {
  const auto file = static_cast<int>(reinterpret_cast<intptr_t>(fileMapping) - 1);
  if (!FitsAddressSpace(bytes) || offset > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) return EINVAL;
  void* address =
      mmap(nullptr, WholePages(bytes), PROT_READ | PROT_WRITE, MAP_SHARED, file, static_cast<off_t>(offset));
  if (address == MAP_FAILED) return LastError();
  *view = static_cast<uint8_t*>(address);
  return 0;
}

void UnmapView(uint8_t* view, uint64_t bytes) noexcept {
  if (!view) return;
  munmap(view, WholePages(bytes));
  VEXAKRN_RELEASED(View);
}

void* AllocateMovable(uint64_t bytes) noexcept {
  auto* block = static_cast<MovableBlock*>(std::malloc(sizeof(MovableBlock)));
  void* data = std::calloc(bytes != 0 ? bytes : 1, 1);
  if (!block || !data) {
    std::free(block);
    std::free(data);
    return nullptr;
  }
  *block = {bytes, 0, data};
  return block;
}

void* ReallocateMovable(void* handle, uint64_t bytes) noexcept {
  auto* block = static_cast<MovableBlock*>(handle);
  void* data = std::realloc(block->data, bytes != 0 ? bytes : 1);
  if (!data) return nullptr;
  if (bytes > block->size) std::memset(static_cast<uint8_t*>(data) + block->size, 0, bytes - block->size);
  block->data = data;
  block->size = bytes;
  return block;
}

void* LockMovable(void* handle) noexcept {
  auto* block = static_cast<MovableBlock*>(handle);
  ++block->locks;
  return block->data;
}

bool UnlockBlock(void* handle) noexcept {
  auto* block = static_cast<MovableBlock*>(handle);
  if (!block || block->locks == 0) return false;
  --block->locks;
  return true;
}

uint64_t BlockSize(void* handle) noexcept { return handle ? static_cast<MovableBlock*>(handle)->size : 0; }

void FreeBlock(void* handle) noexcept {
  if (!handle) return;
  std::free(static_cast<MovableBlock*>(handle)->data);
  std::free(handle);
  VEXAKRN_RELEASED(MovableBlock);
}

}  // namespace vexakrn::platform
