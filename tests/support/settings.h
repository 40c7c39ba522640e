// Settings of the thread and of the process, put back when the scope ends; among them the level of processor features.
#ifndef VEXAKRN_TESTS_SUPPORT_SETTINGS_H
#define VEXAKRN_TESTS_SUPPORT_SETTINGS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vexakrn.h"

namespace vexatest {

// Runs a body at each level that there is.
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

struct Scoped {
  Scoped() = default;
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
};

// The calling thread's thresholds: zeroed at the start of the scope, restored at its end.
class ScopedThresholds : Scoped {
 public:
  ScopedThresholds() {
    V_GetMemoryThresholds(&reserve_, &maxConventional_, &tileSize_, &fourth_, &fifth_);
    V_SetMemoryThresholds(0, 0, 0, 0, 0, 31);
  }
  ~ScopedThresholds() { V_SetMemoryThresholds(reserve_, maxConventional_, tileSize_, fourth_, fifth_, 31); }

  void Reserve(int32_t value) { EXPECT_EQ(V_SetMemoryThresholds(value, 0, 0, 0, 0, V_ThresholdReserve), 1); }
  void MaxConventional(int64_t value) {
    EXPECT_EQ(V_SetMemoryThresholds(0, value, 0, 0, 0, V_ThresholdMaxConventional), 1);
  }
  void TileSize(int64_t value) { EXPECT_EQ(V_SetMemoryThresholds(0, 0, value, 0, 0, V_ThresholdTileSize), 1); }
  void Fifth(int32_t value) { EXPECT_EQ(V_SetMemoryThresholds(0, 0, 0, 0, value, V_ThresholdFifth), 1); }

 private:
  int32_t reserve_ = 0, fourth_ = 0, fifth_ = 0;
  int64_t maxConventional_ = 0, tileSize_ = 0;
};

inline uint64_t UsedMemory() {
  uint64_t used = 0;
  EXPECT_EQ(V_ManageMemory(V_MemoryGetUsed, 0, &used), 1);
  return used;
}

// The account's limit: `room` bytes more than what is in use.
class ScopedAccountLimit : Scoped {
 public:
  explicit ScopedAccountLimit(uint64_t room) {
    V_ManageMemory(V_MemorySetLimit, UsedMemory() + room == 0 ? 1 : UsedMemory() + room, &old_);
  }
  ~ScopedAccountLimit() { V_ManageMemory(V_MemorySetLimit, old_, nullptr); }

 private:
  uint64_t old_ = 0;
};

// What is in use at the end of the scope must be what was in use at its start.
class AccountBalance : Scoped {
 public:
  AccountBalance() : start_(UsedMemory()) {}
  ~AccountBalance() { EXPECT_EQ(UsedMemory(), start_) << "the memory account did not return to its start"; }
  uint64_t Taken() const { return UsedMemory() - start_; }

 private:
  uint64_t start_;
};

class ScopedTempFileMode : Scoped {
 public:
  explicit ScopedTempFileMode(uint32_t mode) {
    V_GetTempFileOptions(&old_);
    TEMPFILEOPTIONS options = old_;
    options.uMode = mode;
    EXPECT_EQ(V_SetTempFileOptions(&options), 1);
  }
  ~ScopedTempFileMode() { V_SetTempFileOptions(&old_); }

 private:
  TEMPFILEOPTIONS old_{};
};

// Collects the diagnostic lines as "tag|text".
class ScopedTrace : Scoped {
 public:
  ScopedTrace() { V_SetDiagnostics(&ScopedTrace::Line, this); }
  ~ScopedTrace() { V_SetDiagnostics(nullptr, nullptr); }

  std::vector<std::string> Take() { return std::exchange(lines_, {}); }

 private:
  static void V_CALL Line(const char* tag, const char* text, void* self) {
    static_cast<ScopedTrace*>(self)->lines_.push_back(std::string(tag) + "|" + text);
  }
  std::vector<std::string> lines_;
};

}  // namespace vexatest

#endif
