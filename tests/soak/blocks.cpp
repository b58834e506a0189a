// Blocks of the memory manager: allocated, resized, passed to other threads, and freed there. Each
// block keeps its content.
#include <array>
#include <atomic>
#include <cstring>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kMailboxes = 8;
constexpr size_t kMostBlocks = 40;            // of a thread
constexpr uint32_t kMostLiveBytes = 100'000;  // of a thread: the heaps of all are never full
constexpr int kRequests = 10;

struct Label {
  uint64_t sizeBytes;
  uint64_t number;
};

using Mailboxes = std::array<std::atomic<void*>, kMailboxes>;

void Write(void* block, uint64_t sizeBytes, uint64_t number) {
  const Label label = {sizeBytes, number};
  std::memcpy(block, &label, sizeof label);
  Fill(static_cast<char*>(block) + sizeof label, sizeBytes - sizeof label, number);
}

Label LabelOf(const void* block) {
  Label label;
  std::memcpy(&label, block, sizeof label);
  return label;
}

// Checks the bytes up to `end`, and returns the block's size.
uint64_t CheckUpTo(const void* block, uint64_t end) {
  const Label label = LabelOf(block);
  Expect(IsFilled(static_cast<const char*>(block) + sizeof label, end - sizeof label, label.number),
         "a block keeps its content");
  return label.sizeBytes;
}

void Drop(void* block) {
  CheckUpTo(block, LabelOf(block).sizeBytes);
  Done(adFree(block, "soak", 1), "adFree");
}

class BlocksVisitor : public Visitor {
 public:
  BlocksVisitor(Heaps* heaps, Mailboxes* mailboxes, Random* random)
      : heaps_(heaps), mailboxes_(*mailboxes), random_(*random) {}
  ~BlocksVisitor() override {
    for (void* block : blocks_) Drop(block);
  }

  void Step() override {
    for (int request = 0; request < kRequests; ++request) Request();
  }

 private:
  void Request() {
    if (blocks_.empty() ||
        (blocks_.size() < kMostBlocks && liveBytes_ < kMostLiveBytes && !random_.OneIn(3))) {
      return Add(nullptr);
    }
    void* block = Take();
    switch (random_.Below(3)) {
      case 0:
        return Drop(block);
      case 1:
        return Add(block);
      default:
        return Pass(block);
    }
  }

  uint32_t Size() {
    switch (random_.Below(16)) {
      case 0:
        return random_.Between(16, 60'000);
      case 1:
      case 2:
        return random_.Between(16, 4'000);
      default:
        return random_.Between(16, 300);
    }
  }

  // Any address will do: it only chooses the heap.
  void* Owner() { return random_.OneIn(2) ? nullptr : &mailboxes_[random_.Below(kMailboxes)]; }

  // Allocates a block, or resizes `old`.
  void Add(void* old) {
    const uint32_t size = Size();
    const uint64_t oldSize = old != nullptr ? CheckUpTo(old, LabelOf(old).sizeBytes) : 0;
    void* block = nullptr;
    const uint32_t status = adRealloc(Owner(), size, old, &block, "soak", 1);
    if (!DoneOr(status, KIV_ST_OUT_OF_MEMORY, "adRealloc")) {
      block = old;
      if (block == nullptr) return;
    } else {
      if (old != nullptr) CheckUpTo(block, size < oldSize ? size : oldSize);
      Write(block, size, random_.Next());
      if (heaps_ != nullptr) heaps_->NoteHeapOf(block);
    }
    liveBytes_ += LabelOf(block).sizeBytes;
    blocks_.push_back(block);
  }

  void* Take() {
    const uint32_t at = random_.Below(static_cast<uint32_t>(blocks_.size()));
    void* block = blocks_[at];
    blocks_[at] = blocks_.back();
    blocks_.pop_back();
    liveBytes_ -= LabelOf(block).sizeBytes;
    return block;
  }

  void Pass(void* block) {
    void* other = mailboxes_[random_.Below(kMailboxes)].exchange(block);
    if (other != nullptr) Drop(other);
  }

  Heaps* heaps_;  // null in plain mode
  Mailboxes& mailboxes_;
  Random& random_;
  std::vector<void*> blocks_;
  uint64_t liveBytes_ = 0;
};

class Blocks : public Subsystem {
 public:
  explicit Blocks(const World& world) : heaps_(world.hasHeaps ? world.heaps : nullptr) {}

  std::unique_ptr<Visitor> Enter(uint32_t /*place*/, Random* random) override {
    return std::make_unique<BlocksVisitor>(heaps_, &mailboxes_, random);
  }

  void Check() override {
    for (std::atomic<void*>& mailbox : mailboxes_) {
      if (void* block = mailbox.exchange(nullptr)) Drop(block);
    }
  }

 private:
  Heaps* heaps_;
  Mailboxes mailboxes_ = {};
};

}  // namespace

std::unique_ptr<Subsystem> MakeBlocks(const World& world) {
  return std::make_unique<Blocks>(world);
}

}  // namespace kiv::soak
