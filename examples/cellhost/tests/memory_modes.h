// Memory modes: configurations of the memory manager that a server may run with.
#ifndef CELLHOST_TESTS_MEMORY_MODES_H
#define CELLHOST_TESTS_MEMORY_MODES_H

#include <gtest/gtest.h>

#include "host/memory_manager.h"
#include "host_fixture.h"
#include "support/manager.h"
#include "support/one_processor.h"

namespace cellhost::test {

struct MemoryMode {
  const char* name;
  const char* configuration;  // content of the file; kNoFile: no file
};

constexpr MemoryMode kHeaps = {"heaps", "memorylimit 64M numthreadheaps 4 heapsize 512K"};
constexpr MemoryMode kNoShortHeaps = {
    "no short heaps", "memorylimit 64M numthreadheaps 4 heapsize 512K shortmemoryoff"};
constexpr MemoryMode kNoHeaps = {"no heaps", "memorylimit 64M maxblock 0 shortmemoryoff"};
constexpr MemoryMode kLargeBlocks = {"large blocks", "memorylimit 64M maxblock 0"};
constexpr MemoryMode kPlain = {"plain", kiv::test::kNoFile};
constexpr MemoryMode kMemoryModes[] = {kHeaps, kNoShortHeaps, kNoHeaps, kLargeBlocks, kPlain};

// A host with memory in one of these modes. One object in a process.
class InMemoryMode {
 public:
  explicit InMemoryMode(const MemoryMode& mode) : file_(mode.configuration) {}

 private:
  // A member for its place in the order: configuration file, memory manager, users of memory.
  struct Manager {
    Manager() { EXPECT_TRUE(StartMemoryManager(MemoryUse::kAsConfigured)); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    ~Manager() { StopMemoryManager(); }
  };

  kiv::test::OneProcessor oneProcessor_;
  kiv::test::ConfigurationFile file_;
  Manager manager_;
  InHost host_;
};

}  // namespace cellhost::test

#endif
