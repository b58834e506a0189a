// What the release of a lightweight ticket spinlock does after its assertion if the runtime's
// assertion routine returns, for example under a debugger.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kivsdu/spinlock.h"
#include "support/import_patch.h"
#include "support/lock_design.h"

namespace {

using kiv::test::FieldOf;
using kiv::test::ImportPatch;
using kiv::test::kTestAndSet;
using kiv::test::kTicket;
using kiv::test::LockDesignTest;

struct Assertion {
  std::wstring condition;
  std::wstring source;
  unsigned line;

  bool operator==(const Assertion&) const = default;
};

const Assertion kNotTheOwner = {L"ThdId == pLWLockticket->ThdId", L"sd/sdlwsync", 302};

// Replaces the runtime's wide-character assertion routine: records the call and returns.
class Assertions {
 public:
  Assertions() { raised_.clear(); }

  static std::vector<Assertion> Take() { return std::exchange(raised_, {}); }

 private:
  static void Raise(const wchar_t* condition, const wchar_t* source, unsigned line) {
    raised_.push_back({condition, source, line});
  }

  static inline std::vector<Assertion> raised_;
  ImportPatch patch_{"_wassert", reinterpret_cast<void*>(&Raise)};
};

class TicketRelease : public LockDesignTest {
 protected:
  TicketRelease() { EXPECT_EQ(KivSdLWSpinlockInit(&lock_), 0u); }

  int64_t Serving() { return FieldOf<int64_t>(&lock_, 0).load(); }
  int32_t Count() { return FieldOf<int32_t>(&lock_, 12).load(); }
  uint32_t Owner() { return FieldOf<uint32_t>(&lock_, 16).load(); }

  Assertions assertions_;
  KivSdLWSpinlock lock_;
};
class WordRelease : public TicketRelease {};

INSTANTIATE_TEST_SUITE_P(Design, TicketRelease, testing::Values(kTicket), kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, WordRelease, testing::Values(kTestAndSet), kiv::test::DesignName);

TEST_P(TicketRelease, ByTheHolderRaisesNoAssertion) {
  KivSdLWSpinlockAcquire(&lock_);
  KivSdLWSpinlockAcquire(&lock_);
  KivSdLWSpinlockRelease(&lock_);
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_TRUE(Assertions::Take().empty());
}

TEST_P(TicketRelease, ByAnotherThreadContinuesAfterTheAssertion) {
  std::thread([this] {
    KivSdLWSpinlockAcquire(&lock_);
    KivSdLWSpinlockAcquire(&lock_);
  }).join();
  const uint32_t holder = Owner();
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Assertions::Take(), std::vector<Assertion>{kNotTheOwner});
  EXPECT_EQ(Count(), 1);
  EXPECT_EQ(Owner(), holder);
  EXPECT_EQ(Serving(), 0);
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Assertions::Take(), std::vector<Assertion>{kNotTheOwner});
  EXPECT_EQ(Count(), 0);
  EXPECT_EQ(Owner(), 0u);
  EXPECT_EQ(Serving(), 1);
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1) << "free again";
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_TRUE(Assertions::Take().empty());
}

TEST_P(TicketRelease, OfAFreeLockContinuesAndLeavesTheServingCounterAlone) {
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Assertions::Take(), std::vector<Assertion>{kNotTheOwner});
  EXPECT_EQ(Count(), -1);
  EXPECT_EQ(Serving(), 0);
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(Count(), 1) << "counted anew";
  KivSdLWSpinlockRelease(&lock_);
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Assertions::Take(), std::vector<Assertion>{kNotTheOwner});
  EXPECT_EQ(Count(), -1);
  EXPECT_EQ(Serving(), 1);
}

TEST_P(WordRelease, ByAnyThreadRaisesNoAssertion) {
  KivSdLWSpinlockRelease(&lock_);
  std::thread([this] { KivSdLWSpinlockAcquire(&lock_); }).join();
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_TRUE(Assertions::Take().empty());
}

}  // namespace
