// Fault loops: runs an operation with its first call of the system failing, then with its second,
// until a run makes no call that fails.
//
// Each call fails once, and in a further run with all calls after it, with each error that matters.
// After each run: the operation returned a status that is documented for it, the context record holds
// that status and the OS error, nothing is left behind, and the operation succeeds when it is called
// again.
#ifndef KIV_TESTS_FAULT_LOOP_H
#define KIV_TESTS_FAULT_LOOP_H

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "faults/fault_points.h"
#include "support/context.h"

namespace kiv::test {

// What an operation stores in the context: the status and the error of the failed call, no error, the
// result of a wait in place of its error, the error of a later call, or nothing at all.
enum class Recording { kAll, kNoError, kWaitResult, kOtherError, kNothing };

// What an operation reports if a primitive fails. A call may have several rows: each is accepted.
struct FaultOutcome {
  static constexpr uint32_t kAny = 0xFFFFFFFF;

  const char* call;       // name of the stand-in
  uint32_t status;        // KIV_ST_OK if the failure is ignored
  uint32_t error = kAny;  // the row is for this error, and no other row of the call is
  Recording recording = Recording::kAll;
};

class FaultRun;

struct FaultScenario {
  const char* operation;
  // Prepares, calls the operation through FaultRun::Call, and cleans up.
  void (*body)(FaultRun&);
  std::vector<FaultOutcome> outcomes;
  // Documented statuses beyond those of the outcomes, for calls of the system in a primitive.
  std::vector<uint32_t> otherStatuses = {};
  Recording recording = Recording::kAll;
  // Whether the library does it once in a process: each run has a process of its own.
  bool isOnce = false;
  const char* spared = nullptr;  // a call that the operation needs to end; may be null
};

// GoogleTest names the scenario of a test that failed.
void PrintTo(const FaultScenario& scenario, std::ostream* out);

// One run of a scenario.
class FaultRun {
 public:
  FaultRun(const FaultScenario& scenario, const FaultPlan& plan)
      : scenario_(scenario), plan_(plan) {}

  // Calls the operation with the plan armed, checks what it reports, and returns its status.
  //
  //   operation  takes the context
  template <typename Operation>
  uint32_t Call(Operation operation) {
    ctx_.Spoil();
    uint32_t status = 0;
    {
      const ArmedFaults faults(plan_);
      status = operation(ctx_);
    }
    Check(status);
    return status;
  }

 private:
  void Check(uint32_t status);
  void CheckSuccess(uint32_t status);
  void CheckPrimitive(uint32_t status);
  void CheckSystemCall(uint32_t status);
  void CheckRecord(uint32_t status, Recording recording, uint32_t error);

  const FaultScenario& scenario_;
  const FaultPlan& plan_;
  Context ctx_;
};

// Runs the loops of a scenario at both levels. The program prints the number of faults at its end.
void RunFaultLoops(const FaultScenario& scenario);

// A name of this process for an object: another process may run the same test.
std::string OwnName(const std::string& kind);

// Runs the loops of each scenario in a list as a test of its own:
//
//   INSTANTIATE_TEST_SUITE_P(Kernel, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);
class FaultLoop : public testing::TestWithParam<FaultScenario> {};

std::string NameOfScenario(const testing::TestParamInfo<FaultScenario>& info);

}  // namespace kiv::test

#endif
