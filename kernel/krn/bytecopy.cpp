// Moving pixels from one place in memory to another.
#include "krn/bytecopy.h"

#include <algorithm>
#include <cstring>

#include "common/cpu.h"

namespace vexakrn {
namespace {

constexpr uint64_t kLine = 64;  // a cache line, which is written whole

// From these sizes on each way pays. The processor's own block move passes the caches by where that helps, and is as
// good as any copy where it does not; for shorter pieces of a large result there are streaming stores. Those lose while
// source and result together still lie in a shared cache.
constexpr uint64_t kBlockMoveBytes = 2u << 20;
constexpr uint64_t kStreamingTotal = 12u << 20;

void MoveBlock(uint8_t* destination, const uint8_t* source, uint64_t bytes) noexcept {
#if defined(__x86_64__)
  asm volatile("rep movsb" : "+D"(destination), "+S"(source), "+c"(bytes) : : "memory");
#else
  std::memcpy(destination, source, bytes);
#endif
}

void StreamBytes(uint8_t* destination, const uint8_t* source, uint64_t bytes) noexcept {
  const uint64_t lead = std::min((kLine - reinterpret_cast<uintptr_t>(destination) % kLine) % kLine, bytes);
  const uint64_t lines = (bytes - lead) / kLine, done = lead + lines * kLine;
  const bool wide = ActiveCpuLevel() == CpuLevel::Avx512;
  std::memcpy(destination, source, lead);
  (wide ? StreamLinesAvx512 : StreamLinesSse41)(destination + lead, source + lead, lines);
  std::memcpy(destination + done, source + done, bytes - done);
}

uint64_t LoadBigEndian(const uint8_t* bytes) noexcept {
  uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return __builtin_bswap64(value);
}

void StoreBigEndian(uint8_t* bytes, uint64_t value) noexcept {
  value = __builtin_bswap64(value);
  std::memcpy(bytes, &value, sizeof value);
}

}  // namespace

void CopyBytes(uint8_t* destination, const uint8_t* source, uint64_t bytes, uint64_t total) noexcept {
  if (bytes >= kBlockMoveBytes && HasFastBlockMove()) return MoveBlock(destination, source, bytes);
  if (total >= kStreamingTotal && ActiveCpuLevel() != CpuLevel::Scalar) return StreamBytes(destination, source, bytes);
  std::memcpy(destination, source, bytes);
}

void CopyBits(uint8_t* destination, const uint8_t* source, uint32_t offset, uint64_t bits) noexcept {
  if (bits == 0) return;
  const uint64_t bytes = (bits + 7) / 8, sourceBytes = (offset + bits + 7) / 8;
  uint64_t done = 0;
  if (offset == 0) {
    std::memcpy(destination, source, bytes);
    done = bytes;
  }
  for (; done + 9 <= sourceBytes; done += 8) {
    const uint64_t next = source[done + 8];
    StoreBigEndian(destination + done, LoadBigEndian(source + done) << offset | next >> (8 - offset));
  }
  for (; done < bytes; ++done) {
    const uint32_t next = done + 1 < sourceBytes ? source[done + 1] : 0;
    destination[done] = static_cast<uint8_t>(uint32_t{source[done]} << offset | next >> (8 - offset));
  }
  if (bits % 8 != 0) destination[bytes - 1] &= static_cast<uint8_t>(0xFF00u >> bits % 8);
}

}  // namespace vexakrn
