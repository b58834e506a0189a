// Starting the host: the design of its locks.
#include "../host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "kivsdu/spinlock.h"
#include "support/process.h"

namespace cellhost {
namespace {

constexpr uint64_t kPattern = 0xA5A5A5A5A5A5A5A5;
constexpr size_t kTicketWords = 3;

// How many words of its storage a lightweight spinlock of this process uses, which is what tells
// the designs apart.
size_t WordsOfALock() {
  KivSdLWSpinlock lock;
  std::ranges::fill(lock.opaque, kPattern);
  KivSdLWSpinlockInit(&lock);
  return static_cast<size_t>(std::ranges::find(lock.opaque, kPattern) - std::begin(lock.opaque));
}

TEST(Host, HasLocksOfTickets) {
  IN_FRESH_PROCESS([] {
    EXPECT_TRUE(StartHost(LockDesign::kTicket, MemoryUse::kPlain));
    EXPECT_EQ(WordsOfALock(), kTicketWords);
    StopHost();
  });
}

TEST(Host, HasLocksOfTestAndSet) {
  IN_FRESH_PROCESS([] {
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kPlain));
    EXPECT_EQ(WordsOfALock(), std::size(KivSdLWSpinlock{}.opaque));
    StopHost();
  });
}

}  // namespace
}  // namespace cellhost
