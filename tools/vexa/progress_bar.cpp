#include "vexa/progress_bar.h"

#include <cstdio>
#include <string>

#include "vexa/system.h"

namespace vexa {
namespace {

constexpr int32_t kBarWidth = 40;

}  // namespace

ProgressBar::ProgressBar() : terminal_(sys::ErrorOutputIsTerminal()) {
  V_SetStatusCallBack(OnStatus, this, &oldCallback_, &oldUserData_);
  V_SetCopyStatusCallBack(OnCopyStatus, this, &oldCopyCallback_, &oldCopyUserData_);
}

ProgressBar::~ProgressBar() {
  V_SetStatusCallBack(oldCallback_, oldUserData_, nullptr, nullptr);
  V_SetCopyStatusCallBack(oldCopyCallback_, oldCopyUserData_, nullptr, nullptr);
  if (drawn_) std::fprintf(stderr, "\r%*s\r", kBarWidth + 8, "");
}

int32_t V_CALL ProgressBar::OnStatus(int32_t percent, void* self) {
  if (sys::StopRequested()) return V_StatusUserAbort;
  static_cast<ProgressBar*>(self)->Draw(percent);
  return V_StatusSuccess;
}

// A copy is a small share of the work: the bar stands still meanwhile.
int32_t V_CALL ProgressBar::OnCopyStatus(int32_t, void*) {
  return sys::StopRequested() ? V_StatusUserAbort : V_StatusSuccess;
}

void ProgressBar::Draw(int32_t percent) {
  if (!terminal_) return;
  drawn_ = true;
  const int32_t filled = percent * kBarWidth / 100;
  const std::string bar =
      std::string(static_cast<size_t>(filled), '#') + std::string(static_cast<size_t>(kBarWidth - filled), '.');
  std::fprintf(stderr, "\r[%s] %3d%%", bar.c_str(), percent);
  std::fflush(stderr);
}

}  // namespace vexa
