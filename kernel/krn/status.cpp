// Texts of codes, the thread's status callbacks, and its defaults for new bitmaps.
#include "common/status.h"

#include "common/settings.h"

namespace vexakrn {
namespace {

void ExchangeCallback(StatusCallbackPair& pair, STATUSCALLBACK callback, void* userData, STATUSCALLBACK* oldCallback,
                      void** oldUserData) noexcept {
  if (oldCallback && oldUserData) {
    *oldCallback = pair.callback;
    *oldUserData = pair.userData;
  }
  pair = {callback, userData};
}

STATUSCALLBACK ReportCallback(const StatusCallbackPair& pair, void** userData) noexcept {
  if (userData) *userData = pair.userData;
  return pair.callback;
}

}  // namespace
}  // namespace vexakrn

using namespace vexakrn;

const char* V_CALL V_GetStatusText(int32_t status) noexcept {
  switch (status) {
#define VEXAKRN_STATUS_ENTRY(name, value, text) \
  case value:                                   \
    return text;
    VEXAKRN_STATUS_LIST(VEXAKRN_STATUS_ENTRY)
#undef VEXAKRN_STATUS_ENTRY
    default:
      return "unknown status";
  }
}

int32_t V_CALL V_SetStatusCallBack(STATUSCALLBACK callback, void* userData, STATUSCALLBACK* oldCallback,
                                   void** oldUserData) noexcept {
  ExchangeCallback(ThreadSettings().status, callback, userData, oldCallback, oldUserData);
  return kSuccess;
}

STATUSCALLBACK V_CALL V_GetStatusCallBack(void** userData) noexcept {
  return ReportCallback(ThreadSettings().status, userData);
}

int32_t V_CALL V_SetCopyStatusCallBack(STATUSCALLBACK callback, void* userData, STATUSCALLBACK* oldCallback,
                                       void** oldUserData) noexcept {
  ExchangeCallback(ThreadSettings().copyStatus, callback, userData, oldCallback, oldUserData);
  return kSuccess;
}

STATUSCALLBACK V_CALL V_GetCopyStatusCallBack(void** userData) noexcept {
  return ReportCallback(ThreadSettings().copyStatus, userData);
}

int32_t V_CALL V_SetDefaultResolution(int32_t x, int32_t y) noexcept {
  Settings& settings = ThreadSettings();
  settings.defaultXResolution = x;
  settings.defaultYResolution = y;
  return kSuccess;
}

int32_t V_CALL V_GetDefaultXResolution(void) noexcept { return ThreadSettings().defaultXResolution; }
int32_t V_CALL V_GetDefaultYResolution(void) noexcept { return ThreadSettings().defaultYResolution; }

int32_t V_CALL V_SetDefaultDithering(int32_t method) noexcept {
  constexpr int32_t kMethods = 9;
  if (method < 0 || method >= kMethods) return kInvalidParameter;
  ThreadSettings().defaultDithering = method;
  return kSuccess;
}

int32_t V_CALL V_GetDefaultDithering(void) noexcept { return ThreadSettings().defaultDithering; }
