#include "checked/block_record.h"

#include <algorithm>
#include <cstring>

#include "memheap/block.h"
#include "memheap/policy_block.h"

namespace kiv::checked {
namespace {

constexpr unsigned char kTailFill = 0xFB;
constexpr unsigned char kFreedFill = 0xDD;

uint64_t WordBefore(const unsigned char* payload, uint32_t index) {
  uint64_t word = 0;
  std::memcpy(&word, payload - (index + 1) * sizeof word, sizeof word);
  return word;
}

// Words in front of the payload that do not change while the host has the block. A large block's
// second word is a link of a ring.
uint32_t ConstantWords(const BlockRecord& record) {
  switch (record.family) {
    case Family::kHeaps:
    case Family::kShort:
      return IsLarge(record.payload) ? 1 : 2;
    case Family::kPlain:
      if (!record.hasHeader) return 0;
      return PolicyHeaderOf(record.payload)->policy == kMandatoryPolicy ? 1 : 2;
    default:
      return 0;
  }
}

bool IsFilled(const unsigned char* first, uint64_t count, unsigned char fill) {
  return std::all_of(first, first + count, [fill](unsigned char byte) { return byte == fill; });
}

bool IsFrontIntact(const BlockRecord& record) {
  for (uint32_t i = 0; i < record.frontWords; ++i) {
    if (WordBefore(record.payload, i) != record.front[i]) return false;
  }
  return true;
}

}  // namespace

void Guard(BlockRecord* record) {
  record->frontWords = ConstantWords(*record);
  for (uint32_t i = 0; i < record->frontWords; ++i) {
    record->front[i] = WordBefore(record->payload, i);
  }
  std::memset(record->payload + record->sizeBytes, kTailFill, record->tailBytes);
}

void FillFreed(const BlockRecord& record) {
  std::memset(record.payload, kFreedFill, record.sizeBytes);
}

Damage DamageOf(const BlockRecord& record) {
  if (!IsFrontIntact(record)) return Damage::kFront;
  if (!IsFilled(record.payload + record.sizeBytes, record.tailBytes, kTailFill)) {
    return Damage::kTail;
  }
  if (record.state == State::kFreed && !IsFilled(record.payload, record.sizeBytes, kFreedFill)) {
    return Damage::kFreed;
  }
  return Damage::kNone;
}

}  // namespace kiv::checked
