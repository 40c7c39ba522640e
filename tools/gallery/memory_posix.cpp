#include <sys/resource.h>

#include "gallery/big.h"

namespace vexa::gallery {

uint64_t PeakChildBytes() {
  struct rusage usage = {};
  return getrusage(RUSAGE_CHILDREN, &usage) == 0 ? static_cast<uint64_t>(usage.ru_maxrss) * 1024 : 0;
}

}  // namespace vexa::gallery
