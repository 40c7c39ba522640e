// Widening of paths, and the access rights of private files.
#include "platform/win/path.h"

#include <cstring>
#include <cwchar>

namespace vexakrn::platform {
namespace {

constexpr int kLongestPath = 32767;  // characters, of the form without the ordinary limit

wchar_t* NewText(DWORD characters) noexcept {
  return static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), 0, characters * sizeof(wchar_t)));
}

// The token that decides what this thread may do.
HANDLE OpenToken() noexcept {
  HANDLE token = nullptr;
  if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return token;
  return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) ? token : nullptr;
}

}  // namespace

WidePath::WidePath(const char* utf8) noexcept : error_(Widen(utf8)) {
  if (error_ == 0) error_ = LiftLimit();
}

WidePath::~WidePath() { Adopt(local_); }

// Makes `text` the text in place of the old one; false when there is none.
bool WidePath::Adopt(wchar_t* text) noexcept {
  if (!text) return false;
  if (text_ != local_) HeapFree(GetProcessHeap(), 0, text_);
  text_ = text;
  return true;
}

int32_t WidePath::Widen(const char* utf8) noexcept {
  if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, local_, kLongPath) != 0) return 0;
  if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return LastError();
  if (strnlen(utf8, 4 * kLongestPath) == 4 * kLongestPath) return ERROR_FILENAME_EXCED_RANGE;
  const int characters = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, nullptr, 0);
  if (characters == 0) return LastError();
  if (!Adopt(NewText(static_cast<DWORD>(characters)))) return ERROR_NOT_ENOUGH_MEMORY;
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, text_, characters) != 0 ? 0 : LastError();
}

// The form without limit takes no relative paths, no slashes and no points: the system resolves them first. A short
// path relative to a deep folder counts with that folder.
int32_t WidePath::LiftLimit() noexcept {
  const DWORD characters = GetFullPathNameW(text_, 0, nullptr, nullptr);
  if (characters == 0) return LastError();
  if (characters < kLongPath) return 0;
  constexpr wchar_t kPrefix[] = L"\\\\?\\", kSharePrefix[] = L"\\\\?\\UNC\\";
  constexpr DWORD kRoom = sizeof kSharePrefix / sizeof(wchar_t);
  wchar_t* full = NewText(characters + kRoom);
  if (!full) return ERROR_NOT_ENOUGH_MEMORY;
  const DWORD length = GetFullPathNameW(text_, characters, full + kRoom, nullptr);
  Adopt(full);
  if (length == 0 || length >= characters) return LastError();  // the current folder changed meanwhile
  const wchar_t* path = full + kRoom;
  const bool onShare = path[0] == L'\\' && path[1] == L'\\';
  const bool isUnlimited = onShare && (path[2] == L'?' || path[2] == L'.') && path[3] == L'\\';
  const wchar_t* prefix = isUnlimited ? L"" : onShare ? kSharePrefix : kPrefix;
  if (onShare && !isUnlimited) path += 2;
  const size_t prefixLength = std::wcslen(prefix);
  std::wmemcpy(full, prefix, prefixLength);
  std::wmemmove(full + prefixLength, path, std::wcslen(path) + 1);
  return 0;
}

int32_t OnlyThisUser::Prepare() noexcept {
  const HANDLE token = OpenToken();
  if (!token) return LastError();
  DWORD used = 0;
  const bool known = GetTokenInformation(token, TokenUser, user_, sizeof user_, &used);
  const int32_t error = known ? 0 : LastError();
  CloseHandle(token);
  if (error != 0) return error;

  auto* list = reinterpret_cast<ACL*>(rights_);
  if (!InitializeAcl(list, sizeof rights_, ACL_REVISION) ||
      !AddAccessAllowedAce(list, ACL_REVISION, FILE_ALL_ACCESS, reinterpret_cast<TOKEN_USER*>(user_)->User.Sid) ||
      !InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) ||
      !SetSecurityDescriptorDacl(&descriptor_, TRUE, list, FALSE) ||
      !SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED)) {
    return LastError();
  }
  attributes_ = {sizeof attributes_, &descriptor_, FALSE};
  return 0;
}

}  // namespace vexakrn::platform
