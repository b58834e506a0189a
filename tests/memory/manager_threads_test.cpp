// The memory manager under many threads: few small heaps that keep running dry, blocks that other
// threads free, owners of short heaps, and a limit that is reached. The content of every block is
// checked before its free. When all blocks are freed, the totals must be as at the start.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "support/lock_design.h"
#include "support/manager.h"
#include "support/process.h"
#include "support/threads.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kHeaps = kFirstHeaps * kHeapBytes;
constexpr auto kTime = std::chrono::milliseconds(700);
constexpr size_t kMailboxes = 256;
constexpr uint64_t kChecked = 200;  // bytes that are checked at either end of a block

// A block's first bytes hold its size and number; the number determines the rest.
struct Label {
  uint64_t sizeBytes;
  uint64_t number;
};
constexpr uint64_t kMinBytes = sizeof(Label);

char* Bytes(void* block) { return static_cast<char*>(block); }

uint64_t Checked(uint64_t sizeBytes) { return std::min(sizeBytes - sizeof(Label), kChecked); }

void Write(void* block, uint64_t sizeBytes, uint64_t number) {
  const Label label = {sizeBytes, number};
  std::memcpy(block, &label, sizeof label);
  Fill(Bytes(block) + sizeof label, Checked(sizeBytes), number);
  Fill(Bytes(block) + sizeBytes - Checked(sizeBytes), Checked(sizeBytes), number);
  // In a small block the two ends overlap: fill it as a whole.
  if (sizeBytes - sizeof label < 2 * kChecked) {
    Fill(Bytes(block) + sizeof label, sizeBytes - sizeof label, number);
  }
}

// Checks the content of a block and returns its size.
uint64_t Check(void* block) {
  const auto label = ReadAt<Label>(block, 0);
  const uint64_t rest = label.sizeBytes - sizeof label;
  if (rest < 2 * kChecked) {
    EXPECT_TRUE(IsFilled(Bytes(block) + sizeof label, rest, label.number));
  } else {
    EXPECT_TRUE(IsFilled(Bytes(block) + sizeof label, kChecked, label.number));
    EXPECT_TRUE(IsFilled(Bytes(block) + label.sizeBytes - kChecked, kChecked, label.number));
  }
  return label.sizeBytes;
}

// Blocks on their way from one thread to another.
std::array<std::atomic<void*>, kMailboxes> mailboxes;

struct Load {
  uint32_t threads;
  uint64_t liveBytes;  // that all threads together try to keep allocated
  bool mayFail;
};

class Worker {
 public:
  Worker(const Load& load, uint32_t number)
      : mayFail_(load.mayFail),
        liveBytes_(load.liveBytes / load.threads),
        random_(number + load.threads * 100) {}

  void Run() {
    const auto end = std::chrono::steady_clock::now() + kTime;
    while (std::chrono::steady_clock::now() < end) {
      for (int i = 0; i < 50; ++i) Step();
      RunOwner();
    }
    for (void* block : blocks_) Drop(block);
  }

  const std::set<char*>& heaps() const { return heaps_; }
  uint64_t larges() const { return larges_; }

 private:
  uint64_t Random(uint64_t below) { return random_() % below; }

  // Chooses a size: mostly small, but often enough the largest size to use up heaps.
  uint64_t Size() {
    switch (Random(16)) {
      case 0:
        return kMinBytes + Random(kLargestInHeap - kMinBytes + 1);
      case 1:
        return kLargestInHeap - Random(100);
      case 2:
        return kLargestInHeap + 1 + Random(30'000);
      case 3:
      case 4:
      case 5:
        return kMinBytes + Random(4000);
      default:
        return kMinBytes + Random(300);
    }
  }

  void* Seed() { return reinterpret_cast<void*>((1 + Random(100'000)) * 8); }

  // Fills an allocated block. The allocation may fail only if the limit may be reached.
  void* Keep(uint32_t status, void* block, uint64_t sizeBytes) {
    if (status != KIV_ST_OK) {
      EXPECT_TRUE(mayFail_);
      EXPECT_EQ(status, KIV_ST_OUT_OF_MEMORY);
      EXPECT_EQ(block, nullptr);
      return nullptr;
    }
    Write(block, sizeBytes, random_());
    if (IsLarge(block)) {
      ++larges_;
    } else {
      heaps_.insert(HeapOf(block));
    }
    return block;
  }

  void Add(void* block, uint64_t sizeBytes) {
    if (block == nullptr) return;
    blocks_.push_back(block);
    heldBytes_ += sizeBytes;
  }

  void* Take() {
    const size_t index = Random(blocks_.size());
    std::swap(blocks_[index], blocks_.back());
    void* block = blocks_.back();
    blocks_.pop_back();
    heldBytes_ -= ReadAt<Label>(block, 0).sizeBytes;
    return block;
  }

  void Drop(void* block) {
    Check(block);
    if (Random(4) == 0) {
      EXPECT_EQ(adFreeAligned(block, 1), KIV_ST_OK);
    } else {
      Free(block);
    }
  }

  void MakeNew() {
    const uint64_t size = Size();
    void* block = this;
    uint32_t status = KIV_ST_OK;
    if (Random(8) == 0) {
      status = adCalloc(Seed(), 1, size, &block, AD_POLICY_FULL);
    } else {
      status = adMalloc(Random(2) == 0 ? nullptr : Seed(), size, &block, "tests", 1);
    }
    Add(Keep(status, block, size), size);
  }

  void Resize() {
    void* old = Take();
    const uint64_t oldSize = Check(old);
    const uint64_t size = Size();
    void* block = this;
    const uint32_t status = adRealloc(Seed(), size, old, &block, "tests", 1);
    if (status == KIV_ST_OK) {
      const uint64_t kept = std::min({size, oldSize, kChecked}) - sizeof(Label);
      const auto label = ReadAt<Label>(block, 0);
      EXPECT_EQ(label.sizeBytes, oldSize);
      EXPECT_TRUE(IsFilled(Bytes(block) + sizeof label, kept, label.number));
    } else {
      Check(old);
      Add(old, oldSize);
    }
    Add(Keep(status, block, size), size);
  }

  // Puts a block into a mailbox and frees the block that another thread left there.
  void Pass() {
    void* block = Take();
    void* other = mailboxes[Random(kMailboxes)].exchange(block, std::memory_order_acq_rel);
    if (other != nullptr) Drop(other);
  }

  void Register() {
    const uint32_t status = adMemAlignedIncCounter(this, 1);
    if (status == KIV_ST_OK) {
      adMemAlignedDecCounter(this);
    } else {
      EXPECT_TRUE(mayFail_);
      EXPECT_EQ(status, KIV_ST_ALIGNED_COMMIT);
    }
  }

  void Step() {
    if (blocks_.empty()) return MakeNew();
    switch (Random(16)) {
      case 0:
      case 1:
        return Resize();
      case 2:
      case 3:
      case 4:
        return Pass();
      case 5:
        return Register();
      default:
        return heldBytes_ < liveBytes_ ? MakeNew() : Drop(Take());
    }
  }

  // Runs an owner of short heaps: many small blocks, some large ones, all released together.
  void RunOwner() {
    AdShortHeapOwner owner = {};
    adMemShortHeapInit(&owner);
    if (adMemShortCheckStatus(&owner) == 0) {
      EXPECT_TRUE(mayFail_);
      return;
    }
    void* last = nullptr;
    for (int i = 0; i < 30; ++i) {
      const uint64_t size = Size();
      void* block = nullptr;
      const uint32_t status =
          adMemShortHeapMalloc(&owner, static_cast<int32_t>(size), &block, "tests", 1);
      if (status != KIV_ST_OK) {
        EXPECT_TRUE(mayFail_);
        break;
      }
      Write(block, size, static_cast<uint64_t>(i));
      if (i % 3 == 2) {
        Check(last);
        Free(last);
        last = nullptr;
      } else {
        last = block;
      }
    }
    if (last != nullptr) Check(last);
    adMemShortHeapTerm(&owner);
  }

  const bool mayFail_;
  const uint64_t liveBytes_;
  std::mt19937_64 random_;
  std::vector<void*> blocks_;
  uint64_t heldBytes_ = 0;
  std::set<char*> heaps_;
  uint64_t larges_ = 0;
};

struct Result {
  std::set<char*> heaps;
  uint64_t larges = 0;
};

Result RunThreads(const Load& load) {
  std::vector<std::unique_ptr<Worker>> workers;
  for (uint32_t i = 0; i < load.threads; ++i) {
    workers.push_back(std::make_unique<Worker>(load, i));
  }
  OnThreads(load.threads, [&](uint32_t number) { workers[number]->Run(); });
  for (std::atomic<void*>& mailbox : mailboxes) {
    if (void* block = mailbox.exchange(nullptr)) {
      Check(block);
      Free(block);
    }
  }
  Result result;
  for (const auto& worker : workers) {
    result.heaps.insert(worker->heaps().begin(), worker->heaps().end());
    result.larges += worker->larges();
  }
  return result;
}

void ExpectTotalsOfTheStart() {
  const Totals totals = TotalsNow();
  EXPECT_EQ(totals.inHeaps, kHeaps);
  EXPECT_EQ(totals.outside, 0u);
  EXPECT_EQ(totals.aligned, 0u);
}

// Allocates blocks of the largest size until the heaps have no more, frees them, and returns their
// number.
uint64_t FillHeaps() {
  std::vector<void*> blocks;
  do {
    blocks.push_back(Allocate(kLargestInHeap));
  } while (!IsLarge(blocks.back()));
  for (void* block : blocks) Free(block);
  return blocks.size() - 1;
}

// With these settings no pooled heap remains when all owners have ended.
const std::string kStressed =
    std::string(kSmall) + "limitshortheapsforremove 0 memoryblockscontrol\n";

constexpr uint32_t kThreadCounts[] = {2, 3, 4, 8, 16};

TEST(ManagerThreads, ExchangeHeapsAndFreeEachOthersBlocks) {
  for (const uint32_t threads : kThreadCounts) {
    SCOPED_TRACE(threads);
    ASSERT_EQ(Restart(kStressed), KIV_ST_OK);
    // Slightly less than the heaps can hold: heaps are exchanged, but seldom are all of them dry.
    const Result result = RunThreads({threads, kHeaps * 3 / 4, false});
    EXPECT_GT(result.heaps.size(), kSlots) << "heaps were not exchanged";
    EXPECT_LE(result.heaps.size(), kFirstHeaps);
    ExpectTotalsOfTheStart();
    // A request that no heap can serve consolidates every heap. Afterwards all room is available.
    FillHeaps();
    EXPECT_EQ(FillHeaps(), 7 * kFirstHeaps);
  }
}

TEST(ManagerThreads, MakeHeapsWhenAllAreDry) {
  for (const uint32_t threads : {4u, 16u}) {
    SCOPED_TRACE(threads);
    ASSERT_EQ(Restart("numheaps 20 numthreadheaps 4 heapsize 512K limitshortheapsforremove 0"),
              KIV_ST_OK);
    const Result result = RunThreads({threads, 14 * kHeapBytes, false});
    const uint64_t made = TotalsNow().inHeaps / kHeapBytes;
    EXPECT_GT(made, kFirstHeaps);
    EXPECT_LE(made, 20u);
    EXPECT_LE(result.heaps.size(), made);
    EXPECT_EQ(TotalsNow().outside, 0u);
    EXPECT_EQ(TotalsNow().aligned, 0u);
  }
}

// The design of all locks is chosen once, before the first lock is made.
TEST(ManagerThreads, WorkWithTicketLocks) {
  IN_FRESH_PROCESS([] {
    KivSdSetHardwareAcceleration(kTicket.flag);
    ASSERT_EQ(Initialize(kStressed), KIV_ST_OK);
    void* block = Allocate(24);
    void* lock = ReadAt<void*>(HeapOf(block), 0);
    // The next ticket to serve, a field that only ticket locks have.
    EXPECT_EQ(FieldOf<int64_t>(lock, 128).load(), 1);
    Free(block);
    EXPECT_EQ(FieldOf<int64_t>(lock, 128).load(), 2);
    const Result result = RunThreads({4, kHeaps * 3 / 4, false});
    EXPECT_GT(result.heaps.size(), kSlots) << "heaps were not exchanged";
    EXPECT_GT(result.larges, 0u);
    ExpectTotalsOfTheStart();
  });
}

// A ticket lock counts its acquisitions.
TEST(ManagerThreads, LockTheirHeapOncePerRequest) {
  IN_FRESH_PROCESS([] {
    KivSdSetHardwareAcceleration(kTicket.flag);
    ASSERT_EQ(Initialize(kStressed), KIV_ST_OK);
    std::vector<void*> blocks = {Allocate(24)};
    void* lock = ReadAt<void*>(HeapOf(blocks[0]), 0);
    int64_t requests = 1;
    const auto expectOneMore = [&] { EXPECT_EQ(FieldOf<int64_t>(lock, 128).load(), ++requests); };
    for (int i = 0; i < 6; ++i) {
      blocks.push_back(Allocate(1000));
      expectOneMore();
    }
    // The first two of these frees leave a free block of their own, the third merges both.
    for (const size_t freed : {size_t{2}, size_t{4}, size_t{3}}) {
      Free(blocks[freed]);
      expectOneMore();
    }
    blocks[2] = Allocate(2900);  // from a bin that has a block
    expectOneMore();
    blocks[3] = Allocate(40'000);  // larger than the direct requests
    expectOneMore();
    EXPECT_EQ(ReadAt<void*>(HeapOf(blocks[3]), 0), lock) << "all blocks are from one heap";
  });
}

// Requests fail all the time, and the host allocates in its message function.
TEST(ManagerThreads, SurviveFailuresAtTheLimit) {
  for (const uint32_t threads : {2u, 16u}) {
    SCOPED_TRACE(threads);
    ASSERT_EQ(Restart(kStressed + "memorylimit 10M"), KIV_ST_OK);
    Listen();
    OnMessage([] {
      void* block = nullptr;
      if (adMalloc(nullptr, 100, &block, "tests", 1) == KIV_ST_OK) Free(block);
      TotalsNow();
    });
    const Result result = RunThreads({threads, 16 << 20, true});
    OnMessage(nullptr);
    EXPECT_GT(result.larges, 0u);
    EXPECT_LE(TotalsNow().usedPeak, 10485760u);
    const std::vector<Message> messages = TakeMessages();
    EXPECT_FALSE(messages.empty());
    for (const Message& message : messages) {
      EXPECT_EQ(message.handle, kHandle);
      const bool isWarning = message.status == KIV_ST_MSG_LIMIT_NEAR;
      EXPECT_EQ(message.severity, isWarning ? 3u : 4u);
      if (!isWarning) {
        EXPECT_EQ(message.status, KIV_ST_MSG_LIMIT_REFUSED);
      }
    }
    ExpectTotalsOfTheStart();
  }
}

// ---- The limit, while other threads allocate ----

constexpr uint64_t kLimit = 32 << 20;
constexpr uint64_t kInVain = 64 << 20;
const std::string kLimited = std::string(kSmall) + "memorylimit 32M";
constexpr auto kContended = std::chrono::milliseconds(300);

template <typename Step>
void Repeat(Step step) {
  const auto end = std::chrono::steady_clock::now() + kContended;
  while (std::chrono::steady_clock::now() < end) step();
}

// Repeatedly registers a region of 8 KiB, for which there is always room, while another thread
// requests more than the limit.
void RegisterBesideRefusals(uint32_t (*askInVain)()) {
  Listen();
  uint64_t refused = 0;
  uint64_t registered = 0;
  OnThreads(2, [&](uint32_t number) {
    int region = 0;
    Repeat([&] {
      if (number == 0) {
        EXPECT_EQ(askInVain(), KIV_ST_OUT_OF_MEMORY);
      } else if (adMemAlignedIncCounter(&region, 1) == KIV_ST_OK) {
        ++registered;
        adMemAlignedDecCounter(&region);
      } else {
        ++refused;
      }
    });
  });
  EXPECT_GT(registered, 0u);
  EXPECT_EQ(refused, 0u) << "of " << refused + registered;
  for (const Message& message : TakeMessages()) {
    EXPECT_EQ(message.second, static_cast<uint32_t>(kInVain)) << "told of another request";
  }
  EXPECT_LE(TotalsNow().totalPeak, kLimit);
  EXPECT_EQ(TotalsNow().aligned, 0u);
}

TEST(ManagerThreads, ARefusedRequestMakesNoOtherRequestFail) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  RegisterBesideRefusals([] {
    void* block = nullptr;
    return adMalloc(nullptr, kInVain, &block, "tests", 1);
  });
  ExpectTotalsOfTheStart();
}

void* resized = nullptr;

TEST(ManagerThreads, ARefusedReallocationMakesNoOtherRequestFail) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  resized = Allocate(kLargestInHeap + 1);
  RegisterBesideRefusals([] {
    void* block = nullptr;
    return adRealloc(nullptr, kInVain, resized, &block, "tests", 1);
  });
  Free(resized);
  ExpectTotalsOfTheStart();
}

// All threads register regions until the limit refuses one, and then remove theirs.
TEST(ManagerThreads, RegionsOfManyThreadsStayWithinTheLimit) {
  constexpr uint32_t kThreads = 4;
  constexpr uint32_t kBlocks = 64;  // in a region of 512 KiB
  constexpr uint64_t kRegions = (kLimit - kHeaps) / (kBlocks * AD_MEMORY_UNIT);
  static_assert((kLimit - kHeaps) % (kBlocks * AD_MEMORY_UNIT) == 0);
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  std::atomic<uint64_t> rounds = 0;
  OnThreads(kThreads, [&](uint32_t) {
    char regions[kRegions];
    Repeat([&] {
      uint64_t count = 0;
      while (count < kRegions && adMemAlignedIncCounter(&regions[count], kBlocks) == KIV_ST_OK) {
        ++count;
      }
      rounds += count > 0 ? 1 : 0;
      while (count > 0) adMemAlignedDecCounter(&regions[--count]);
    });
  });
  EXPECT_GT(rounds, 0u);
  EXPECT_LE(TotalsNow().totalPeak, kLimit);
  EXPECT_EQ(TotalsNow().aligned, 0u);
  // No bytes of refused regions are still reserved.
  int all = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&all, kRegions * kBlocks), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().totalPeak, kLimit);
  adMemAlignedDecCounter(&all);
  ExpectTotalsOfTheStart();
}

}  // namespace
