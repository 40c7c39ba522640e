// Time since an object was made.
#ifndef VEXA_GALLERY_CLOCK_H
#define VEXA_GALLERY_CLOCK_H

#include <chrono>

namespace vexa::gallery {

class Clock {
 public:
  double Milliseconds() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace vexa::gallery

#endif
