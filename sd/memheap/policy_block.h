// Blocks of the C runtime behind a policy header: what plain mode hands out while the
// memory-manager switch is on.
//
//   mandatory      0       4   6        7   8
//                  | class | - | policy | 8 | payload, as large as asked for
//
//   full     0      8          56      60  62       63   64
//            | next | 48 bytes | class | - | policy | 64 | payload, rounded to its class
//
// Both end alike, so that a free finds the policy and the header's length from the payload alone.
// What no name stands for is left as the runtime gave it.
#ifndef KIV_MEMHEAP_POLICY_BLOCK_H
#define KIV_MEMHEAP_POLICY_BLOCK_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include "kivsdu/manager.h"

namespace kiv {

// The last 8 bytes of either header; all of the mandatory one.
struct PolicyHeader {
  uint32_t sizeClass;  // always 0 under the mandatory policy
  uint8_t unwritten[2];
  uint8_t policy;  // 0 while the block is in nobody's hands
  uint8_t headerBytes;
};
static_assert(offsetof(PolicyHeader, sizeClass) == 0, "policy header layout");
static_assert(offsetof(PolicyHeader, policy) == 6, "policy header layout");
static_assert(offsetof(PolicyHeader, headerBytes) == 7, "policy header layout");
static_assert(sizeof(PolicyHeader) == 8, "policy header layout");

// A block of the full policy, at its first byte.
struct FullBlock {
  FullBlock* next;  // written only while the block lies in a thread's cache
  uint8_t unwritten[48];
  PolicyHeader header;
};
static_assert(offsetof(FullBlock, next) == 0, "full header layout");
static_assert(offsetof(FullBlock, header) == 56, "full header layout");
static_assert(sizeof(FullBlock) == 64, "full header layout");

constexpr uint8_t kMandatoryPolicy = AD_POLICY_MANDATORY;
constexpr uint8_t kFullPolicy = AD_POLICY_FULL;
constexpr uint8_t kNoPolicy = 0;
constexpr uint8_t kMandatoryHeaderBytes = sizeof(PolicyHeader);
constexpr uint8_t kFullHeaderBytes = sizeof(FullBlock);

// ---- Size classes ----

constexpr uint32_t kLargestRoundedBytes = 0x200000;
constexpr uint32_t kLargestRoundedClass = 21;

struct PayloadSize {
  uint64_t sizeBytes;
  uint32_t sizeClass;
};

// The next power of two, and its exponent. 0 and sizes above 2^31 come out as 0 of class 0: the
// power is taken in 32 bits.
constexpr PayloadSize RoundToClass(uint32_t sizeBytes) {
  // The highest bit of twice (size - 1), plus 1: of 2 for 2, of 7 for 4, and of 1 for 1, so that
  // there always is one.
  const uint64_t bits = (uint64_t{sizeBytes - 1} << 1) | 1;
  const auto exponent = static_cast<uint32_t>(std::bit_width(bits)) - 1;
  return {static_cast<uint32_t>(uint64_t{1} << exponent), exponent % 32};
}

// What a request takes under a policy. Above the largest rounded size a block keeps the size asked
// for, and its class counts on from there.
constexpr PayloadSize PayloadSizeOf(uint64_t sizeBytes, uint8_t policy) {
  if (policy == kMandatoryPolicy) return {sizeBytes, 0};
  if (sizeBytes <= kLargestRoundedBytes) return RoundToClass(static_cast<uint32_t>(sizeBytes));
  return {sizeBytes, static_cast<uint32_t>(std::bit_width(sizeBytes))};
}

// ---- Headers ----

// Policies other than the mandatory one have the full header.
constexpr uint8_t HeaderBytes(uint8_t policy) {
  return policy == kMandatoryPolicy ? kMandatoryHeaderBytes : kFullHeaderBytes;
}

inline PolicyHeader* PolicyHeaderOf(void* payload) {
  return static_cast<PolicyHeader*>(payload) - 1;
}

inline FullBlock* FullBlockOf(void* payload) { return static_cast<FullBlock*>(payload) - 1; }

// Gives the payload.
inline void* WriteHeader(PolicyHeader* header, uint8_t policy, uint32_t sizeClass) {
  header->sizeClass = sizeClass;
  header->policy = policy;
  header->headerBytes = HeaderBytes(policy);
  return header + 1;
}

// Marks a block as given back. The compiler may drop a plain store into what is freed next; this
// one stays, for it is what a second free of the block is told by.
inline void ClearPolicy(PolicyHeader* header) {
  volatile uint8_t* policy = &header->policy;
  *policy = kNoPolicy;
}

// ---- Blocks ----

// A block from the runtime with its header written; null when there is no memory, or when header
// and payload together wrap.
void* AllocatePolicyBlock(uint64_t payloadBytes, uint32_t sizeClass, uint8_t policy);

// Whether a policy header lies before the payload. In front of a block of the runtime's own lie
// the runtime's records, which do not look like one.
bool HasPolicyHeader(void* payload);

// Where the block that the runtime gave begins: at the header, or at the payload itself.
void* RawBlockOf(void* payload);

// Resizes a block; null when there is no memory, and the block is then still whole. A policy of 0
// ends the process through the runtime's assertion "policy != 0".
void* ReallocatePolicyBlock(void* payload, uint64_t newSizeBytes);

// Gives the block back to the runtime, with the header that it has or without one.
void FreePolicyBlock(void* payload);

}  // namespace kiv

#endif
