// The status callback of the tool: draws the bar on a terminal, and stops the work when the user asks.
#ifndef VEXA_PROGRESS_BAR_H
#define VEXA_PROGRESS_BAR_H

#include <cstdint>

#include "vexakrn.h"

namespace vexa {

class ProgressBar {
 public:
  ProgressBar();   // becomes the thread's status callback
  ~ProgressBar();  // puts the earlier one back and wipes the bar
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

 private:
  static int32_t V_CALL OnStatus(int32_t percent, void* self);
  void Draw(int32_t percent);

  bool terminal_;
  bool drawn_ = false;
  STATUSCALLBACK oldCallback_ = nullptr;
  void* oldUserData_ = nullptr;
};

}  // namespace vexa

#endif
