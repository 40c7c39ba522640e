// Progress of a running operation, told to a status callback in percent.
#ifndef VEXAKRN_COMMON_PROGRESS_H
#define VEXAKRN_COMMON_PROGRESS_H

#include <algorithm>
#include <cstdint>
#include <limits>

#include "common/settings.h"
#include "common/status.h"

namespace vexakrn {

// Each of `steps` steps is worth 100 / steps percent; the remainder is carried, and gives one percent more whenever it
// reaches `steps`. The callback hears of it only when the percentage has changed; its result other than 1 ends the
// operation.
class Progress {
 public:
  Progress(const StatusCallbackPair& report, int64_t steps) noexcept : report_(report), steps_(steps) {}

  // Before the first step.
  int32_t Begin() noexcept { return Call(); }

  // The most steps that can be done before the callback must hear of them.
  int32_t StepsToNextCall() const noexcept {
    if (!report_.callback) return std::numeric_limits<int32_t>::max();
    return steps_ <= 100 ? 1 : static_cast<int32_t>(std::min((steps_ - carried_ + 99) / 100, kMost));
  }

  // After so many steps, no more than StepsToNextCall.
  int32_t Advance(int32_t count) noexcept {
    const int64_t before = percent_;
    carried_ += int64_t{count} * (100 % steps_);
    percent_ += int64_t{count} * (100 / steps_) + carried_ / steps_;
    carried_ %= steps_;
    return percent_ != before ? Call() : int32_t{kSuccess};
  }

 private:
  static constexpr int64_t kMost = std::numeric_limits<int32_t>::max();

  int32_t Call() const noexcept {
    return report_.callback ? report_.callback(static_cast<int32_t>(percent_), report_.userData) : int32_t{kSuccess};
  }

  const StatusCallbackPair report_;
  const int64_t steps_;
  int64_t percent_ = 0;
  int64_t carried_ = 0;
};

}  // namespace vexakrn

#endif
