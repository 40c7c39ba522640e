#include "codecs/progress.h"

#include <algorithm>

#include "codecs/error.h"

namespace vexa {

Progress::Progress(int64_t total, int32_t from, int32_t to)
    : callback_(V_GetStatusCallBack(&userData_)), total_(std::max<int64_t>(total, 1)), from_(from), to_(to) {
  Tell(0);
}

void Progress::BeginPart(int64_t weight, int64_t steps) {
  done_ += weight_;
  weight_ = weight;
  steps_ = std::max<int64_t>(steps, 1);
  step_ = 0;
}

void Progress::Step() {
  ++step_;
  const double part = static_cast<double>(weight_) * static_cast<double>(step_) / static_cast<double>(steps_);
  Tell(static_cast<double>(done_) + part);
}

void Progress::Tell(double done) {
  if (!callback_) return;
  const int32_t range = to_ - from_;
  const int32_t percent =
      from_ + static_cast<int32_t>(std::min<double>(range, done * range / static_cast<double>(total_)));
  if (percent <= percent_) return;
  percent_ = percent;
  const int32_t status = callback_(percent, userData_);
  if (status != V_StatusSuccess) throw Stopped(status);
}

}  // namespace vexa
