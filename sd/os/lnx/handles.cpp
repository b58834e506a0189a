#include "os/lnx/handles.h"

#include <pthread.h>
#include <sys/mman.h>

namespace kiv::os {

constinit std::atomic<Slot*> slotChunks[kChunks] = {};

namespace {

// Guards the list of free slots and the making of chunks. Only making and closing take it.
pthread_mutex_t tableMutex = PTHREAD_MUTEX_INITIALIZER;
Slot* firstFree = nullptr;
Slot* lastFree = nullptr;
uint32_t chunksMade = 0;

void AppendFree(Slot* slot) {
  slot->next = nullptr;
  (lastFree == nullptr ? firstFree : lastFree->next) = slot;
  lastFree = slot;
}

bool MakeChunk() {
  if (chunksMade == kChunks) return false;
  void* mapped = mmap(nullptr, kSlotsPerChunk * sizeof(Slot), PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return false;
  auto* chunk = static_cast<Slot*>(mapped);
  for (uint32_t i = 0; i < kSlotsPerChunk; ++i) {
    chunk[i].number = chunksMade * kSlotsPerChunk + i;
    AppendFree(&chunk[i]);
  }
  slotChunks[chunksMade].store(chunk, std::memory_order_release);
  ++chunksMade;
  return true;
}

Slot* TakeFirstFree() {
  if (firstFree == nullptr && !MakeChunk()) return nullptr;
  Slot* slot = firstFree;
  firstFree = slot->next;
  if (firstFree == nullptr) lastFree = nullptr;
  return slot;
}

}  // namespace

// Generations run from 1: slot 0 would otherwise have the handle 0.
uint32_t GenerationToCome(const Slot* slot) {
  const uint32_t generation = slot->tag.load(std::memory_order_relaxed) >> kKindBits;
  return generation == kMaxGeneration ? 1 : generation + 1;
}

Slot* TakeSlot() {
  pthread_mutex_lock(&tableMutex);
  Slot* slot = TakeFirstFree();
  pthread_mutex_unlock(&tableMutex);
  return slot;
}

void* PublishSlot(Slot* slot, Kind kind) {
  const uint32_t generation = GenerationToCome(slot);
  slot->tag.store(generation << kKindBits | static_cast<uint32_t>(kind), std::memory_order_release);
  return reinterpret_cast<void*>(uintptr_t{generation << kSlotNumberBits | slot->number});
}

bool RetireHandle(Slot* slot, const void* handle, Kind kind) {
  uint32_t valid = TagOf(handle, kind);
  return slot->tag.compare_exchange_strong(valid, TagOf(handle, Kind::kFree),
                                           std::memory_order_acq_rel);
}

void FreeSlot(Slot* slot) {
  pthread_mutex_lock(&tableMutex);
  AppendFree(slot);
  pthread_mutex_unlock(&tableMutex);
}

}  // namespace kiv::os
