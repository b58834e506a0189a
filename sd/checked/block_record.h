// What the checks know of a block, and where its guard bytes lie:
//
//   | header of the block | payload as requested | tail |
//
// The tail is 16 bytes of a pattern, which the checks request in addition. In front there is no
// room: headers keep their layout and their place. The checks keep a copy of the header's last
// words instead.
#ifndef KIV_CHECKED_BLOCK_RECORD_H
#define KIV_CHECKED_BLOCK_RECORD_H

#include <cstdint>

#include "checked/place.h"

namespace kiv::checked {

struct ShortOwner;

constexpr uint32_t kTailBytes = 16;
constexpr uint32_t kMostFrontWords = 2;

// Which operations made a block.
enum class Family : uint8_t {
  kPlain,  // adMalloc and its relatives in plain mode
  kHeaps,  // they, in thread-heap mode
  kShort,  // the operations of short heaps
  kNode,   // adMallocOnNode
};

enum class State : uint8_t { kLive, kFreed };

struct BlockRecord {
  BlockRecord* nextInTable;
  BlockRecord* next;  // in the list of live blocks, or in the quarantine
  BlockRecord* prev;
  unsigned char* payload;
  uint64_t sizeBytes;               // as requested
  uint64_t front[kMostFrontWords];  // the words in front of the payload; the nearest one first
  uint32_t frontWords;
  uint32_t tailBytes;  // 0 if the request was too large for a tail
  ShortOwner* owner;   // of a block of the family kShort
  Place made;
  Place freed;  // of a freed block
  Family family;
  State state;
  bool hasHeader;  // in plain mode: made while the memory-manager switch was on
  bool listed;     // as never freed
};

// Writes the tail and copies the header. The other fields are set.
void Guard(BlockRecord* record);

// Fills the payload of a block that was freed.
void FillFreed(const BlockRecord& record);

// Damage found in a block. The first one found counts.
enum class Damage : uint8_t { kNone, kFront, kTail, kFreed };

// Also looks for writes after the free if the block was freed.
Damage DamageOf(const BlockRecord& record);

}  // namespace kiv::checked

#endif
