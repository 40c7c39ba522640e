// Runs a body at each level of processor features that there is.
#ifndef VEXAKRN_TESTS_SUPPORT_LEVELS_H
#define VEXAKRN_TESTS_SUPPORT_LEVELS_H

#include <gtest/gtest.h>

#include "vexakrn.h"

namespace vexatest {

template <typename Body>
void AtEachLevel(Body body) {
  const int32_t start = V_GetCpuLevel();
  for (int32_t level = 0; level <= 3 && V_SetCpuLevel(level) == level; ++level) {
    SCOPED_TRACE(testing::Message() << "level " << level);
    body();
    if (testing::Test::HasFatalFailure()) break;
  }
  V_SetCpuLevel(start);
}

}  // namespace vexatest

#endif
