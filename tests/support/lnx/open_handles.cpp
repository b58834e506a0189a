#include "support/open_handles.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include "os/lnx/handles.h"

namespace kiv::test {
namespace {

bool IsTaken(const os::Slot& slot) {
  const uint32_t kind = slot.tag.load() & ((1u << os::kKindBits) - 1);
  return kind != static_cast<uint32_t>(os::Kind::kFree);
}

size_t TakenSlots() {
  size_t count = 0;
  for (const auto& place : os::slotChunks) {
    const os::Slot* chunk = place.load();
    for (uint32_t i = 0; chunk != nullptr && i < os::kSlotsPerChunk; ++i) {
      count += IsTaken(chunk[i]) ? 1 : 0;
    }
  }
  return count;
}

// With the descriptor that reads the folder; "." and ".." count too, always.
size_t OpenDescriptors() {
  DIR* files = opendir("/proc/self/fd");
  EXPECT_NE(files, nullptr);
  size_t count = 0;
  while (files != nullptr && readdir(files) != nullptr) ++count;
  if (files != nullptr) closedir(files);
  return count;
}

}  // namespace

size_t OpenHandles() { return TakenSlots() + OpenDescriptors(); }

}  // namespace kiv::test
