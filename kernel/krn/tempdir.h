// The process-wide temporary directory.
#ifndef VEXAKRN_KRN_TEMPDIR_H
#define VEXAKRN_KRN_TEMPDIR_H

#include <cstdint>

namespace vexakrn {

inline constexpr uint32_t kMaxDirectoryCharacters = 264;
// A UTF-16 character takes at most three bytes of UTF-8.
inline constexpr uint32_t kDirectoryCapacity = kMaxDirectoryCharacters * 3 + 1;

// Copies the directory into kDirectoryCapacity bytes. Returns 1, or -74.
int32_t TemporaryDirectory(char* path) noexcept;

}  // namespace vexakrn

#endif
