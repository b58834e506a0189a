// Fault loops of what the library does once in a process: measuring the spin budget, and making the
// stack of the exception handler. Each run has a process of its own.
#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"
#include "sdthrw32/exception_stack.h"

namespace {

using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::NameOfScenario;
using kiv::test::Recording;

constexpr int32_t kUnset = -7;

// The measurement waits for the threads that it has started.
constexpr char kWait[] = "WaitForSingleObject";

uint32_t Return(void*) { return 0; }

// Lets the library make what it keeps after its first handle, pipe and thread.
class FirstUse : public testing::Environment {
 public:
  void SetUp() override {
    KivHandle read = nullptr;
    KivHandle write = nullptr;
    ASSERT_EQ(KivSdPipeCreate(nullptr, &read, &write, 0), KIV_ST_OK);
    EXPECT_EQ(KivSdPipeClose(nullptr, &read), KIV_ST_OK);
    EXPECT_EQ(KivSdPipeClose(nullptr, &write), KIV_ST_OK);
    uint32_t id = 0;
    KivHandle thread = nullptr;
    ASSERT_EQ(KivSdThreadCreate(nullptr, Return, 0, 0, nullptr, &id, &thread), KIV_ST_OK);
    EXPECT_EQ(KivSdThreadJoin(nullptr, &thread), KIV_ST_OK);
    EXPECT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_OK);
  }
};
const testing::Environment* const kFirstUse = testing::AddGlobalTestEnvironment(new FirstUse);

// Without a measurement the budget stays as it is.
void Measure(FaultRun& run) {
  const int32_t before = KIV_SDSYNC_BUSYSPIN_UPPERLIMIT;
  int32_t limit = kUnset;
  const uint32_t status = run.Call([&](KivSdContext*) { return KivGetSpinUpperLimit(&limit); });
  if (status == KIV_ST_OK) {
    EXPECT_EQ(limit, KIV_SDSYNC_BUSYSPIN_UPPERLIMIT);
  } else {
    EXPECT_EQ(limit, kUnset);
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, before);
  }
}
// A stack that could not be made is missing, or lacks its first block. It can be destroyed.
void MakeExceptionStack(FaultRun& run) {
  run.Call([](KivSdContext*) {
    KivSdXcptCreateStackHeader();
    const KivSdMemStack* stack = kiv::ExceptionStack();
    return stack != nullptr && stack->freeList != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  });
  KivSdXcptDestroyStackHeader();
  EXPECT_EQ(kiv::ExceptionStack(), nullptr);
}
// Without a claim the first thread handles the exception all the same.
void RecordException(FaultRun& run) {
  run.Call([](KivSdContext*) { return KivSdXcptSetFatExceptionOccured(1); });
  EXPECT_TRUE(kiv::FatalExceptionState().occurred);
}

const std::vector<FaultOutcome> kNoMemory = {{"malloc", KIV_ST_OUT_OF_MEMORY}};
const std::vector<FaultOutcome> kMeasuring = {{"CreatePipe", KIV_ST_PIPE_CREATE},
                                              {"CreateThread", KIV_ST_THREAD_CREATE},
                                              {"CloseHandle", KIV_ST_OK},
                                              {"malloc", KIV_ST_THREAD_CREATE}};
const std::vector<FaultOutcome> kIgnored = {{"CreatePipe", KIV_ST_OK},
                                            {"CreateThread", KIV_ST_OK},
                                            {"CloseHandle", KIV_ST_OK},
                                            {"malloc", KIV_ST_OK}};

FaultScenario Once(const char* operation, void (*body)(FaultRun&),
                   const std::vector<FaultOutcome>& outcomes) {
  return {operation, body, outcomes, {}, Recording::kNothing, true, kWait};
}

const FaultScenario kScenarios[] = {
    Once("KivGetSpinUpperLimit", Measure, kMeasuring),
    Once("KivSdXcptCreateStackHeader", MakeExceptionStack, kNoMemory),
    Once("KivSdXcptSetFatExceptionOccured", RecordException, kIgnored),
};

INSTANTIATE_TEST_SUITE_P(Once, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
