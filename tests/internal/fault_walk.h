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

// One operation on a state of its own, which is made before the failures start and freed after them.
struct Trial {
  std::shared_ptr<void> state;
  std::function<int64_t()> run;
  std::vector<int64_t> failures = {V_StatusNoMemory};  // what it may return instead of success
  std::function<void()> unchanged = [] {};             // after a failure
  std::function<void()> done = [] {};                  // after a success
  HostStore* host = nullptr;                           // whose callbacks can refuse
};

class FaultWalk : public testing::Test {
 protected:
  TempDirectory directory_;

  FaultWalk() { V_GetDefaultXResolution(); }  // this thread's settings exist from here on

  // Returns the number of calls to the system that were made to fail one by one.
  uint64_t Walk(const std::string& name, const std::function<Trial()>& make) {
    Attempt(name + ", no failure", make, {});  // what is made once is made here
    uint64_t failures = 0;
    for (const bool onwards : {false, true})
      for (uint64_t n = 1;; ++n) {
        const std::string what = name + ", call " + std::to_string(n) + (onwards ? " and all later ones" : "");
        if (!Attempt(what, make, {.call = n, .onwards = onwards})) break;
        ++failures;
        if (HasFailure() || n > 5000) return failures;  // one report is enough, and a walk has an end
      }
    return failures;
  }

  // The same with the host's callbacks, which refuse at their k-th call.
  int32_t WalkRefusals(const std::string& name, const std::function<Trial()>& make) {
    for (int32_t k = 1;; ++k)
      if (!Attempt(name + ", callback " + std::to_string(k), make, {.callback = k}) || HasFailure()) return k - 1;
  }

 private:
  // What goes wrong: the call to the system of this number, or the host's callback; 0 for none.
  struct Fault {
    uint64_t call = 0;
    bool onwards = false;
    int32_t callback = 0;
  };

  // On a thread of its own, so that no reading of the system is left from an earlier attempt.
  bool Attempt(const std::string& what, const std::function<Trial()>& make, const Fault& fault) {
    const auto live = vexakrn::platform::Live();
    const uint64_t used = UsedMemory();
    bool failed = false;
    std::thread([&] {
      SCOPED_TRACE(what);
      Trial trial = make();
      if (HasFatalFailure()) return;
      if (fault.call > 0) vexakrn::platform::FailCall(fault.call, fault.onwards);
      if (fault.callback > 0) trial.host->refuseAt = trial.host->calls + fault.callback;
      int64_t status = trial.run();
      failed = fault.callback > 0 ? trial.host->calls >= std::exchange(trial.host->refuseAt, 0)
                                  : fault.call > 0 && vexakrn::platform::HasFailed();
      vexakrn::platform::StopFailing();
      if (status != V_StatusSuccess) {
        EXPECT_TRUE(failed) << "status " << status << " without a failure";
        EXPECT_NE(std::find(trial.failures.begin(), trial.failures.end(), status), trial.failures.end())
            << "status " << status << " is not a documented one";
        trial.unchanged();
        status = trial.run();
        EXPECT_EQ(status, V_StatusSuccess) << "the next call";
      }
      if (status == V_StatusSuccess) trial.done();
    }).join();
    EXPECT_EQ(vexakrn::platform::Live(), live) << what << ": something was leaked";
    EXPECT_EQ(UsedMemory(), used) << what << ": the memory account";
    EXPECT_TRUE(fault.onwards || directory_.Names().empty()) << what << ": files left behind";  // deletion fails too
    directory_.Clear();
    return failed;
  }
};

}  // namespace vexatest

#endif
