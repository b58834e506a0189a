// What the tests of plain mode share: its switches for a test's time, its calls without their
// source positions, and a look at what lies before a payload.
#ifndef KIV_TESTS_POLICY_H
#define KIV_TESTS_POLICY_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "kivsdu/manager.h"
#include "kivsdu/memory.h"
#include "kivsdu/status.h"
#include "kivsdu/sync.h"
#include "kivsdu/threadcache.h"

namespace kiv::test {

constexpr uint64_t kTwoMebibytes = 2 << 20;
constexpr size_t kMandatoryHeader = 8;
constexpr size_t kFullHeader = 64;

// The memory-manager switch is on while it lives.
class ManagerSwitchedOn {
 public:
  explicit ManagerSwitchedOn(uint8_t flag = 1) { KivSdSetMemoryManager(flag); }
  ~ManagerSwitchedOn() { KivSdSetMemoryManager(0); }
  ManagerSwitchedOn(const ManagerSwitchedOn&) = delete;
  ManagerSwitchedOn& operator=(const ManagerSwitchedOn&) = delete;
};

// The calling thread has a cache while it lives.
class WithThreadCache {
 public:
  WithThreadCache() { EXPECT_EQ(adCreateThreadAlloc(), 0u); }
  ~WithThreadCache() { EXPECT_EQ(adDestroyThreadAlloc(), 0u); }
  WithThreadCache(const WithThreadCache&) = delete;
  WithThreadCache& operator=(const WithThreadCache&) = delete;
};

// A block of the size; null when there is no memory, and the status has to say the same.
inline void* Allocate(uint64_t sizeBytes, uint8_t policy = AD_POLICY_FULL) {
  void* block = &block;
  const uint32_t status = adMallocPolicy(nullptr, sizeBytes, &block, policy, "tests/policy", 1);
  EXPECT_EQ(status, block != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY);
  return block;
}

inline void* Reallocate(void* old, uint64_t sizeBytes) {
  void* block = &block;
  const uint32_t status = adRealloc(nullptr, sizeBytes, old, &block, "tests/policy", 2);
  EXPECT_EQ(status, block != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY);
  return block;
}

inline void Free(void* block) { EXPECT_EQ(adFree(block, "tests/policy", 3), KIV_ST_OK); }

// What the bytes before a payload say, by their distance from it.
struct HeaderBytesRead {
  uint32_t sizeClass;    // from 8 bytes before
  uint8_t unwritten[2];  // from 4
  uint8_t policy;        // 2
  uint8_t headerBytes;   // 1
};

inline HeaderBytesRead HeaderBefore(const void* payload) {
  const auto* end = static_cast<const unsigned char*>(payload);
  HeaderBytesRead header = {};
  std::memcpy(&header.sizeClass, end - 8, 4);
  std::memcpy(header.unwritten, end - 4, 2);
  header.policy = end[-2];
  header.headerBytes = end[-1];
  return header;
}

inline void WritePolicyBefore(void* payload, uint8_t policy) {
  static_cast<unsigned char*>(payload)[-2] = policy;
}

inline void WriteHeaderLengthBefore(void* payload, uint8_t headerBytes) {
  static_cast<unsigned char*>(payload)[-1] = headerBytes;
}

inline void WriteClassBefore(void* payload, uint32_t sizeClass) {
  std::memcpy(static_cast<unsigned char*>(payload) - 8, &sizeClass, 4);
}

inline void ExpectHeader(const void* payload, uint32_t sizeClass, uint8_t policy) {
  const HeaderBytesRead header = HeaderBefore(payload);
  EXPECT_EQ(header.sizeClass, sizeClass);
  EXPECT_EQ(header.policy, policy);
  EXPECT_EQ(header.headerBytes, policy == AD_POLICY_MANDATORY ? kMandatoryHeader : kFullHeader);
}

// Content that tells its place.
inline void Fill(void* block, size_t sizeBytes) {
  for (size_t i = 0; i < sizeBytes; ++i) {
    static_cast<unsigned char*>(block)[i] = static_cast<unsigned char>(i * 7 + 1);
  }
}

inline bool IsFilled(const void* block, size_t sizeBytes) {
  for (size_t i = 0; i < sizeBytes; ++i) {
    if (static_cast<const unsigned char*>(block)[i] != static_cast<unsigned char>(i * 7 + 1)) {
      return false;
    }
  }
  return true;
}

}  // namespace kiv::test

#endif
