// Tuning of the locks: the lock variables of the environment, and the measurement of the spin
// budget with every failure of a system call.
#include <fcntl.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/heap_watch.h"
#include "support/import_patch.h"
#include "support/process.h"
#include "support/system_interface.h"

namespace {

using kiv::test::HeapWatch;
using kiv::test::ImportPatch;
using kiv::test::ScriptedImport;

constexpr int32_t kOldBudget = 12345;
constexpr int32_t kOldLimit = 4711;
constexpr DWORD kError = 5;
constexpr uint32_t kNever = UINT32_MAX;
constexpr char kDisplay[] = "KIV_DISPLAY_LOCKCONFIG";

// ---- Fake processors and a fake environment ----

// kivsdu.dll sees this many processors during the object's lifetime.
class Processors {
 public:
  explicit Processors(DWORD count) {
    count_ = count;
    meanwhile_ = nullptr;
  }

  // Runs `meanwhile` at the first query of the processors.
  static void PauseAtCount(std::function<void()> meanwhile) { meanwhile_ = std::move(meanwhile); }

 private:
  static void WINAPI Describe(SYSTEM_INFO* info) {
    *info = {};
    info->dwNumberOfProcessors = count_;
    const std::function<void()> meanwhile = std::exchange(meanwhile_, nullptr);
    if (meanwhile != nullptr) meanwhile();
  }

  static inline DWORD count_ = 0;
  static inline std::function<void()> meanwhile_;
  ImportPatch patch_{"GetSystemInfo", reinterpret_cast<void*>(&Describe)};
};

// kivsdu.dll sees only this environment during the object's lifetime.
class Environment {
 public:
  explicit Environment(std::map<std::string, std::string> values) {
    values_ = std::move(values);
    asked_.clear();
    pausing_.clear();
  }

  static const std::vector<std::string>& asked() { return asked_; }

  // Runs `meanwhile` at the first query of this variable.
  static void PauseAt(const std::string& name, std::function<void()> meanwhile) {
    pausing_ = name;
    meanwhile_ = std::move(meanwhile);
  }

 private:
  static char* Find(const char* name) {
    asked_.push_back(name);
    if (name == pausing_) {
      pausing_.clear();
      meanwhile_();
    }
    const auto found = values_.find(name);
    return found != values_.end() ? found->second.data() : nullptr;
  }

  static inline std::map<std::string, std::string> values_;
  static inline std::vector<std::string> asked_;
  static inline std::string pausing_;
  static inline std::function<void()> meanwhile_;
  ImportPatch patch_{"getenv", reinterpret_cast<void*>(&Find)};
};

const std::vector<std::string> kNames = {
    "KIV_SPINLOCK_MAXSPINLOOPS", "KIV_SPINLOCK_MAXSPINYIELDS", "KIV_SPINLOCK_MAXWAITLOOPS",
    "KIV_RWLOCK_RMAXSPINLOOPS",  "KIV_RWLOCK_RMAXSPINYIELDS",  "KIV_RWLOCK_RMAXWAITLOOPS",
    "KIV_RWLOCK_WMAXSPINLOOPS",  "KIV_RWLOCK_WMAXSPINYIELDS",  "KIV_RWLOCK_WMAXWAITLOOPS"};

std::map<std::string, std::string> AllSetTo(const std::string& value) {
  std::map<std::string, std::string> values = {{kDisplay, ""}};
  for (const std::string& name : kNames) values[name] = value;
  return values;
}

constexpr unsigned kRoomBytes = 4096;

#ifdef _WIN32
bool MakePipeOfBytes(int (&ends)[2]) { return _pipe(ends, kRoomBytes, _O_BINARY) == 0; }
int Duplicate(int file) { return _dup(file); }
void DuplicateTo(int file, int target) { _dup2(file, target); }
void CloseFile(int file) { _close(file); }
int ReadBytes(int file, char* bytes) { return _read(file, bytes, kRoomBytes); }
bool SetVariable(const char* assignment) { return _putenv(assignment) == 0; }
#else
bool MakePipeOfBytes(int (&ends)[2]) { return pipe(ends) == 0; }
int Duplicate(int file) { return dup(file); }
void DuplicateTo(int file, int target) { dup2(file, target); }
void CloseFile(int file) { close(file); }
int ReadBytes(int file, char* bytes) { return static_cast<int>(read(file, bytes, kRoomBytes)); }
bool SetVariable(const char* assignment) { return putenv(const_cast<char*>(assignment)) == 0; }
#endif

// Returns the bytes that a call writes to standard output; the runtime does not translate line
// ends.
std::string BytesWrittenBy(const std::function<void()>& call) {
  constexpr int kStandardOutput = 1;
  int ends[2] = {-1, -1};
  EXPECT_TRUE(MakePipeOfBytes(ends));
  std::fflush(stdout);
  const int kept = Duplicate(kStandardOutput);
  DuplicateTo(ends[1], kStandardOutput);
  call();
  std::fflush(stdout);
  DuplicateTo(kept, kStandardOutput);
  CloseFile(kept);
  CloseFile(ends[1]);
  std::string bytes(kRoomBytes, '\0');
  bytes.resize(static_cast<size_t>(std::max(0, ReadBytes(ends[0], bytes.data()))));
  CloseFile(ends[0]);
  return bytes;
}

// Returns the text that a call prints on standard output.
std::string PrintedBy(const std::function<void()>& call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

// Checks the lines displayed for an environment, in a process that has not read its environment
// yet.
void CheckShown(const std::map<std::string, std::string>& values, const std::string& lines) {
  const Processors one(1);
  const Environment environment(values);
  EXPECT_EQ(PrintedBy(KivSyncEnvInit), lines);
}

// ---- The environment ----

TEST(SyncEnv, DisplaysTheNineDefaultsWhenOnlyTheDisplayVariableIsSet) {
  IN_FRESH_PROCESS([] {
    CheckShown({{kDisplay, ""}},
               "KIV_SPINLOCK_MAXSPINLOOPS=1\n"
               "KIV_SPINLOCK_MAXSPINYIELDS=1\n"
               "KIV_SPINLOCK_MAXWAITLOOPS=0\n"
               "KIV_RWLOCK_RMAXSPINLOOPS=1\n"
               "KIV_RWLOCK_RMAXSPINYIELDS=0\n"
               "KIV_RWLOCK_RMAXWAITLOOPS=1\n"
               "KIV_RWLOCK_WMAXSPINLOOPS=1\n"
               "KIV_RWLOCK_WMAXSPINYIELDS=0\n"
               "KIV_RWLOCK_WMAXWAITLOOPS=1\n");
    std::vector<std::string> all = kNames;
    all.push_back(kDisplay);
    EXPECT_EQ(Environment::asked(), all) << "in this order, each once";
  });
}

TEST(SyncEnv, DisplaysTheProcessesOwnEnvironmentByteForByte) {
  IN_FRESH_PROCESS([] {
    const Processors one(1);
    for (const char* value :
         {"KIV_SPINLOCK_MAXWAITLOOPS=-2147483648", "KIV_RWLOCK_RMAXSPINLOOPS=\t +300",
          "KIV_RWLOCK_WMAXWAITLOOPS=4x", "KIV_DISPLAY_LOCKCONFIG=no"}) {
      EXPECT_TRUE(SetVariable(value));
    }
    EXPECT_EQ(BytesWrittenBy(KivSyncEnvInit),
              "KIV_SPINLOCK_MAXSPINLOOPS=1\n"
              "KIV_SPINLOCK_MAXSPINYIELDS=1\n"
              "KIV_SPINLOCK_MAXWAITLOOPS=-2147483648\n"
              "KIV_RWLOCK_RMAXSPINLOOPS=300\n"
              "KIV_RWLOCK_RMAXSPINYIELDS=0\n"
              "KIV_RWLOCK_RMAXWAITLOOPS=1\n"
              "KIV_RWLOCK_WMAXSPINLOOPS=1\n"
              "KIV_RWLOCK_WMAXSPINYIELDS=0\n"
              "KIV_RWLOCK_WMAXWAITLOOPS=4\n");
    EXPECT_EQ(BytesWrittenBy(KivSyncEnvInit), "") << "once";
  });
}

TEST(SyncEnv, CorrectsTheSmallestNegativeValue) {
  IN_FRESH_PROCESS([] {
    CheckShown(AllSetTo("-1"),
               "KIV_SPINLOCK_MAXSPINLOOPS=1\n"
               "KIV_SPINLOCK_MAXSPINYIELDS=1\n"
               "KIV_SPINLOCK_MAXWAITLOOPS=-1\n"
               "KIV_RWLOCK_RMAXSPINLOOPS=1\n"
               "KIV_RWLOCK_RMAXSPINYIELDS=0\n"
               "KIV_RWLOCK_RMAXWAITLOOPS=1\n"
               "KIV_RWLOCK_WMAXSPINLOOPS=1\n"
               "KIV_RWLOCK_WMAXSPINYIELDS=0\n"
               "KIV_RWLOCK_WMAXWAITLOOPS=1\n");
  });
}

TEST(SyncEnv, CorrectsANegativeValue) {
  IN_FRESH_PROCESS([] {
    CheckShown(AllSetTo("-5"),
               "KIV_SPINLOCK_MAXSPINLOOPS=1\n"
               "KIV_SPINLOCK_MAXSPINYIELDS=1\n"
               "KIV_SPINLOCK_MAXWAITLOOPS=-5\n"
               "KIV_RWLOCK_RMAXSPINLOOPS=1\n"
               "KIV_RWLOCK_RMAXSPINYIELDS=0\n"
               "KIV_RWLOCK_RMAXWAITLOOPS=1\n"
               "KIV_RWLOCK_WMAXSPINLOOPS=1\n"
               "KIV_RWLOCK_WMAXSPINYIELDS=0\n"
               "KIV_RWLOCK_WMAXWAITLOOPS=1\n");
  });
}

// Displayed for 0, and for text that is not a number.
constexpr char kLinesOfZero[] =
    "KIV_SPINLOCK_MAXSPINLOOPS=1\n"
    "KIV_SPINLOCK_MAXSPINYIELDS=1\n"
    "KIV_SPINLOCK_MAXWAITLOOPS=0\n"
    "KIV_RWLOCK_RMAXSPINLOOPS=0\n"
    "KIV_RWLOCK_RMAXSPINYIELDS=0\n"
    "KIV_RWLOCK_RMAXWAITLOOPS=0\n"
    "KIV_RWLOCK_WMAXSPINLOOPS=0\n"
    "KIV_RWLOCK_WMAXSPINYIELDS=0\n"
    "KIV_RWLOCK_WMAXWAITLOOPS=0\n";

TEST(SyncEnv, AcceptsZeroForReaderWriterLocksOnly) {
  IN_FRESH_PROCESS([] { CheckShown(AllSetTo("0"), kLinesOfZero); });
}

TEST(SyncEnv, TreatsNonNumericTextAsZero) {
  IN_FRESH_PROCESS([] { CheckShown(AllSetTo("many"), kLinesOfZero); });
}

TEST(SyncEnv, AcceptsEveryOtherValueAsGiven) {
  IN_FRESH_PROCESS([] {
    std::map<std::string, std::string> values = {{kDisplay, "0"}};
    for (size_t i = 0; i < kNames.size(); ++i) values[kNames[i]] = std::to_string(i + 2) + " x";
    values[kNames.back()] = "2147483647";
    CheckShown(values,
               "KIV_SPINLOCK_MAXSPINLOOPS=2\n"
               "KIV_SPINLOCK_MAXSPINYIELDS=3\n"
               "KIV_SPINLOCK_MAXWAITLOOPS=4\n"
               "KIV_RWLOCK_RMAXSPINLOOPS=5\n"
               "KIV_RWLOCK_RMAXSPINYIELDS=6\n"
               "KIV_RWLOCK_RMAXWAITLOOPS=7\n"
               "KIV_RWLOCK_WMAXSPINLOOPS=8\n"
               "KIV_RWLOCK_WMAXSPINYIELDS=9\n"
               "KIV_RWLOCK_WMAXWAITLOOPS=2147483647\n");
  });
}

TEST(SyncEnv, PrintsNothingWithoutTheDisplayVariable) {
  IN_FRESH_PROCESS([] {
    std::map<std::string, std::string> values = AllSetTo("7");
    values.erase(kDisplay);
    CheckShown(values, "");
  });
}

TEST(SyncEnv, RunsOnceHoweverOftenItIsCalled) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 20000);
    {
      const Processors one(1);
      const Environment environment({});
      KivSdSpinlockDestroy(nullptr, KivSdSpinlockCreate(nullptr, 0));
      EXPECT_EQ(Environment::asked().size(), kNames.size() + 1) << "by the first lock";
      EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 1);
    }
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
    const Environment environment(AllSetTo("7"));
    const ScriptedImport processors("GetSystemInfo", {});
    EXPECT_EQ(PrintedBy([] {
                KivSyncEnvInit();
                KivSdSpinlockDestroy(nullptr, KivSdSpinlockCreate(nullptr, 0));
              }),
              "");
    EXPECT_TRUE(Environment::asked().empty());
    EXPECT_TRUE(processors.calls().empty());
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
  });
}

// Creates the first lock of another thread while this thread runs KivSyncEnvInit.
void MakeFirstLockElsewhere() {
  std::thread([] {
    KivRWLock lock;
    EXPECT_EQ(KivRWLockInit(nullptr, 0, &lock, 1, 0), KIV_ST_OK);
    EXPECT_EQ(lock.readerSpinLoops, 7) << "from the environment";
    EXPECT_EQ(lock.writerWaitLoops, 7);
  }).join();
}

TEST(SyncEnv, RunsOnEachOfTwoThreadsThatCreateAFirstLockTogether) {
  for (const char* variable : {kNames.front().c_str(), kNames.back().c_str(), kDisplay}) {
    SCOPED_TRACE(variable);
    IN_FRESH_PROCESS([variable] {
      const Processors one(1);
      std::map<std::string, std::string> values = AllSetTo("7");
      values.erase(kDisplay);
      const Environment environment(values);
      Environment::PauseAt(variable, MakeFirstLockElsewhere);
      KivSyncEnvInit();
      EXPECT_EQ(Environment::asked().size(), 2 * (kNames.size() + 1));
    });
  }
  IN_FRESH_PROCESS([] {
    const Processors one(1);
    const Environment environment(AllSetTo("7"));
    Processors::PauseAtCount(MakeFirstLockElsewhere);
    EXPECT_NE(PrintedBy(KivSyncEnvInit), "");
    EXPECT_EQ(Environment::asked().size(), 2 * (kNames.size() + 1))
        << "during the other thread's measurement";
  });
}

// Each field of the lock, like each variable, is for readers or for writers.
TEST(SyncEnv, RunsForTheFirstReaderWriterLockWhichUsesItsLimits) {
  IN_FRESH_PROCESS([] {
    std::map<std::string, std::string> values;
    for (size_t i = 0; i < kNames.size(); ++i) values[kNames[i]] = std::to_string(i + 2);
    KivRWLock lock;
    {
      const Processors one(1);
      const Environment environment(values);
      EXPECT_EQ(KivRWLockInit(nullptr, 0, &lock, 1, 0), KIV_ST_OK);
      EXPECT_EQ(Environment::asked().size(), kNames.size() + 1);
    }
    EXPECT_EQ(lock.readerSpinLoops, 5);
    EXPECT_EQ(lock.readerSpinYields, 6);
    EXPECT_EQ(lock.readerWaitLoops, 7);
    EXPECT_EQ(lock.writerSpinLoops, 8);
    EXPECT_EQ(lock.writerSpinYields, 9);
    EXPECT_EQ(lock.writerWaitLoops, 10);
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 1);
  });
}

TEST(SyncEnv, ReadsTheEnvironmentEvenIfTheMeasurementFails) {
  IN_FRESH_PROCESS([] {
    const Processors two(2);
    const Environment environment({{kDisplay, ""}, {kNames[0], "9"}});
    const ScriptedImport pipe("CreatePipe", {.result = 0, .error = kError});
    const std::string shown = PrintedBy(KivSyncEnvInit);
    EXPECT_EQ(shown,
              "KIV_SPINLOCK_MAXSPINLOOPS=9\n"
              "KIV_SPINLOCK_MAXSPINYIELDS=1\n"
              "KIV_SPINLOCK_MAXWAITLOOPS=0\n"
              "KIV_RWLOCK_RMAXSPINLOOPS=1\n"
              "KIV_RWLOCK_RMAXSPINYIELDS=0\n"
              "KIV_RWLOCK_RMAXWAITLOOPS=1\n"
              "KIV_RWLOCK_WMAXSPINLOOPS=1\n"
              "KIV_RWLOCK_WMAXSPINYIELDS=0\n"
              "KIV_RWLOCK_WMAXWAITLOOPS=1\n");
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 20000) << "as it was";
    KivSyncEnvInit();
    EXPECT_EQ(pipe.calls().size(), 1u) << "not tried again";
  });
}

TEST(SpinlockCreate, ReturnsNullWithoutMemory) {
  IN_FRESH_PROCESS([] {
    const Processors one(1);
    KivSyncEnvInit();
    const HeapWatch heap(0, kError);
    EXPECT_EQ(KivSdSpinlockCreate(nullptr, 0), nullptr);
    EXPECT_EQ(heap.sizes(), std::vector<size_t>{256});
  });
}

// ---- The spin budget ----

// The system calls of the measurement, which several threads make. Call number `failing` of one
// function, counted from 0, fails. Records pipes, threads and closed handles. Hollow reads and
// writes succeed without transferring anything, which is quick.
class Calls {
 public:
  enum Function { kCreatePipe, kCreateThread, kReadFile, kWriteFile, kFunctions };

  enum Transfer { kReal, kHollow };

  explicit Calls(Function function = kFunctions, uint32_t failing = kNever,
                 Transfer transfer = kReal, DWORD error = kError) {
    function_ = function;
    transfer_ = transfer;
    failing_ = failing;
    error_ = error;
    for (std::atomic<uint32_t>& count : counts_) count = 0;
    ends_.clear();
    threads_.clear();
    closed_.clear();
    pipeBytes_.clear();
    stackBytes_.clear();
    otherBytes_ = 0;
    for (size_t i = 0; i < kFunctions; ++i) originals_[i] = patches_[i].original();
    originalClose_ = close_.original();
  }

  static uint32_t count(Function function) { return counts_[function]; }
  static size_t ends() { return ends_.size(); }
  static const std::vector<DWORD>& pipeBytes() { return pipeBytes_; }
  static const std::vector<SIZE_T>& stackBytes() { return stackBytes_; }
  static uint32_t otherBytes() { return otherBytes_; }

  // Whether every pipe end and every thread was closed exactly once.
  static bool AllAreClosed() {
    std::vector<HANDLE> made = ends_;
    made.insert(made.end(), threads_.begin(), threads_.end());
    return std::is_permutation(made.begin(), made.end(), closed_.begin(), closed_.end());
  }

 private:
  static bool Fails(Function function) {
    if (counts_[function].fetch_add(1) != failing_ || function != function_) return false;
    SetLastError(error_);
    return true;
  }

  template <typename Signature>
  static Signature* Original(Function function) {
    return reinterpret_cast<Signature*>(originals_[function]);
  }

  static BOOL WINAPI MakePipe(HANDLE* read, HANDLE* write, SECURITY_ATTRIBUTES* security,
                              DWORD bytes) {
    EXPECT_EQ(bytes, 0u) << "as large as the system likes";
    pipeBytes_.push_back(bytes);
    if (Fails(kCreatePipe)) return FALSE;
    const BOOL made = Original<decltype(CreatePipe)>(kCreatePipe)(read, write, security, bytes);
    if (made) ends_.insert(ends_.end(), {*read, *write});
    return made;
  }

  static HANDLE WINAPI StartThread(SECURITY_ATTRIBUTES* security, SIZE_T stackBytes,
                                   LPTHREAD_START_ROUTINE routine, void* argument, DWORD flags,
                                   DWORD* id) {
    EXPECT_EQ(stackBytes, 1024u);
    stackBytes_.push_back(stackBytes);
    if (Fails(kCreateThread)) return nullptr;
    const HANDLE thread = Original<decltype(CreateThread)>(kCreateThread)(
        security, stackBytes, routine, argument, flags, id);
    const std::lock_guard<std::mutex> guard(mutex_);
    threads_.push_back(thread);
    return thread;
  }

  static BOOL WINAPI Read(HANDLE file, void* buffer, DWORD length, DWORD* count,
                          OVERLAPPED* overlapped) {
    if (Fails(kReadFile)) return FALSE;
    *count = length;
    if (transfer_ == kHollow) return TRUE;
    return Original<decltype(ReadFile)>(kReadFile)(file, buffer, length, count, overlapped);
  }

  static BOOL WINAPI Write(HANDLE file, const void* buffer, DWORD length, DWORD* count,
                           OVERLAPPED* overlapped) {
    EXPECT_EQ(length, 1u);
    if (transfer_ == kReal) {
      EXPECT_EQ(*static_cast<const char*>(buffer), 'c');
    }
    if (Fails(kWriteFile)) return FALSE;
    *count = length;
    if (transfer_ == kHollow) return TRUE;
    return Original<decltype(WriteFile)>(kWriteFile)(file, buffer, length, count, overlapped);
  }

  static BOOL WINAPI Close(HANDLE handle) {
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      closed_.push_back(handle);
    }
    return reinterpret_cast<decltype(CloseHandle)*>(originalClose_)(handle);
  }

  static inline Function function_;
  static inline uint32_t failing_;
  static inline DWORD error_;
  static inline Transfer transfer_;
  static inline std::atomic<uint32_t> counts_[kFunctions];
  static inline void* originals_[kFunctions];
  static inline void* originalClose_;
  static inline std::mutex mutex_;  // guards closed_ and threads_
  static inline std::vector<HANDLE> closed_;
  static inline std::vector<HANDLE> threads_;
  static inline std::vector<HANDLE> ends_;  // written by one thread before it starts others
  static inline std::vector<DWORD> pipeBytes_;
  static inline std::vector<SIZE_T> stackBytes_;    // the threads start one after the other
  static inline std::atomic<uint32_t> otherBytes_;  // number of writes other than one 'c'

  ImportPatch patches_[kFunctions] = {{"CreatePipe", reinterpret_cast<void*>(&MakePipe)},
                                      {"CreateThread", reinterpret_cast<void*>(&StartThread)},
                                      {"ReadFile", reinterpret_cast<void*>(&Read)},
                                      {"WriteFile", reinterpret_cast<void*>(&Write)}};
  ImportPatch close_{"CloseHandle", reinterpret_cast<void*>(&Close)};
};

TEST(SpinUpperLimit, IsOneOnOneProcessorWithoutAPipeOrAThread) {
  const Processors one(1);
  const Calls calls;
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  int32_t limit = kOldLimit;
  EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  EXPECT_EQ(limit, 1);
  EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 1);
  EXPECT_EQ(Calls::count(Calls::kCreatePipe), 0u);
  EXPECT_EQ(Calls::count(Calls::kCreateThread), 0u);
}

// A performance counter that returns the given readings in turn.
class Clock {
 public:
  explicit Clock(std::vector<int64_t> readings, int64_t frequency = 1'000'000,
                 BOOL hasFrequency = TRUE) {
    readings_ = std::move(readings);
    ticksPerSecond_ = frequency;
    hasFrequency_ = hasFrequency;
    next_ = 0;
  }

  static size_t looks() { return next_; }

 private:
  static BOOL WINAPI Read(LARGE_INTEGER* count) {
    const size_t look = next_.fetch_add(1);
    count->QuadPart = look < readings_.size() ? readings_[look] : 0;
    return TRUE;
  }
  static BOOL WINAPI Frequency(LARGE_INTEGER* frequency) {
    frequency->QuadPart = ticksPerSecond_;
    return hasFrequency_;
  }

  static inline std::vector<int64_t> readings_;
  static inline int64_t ticksPerSecond_;
  static inline BOOL hasFrequency_;
  static inline std::atomic<size_t> next_;
  ImportPatch counter_{"QueryPerformanceCounter", reinterpret_cast<void*>(&Read)};
  ImportPatch frequency_{"QueryPerformanceFrequency", reinterpret_cast<void*>(&Frequency)};
};

TEST(SpinUpperLimit, IsTheNumberOfRoundsThatLastAsLongAsHalfARoundTrip) {
  struct {
    int64_t tripsUs;  // time of 10000 round trips
    int64_t spinUs;   // time of 400000 rounds
    int32_t limit;
    Calls::Transfer transfer;
  } const measurements[] = {{300, 200, 30, Calls::kReal},
                            {1000, 300, 66, Calls::kHollow},
                            {1, 21, 0, Calls::kHollow},
                            {INT32_MAX, 1, INT32_MAX, Calls::kHollow}};
  const Processors two(2);
  for (const auto& [tripsUs, spinUs, expected, transfer] : measurements) {
    const Clock clock({1000, 1000 + tripsUs, 5000, 5000 + spinUs});
    const Calls calls(Calls::kFunctions, kNever, transfer);
    const ScriptedImport sleep("Sleep", {.passFirst = UINT32_MAX});
    int32_t limit = kOldLimit;
    EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
    EXPECT_EQ(limit, expected) << "cut off, and not raised to 1";
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, expected);
    EXPECT_EQ(Clock::looks(), 4u);
    EXPECT_EQ(Calls::pipeBytes(), (std::vector<DWORD>{0, 0}));
    EXPECT_EQ(Calls::stackBytes(), (std::vector<SIZE_T>{1024, 1024}));
    ASSERT_EQ(sleep.calls().size(), 1u) << "for both threads to settle";
    EXPECT_EQ(static_cast<DWORD>(sleep.calls()[0][0]), 100u);
    if (transfer == Calls::kReal) {
      EXPECT_EQ(Calls::otherBytes(), 0u);
    }
    EXPECT_EQ(Calls::count(Calls::kReadFile), 20000u);
    EXPECT_EQ(Calls::count(Calls::kWriteFile), 20000u);
    EXPECT_EQ(Calls::ends(), 4u);
    EXPECT_TRUE(Calls::AllAreClosed());
  }
}

// Records the sleeps of kivsdu.dll, and how often the clock was read before each.
class Sleeps {
 public:
  struct One {
    DWORD timeMs;
    size_t looksBefore;

    bool operator==(const One&) const = default;
  };

  Sleeps() {
    all_.clear();
    original_ = patch_.original();
  }

  static const std::vector<One>& all() { return all_; }

 private:
  static void WINAPI Note(DWORD timeMs) {
    all_.push_back({timeMs, Clock::looks()});
    reinterpret_cast<decltype(Sleep)*>(original_)(timeMs);
  }

  static inline std::vector<One> all_;  // written by one thread, read after it has ended
  static inline void* original_;
  ImportPatch patch_{"Sleep", reinterpret_cast<void*>(&Note)};
};

void PrintTo(const Sleeps::One& one, std::ostream* out) {
  *out << one.timeMs << " ms after " << one.looksBefore << " looks";
}

TEST(SpinUpperLimit, IsMeasuredAfterTheThreadsHaveSettled) {
  const Processors two(2);
  const Clock clock({1000, 2000, 5000, 6000});
  const Calls calls(Calls::kFunctions, kNever, Calls::kHollow);
  const Sleeps sleeps;
  int32_t limit = kOldLimit;
  EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  EXPECT_EQ(Sleeps::all(), (std::vector<Sleeps::One>{{100, 0}}));
}

TEST(SpinUpperLimit, StaysUnchangedIfTheClockStandsStill) {
  const Processors two(2);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  for (const int64_t tripsUs : {int64_t{0}, int64_t{300}}) {
    const Clock clock({1000, 1000 + tripsUs, 5000, 5000});
    const Calls calls(Calls::kFunctions, kNever, Calls::kHollow);
    int32_t limit = kOldLimit;
    EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
    EXPECT_EQ(Clock::looks(), 4u);
    EXPECT_EQ(limit, kOldLimit);
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
    EXPECT_TRUE(Calls::AllAreClosed());
  }
}

TEST(SpinUpperLimit, StaysUnchangedIfTheClockStandsStillDuringTheSpin) {
  const Processors two(2);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  const Clock clock({1000, 1300, 5000, 5000});
  const Calls calls(Calls::kFunctions, kNever, Calls::kHollow);
  int32_t limit = kOldLimit;
  EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  EXPECT_EQ(limit, kOldLimit);
  EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
  EXPECT_TRUE(Calls::AllAreClosed());
}

void ExpectLeftAlone() {
  const Calls calls(Calls::kFunctions, kNever, Calls::kHollow);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  int32_t limit = kOldLimit;
  EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  EXPECT_EQ(limit, kOldLimit);
  EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
  EXPECT_TRUE(Calls::AllAreClosed());
}

TEST(SpinUpperLimit, StaysUnchangedIfTheClockHasNoFrequency) {
  const Processors two(2);
  {
    const Clock clock({1000, 2000, 5000, 6000}, 0);
    ExpectLeftAlone();
  }
  const Clock clock({1000, 2000, 5000, 6000}, 1'000'000, FALSE);
  ExpectLeftAlone();
}

// ---- A lease guard that creates locks ----

// Runs on the measuring thread and on the two threads that it starts.
class LockingGuard {
 public:
  LockingGuard() {
    runs_ = 0;
    inside_ = 0;
    hasFailed_ = false;
    KivSdSetLeaseGuardAccessFunction(&LockingGuard::Run);
    KivSdSetFailoverModeFlag(1);
  }
  ~LockingGuard() {
    KivSdSetFailoverModeFlag(0);
    KivSdSetLeaseGuardAccessFunction(nullptr);
  }
  LockingGuard(const LockingGuard&) = delete;
  LockingGuard& operator=(const LockingGuard&) = delete;

  static uint32_t runs() { return runs_; }

 private:
  static constexpr uint32_t kThreads = 3;

  static void Run() {
    ++runs_;
    if (hasFailed_) return;
    // More than kThreads at once means that a measurement has started another one.
    if (inside_.fetch_add(1) < kThreads) {
      KivSdSpinlockDestroy(nullptr, KivSdSpinlockCreate(nullptr, 0));
      int32_t limit = kOldLimit;
      EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
      EXPECT_EQ(limit, KIV_SDSYNC_BUSYSPIN_UPPERLIMIT) << "the current budget";
    } else {
      hasFailed_ = true;
      ADD_FAILURE() << "a measurement inside a measurement";
    }
    --inside_;
  }

  static inline std::atomic<uint32_t> runs_;
  static inline std::atomic<uint32_t> inside_;
  static inline std::atomic<bool> hasFailed_;
};

TEST(SpinUpperLimit, IsMeasuredOnceEvenIfTheLeaseGuardCreatesLocks) {
  IN_FRESH_PROCESS([] {
    const Processors two(2);
    const Environment environment(AllSetTo("7"));
    const Clock clock({1000, 1300, 5000, 5200});
    const Calls calls(Calls::kFunctions, kNever, Calls::kHollow);
    const LockingGuard guard;
    EXPECT_NE(PrintedBy(KivSyncEnvInit), "");
    EXPECT_GT(LockingGuard::runs(), 40000u) << "the transfers call it too";
    EXPECT_EQ(Calls::count(Calls::kCreatePipe), 2u);
    EXPECT_EQ(Calls::count(Calls::kCreateThread), 2u);
    EXPECT_EQ(Environment::asked().size(), kNames.size() + 1);
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 30);
    EXPECT_TRUE(Calls::AllAreClosed());
  });
}

struct Failure {
  const char* name;
  Calls::Function function;
  std::vector<uint32_t> numbers;  // of the failing call; reads and writes alternate between threads
  uint32_t status;
};
const Failure kFailures[] = {
    {"CreatePipe", Calls::kCreatePipe, {0, 1}, KIV_ST_PIPE_CREATE},
    {"CreateThread", Calls::kCreateThread, {0, 1}, KIV_ST_THREAD_CREATE},
    {"ReadFile", Calls::kReadFile, {0, 1, 2, 3, 100, 101}, KIV_ST_PIPE_READ},
    {"WriteFile", Calls::kWriteFile, {0, 1, 2, 3, 100, 101, 19999}, KIV_ST_PIPE_WRITE},
};

TEST(SpinUpperLimit, StaysUnchangedOnAFailureWhichIsReported) {
  const Processors two(2);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  for (const Failure& failure : kFailures) {
    for (const uint32_t number : failure.numbers) {
      SCOPED_TRACE(std::string(failure.name) + " " + std::to_string(number));
      // For a late failure, the many transfers before it are hollow.
      const Calls calls(failure.function, number, number > 1000 ? Calls::kHollow : Calls::kReal);
      int32_t limit = kOldLimit;
      EXPECT_EQ(KivGetSpinUpperLimit(&limit), failure.status);
      EXPECT_EQ(limit, kOldLimit);
      EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
      EXPECT_EQ(Calls::ends(), failure.function == Calls::kCreatePipe ? 2 * number : 4);
      EXPECT_TRUE(Calls::AllAreClosed());
    }
  }
}

// KivSdPipeWrite reports such a write as a success. If the measurement did not check the count, the
// reading thread would wait forever.
TEST(SpinUpperLimit, DoesNotWaitForeverWhenAWriteFailsWithoutAnError) {
  const Processors two(2);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  for (const uint32_t number : {0u, 1u, 2u, 100u, 101u}) {
    SCOPED_TRACE(number);
    const Calls calls(Calls::kWriteFile, number, Calls::kReal, ERROR_SUCCESS);
    int32_t limit = kOldLimit;
    EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_PIPE_WRITE);
    EXPECT_EQ(limit, kOldLimit);
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
    EXPECT_TRUE(Calls::AllAreClosed());
  }
}

// KivSdPipeCreate reports such a failure as a success; the operations on the pipe then fail.
TEST(SpinUpperLimit, StaysUnchangedWhenAPipeCreationFailsWithoutAnError) {
  const Processors two(2);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kOldBudget;
  for (const uint32_t number : {0u, 1u}) {
    SCOPED_TRACE(number);
    const Calls calls(Calls::kCreatePipe, number, Calls::kReal, ERROR_SUCCESS);
    int32_t limit = kOldLimit;
    EXPECT_NE(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
    EXPECT_EQ(limit, kOldLimit);
    EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kOldBudget);
    EXPECT_TRUE(Calls::AllAreClosed());
  }
}

}  // namespace
