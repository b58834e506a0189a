// Shared by the tests of policy blocks: the memory manager's calls without source positions, and
// content for blocks.
#ifndef KIV_TESTS_POLICY_H
#define KIV_TESTS_POLICY_H

#include <gtest/gtest.h>

#include <cstdint>

#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "kivsdu/sync.h"
#include "support/policy_header.h"

namespace kiv::test {

// Returns a block of the size, or null without memory. Checks that the status agrees.
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

// Content that depends on the position.
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
