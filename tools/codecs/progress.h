// Progress of reading and writing, told to the calling thread's status callback.
#ifndef VEXA_CODECS_PROGRESS_H
#define VEXA_CODECS_PROGRESS_H

#include <cstdint>

#include "vexakrn.h"

namespace vexa {

// The whole work is `total` units of weight; each part of it has its weight and its number of equal steps. The callback
// hears 0 first, then each new percentage; another result than 1 throws Stopped. Work that comes in several of these
// gives each a range of percentages.
class Progress {
 public:
  explicit Progress(int64_t total, int32_t from = 0, int32_t to = 100);
  void BeginPart(int64_t weight, int64_t steps);
  void Step();

 private:
  void Tell(double done);

  void* userData_ = nullptr;  // before the callback, whose initialisation sets it
  STATUSCALLBACK callback_;
  int64_t total_;
  int32_t from_;
  int32_t to_;
  int64_t done_ = 0;    // weight of the parts that are finished
  int64_t weight_ = 0;  // of the running part
  int64_t steps_ = 1;
  int64_t step_ = 0;
  int32_t percent_ = -1;
};

}  // namespace vexa

#endif
