// Growth of a hash index; see hash_index.h.
#include "cube/hash_index.h"

#include "host/complain.h"

namespace cellhost {
namespace {

constexpr uint32_t kFirstSlots = 64;
constexpr uint32_t kSlotsMax = 0x80000000u;

// At least three quarters full: linear probing would become slow.
constexpr bool IsCrowded(uint64_t used, uint64_t slots) { return used * 4 >= slots * 3; }

constexpr uint64_t kFnvStart = 14695981039346656037ull;
constexpr uint64_t kFnvPrime = 1099511628211ull;

}  // namespace

bool HashIndex::MakeRoom() { return !IsCrowded(used_ + 1ull, slots_.count()) || Grow(); }

bool HashIndex::Insert(uint32_t hash, uint32_t entry) {
  if (!MakeRoom()) return false;
  Place(slots_, {.hash = hash, .entry = entry});
  ++used_;
  return true;
}

void HashIndex::Place(HostArray<Slot>& slots, const Slot& slot) {
  const uint32_t mask = slots.count() - 1;
  uint32_t at = slot.hash & mask;
  while (slots[at].entry != kNoEntry) at = (at + 1) & mask;
  slots[at] = slot;
}

bool HashIndex::Grow() {
  const uint32_t count = slots_.count();
  if (count == kSlotsMax) return Complain("%s has no slots left; load fewer rows", source_);
  HostArray<Slot> grown(source_);
  if (!grown.Resize(count == 0 ? kFirstSlots : count * 2, {.hash = 0, .entry = kNoEntry})) {
    return false;
  }
  for (uint32_t at = 0; at < count; ++at) {
    if (slots_[at].entry != kNoEntry) Place(grown, slots_[at]);
  }
  slots_.Swap(grown);
  return true;
}

uint32_t HashBytes(const void* bytes, uint64_t lengthBytes) {
  const unsigned char* at = static_cast<const unsigned char*>(bytes);
  uint64_t hash = kFnvStart;
  for (uint64_t left = lengthBytes; left != 0; --left) hash = (hash ^ *at++) * kFnvPrime;
  return static_cast<uint32_t>(hash ^ (hash >> 32));
}

}  // namespace cellhost
