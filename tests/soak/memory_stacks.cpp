// Memory stacks: pieces pushed and popped in bulk. Each piece keeps its content.
#include <vector>

#include "kivsdu/memstack.h"
#include "kivsdu/status.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kAlignment = 16;
constexpr uint32_t kBlockBytes = 8000;
constexpr size_t kMostPieces = 60;

struct Piece {
  void* address;
  uint32_t sizeBytes;
};

class MemoryStacksVisitor : public Visitor {
 public:
  MemoryStacksVisitor(const World& /*world*/, uint32_t /*place*/, Random* random)
      : random_(*random) {
    Done(KivSdMemStackCreate(nullptr, &stack_, kAlignment, kBlockBytes), "KivSdMemStackCreate");
  }
  ~MemoryStacksVisitor() override {
    Done(KivSdMemStackDelete(nullptr, stack_), "KivSdMemStackDelete");
  }

  void Step() override {
    while (pieces_.size() < kMostPieces && !random_.OneIn(12)) Push();
    PopFrom(random_.Below(static_cast<uint32_t>(pieces_.size() + 1)));
    if (!random_.OneIn(8)) return;
    Done(KivSdMemStackReset(nullptr, stack_), "KivSdMemStackReset");
    pieces_.clear();
  }

 private:
  void Push() {
    const uint32_t size = random_.OneIn(20) ? random_.Between(1, 20'000) : random_.Between(1, 500);
    Piece piece = {nullptr, size};
    const uint32_t status = KivSdMemStackAllocAndPush(nullptr, stack_, size, &piece.address);
    if (!DoneOr(status, KIV_ST_OUT_OF_MEMORY, "KivSdMemStackAllocAndPush")) return;
    Fill(piece.address, size, size);
    pieces_.push_back(piece);
  }

  void PopFrom(size_t first) {
    for (const Piece& piece : pieces_) {
      Expect(IsFilled(piece.address, piece.sizeBytes, piece.sizeBytes),
             "a piece of a stack keeps its content");
    }
    if (first == pieces_.size()) return;
    Done(KivSdMemStackPopAndFree(nullptr, stack_, pieces_[first].address),
         "KivSdMemStackPopAndFree");
    pieces_.resize(first);
  }

  Random& random_;
  KivSdMemStack* stack_ = nullptr;
  std::vector<Piece> pieces_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeMemoryStacks(const World& world) {
  return std::make_unique<Separate<MemoryStacksVisitor>>(world);
}

}  // namespace kiv::soak
