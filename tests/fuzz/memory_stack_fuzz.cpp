// The input chooses operations on a memory stack. After each, the stack must agree with its model,
// and the pieces in use must be unchanged.
#include <cstring>
#include <vector>

#include "fuzz/input.h"
#include "kivsdu/kivsdu.h"
#include "model/memory_stack_model.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;
using kiv::test::MemoryStackModel;

constexpr int kMaxOperations = 400;

uint32_t PageBytes() {
  uint32_t pageBytes = 0;
  Check(KivSdPageSizeGet(nullptr, &pageBytes) == KIV_ST_OK, "the page size");
  return pageBytes;
}

struct Piece {
  unsigned char* address;
  uint32_t sizeBytes;
  unsigned char fill;
};

class Run {
 public:
  explicit Run(Input* input)
      : input_(input),
        alignment_(1u << (input->Byte() % 17)),
        initialBytes_(input->Byte() * 97u),
        model_(PageBytes(), alignment_, initialBytes_) {
    Check(KivSdMemStackCreate(nullptr, &stack_, alignment_, initialBytes_) == KIV_ST_OK,
          "a stack can be made");
  }
  ~Run() { Check(KivSdMemStackDelete(nullptr, stack_) == KIV_ST_OK, "a stack can be deleted"); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void Operate() {
    const uint8_t what = input_->Byte();
    if (what < 170) {
      Push();
    } else if (what < 220) {
      PopPiece();
    } else if (what < 250) {
      PopAnywhere();
    } else {
      Reset();
    }
    Check(model_.Is(*stack_), "the stack agrees with its model");
    for (const Piece& piece : pieces_) CheckContent(piece);
  }

 private:
  // Small, a few pages, what is left in the top block, or more than a block can hold.
  uint32_t Size() {
    const uint32_t size = input_->Byte();
    if (size < 200) return size;
    if (size < 240) return size * input_->Byte();
    const bool hasRoom = stack_->top != nullptr && stack_->topOffset < stack_->top->sizeBytes;
    const uint64_t room = hasRoom ? stack_->top->sizeBytes - stack_->topOffset : 0;
    return size < 252 ? static_cast<uint32_t>(room) + size % 2 : UINT32_MAX - (size - 252);
  }

  void Push() {
    const uint32_t sizeBytes = Size();
    void* out = nullptr;
    const MemoryStackModel::Placement placement = model_.Push(sizeBytes);
    const uint32_t status = KivSdMemStackAllocAndPush(nullptr, stack_, sizeBytes, &out);
    Check(status == placement.status, "the status of a push");
    if (status != KIV_ST_OK) return Check(out == nullptr, "a failed push yields nothing");
    auto* address = static_cast<unsigned char*>(out);
    Check(address == reinterpret_cast<unsigned char*>(stack_->top) + placement.offset,
          "the place of a piece");
    pieces_.push_back({address, sizeBytes, static_cast<unsigned char>(pieces_.size() + 1)});
    std::memset(address, pieces_.back().fill, sizeBytes);
  }

  void PopPiece() {
    if (pieces_.empty()) return;
    Pop(pieces_[input_->Byte() % pieces_.size()].address);
  }

  // An address in or near a used block: in its header, at its last byte, or a byte after it.
  void PopAnywhere() {
    if (model_.empty()) return Pop(reinterpret_cast<unsigned char*>(stack_->freeList));
    const auto& used = model_.used();
    const MemoryStackModel::Block& block = used[input_->Byte() % used.size()];
    const uint64_t offsets[] = {0,
                                stack_->headerBytes - 1,
                                stack_->headerBytes,
                                block.sizeBytes - 1,
                                block.sizeBytes,
                                input_->Byte() * 64u};
    Pop(reinterpret_cast<unsigned char*>(block.address) + offsets[input_->Byte() % 6]);
  }

  void Pop(const unsigned char* address) {
    const uint32_t status = model_.Pop(reinterpret_cast<uintptr_t>(address));
    Check(KivSdMemStackPopAndFree(nullptr, stack_, address) == status, "the status of a pop");
    while (!pieces_.empty() && !IsHeld(pieces_.back())) pieces_.pop_back();
  }

  void Reset() {
    model_.Reset();
    Check(KivSdMemStackReset(nullptr, stack_) == KIV_ST_OK, "the status of a reset");
    pieces_.clear();
  }

  // Whether the piece still lies in a used block, below the offset if that is the top one.
  bool IsHeld(const Piece& piece) const {
    const auto address = reinterpret_cast<uintptr_t>(piece.address);
    for (const MemoryStackModel::Block& block : model_.used()) {
      const bool isTop = &block == &model_.used().back();
      const uint64_t end = block.address + (isTop ? model_.offset() : block.sizeBytes);
      if (address > block.address && address <= block.address + block.sizeBytes) {
        return address + piece.sizeBytes <= end;
      }
    }
    return false;
  }

  static void CheckContent(const Piece& piece) {
    if (piece.sizeBytes == 0) return;
    const unsigned char* bytes = piece.address;
    Check(bytes[0] == piece.fill && bytes[piece.sizeBytes - 1] == piece.fill,
          "a piece keeps its content");
  }

  Input* input_;
  uint32_t alignment_;
  uint32_t initialBytes_;
  MemoryStackModel model_;
  KivSdMemStack* stack_ = nullptr;
  std::vector<Piece> pieces_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  Input input(bytes, count);
  Run run(&input);
  for (int i = 0; i < kMaxOperations && !input.IsAtEnd(); ++i) run.Operate();
  return 0;
}
