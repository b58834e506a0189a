#include "support/runtime_memory.h"

#include <atomic>

#include "support/runtime_hook.h"

namespace kiv::test {

// The counts are atomic because the library's lock tuning runs its own threads.
class RuntimeMemory::State : public RuntimeHook {
 public:
  explicit State(uint64_t failing) : failing_(failing) {}

  void* Allocate(size_t sizeBytes) override {
    return Fails() ? nullptr : CountTaken(RealAllocate(sizeBytes));
  }

  void* Reallocate(void* block, size_t sizeBytes) override {
    if (Fails()) return nullptr;
    void* moved = RealReallocate(block, sizeBytes);
    return block == nullptr ? CountTaken(moved) : moved;
  }

  void Free(void* block) override {
    if (block != nullptr) --live_;
    RealFree(block);
  }

  bool failed() const { return failing_ != kNever && allocations_ >= failing_; }
  uint64_t allocations() const { return allocations_; }
  int64_t live() const { return live_; }

 private:
  // Counts an allocation. Returns whether it must fail.
  bool Fails() { return ++allocations_ == failing_; }

  void* CountTaken(void* block) {
    if (block != nullptr) ++live_;
    return block;
  }

  const uint64_t failing_;
  std::atomic<uint64_t> allocations_{0};
  std::atomic<int64_t> live_{0};
  // The last member: calls arrive as soon as it is constructed.
  RuntimeHooked hooked_{this};
};

RuntimeMemory::RuntimeMemory(uint64_t failing) : state_(std::make_unique<State>(failing)) {}

RuntimeMemory::~RuntimeMemory() = default;

bool RuntimeMemory::failed() const { return state_->failed(); }

uint64_t RuntimeMemory::allocations() const { return state_->allocations(); }

int64_t RuntimeMemory::live() const { return state_->live(); }

}  // namespace kiv::test
