// The identifier that the library's own locks take from the thread's own memory.
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

#include "kivsdu/thread.h"
#include "os/thread.h"

namespace {

uint32_t ToldIdentifier() {
  uint32_t id = 0;
  EXPECT_EQ(KivSdThreadIdGet(nullptr, &id), 0u);
  return id;
}

TEST(ThreadIdentifier, IsInTheThreadsMemory) {
  const uint32_t own = ToldIdentifier();
  EXPECT_EQ(kiv::os::KnownThreadId(), own);
  uint32_t others = 0;
  std::thread([&] {
    others = ToldIdentifier();
    EXPECT_EQ(kiv::os::KnownThreadId(), others);
  }).join();
  EXPECT_NE(others, own);
  EXPECT_EQ(kiv::os::KnownThreadId(), own);
}

}  // namespace
