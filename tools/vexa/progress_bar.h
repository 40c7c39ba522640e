// The status callbacks of the tool: one draws the bar on a terminal, and both stop the work when the user asks.
#ifndef VEXA_PROGRESS_BAR_H
#define VEXA_PROGRESS_BAR_H

#include <cstdint>

#include "vexakrn.h"

namespace vexa {

class ProgressBar {
 public:
  ProgressBar();   // sets the thread's status callbacks
  ~ProgressBar();  // puts the earlier ones back and wipes the bar
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

 private:
  static int32_t V_CALL OnStatus(int32_t percent, void* self);
  static int32_t V_CALL OnCopyStatus(int32_t percent, void* self);
  void Draw(int32_t percent);

  bool terminal_;
  bool drawn_ = false;
  STATUSCALLBACK oldCallback_ = nullptr, oldCopyCallback_ = nullptr;
  void *oldUserData_ = nullptr, *oldCopyUserData_ = nullptr;
};

}  // namespace vexa

#endif
