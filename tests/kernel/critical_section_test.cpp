// Critical sections: exclusion, nesting and waiting.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/waiting.h"

namespace {

using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kShortMs;
using kiv::test::ScriptedImport;
using kiv::test::Stopwatch;

// A thread that enters the section and leaves it again.
class Visitor {
 public:
  explicit Visitor(KivSdCritSec* section)
      : thread_([this, section] {
          KivSdCritSecEnter(nullptr, section);
          entered_ = true;
          KivSdCritSecExit(nullptr, section);
        }) {}
  ~Visitor() { thread_.join(); }
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;

  bool EntersWithin(uint32_t timeoutMs) const {
    const Stopwatch watch;
    while (!entered_ && watch.ElapsedMs() < timeoutMs) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return entered_;
  }

 private:
  std::atomic<bool> entered_{false};
  std::thread thread_;
};

class CriticalSection : public testing::Test {
 protected:
  void SetUp() override { CHECK_OK(ctx_, KivSdCritSecInit(ctx_, &section_)); }
  void TearDown() override { CHECK_OK(ctx_, KivSdCritSecDelete(ctx_, &section_)); }

  bool IsFree() { return Visitor(&section_).EntersWithin(kLimitMs); }

  Context ctx_;
  KivSdCritSec section_ = {};
};

TEST_F(CriticalSection, RefusesNull) {
  CHECK_ARGUMENT(ctx_, KivSdCritSecInit(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCritSecDelete(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCritSecEnter(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCritSecExit(ctx_, nullptr));
}

TEST_F(CriticalSection, WorksWithoutAContext) {
  KivSdCritSec section = {};
  EXPECT_EQ(KivSdCritSecInit(nullptr, &section), KIV_ST_OK);
  EXPECT_EQ(KivSdCritSecEnter(nullptr, &section), KIV_ST_OK);
  EXPECT_EQ(KivSdCritSecExit(nullptr, &section), KIV_ST_OK);
  EXPECT_EQ(KivSdCritSecDelete(nullptr, &section), KIV_ST_OK);
  EXPECT_EQ(KivSdCritSecEnter(nullptr, nullptr), KIV_ST_ARGUMENT);
}

TEST_F(CriticalSection, IsFreeWhenInitialised) { EXPECT_TRUE(IsFree()); }

TEST_F(CriticalSection, ExcludesOtherThreadsUntilLeftAsOftenAsEntered) {
  CHECK_OK(ctx_, KivSdCritSecEnter(ctx_, &section_));
  CHECK_OK(ctx_, KivSdCritSecEnter(ctx_, &section_));
  const Visitor visitor(&section_);
  EXPECT_FALSE(visitor.EntersWithin(kShortMs));
  CHECK_OK(ctx_, KivSdCritSecExit(ctx_, &section_));
  EXPECT_FALSE(visitor.EntersWithin(kShortMs));
  CHECK_OK(ctx_, KivSdCritSecExit(ctx_, &section_));
  EXPECT_TRUE(visitor.EntersWithin(kLimitMs));
}

TEST_F(CriticalSection, EnterWaitsUntilTheOtherThreadLeaves) {
  CHECK_OK(ctx_, KivSdCritSecEnter(ctx_, &section_));
  bool left = false;  // guarded by the section
  bool seen = false;
  std::thread other([&] {
    KivSdCritSecEnter(nullptr, &section_);
    seen = left;
    KivSdCritSecExit(nullptr, &section_);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
  left = true;
  CHECK_OK(ctx_, KivSdCritSecExit(ctx_, &section_));
  other.join();
  EXPECT_TRUE(seen);
}

TEST_F(CriticalSection, GuardsACounterForManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20'000;
  volatile int count = 0;  // guarded by the section; volatile so that every step accesses memory
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        KivSdCritSecEnter(nullptr, &section_);
        count = count + 1;
        KivSdCritSecExit(nullptr, &section_);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, kThreads * kRounds);
}

TEST_F(CriticalSection, IsInitialisedAndDeletedManyTimesInOnePlace) {
  KivSdCritSec section = {};
  for (int i = 0; i < 1000; ++i) {
    CHECK_OK(ctx_, KivSdCritSecInit(ctx_, &section));
    CHECK_OK(ctx_, KivSdCritSecEnter(ctx_, &section));
    CHECK_OK(ctx_, KivSdCritSecExit(ctx_, &section));
    CHECK_OK(ctx_, KivSdCritSecDelete(ctx_, &section));
  }
}

TEST_F(CriticalSection, EachOperationMakesOneCallOnTheCallersStorage) {
  using Operation = uint32_t (*)(KivSdContext*, KivSdCritSec*);
  const struct {
    const char* function;
    Operation operation;
  } operations[] = {
      {"InitializeCriticalSection", KivSdCritSecInit},
      {"DeleteCriticalSection", KivSdCritSecDelete},
      {"EnterCriticalSection", KivSdCritSecEnter},
      {"LeaveCriticalSection", KivSdCritSecExit},
  };
  for (const auto& [function, operation] : operations) {
    SCOPED_TRACE(function);
    const ScriptedImport call(function, {.error = 5});
    CHECK_OK(ctx_, operation(ctx_, &section_));  // the last error is ignored
    CHECK_ARGUMENT(ctx_, operation(ctx_, nullptr));
    ASSERT_EQ(call.calls().size(), 1u);
    EXPECT_EQ(call.calls()[0][0], reinterpret_cast<uintptr_t>(&section_));
  }
}

}  // namespace
