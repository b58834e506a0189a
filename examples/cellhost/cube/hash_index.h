// A hash index of an array: open addressing with linear probing. A slot holds a hash and the number
// of an entry. The entries are in the owner's array, and growing the index does not move them.
//
//   slots    | - | 7:0 | - | 9:2 | 9:1 | - | ...      hash:entry, or free
//   entries  | 0 | 1 | 2 | ...                        the owner's array
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

  // Returns the entry with this hash for which same(entry) is true, or kNoEntry.
  template <class Same>
  uint32_t Find(uint32_t hash, Same same) const {
    if (slots_.count() == 0) return kNoEntry;
    // A free slot ends the search; Insert always leaves free slots.
    for (uint32_t at = hash & Mask();; at = (at + 1) & Mask()) {
      const Slot& slot = slots_[at];
      if (slot.entry == kNoEntry) return kNoEntry;
      if (slot.hash == hash && same(slot.entry)) return slot.entry;
    }
  }

  // Makes room for one more entry: the next Insert cannot fail. Returns false without memory.
  bool MakeRoom();

  // Adds an entry, which must not be in the index. Returns false without memory.
  bool Insert(uint32_t hash, uint32_t entry);

  uint64_t bytesHeld() const { return slots_.bytesHeld(); }

 private:
  struct Slot {
    uint32_t hash;   // the whole hash, so that growing need not compute it again
    uint32_t entry;  // kNoEntry in a free slot
  };

  uint32_t Mask() const { return slots_.count() - 1; }
  bool Grow();
  static void Place(HostArray<Slot>& slots, const Slot& slot);

  HostArray<Slot> slots_;  // their number is 0 or a power of two
  const char* source_;
  uint32_t used_ = 0;
};

// Returns the FNV-1a hash of bytes. The upper 32 bits are folded into the lower, which select the
// slot.
uint32_t HashBytes(const void* bytes, uint64_t lengthBytes);

}  // namespace cellhost

#endif
