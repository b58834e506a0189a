// Compares memory stacks with a model: random operations run on both. After each operation the
// statuses, the addresses, the used and free blocks, and the counts of allocated and freed blocks
// must be equal.
//
// The model keeps two lists of blocks and follows the rules in the simplest way. It learns the
// address of a new block from the stack and expects that address from then on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "sdcommon/memory_stack.h"
#include "support/block_count.h"
#include "support/context.h"
#include "support/sanitizers.h"

namespace {

using kiv::StackBlock;
using kiv::test::BlockCount;
using kiv::test::Context;

constexpr uint32_t kOperations = kiv::test::kUnderAddressSanitizer ? 40000 : 200000;
constexpr uint64_t kMax32Bits = 0xFFFFFFFF;

struct ModelBlock {
  uint64_t sizeBytes;
  uintptr_t address;  // 0 until the stack has returned it
};

struct Placement {
  uint32_t status;
  uint64_t offset;  // in the top block
};

class Model {
 public:
  Model(uint64_t page, uint64_t alignment, uint64_t initialBytes) : page_(page), align_(alignment) {
    header_ = Aligned(16);
    offset_ = header_;
    default_ = BlockSize(initialBytes);
    free_.push_back(Fresh(default_));
  }

  Placement Push(uint64_t sizeBytes) {
    if (used_.empty() || offset_ + sizeBytes > used_.back().sizeBytes) {
      const uint64_t needed = header_ + sizeBytes;
      const uint64_t want = needed > default_ ? BlockSize(needed) : default_;
      if (!free_.empty() && free_.front().sizeBytes >= want) {
        used_.push_back(free_.front());
        free_.erase(free_.begin());
      } else {
        if (want > kMax32Bits) return {KIV_ST_OUT_OF_MEMORY, 0};
        used_.push_back(Fresh(want));
      }
      offset_ = header_;
    }
    const Placement placement = {KIV_ST_OK, offset_};
    offset_ = Aligned(offset_ + sizeBytes);
    return placement;
  }

  uint32_t Pop(uintptr_t address) {
    size_t holder = 0;
    while (holder < used_.size() && !Holds(used_[holder], address)) ++holder;
    if (holder == used_.size()) return KIV_ST_ARGUMENT;
    while (used_.size() > holder + 1) {
      const bool directlyAbove = used_.size() == holder + 2;
      if (directlyAbove && free_.empty() && used_.back().sizeBytes == default_) {
        free_.push_back(used_.back());
      } else {
        ++freed;
      }
      used_.pop_back();
    }
    offset_ = address - used_.back().address;
    return KIV_ST_OK;
  }

  void Reset() {
    while (!used_.empty()) {
      size_t place = 0;
      while (place < free_.size() && free_[place].sizeBytes > used_.back().sizeBytes) ++place;
      free_.insert(free_.begin() + static_cast<std::ptrdiff_t>(place), used_.back());
      used_.pop_back();
    }
    offset_ = header_;
  }

  // Compares the stack's chains with the model's lists, link by link.
  bool Is(const KivSdMemStack& stack) {
    return stack.headerBytes == header_ && stack.defaultBlockBytes == default_ &&
           stack.topOffset == offset_ && Matches(stack.top, used_.rbegin(), used_.rend()) &&
           Matches(stack.freeList, free_.begin(), free_.end());
  }

  const std::vector<ModelBlock>& used() const { return used_; }
  bool empty() const { return used_.empty(); }
  uint64_t offset() const { return offset_; }

  uint64_t allocated = 0;
  uint64_t freed = 0;

 private:
  uint64_t Aligned(uint64_t offset) const {
    return offset + (offset % align_ == 0 ? 0 : align_ - offset % align_);
  }

  uint64_t BlockSize(uint64_t bytes) const {
    uint64_t pages = (bytes + 128) / page_;
    if (pages * page_ < bytes + 128) ++pages;
    return pages * page_ - 128;
  }

  ModelBlock Fresh(uint64_t sizeBytes) {
    ++allocated;
    return {sizeBytes, 0};
  }

  bool Holds(const ModelBlock& block, uintptr_t address) const {
    return block.address + header_ <= address && address < block.address + block.sizeBytes;
  }

  template <typename Iterator>
  static bool Matches(const StackBlock* block, Iterator first, Iterator last) {
    for (; first != last; ++first, block = block->next) {
      if (block == nullptr || block->sizeBytes != first->sizeBytes) return false;
      if (first->address == 0) first->address = reinterpret_cast<uintptr_t>(block);
      if (first->address != reinterpret_cast<uintptr_t>(block)) return false;
    }
    return block == nullptr;
  }

  uint64_t page_;
  uint64_t align_;
  uint64_t header_;
  uint64_t default_;
  uint64_t offset_ = 0;
  std::vector<ModelBlock> used_;  // the top block last
  std::vector<ModelBlock> free_;  // the largest first
};

// A piece that is filled with bytes computed from its seed.
struct Piece {
  unsigned char* address;
  uint32_t sizeBytes;
  unsigned char seed;

  void Fill() const {
    for (uint32_t i = 0; i < sizeBytes; ++i) address[i] = ByteAt(i);
  }
  bool IsWhole() const {
    for (uint32_t i = 0; i < sizeBytes; ++i) {
      if (address[i] != ByteAt(i)) return false;
    }
    return true;
  }
  unsigned char ByteAt(uint32_t i) const { return static_cast<unsigned char>(seed + i * 13); }
};

using Shape = std::tuple<uint32_t, uint32_t>;  // alignment, initial size

class StackModel : public testing::TestWithParam<Shape> {
 protected:
  StackModel()
      : alignment_(std::get<0>(GetParam())),
        initialBytes_(std::get<1>(GetParam())),
        random_(alignment_ * 31 + initialBytes_),
        model_(PageBytes(), alignment_, initialBytes_) {
    CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack_, alignment_, initialBytes_));
  }

  static uint32_t PageBytes() {
    uint32_t pageBytes = 0;
    EXPECT_EQ(KivSdPageSizeGet(nullptr, &pageBytes), KIV_ST_OK);
    return pageBytes;
  }

  uint32_t Below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }

  // Chooses a size: mostly small; sometimes 0, several pages, the rest of a block, one byte more
  // than that, or more than any block can hold.
  uint32_t RandomSize() {
    const uint32_t kind = Below(200);
    if (kind == 0) return UINT32_MAX - Below(100);
    if (kind < 4) return Below(40000);
    if (kind < 8) return 0;
    if (kind < 20) return Below(5000);
    if (kind < 30 && stack_->top != nullptr && stack_->topOffset < stack_->top->sizeBytes) {
      return stack_->top->sizeBytes - static_cast<uint32_t>(stack_->topOffset) + Below(2);
    }
    return Below(300);
  }

  void Push() {
    Piece piece = {nullptr, RandomSize(), static_cast<unsigned char>(random_())};
    void* const untouched = &piece;
    void* out = untouched;
    const Placement placement = model_.Push(piece.sizeBytes);
    CHECK_OUTCOME(ctx_, KivSdMemStackAllocAndPush(ctx_, stack_, piece.sizeBytes, &out),
                  placement.status, 0u);
    if (placement.status != KIV_ST_OK) {
      ASSERT_EQ(out, untouched);
      return;
    }
    piece.address = static_cast<unsigned char*>(out);
    ASSERT_EQ(piece.address, reinterpret_cast<unsigned char*>(stack_->top) + placement.offset);
    piece.Fill();
    pieces_.push_back(piece);
  }

  void Pop(const unsigned char* address) {
    const uint32_t status = model_.Pop(reinterpret_cast<uintptr_t>(address));
    CHECK_OUTCOME(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, address), status, 0u);
    if (status == KIV_ST_OK) ForgetPopped();
  }

  void PopToPiece() {
    if (pieces_.empty()) return;
    // Seldom pops far down, so that the stack can grow.
    const size_t depth = Below(20) == 0 ? pieces_.size() : std::min<size_t>(pieces_.size(), 12);
    const size_t index = pieces_.size() - 1 - Below(static_cast<uint32_t>(depth));
    for (size_t i = index; i < pieces_.size(); ++i) ASSERT_TRUE(pieces_[i].IsWhole());
    Pop(pieces_[index].address);
  }

  // Chooses an address in or near a used block: in the header, at its last byte, or one byte after.
  void PopAnywhere() {
    if (model_.empty()) return Pop(reinterpret_cast<unsigned char*>(stack_->freeList));
    const std::vector<ModelBlock>& used = model_.used();
    const ModelBlock block = used[used.size() - 1 - Below(std::min(3u, Count(used)))];
    const auto* start = reinterpret_cast<const unsigned char*>(block.address);
    const auto size = static_cast<uint32_t>(block.sizeBytes);
    const auto header = static_cast<uint32_t>(std::min<uint64_t>(stack_->headerBytes, size));
    const uint32_t offsets[] = {0, header - 1, header, size - 1, size, Below(size)};
    Pop(start + offsets[Below(6)]);
  }

  static uint32_t Count(const std::vector<ModelBlock>& blocks) {
    return static_cast<uint32_t>(blocks.size());
  }

  void Reset() {
    const bool nothing = model_.empty();
    model_.Reset();
    ctx_.Spoil();
    ASSERT_EQ(KivSdMemStackReset(ctx_, stack_), KIV_ST_OK);
    ASSERT_EQ(ctx_.IsUntouched(), nothing);
    pieces_.clear();
  }

  // Forgets every piece that a pop released, also in part. A remaining piece lies below the offset
  // of the top block, or in a lower block.
  void ForgetPopped() {
    const auto lies = [&](const Piece& piece) {
      const auto address = reinterpret_cast<uintptr_t>(piece.address);
      const std::vector<ModelBlock>& used = model_.used();
      for (size_t i = used.size(); i-- > 0;) {
        const bool top = i == used.size() - 1;
        const uint64_t limit = top ? model_.offset() : used[i].sizeBytes;
        if (address > used[i].address && address <= used[i].address + used[i].sizeBytes) {
          return address + piece.sizeBytes <= used[i].address + limit;
        }
      }
      return false;
    };
    while (!pieces_.empty() && !lies(pieces_.back())) pieces_.pop_back();
  }

  void Step() {
    const uint32_t choice = Below(1000);
    if (choice < 880) {
      Push();
    } else if (choice < 980) {
      PopToPiece();
    } else if (choice < 998) {
      PopAnywhere();
    } else {
      Reset();
    }
  }

  void CheckPieces() {
    for (const Piece& piece : pieces_) ASSERT_TRUE(piece.IsWhole());
  }

  uint32_t alignment_;
  uint32_t initialBytes_;
  std::mt19937 random_;
  BlockCount count_;
  Model model_;
  Context ctx_;
  KivSdMemStack* stack_ = nullptr;
  std::vector<Piece> pieces_;
};

TEST_P(StackModel, AgreesWithTheStackAfterEveryOperation) {
  for (uint32_t step = 0; step < kOperations; ++step) {
    Step();
    ASSERT_TRUE(model_.Is(*stack_)) << "step " << step;
    ASSERT_EQ(count_.allocated(), model_.allocated + 1) << "step " << step;  // one more: the record
    ASSERT_EQ(count_.freed(), model_.freed) << "step " << step;
    if (step % 512 == 0) CheckPieces();
    if (HasFailure()) return;
  }
  CheckPieces();
  CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack_));
  EXPECT_EQ(count_.freed(), count_.allocated());
}

INSTANTIATE_TEST_SUITE_P(Shapes, StackModel,
                         testing::Combine(testing::Values(1u, 8u, 16u, 64u, 4096u, 65536u),
                                          testing::Values(0u, 1000u, 20000u)),
                         [](const auto& shape) {
                           return "Align" + std::to_string(std::get<0>(shape.param)) + "Initial" +
                                  std::to_string(std::get<1>(shape.param));
                         });

}  // namespace
