// Keeps no state: any thread may resize and free blocks that another thread allocated.
#include "memheap/policy_block.h"

#include "os/heap.h"
#include "require.h"

namespace kiv {
namespace {

constexpr char kSource[] = "sd/memheap";
constexpr uint32_t kLineReallocAssertion = 246;

uint8_t* Bytes(void* block) { return static_cast<uint8_t*>(block); }

void* WriteHeaderAt(void* raw, uint8_t policy, uint32_t sizeClass) {
  return WriteHeader(PolicyHeaderOf(Bytes(raw) + HeaderBytes(policy)), policy, sizeClass);
}

// Whether the sum of payload and header overflows.
bool Wraps(uint64_t payloadBytes, uint8_t policy) {
  return payloadBytes > UINT64_MAX - HeaderBytes(policy);
}

// Whether a block of the full policy already has the class of the new size.
bool KeepsClass(const PolicyHeader& header, const PayloadSize& size) {
  return header.policy == kFullPolicy && header.sizeClass == size.sizeClass &&
         size.sizeClass <= kLargestRoundedClass;
}

}  // namespace

void* AllocatePolicyBlock(uint64_t payloadBytes, uint32_t sizeClass, uint8_t policy) {
  if (Wraps(payloadBytes, policy)) return nullptr;
  void* raw = os::RawAllocate(HeaderBytes(policy) + payloadBytes);
  if (raw == nullptr) return nullptr;
  return WriteHeaderAt(raw, policy, sizeClass);
}

bool HasPolicyHeader(void* payload) {
  const PolicyHeader& header = *PolicyHeaderOf(payload);
  if (header.policy == kFullPolicy) return header.headerBytes == kFullHeaderBytes;
  return header.policy == kMandatoryPolicy && header.headerBytes == kMandatoryHeaderBytes;
}

void* RawBlockOf(void* payload) {
  return HasPolicyHeader(payload) ? Bytes(payload) - PolicyHeaderOf(payload)->headerBytes : payload;
}

void* ReallocatePolicyBlock(void* payload, uint64_t newSizeBytes) {
  PolicyHeader* header = PolicyHeaderOf(payload);
  const uint8_t policy = header->policy;
  // Compatibility: this check comes first and also stops a block that was made while the switch was
  // off, if the byte before it is 0. Callers must not resize such a block.
  Require(policy != kNoPolicy, "policy != 0", kSource, kLineReallocAssertion);
  if (!HasPolicyHeader(payload)) return os::RawReallocate(payload, newSizeBytes);

  const PayloadSize size = PayloadSizeOf(newSizeBytes, policy);
  if (KeepsClass(*header, size)) return payload;
  if (Wraps(size.sizeBytes, policy)) return nullptr;
  void* raw = RawBlockOf(payload);
  ClearPolicy(header);
  void* moved = os::RawReallocate(raw, HeaderBytes(policy) + size.sizeBytes);
  if (moved == nullptr) {
    // The caller keeps the block and will free it.
    header->policy = policy;
    return nullptr;
  }
  return WriteHeaderAt(moved, policy, size.sizeClass);
}

void FreePolicyBlock(void* payload) { os::RawFree(RawBlockOf(payload)); }

}  // namespace kiv
