// The calling thread's file functions, and its last-error value.
#ifndef VEXAKRN_KRN_REDIRECT_H
#define VEXAKRN_KRN_REDIRECT_H

#include "common/settings.h"

namespace vexakrn {

inline REDIRECTFUNCTIONS& RedirectTable() noexcept { return ThreadSettings().redirect; }
inline void SetLastRedirectError(int32_t error) noexcept { ThreadSettings().lastRedirectError = error; }

// The system's own functions, which stand behind null slots.
intptr_t OsOpen(const char* path, uint32_t mode) noexcept;
int64_t OsRead(intptr_t file, void* buffer, uint64_t bytes) noexcept;
int64_t OsWrite(intptr_t file, const void* buffer, uint64_t bytes) noexcept;
int64_t OsSeek(intptr_t file, int64_t offset, int32_t origin) noexcept;
int32_t OsClose(intptr_t file) noexcept;

}  // namespace vexakrn

#endif
