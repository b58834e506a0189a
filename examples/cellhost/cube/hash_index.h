// Finds entries of an array by what they hold: open addressing with linear probing over slots
// that say which entry lies behind a hash. The entries themselves lie elsewhere, in the order
// in which they came, and growing the index moves none of them.
//
//   slots    | - | 7:0 | - | 9:2 | 9:1 | - | ...      hash:entry, or free
//   entries  | 0 | 1 | 2 | ...                        dense, the owner's
//
// Not locked.
#ifndef CELLHOST_CUBE_HASH_INDEX_H
#define CELLHOST_CUBE_HASH_INDEX_H

#include <stdint.h>

#include "host/host_memory.h"

namespace cellhost {

constexpr uint32_t kNoEntry = 0xFFFFFFFFu;

class HashIndex {
 public:
  // source: see ResizeBlock.
  explicit HashIndex(const char* source) : slots_(source), source_(source) {}

  // The entry with this hash for which same(entry) holds, or kNoEntry.
  template <class Same>
  uint32_t Find(uint32_t hash, Same same) const {
    if (slots_.count() == 0) return kNoEntry;
    // A free slot ends the search, and Insert always leaves some.
    for (uint32_t at = hash & Mask();; at = (at + 1) & Mask()) {
      const Slot& slot = slots_[at];
      if (slot.entry == kNoEntry) return kNoEntry;
      if (slot.hash == hash && same(slot.entry)) return slot.entry;
    }
  }

  // Makes room for one more entry, which Insert then adds without fail. False when there is no
  // memory.
  bool MakeRoom();

  // Adds an entry that is not there. False when there is no memory.
  bool Insert(uint32_t hash, uint32_t entry);

  uint64_t bytesHeld() const { return slots_.bytesHeld(); }

 private:
  struct Slot {
    uint32_t hash;   // all of it, so that growing asks no entry for its hash
    uint32_t entry;  // kNoEntry in a free slot
  };

  uint32_t Mask() const { return slots_.count() - 1; }
  bool Grow();
  static void Place(HostArray<Slot>& slots, const Slot& slot);

  HostArray<Slot> slots_;  // a power of two, or none
  const char* source_;
  uint32_t used_ = 0;
};

// Hash of bytes: FNV-1a, with its upper bits folded into the lower ones that pick the slot.
uint32_t HashBytes(const void* bytes, uint64_t lengthBytes);

}  // namespace cellhost

#endif
