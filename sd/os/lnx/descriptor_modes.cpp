#include "os/lnx/descriptor_modes.h"

#include <sys/mman.h>

#include <atomic>

namespace kiv::os {
namespace {

// Chunks stay mapped until the process ends, so any number can be looked up without a lock.
constexpr uint32_t kModesPerChunk = 4096;
constexpr uint32_t kChunks = 4096;

using Entry = std::atomic<DescriptorMode>;

constinit std::atomic<Entry*> chunks[kChunks] = {};

Entry* EntryOf(int descriptor) {
  const auto number = static_cast<uint32_t>(descriptor);
  if (number >= kModesPerChunk * kChunks) return nullptr;
  Entry* chunk = chunks[number / kModesPerChunk].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : &chunk[number % kModesPerChunk];
}

// Of two threads that map the same chunk, one keeps its own.
bool MakeChunk(std::atomic<Entry*>* place) {
  constexpr size_t kBytes = kModesPerChunk * sizeof(Entry);
  void* mapped = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return false;
  Entry* none = nullptr;
  if (!place->compare_exchange_strong(none, static_cast<Entry*>(mapped),
                                      std::memory_order_acq_rel)) {
    munmap(mapped, kBytes);
  }
  return true;
}

}  // namespace

bool RememberDescriptor(int descriptor, DescriptorMode mode) {
  const auto number = static_cast<uint32_t>(descriptor);
  if (number >= kModesPerChunk * kChunks) return false;
  std::atomic<Entry*>& place = chunks[number / kModesPerChunk];
  if (place.load(std::memory_order_acquire) == nullptr && !MakeChunk(&place)) return false;
  EntryOf(descriptor)->store(mode, std::memory_order_relaxed);
  return true;
}

DescriptorMode ModeOf(int descriptor) {
  const Entry* entry = EntryOf(descriptor);
  return entry == nullptr ? DescriptorMode{0} : entry->load(std::memory_order_relaxed);
}

void AddToMode(int descriptor, DescriptorMode bits) {
  EntryOf(descriptor)->fetch_or(bits, std::memory_order_relaxed);
}

void TakeFromMode(int descriptor, DescriptorMode bits) {
  EntryOf(descriptor)->fetch_and(static_cast<DescriptorMode>(~bits), std::memory_order_relaxed);
}

DescriptorMode ForgetDescriptor(int descriptor) {
  Entry* entry = EntryOf(descriptor);
  return entry == nullptr ? DescriptorMode{0} : entry->exchange(0, std::memory_order_relaxed);
}

}  // namespace kiv::os
