// Makes the k-th call that an operation makes of the system fail.
//
// There are two levels. At the level of primitives, a call of the platform seam fails without any
// effect; its name is that of the stand-in (support/lnx/seam_import.h). At the level of system calls,
// a call of the C library inside a primitive fails. Allocations count at both levels.
//
// Only calls of the thread that armed the plan count. Link the program with kiv_faults.
#ifndef KIV_TESTS_FAULT_POINTS_H
#define KIV_TESTS_FAULT_POINTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kiv::test {

enum class FaultLevel { kPrimitives, kSystemCalls };

// Which calls fail, and how.
struct FaultPlan {
  FaultLevel level = FaultLevel::kPrimitives;
  uint32_t first = 0;    // number of the first call that fails, from 1; 0 if none fails
  bool lasting = false;  // whether all later calls fail too
  uint32_t error = 0;
  const char* spared = nullptr;  // a call that does not fail; may be null
};

// Arms a plan for its lifetime. Only one object at a time.
class ArmedFaults {
 public:
  explicit ArmedFaults(const FaultPlan& plan);
  ~ArmedFaults();
  ArmedFaults(const ArmedFaults&) = delete;
  ArmedFaults& operator=(const ArmedFaults&) = delete;
};

// The names of the calls that the last plan made fail, the first one first.
const std::vector<std::string>& FailedCalls();

// The blocks that the library and the test took from the C runtime, less the blocks they freed.
// Counts while a BlockWatch lives.
int64_t LiveBlocks();

// Counts the calls of the runtime's allocator, and lets plans fail them. Only one object at a time.
class BlockWatch {
 public:
  BlockWatch();
  ~BlockWatch();
  BlockWatch(const BlockWatch&) = delete;
  BlockWatch& operator=(const BlockWatch&) = delete;

 private:
  struct Patches;
  Patches* patches_;
};

// Frees, at the end of its lifetime, the blocks that were taken from the C runtime meanwhile and that
// the library keeps for the rest of the process, as the heaps of a manager. Only within the lifetime
// of a BlockWatch, and one object at a time.
class TakenBlocks {
 public:
  TakenBlocks();
  ~TakenBlocks();
  TakenBlocks(const TakenBlocks&) = delete;
  TakenBlocks& operator=(const TakenBlocks&) = delete;
};

}  // namespace kiv::test

#endif
