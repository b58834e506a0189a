// Measures the spin budget: the number of busy-wait rounds that take as long as putting a thread to
// sleep and waking it. Two threads pass a byte back and forth to measure the latter.
//
//   timing thread ── pipe A ──▶ echo thread
//        ▲                          │
//        └───────── pipe B ─────────┘
#include <array>
#include <atomic>
#include <initializer_list>

#include "kivsdu/pipe.h"
#include "kivsdu/status.h"
#include "kivsdu/system.h"
#include "kivsdu/thread.h"
#include "kivsdu/time.h"
#include "os/clock.h"
#include "os/thread.h"
#include "sdsync/calibrating_thread.h"
#include "sdsync/spin.h"

using namespace kiv;

namespace {

constexpr int32_t kRoundTrips = 10000;
constexpr int32_t kSpinRounds = 400000;
constexpr uint32_t kStackBytes = 1024;
constexpr uint32_t kPipeBufferBytes = 0;  // the system's default
constexpr uint32_t kSettleMs = 100;
constexpr char kByte = 'c';
constexpr int32_t kOneProcessorBudget = 1;

// Not read by the library; for inspection in a debugger.
std::atomic<int32_t> processorCount{1};

// What the measured spin reads in each round; stays set.
std::atomic<uint8_t> spinFlag{0};

// Limit of the measured spin. Separate from the budget, because another calibrating thread may
// store the budget at any moment.
std::atomic<int32_t> measuredRounds{0};

struct Pipe {
  KivHandle read;
  KivHandle write;
};

struct Measurement {
  Pipe toEcho;    // A
  Pipe toTiming;  // B
  uint8_t partnerStarted;
  uint8_t go;
  std::atomic<uint32_t> timingStatus;
  std::atomic<uint32_t> echoStatus;
  double elapsedUs;
};

// Microseconds between two readings of the counter.
double Microseconds(int64_t from, int64_t to) {
  const os::ValueResult<int64_t> frequency = os::CounterFrequency();
  if (!frequency.ok || frequency.value == 0) return 0;
  return static_cast<double>(to - from) * (1e9 / static_cast<double>(frequency.value)) / 1000.0;
}

uint32_t ReadByte(Pipe* pipe, char* byte) {
  uint32_t count = 0;
  return KivSdPipeRead(nullptr, &pipe->read, byte, 1, &count);
}

// KivSdPipeWrite reports success for a write that fails without an OS error. Here that is a
// failure: otherwise the other thread would wait for the byte forever.
uint32_t WriteByte(Pipe* pipe, const char* byte) {
  uint32_t count = 0;
  const uint32_t status = KivSdPipeWrite(nullptr, &pipe->write, byte, 1, &count);
  return status == KIV_ST_OK && count != 1 ? KIV_ST_PIPE_WRITE : status;
}

void CloseEnd(KivHandle* end) {
  if (*end != nullptr) static_cast<void>(KivSdPipeClose(nullptr, end));
  *end = nullptr;
}

// Records the failure of one thread and stops the other: closing the write end fails the read that
// waits for the next byte. The status is stored first, because the thread whose read fails checks
// whether the other thread failed before it.
void Fail(std::atomic<uint32_t>* ownStatus, uint32_t status, Pipe* pipeToOther) {
  *ownStatus = status;
  CloseEnd(&pipeToOther->write);
}

void Echo(Measurement* block) {
  for (int32_t trip = 0; trip < kRoundTrips && block->timingStatus == KIV_ST_OK; ++trip) {
    char byte = 0;
    uint32_t status = ReadByte(&block->toEcho, &byte);
    if (status == KIV_ST_OK) status = WriteByte(&block->toTiming, &byte);
    if (status != KIV_ST_OK) return Fail(&block->echoStatus, status, &block->toTiming);
  }
}

uint32_t EchoThread(void* argument) {
  const CalibratingThread calibrating;
  os::NameCurrentThread("kivsdu echo");
  auto* block = static_cast<Measurement*>(argument);
  std::atomic_ref<uint8_t>(block->partnerStarted).store(1, std::memory_order_release);
  Echo(block);
  return 0;
}

void SendAndReceive(Measurement* block) {
  char byte = kByte;
  uint32_t status = WriteByte(&block->toEcho, &byte);
  for (int32_t trip = 0; trip < kRoundTrips && status == KIV_ST_OK; ++trip) {
    if (block->echoStatus != KIV_ST_OK) return;  // already recorded by the echo thread
    status = ReadByte(&block->toTiming, &byte);
    const bool last = trip == kRoundTrips - 1;
    if (status == KIV_ST_OK && !last) status = WriteByte(&block->toEcho, &byte);
  }
  // A failure that follows from the echo thread's failure is not recorded.
  if (status == KIV_ST_OK || block->echoStatus != KIV_ST_OK) return;
  Fail(&block->timingStatus, status, &block->toEcho);
}

void TimeRoundTrips(Measurement* block) {
  uint32_t id = 0;
  KivHandle echo = nullptr;
  uint32_t status = KivSdThreadCreate(nullptr, EchoThread, 0, kStackBytes, block, &id, &echo);
  if (status != KIV_ST_OK) {
    block->timingStatus = status;
    return;
  }
  static_cast<void>(KivSdWaitUntilTrue(&block->partnerStarted));
  block->go = 1;
  KivSdSleep(nullptr, kSettleMs);

  const int64_t start = os::Counter().value;
  SendAndReceive(block);
  const int64_t end = os::Counter().value;
  block->elapsedUs = Microseconds(start, end);
  status = KivSdThreadJoin(nullptr, &echo);
  static_cast<void>(KivSdThreadDelete(nullptr, &echo));
  if (block->timingStatus == KIV_ST_OK) block->timingStatus = status;
}

uint32_t TimingThread(void* argument) {
  const CalibratingThread calibrating;
  os::NameCurrentThread("kivsdu timing");
  TimeRoundTrips(static_cast<Measurement*>(argument));
  return 0;
}

uint32_t RunThreads(Measurement* block) {
  uint32_t id = 0;
  KivHandle timing = nullptr;
  uint32_t status = KivSdThreadCreate(nullptr, TimingThread, 0, kStackBytes, block, &id, &timing);
  if (status != KIV_ST_OK) return status;
  status = KivSdThreadJoin(nullptr, &timing);
  static_cast<void>(KivSdThreadDelete(nullptr, &timing));
  if (status != KIV_ST_OK) return status;
  if (block->timingStatus != KIV_ST_OK) return block->timingStatus;
  return block->echoStatus;
}

// Times the locks' own busy wait on a flag that stays set; in microseconds.
double MeasureSpin() {
  const int32_t before = SpinBudget();
  SetSpinBudget(kSpinRounds);
  spinFlag.store(1, std::memory_order_relaxed);
  measuredRounds.store(kSpinRounds, std::memory_order_relaxed);
  const int64_t start = os::Counter().value;
  SpinWithin([] { return measuredRounds.load(std::memory_order_relaxed); },
             [] { return spinFlag.load(std::memory_order_acquire) == 0; });
  const int64_t end = os::Counter().value;
  SetSpinBudget(before);
  return Microseconds(start, end);
}

// The time of half a round trip, in spin rounds. Returns false if the clock did not advance.
bool ComputeBudget(double tripsUs, double spinUs, int32_t* budget) {
  if (spinUs <= 0) return false;
  const double rounds = kSpinRounds * tripsUs / (2.0 * kRoundTrips * spinUs);
  *budget = rounds < INT32_MAX ? static_cast<int32_t>(rounds) : INT32_MAX;
  return true;
}

}  // namespace

uint32_t KivGetSpinUpperLimit(int32_t* limit) {
  if (CalibratingThread::IsCurrent()) {
    *limit = SpinBudget();
    return KIV_ST_OK;
  }
  const CalibratingThread calibrating;
  const uint32_t count = KivSdCPUCountGet();
  processorCount.store(static_cast<int32_t>(count), std::memory_order_relaxed);
  if (count == 1) {
    // Spinning is useless if the holder cannot run at the same time.
    SetSpinBudget(kOneProcessorBudget);
    *limit = kOneProcessorBudget;
    return KIV_ST_OK;
  }

  Measurement block = {};
  uint32_t status =
      KivSdPipeCreate(nullptr, &block.toEcho.read, &block.toEcho.write, kPipeBufferBytes);
  if (status == KIV_ST_OK) {
    status =
        KivSdPipeCreate(nullptr, &block.toTiming.read, &block.toTiming.write, kPipeBufferBytes);
  }
  if (status == KIV_ST_OK) status = RunThreads(&block);
  int32_t budget = 0;
  if (status == KIV_ST_OK && ComputeBudget(block.elapsedUs, MeasureSpin(), &budget)) {
    SetSpinBudget(budget);
    *limit = budget;
  }
  for (KivHandle* end :
       {&block.toEcho.read, &block.toEcho.write, &block.toTiming.read, &block.toTiming.write}) {
    CloseEnd(end);
  }
  return status;
}
