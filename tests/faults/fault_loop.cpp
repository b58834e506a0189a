#include "faults/fault_loop.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kivsdu/pipe.h"
#include "support/open_handles.h"

namespace kiv::test {
namespace {

// Errors that a call of the system can have, and that some operation treats apart.
const uint32_t kErrors[] = {EIO, ENOMEM, EACCES, ENOSPC, EMFILE, EBADF};

// The bindings may take this error of a call for true: the descriptor is not open. It is.
constexpr uint32_t kOnlyOfPrimitives = EBADF;

// A call that a signal interrupted may be repeated. It never ends if it always fails so.
constexpr uint32_t kOnlyOnce = EINTR;

// More calls of the system than any operation makes.
constexpr uint32_t kMostCalls = 1000;

// An operation that makes more calls than this repeats itself, as for each member of a set. Its later
// calls fail with the first error only.
constexpr uint32_t kCallsOfAllErrors = 50;

constexpr uint32_t kWaitFailed = 0xFFFFFFFF;

uint64_t faultCount = 0;

struct Resources {
  size_t handles;
  int64_t blocks;
};

Resources Held() { return {OpenHandles(), LiveBlocks()}; }

// The rows that apply to a failed call: those for the error if there are any, else those for any
// error.
std::vector<FaultOutcome> OutcomesOf(const FaultScenario& scenario, const std::string& call,
                                     uint32_t error) {
  std::vector<FaultOutcome> general;
  std::vector<FaultOutcome> special;
  for (const FaultOutcome& outcome : scenario.outcomes) {
    if (call != outcome.call) continue;
    if (outcome.error == FaultOutcome::kAny) general.push_back(outcome);
    if (outcome.error == error) special.push_back(outcome);
  }
  return special.empty() ? general : special;
}

bool IsDocumented(const FaultScenario& scenario, uint32_t status) {
  const auto& others = scenario.otherStatuses;
  return std::find(others.begin(), others.end(), status) != others.end() ||
         std::any_of(scenario.outcomes.begin(), scenario.outcomes.end(),
                     [&](const FaultOutcome& outcome) { return outcome.status == status; });
}

bool IsAllocation(const std::string& call) { return call == "malloc" || call == "realloc"; }

std::string Describe(const FaultPlan& plan) {
  return std::string(plan.level == FaultLevel::kPrimitives ? "primitive " : "system call ") +
         std::to_string(plan.first) + (plan.lasting ? " and all later ones fail" : " fails") +
         " with error " + std::to_string(plan.error);
}

// The errors of the loops: the usual ones, and those that have rows of their own. A scenario whose runs
// have processes of their own has one error, because they take their time.
std::vector<uint32_t> ErrorsFor(const FaultScenario& scenario) {
  if (scenario.isOnce) return {kErrors[0]};
  std::vector<uint32_t> errors(std::begin(kErrors), std::end(kErrors));
  for (const FaultOutcome& outcome : scenario.outcomes) {
    const bool isKnown = outcome.error == FaultOutcome::kAny ||
                         std::find(errors.begin(), errors.end(), outcome.error) != errors.end();
    if (!isKnown) errors.push_back(outcome.error);
  }
  return errors;
}

// Prints the number of faults at the end of the program.
class FaultCount : public testing::Environment {
 public:
  void TearDown() override {
    std::printf("%llu fault points\n", static_cast<unsigned long long>(faultCount));
  }
};
const testing::Environment* const kFaultCount = testing::AddGlobalTestEnvironment(new FaultCount);

// Runs the scenario once, and checks that nothing is left behind.
void RunOnce(const FaultScenario& scenario, const FaultPlan& plan, const Resources& before) {
  FaultRun run(scenario, plan);
  scenario.body(run);
  const Resources after = Held();
  EXPECT_EQ(after.handles, before.handles) << "handles leak";
  EXPECT_EQ(after.blocks, before.blocks) << "memory leaks";
}

// What a process that runs a scenario tells by its exit code.
enum : int { kNothingFailed = 40, kCallsFailed = 41, kIsWrong = 42 };

[[noreturn]] void RunAndExit(const FaultScenario& scenario, const FaultPlan& plan) {
  RunOnce(scenario, plan, Held());
  std::fflush(stdout);
  if (testing::Test::HasFailure()) _exit(kIsWrong);
  _exit(FailedCalls().empty() ? kNothingFailed : kCallsFailed);
}

// Runs the scenario in a new process. Returns whether a call failed.
bool RunInNewProcess(const FaultScenario& scenario, const FaultPlan& plan) {
  std::fflush(stdout);
  const pid_t process = fork();
  if (process == 0) RunAndExit(scenario, plan);
  int status = 0;
  EXPECT_EQ(waitpid(process, &status, 0), process);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_NE(WEXITSTATUS(status), kIsWrong);
  return WEXITSTATUS(status) == kCallsFailed;
}

// Whether the errors of a call differ. The only error of an allocation is a lack of memory, and a file
// that cannot be opened counts as missing.
bool HasErrors(const std::string& call) { return !IsAllocation(call) && call != "fopen"; }

// A loop: the number of faults, and whether they depend on the plan's error.
struct Loop {
  uint64_t faults;
  bool hasErrors;
};

// Runs the scenario and, if a call failed, once more without a failure. Returns whether a call
// failed.
bool RunTwice(const FaultScenario& scenario, const FaultPlan& plan, const Resources& before,
              Loop* loop) {
  if (scenario.isOnce) return RunInNewProcess(scenario, plan);
  RunOnce(scenario, plan, before);
  if (FailedCalls().empty()) return false;
  loop->hasErrors |= std::any_of(FailedCalls().begin(), FailedCalls().end(), HasErrors);
  SCOPED_TRACE("first failed call: " + FailedCalls().front());
  const FaultPlan none;
  RunOnce(scenario, none, before);
  return true;
}

// Runs the loop of one error.
Loop RunLoop(const FaultScenario& scenario, FaultPlan plan, const Resources& before) {
  const uint32_t most = plan.error == kErrors[0] ? kMostCalls : kCallsOfAllErrors;
  Loop loop = {0, scenario.isOnce};
  for (plan.first = 1; plan.first <= most; ++plan.first) {
    SCOPED_TRACE(Describe(plan));
    if (!RunTwice(scenario, plan, before, &loop)) return loop;
    ++loop.faults;
    if (testing::Test::HasFailure()) return loop;
  }
  EXPECT_NE(most, kMostCalls) << "the operation never ends without a failure";
  return loop;
}

// Runs the loops of all errors at a level.
uint64_t RunLoops(const FaultScenario& scenario, FaultPlan plan, const Resources& before) {
  uint64_t faults = 0;
  for (const uint32_t error : ErrorsFor(scenario)) {
    if (plan.level == FaultLevel::kSystemCalls && error == kOnlyOfPrimitives) continue;
    plan.error = error;
    const Loop loop = RunLoop(scenario, plan, before);
    faults += loop.faults;
    if (!loop.hasErrors || testing::Test::HasFailure()) break;
  }
  return faults;
}

}  // namespace

void FaultRun::Check(uint32_t status) {
  if (FailedCalls().empty()) {
    CheckSuccess(status);
  } else if (plan_.level == FaultLevel::kPrimitives) {
    CheckPrimitive(status);
  } else {
    CheckSystemCall(status);
  }
}

void FaultRun::CheckSuccess(uint32_t status) {
  EXPECT_EQ(status, KIV_ST_OK) << "nothing failed";
  if (ctx_.osError() == KIV_PIPE_CONNECTED_BEFORE) return;  // also a success
  CheckRecord(status, scenario_.recording, 0);
}

// If several calls failed, any of them may have decided about the status.
void FaultRun::CheckPrimitive(uint32_t status) {
  std::string expected;
  for (const std::string& call : FailedCalls()) {
    const std::vector<FaultOutcome> outcomes = OutcomesOf(scenario_, call, plan_.error);
    EXPECT_FALSE(outcomes.empty()) << "no outcome is listed for a failure of " << call
                                   << ": status " << status << ", error " << ctx_.osError();
    for (const FaultOutcome& outcome : outcomes) {
      expected += " " + std::to_string(outcome.status);
      if (outcome.status != status) continue;
      const bool isInherited = outcome.recording == Recording::kAll;
      CheckRecord(status, isInherited ? scenario_.recording : outcome.recording,
                  IsAllocation(call) ? ENOMEM : plan_.error);
      return;
    }
  }
  ADD_FAILURE() << "status " << status << ", expected" << expected;
}

// A primitive may repair the failure of a call, or report an error of its own.
void FaultRun::CheckSystemCall(uint32_t status) {
  if (status == KIV_ST_OK) return;
  EXPECT_TRUE(IsDocumented(scenario_, status)) << "status " << status << " is not documented";
  if (!ctx_.IsUntouched()) {
    EXPECT_EQ(ctx_.status(), status) << "the record holds another status";
  }
}

void FaultRun::CheckRecord(uint32_t status, Recording recording, uint32_t error) {
  if (recording == Recording::kNothing) {
    EXPECT_TRUE(ctx_.IsUntouched()) << "the context was written";
    return;
  }
  if (recording == Recording::kWaitResult) error = kWaitFailed;
  if (recording == Recording::kNoError || status == KIV_ST_OK) error = 0;
  EXPECT_EQ(ctx_.status(), status) << "the record holds another status";
  if (recording == Recording::kOtherError) return;
  EXPECT_EQ(ctx_.osError(), error) << "the record holds another error";
}

void RunFaultLoops(const FaultScenario& scenario) {
  const BlockWatch blocks;
  const FaultPlan none;
  for (int i = 0; i < 2 && !scenario.isOnce; ++i) {  // what the library makes once and keeps
    FaultRun first(scenario, none);
    scenario.body(first);
  }
  const Resources before = Held();
  uint64_t faults = 0;
  for (const FaultLevel level : {FaultLevel::kPrimitives, FaultLevel::kSystemCalls}) {
    // The primitives have loops of their own, by other operations.
    if (scenario.isOnce && level == FaultLevel::kSystemCalls) continue;
    for (const bool lasting : {false, true}) {
      faults += RunLoops(scenario, {level, 1, lasting, 0, scenario.spared}, before);
      if (testing::Test::HasFailure()) return;
    }
  }
  const FaultPlan interrupted = {FaultLevel::kSystemCalls, 1, false, kOnlyOnce, scenario.spared};
  if (!scenario.isOnce) faults += RunLoop(scenario, interrupted, before).faults;
  faultCount += faults;
}

std::string OwnName(const std::string& kind) { return kind + "-" + std::to_string(getpid()); }

TEST_P(FaultLoop, ReportsEachFailureAndLeavesNothingBehind) { RunFaultLoops(GetParam()); }

void PrintTo(const FaultScenario& scenario, std::ostream* out) { *out << scenario.operation; }

std::string NameOfScenario(const testing::TestParamInfo<FaultScenario>& info) {
  return info.param.operation;
}

}  // namespace kiv::test
