// The fault walk: one driver for every operation.
//
// An operation is run with the first call to the system failing, then the second, and so on until it runs without a
// failure; once with that call alone failing, once with all later ones failing too. Each time it must succeed by another
// way or fail with a status that it documents and leave everything as it was; nothing may leak, no file may stay,
// and the same call must work right after.
#ifndef VEXAKRN_TESTS_INTERNAL_FAULT_WALK_H
#define VEXAKRN_TESTS_INTERNAL_FAULT_WALK_H

#include "platform/fault.h"
#include "support/testing.h"

namespace vexatest {

inline void PrintLive(const vexakrn::platform::LiveResources& live, std::ostream& out) {
  out << live.blocks << " blocks, " << live.mappings << " mappings, " << live.views << " views, " << live.files
      << " files, " << live.movableBlocks << " movable blocks, " << live.systemObjects << " system objects";
}

// One operation on a state of its own, which is made before the failures start and freed after them.
struct Trial {
  std::shared_ptr<void> state;
  std::function<int64_t()> run;
  std::vector<int64_t> failures = {V_StatusNoMemory};  // what it may return instead of success
  std::function<void()> unchanged = [] {};             // after a failure
  std::function<void()> done = [] {};                  // after a success
  int64_t success = V_StatusSuccess;
  bool repeatable = true;     // the same call may follow a failed one
  HostStore* host = nullptr;  // whose callbacks can refuse
};

class FaultWalk : public testing::Test {
 protected:
  FaultWalk() { V_GetDefaultXResolution(); }  // this thread's settings exist from here on

  // Returns the number of calls to the system that were made to fail one by one.
  uint64_t Walk(const std::string& name, const std::function<Trial()>& make) {
    Attempt(
        name + ", no failure", make, [](Trial&) {}, [] { return false; });  // what is made once is made here
    uint64_t failures = 0;
    for (const bool onwards : {false, true})
      for (uint64_t n = 1;; ++n) {
        const bool failed = Attempt(
            name + ", call " + std::to_string(n) + (onwards ? " and all later ones" : ""), make,
            [&](Trial&) { vexakrn::platform::FailCall(n, onwards); },
            [] {
              const bool any = vexakrn::platform::HasFailed();
              vexakrn::platform::StopFailing();
              return any;
            },
            /*mayLeaveFiles=*/onwards);  // their deletion fails too
        if (!failed) break;
        ++failures;
        if (HasFailure() || n > 5000) return failures;  // one report is enough, and a walk has an end
      }
    return failures;
  }

  // The same with the host's callbacks, which refuse at their k-th call.
  int32_t WalkRefusals(const std::string& name, const std::function<Trial()>& make) {
    for (int32_t k = 1;; ++k) {
      HostStore* host = nullptr;
      const bool refused = Attempt(
          name + ", callback " + std::to_string(k), make,
          [&](Trial& trial) {
            host = trial.host;
            host->refuseAt = host->calls + k;
          },
          [&] { return host->calls >= std::exchange(host->refuseAt, 0); });
      if (!refused || HasFailure()) return k - 1;
    }
  }

 private:
  // On a thread of its own, so that no reading of the system is left from an earlier attempt.
  bool Attempt(const std::string& what, const std::function<Trial()>& make, const std::function<void(Trial&)>& start,
               const std::function<bool()>& stop, bool mayLeaveFiles = false) {
    const auto live = vexakrn::platform::Live();
    const uint64_t used = UsedMemory();
    bool failed = false;
    std::thread([&] {
      SCOPED_TRACE(what);
      Trial trial = make();
      if (HasFatalFailure()) return;
      start(trial);
      int64_t status = trial.run();
      failed = stop();
      if (status != trial.success) {
        EXPECT_TRUE(failed) << "status " << status << " without a failure";
        EXPECT_NE(std::find(trial.failures.begin(), trial.failures.end(), status), trial.failures.end())
            << "status " << status << " is not a documented one";
        trial.unchanged();
        if (!trial.repeatable) return;
        status = trial.run();
        EXPECT_EQ(status, trial.success) << "the next call";
      }
      if (status == trial.success) trial.done();
    }).join();
    const auto left = vexakrn::platform::Live();
    if (!(left == live)) {
      std::ostringstream text;
      PrintLive(live, text << what << ": before ");
      PrintLive(left, text << "; after ");
      ADD_FAILURE() << text.str();
    }
    EXPECT_EQ(UsedMemory(), used) << what << ": the memory account";
    if (!mayLeaveFiles) {
      EXPECT_EQ(directory_.Names(), std::vector<std::string>{}) << what << ": files left behind";
    }
    directory_.Clear();
    return failed;
  }

 protected:
  TempDirectory directory_;
};

}  // namespace vexatest

#endif
