// Paths and access rights in the form that the system takes.
#ifndef VEXAKRN_PLATFORM_WIN_PATH_H
#define VEXAKRN_PLATFORM_WIN_PATH_H

#include "platform/win/win.h"

namespace vexakrn::platform {

// A UTF-8 path, widened. A path that is too long for the system's ordinary form gets the form without that limit.
class WidePath {
 public:
  explicit WidePath(const char* utf8) noexcept;
  ~WidePath();
  WidePath(const WidePath&) = delete;
  WidePath& operator=(const WidePath&) = delete;

  int32_t Error() const noexcept { return error_; }  // not 0: there is no text
  const wchar_t* Text() const noexcept { return text_; }

 private:
  static constexpr DWORD kLongPath = 248;  // with its end; the limit for files is 260, for folders 248

  int32_t Widen(const char* utf8) noexcept;
  int32_t LiftLimit() noexcept;
  bool Adopt(wchar_t* text) noexcept;

  wchar_t local_[kLongPath];
  wchar_t* text_ = local_;
  int32_t error_;
};

// Security attributes that give the user who runs the thread all rights and nobody else any.
class OnlyThisUser {
 public:
  OnlyThisUser() noexcept : error_(Prepare()) {}
  OnlyThisUser(const OnlyThisUser&) = delete;
  OnlyThisUser& operator=(const OnlyThisUser&) = delete;

  int32_t Error() const noexcept { return error_; }
  SECURITY_ATTRIBUTES* Attributes() noexcept { return &attributes_; }

 private:
  int32_t Prepare() noexcept;

  SECURITY_ATTRIBUTES attributes_{};
  SECURITY_DESCRIPTOR descriptor_{};
  alignas(8) unsigned char user_[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE] = {};
  alignas(8) unsigned char rights_[sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE] = {};
  int32_t error_;
};

}  // namespace vexakrn::platform

#endif
