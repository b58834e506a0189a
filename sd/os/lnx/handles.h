// Handles: checked 32-bit numbers for the objects that this binding makes. A file descriptor alone
// could name somebody else's object as soon as it was closed and used again.
//
//   bit 31   30 .. 20     19 .. 0
//      0   generation   slot number      0 is never a handle
//
// A handle names a slot of a process-wide table. A slot is a cache line that stays mapped until the
// process ends, so looking up any number is safe. Its generation changes each time the slot is
// used again; a freed slot goes to the end of the list of free slots. An old handle therefore
// names a new object only after its slot was used 2047 times more.
//
// Thread safety: all functions may run on any thread. Finding a slot takes no lock and two loads.
// A slot's content belongs to the kind that took it; it must stay valid memory for a reader whose
// handle another thread closes meanwhile. A content that begins with an ObjectWord (object_word.h)
// keeps such a reader from the next object in the slot.
#ifndef KIV_OS_LNX_HANDLES_H
#define KIV_OS_LNX_HANDLES_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace kiv::os {

// What a slot holds.
enum class Kind : uint32_t {
  kFree = 0,
  kSemaphore,
  kSharedSemaphore,
  kMutex,
  kEvent,
  kThread,
  kBlock,
  kPipe,
  kFile,
  kSearch,
};

struct alignas(64) Slot {
  static constexpr size_t kContentBytes = 48;

  // The generation above the kind, so that one comparison checks both. kFree once retired.
  std::atomic<uint32_t> tag;
  uint32_t number;  // of the slot, fixed
  Slot* next;       // in the list of free slots
  alignas(16) unsigned char content[kContentBytes];
};

constexpr uint32_t kSlotNumberBits = 20;
constexpr uint32_t kKindBits = 8;
constexpr uint32_t kSlotsPerChunk = 256;
constexpr uint32_t kChunks = (1u << kSlotNumberBits) / kSlotsPerChunk;
constexpr uint32_t kMaxGeneration = 0x7FF;

// Arrays of kSlotsPerChunk slots; null until needed.
extern std::atomic<Slot*> slotChunks[kChunks];

// The generation of the next handle that PublishSlot makes for this slot.
uint32_t GenerationToCome(const Slot* slot);

// Takes a free slot. It has no handle until PublishSlot. Null if memory or numbers ran out.
Slot* TakeSlot();

// Gives the slot a handle. The caller has made the content before.
void* PublishSlot(Slot* slot, Kind kind);

// Ends a handle: of several threads that close it, only one gets true. The content stays as it is.
bool RetireHandle(Slot* slot, const void* handle, Kind kind);

// Returns a slot whose handle has been retired, or that was never published, for the next use.
void FreeSlot(Slot* slot);

template <typename Content>  // NOLINTNEXTLINE(misc-redundant-expression): some have this size
concept SlotContent = sizeof(Content) <= Slot::kContentBytes && alignof(Content) <= 16;

// A kind's content. Begin it with MakeContent before the slot is published.
template <SlotContent Content>
Content* ContentOf(Slot* slot) {
  return std::launder(reinterpret_cast<Content*>(slot->content));
}

template <SlotContent Content>
Content* MakeContent(Slot* slot) {
  return new (slot->content) Content{};
}

// The slot that a number would name, whatever it holds; null if there is none.
inline Slot* SlotOfNumber(const void* handle) {
  const auto number = reinterpret_cast<uintptr_t>(handle);
  if (number > INT32_MAX) return nullptr;
  const uint32_t index = static_cast<uint32_t>(number) & ((1u << kSlotNumberBits) - 1);
  Slot* chunk = slotChunks[index / kSlotsPerChunk].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : &chunk[index % kSlotsPerChunk];
}

inline uint32_t TagOf(const void* handle, Kind kind) {
  const auto number = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle));
  return (number >> kSlotNumberBits) << kKindBits | static_cast<uint32_t>(kind);
}

// The slot of a valid handle of this kind; null for any other number. The acquiring load pairs with
// PublishSlot: the content is visible.
inline Slot* FindSlot(const void* handle, Kind kind) {
  Slot* slot = SlotOfNumber(handle);
  if (slot == nullptr || slot->tag.load(std::memory_order_acquire) != TagOf(handle, kind)) {
    return nullptr;
  }
  return slot;
}

// What a valid handle names, in the slot that its number names; kFree for any other number.
inline Kind KindIn(const Slot* slot, const void* handle) {
  if (slot == nullptr) return Kind::kFree;
  const uint32_t tag = slot->tag.load(std::memory_order_acquire);
  const auto kind = static_cast<Kind>(tag & ((1u << kKindBits) - 1));
  return tag == TagOf(handle, kind) ? kind : Kind::kFree;
}

inline Kind KindOf(const void* handle) { return KindIn(SlotOfNumber(handle), handle); }

}  // namespace kiv::os

#endif
