// Blocks of the C runtime behind a policy header. Plain mode hands them out while the
// memory-manager switch is on.
//
//   mandatory      0       4   6        7   8
//                  | class | - | policy | 8 | payload of the requested size
//
//   full     0      8          56      60  62       63   64
//            | next | 48 bytes | class | - | policy | 64 | payload, rounded to its class
//
// Both headers end with the same 8 bytes. A free finds them from the payload alone and reads the
// policy and the header's length there. The unnamed bytes are not initialised.
#ifndef KIV_MEMHEAP_POLICY_BLOCK_H
#define KIV_MEMHEAP_POLICY_BLOCK_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kivsdu/manager.h"

namespace kiv {

// The last 8 bytes of either header; all of the mandatory one.
struct PolicyHeader {
  uint32_t sizeClass;  // always 0 under the mandatory policy
  uint8_t unwritten[2];
  uint8_t policy;  // 0 while the block is cached or freed
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

// Rounds up to a power of two and returns it with its exponent, the class. The power is taken in 32
// bits: for 0 and for sizes above 2^31 both are 0.
constexpr PayloadSize RoundToClass(uint32_t sizeBytes) {
  // The highest bit of 2 * (size - 1) + 1 is the power of two: of 1, 3 and 7 for the sizes 1, 2
  // and 4. The added 1 gives size 1 a highest bit, too.
  const uint64_t bits = (uint64_t{sizeBytes - 1} << 1) | 1;
  const auto exponent = static_cast<uint32_t>(std::bit_width(bits)) - 1;
  return {static_cast<uint32_t>(uint64_t{1} << exponent), exponent % 32};
}

// RoundToClass for a size from 1 to kLargestRoundedBytes, in fewer steps.
constexpr PayloadSize RoundSmallToClass(uint32_t sizeBytes) {
  const uint32_t bits = ((sizeBytes - 1) << 1) | 1;
  const auto exponent = static_cast<uint32_t>(std::bit_width(bits)) - 1;
  return {uint64_t{1} << exponent, exponent};
}

// Returns the payload size and the class of a request under a policy. A size above
// kLargestRoundedBytes is not rounded, and its class is its bit width.
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

// Returns the payload.
inline void* WriteHeader(PolicyHeader* header, uint8_t policy, uint32_t sizeClass) {
  header->sizeClass = sizeClass;
  header->policy = policy;
  header->headerBytes = HeaderBytes(policy);
  return header + 1;
}

// Whether the header is that of a block of the full policy which is in use.
inline bool IsFullHeader(const PolicyHeader& header) {
  constexpr uint8_t kFull[] = {kFullPolicy, kFullHeaderBytes};
  static_assert(offsetof(PolicyHeader, headerBytes) == offsetof(PolicyHeader, policy) + 1);
  return std::memcmp(&header.policy, kFull, sizeof kFull) == 0;
}

// Marks a block as freed, so that a second free of it is detected. The store is volatile: the
// compiler may drop a plain store to memory that is freed next.
inline void ClearPolicy(PolicyHeader* header) {
  volatile uint8_t* policy = &header->policy;
  *policy = kNoPolicy;
}

// ---- Blocks ----

// Allocates a block from the runtime, writes its header and returns its payload. Returns null when
// there is no memory, or when the sum of header and payload overflows.
void* AllocatePolicyBlock(uint64_t payloadBytes, uint32_t sizeClass, uint8_t policy);

// Whether the payload has a policy header. A block without one is preceded by the runtime's
// records, which do not look like a policy header.
bool HasPolicyHeader(void* payload);

// Returns the start of the runtime's block: the header, or the payload if it has no header.
void* RawBlockOf(void* payload);

// Resizes a block. Returns null when there is no memory; the block is then unchanged. A policy of 0
// ends the process through the runtime's assertion "policy != 0".
void* ReallocatePolicyBlock(void* payload, uint64_t newSizeBytes);

// Frees a block with or without a policy header.
void FreePolicyBlock(void* payload);

}  // namespace kiv

#endif
