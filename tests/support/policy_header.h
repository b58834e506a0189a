// Scoped switches of plain mode, and access to the header in front of a payload.
#ifndef KIV_TESTS_POLICY_HEADER_H
#define KIV_TESTS_POLICY_HEADER_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "kivsdu/manager.h"
#include "kivsdu/memory.h"
#include "kivsdu/status.h"
#include "kivsdu/threadcache.h"

namespace kiv::test {

constexpr uint64_t kTwoMebibytes = 2 << 20;
constexpr size_t kMandatoryHeader = 8;
constexpr size_t kFullHeader = 64;

// Turns the memory-manager switch on; the destructor turns it off.
class ManagerSwitchedOn {
 public:
  explicit ManagerSwitchedOn(uint8_t flag = 1) { KivSdSetMemoryManager(flag); }
  ~ManagerSwitchedOn() { KivSdSetMemoryManager(0); }
  ManagerSwitchedOn(const ManagerSwitchedOn&) = delete;
  ManagerSwitchedOn& operator=(const ManagerSwitchedOn&) = delete;
};

// Creates the calling thread's cache; the destructor destroys it.
class WithThreadCache {
 public:
  WithThreadCache() { EXPECT_EQ(adCreateThreadAlloc(), 0u); }
  ~WithThreadCache() { EXPECT_EQ(adDestroyThreadAlloc(), 0u); }
  WithThreadCache(const WithThreadCache&) = delete;
  WithThreadCache& operator=(const WithThreadCache&) = delete;
};

// The header bytes in front of a payload, by their distance from it.
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

}  // namespace kiv::test

#endif
