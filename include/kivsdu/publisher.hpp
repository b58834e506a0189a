// Publishes a host's memory figures for other processes: usage, peaks, marks, limit, settings, block
// counts and messages. 'kivsd top' shows them while the host runs.
//
// A host makes one MemoryPublisher and calls Start after adMemThreadHeapInit. From then on a
// thread of the host samples the memory manager, once a second unless the host asks for another
// interval, and writes the sample into a named shared block. Allocations do no additional work.
//
//   kivsdu::MemoryPublisher publisher;
//   publisher.Start("my server");
//
// A reader finds the block by the host's process identifier. Reader and writer do not wait for each
// other: a sequence number tells the reader that a sample changed while it was copied.
//
// This header needs C++20 and the library kivsdu; it is not part of the library. It throws nothing.
//
// Example: examples/cellhost.
#ifndef KIVSDU_PUBLISHER_HPP
#define KIVSDU_PUBLISHER_HPP

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>

#include "event.h"
#include "manager.h"
#include "memusage.h"
#include "sharedmem.h"
#include "status.h"
#include "thread.h"
#include "time.h"

namespace kivsdu {

// ---- The shared block ----

// A change of a field's meaning or place raises the version. A reader refuses other versions.
inline constexpr uint64_t kMemoryMagic = 0x6B69767364754D45;  // "kivsduME"
inline constexpr uint32_t kMemoryLayoutVersion = 1;
inline constexpr size_t kMemoryHostNameBytes = 64;  // terminator included

// The messages of the memory manager (manager.h) in the order of MemorySample::messages.
inline constexpr std::array<uint32_t, 4> kMemoryMessages = {
    KIV_ST_MSG_LIMIT_REFUSED, KIV_ST_MSG_LIMIT_NEAR, KIV_ST_MSG_LIMIT_TOO_LOW,
    KIV_ST_MSG_NO_MEMORY};

// The figures of one moment. Sizes are in bytes; memusage.h explains them.
struct MemorySample {
  char host[kMemoryHostNameBytes];  // the name that the host gave to Start
  uint64_t processId;
  uint64_t startMs;     // when publishing started, in milliseconds since 1970, UTC
  uint64_t timeMs;      // when the sample was taken
  uint64_t intervalMs;  // between two samples
  uint64_t samples;     // taken so far, this one included

  uint64_t
      memoryControl;  // 1 if memory is counted; otherwise the figures up to the marks say nothing
  uint64_t usedOutsideHeaps;
  uint64_t inHeaps;
  uint64_t aligned;
  uint64_t usedPeak;
  uint64_t alignedPeak;
  uint64_t totalPeak;
  uint64_t usedMark;
  uint64_t alignedMark;
  uint64_t totalMark;

  uint64_t limit;  // 0 for none
  uint64_t slots;  // 0 in plain mode
  uint64_t heapBudget;
  uint64_t heapBytes;
  uint64_t shortHeapBytes;
  uint64_t largestRequest;

  uint64_t blockStatistics;  // 1 if blocks are counted; otherwise the counts are 0
  uint64_t allocated[AD_BLOCK_CLASSES];
  uint64_t freed[AD_BLOCK_CLASSES];

  uint64_t messages[kMemoryMessages.size()];  // how often the host received each
};

inline constexpr size_t kMemorySampleWords = sizeof(MemorySample) / sizeof(uint64_t);
using MemorySampleWords = std::array<uint64_t, kMemorySampleWords>;
static_assert(std::is_trivially_copyable_v<MemorySample>);
static_assert(sizeof(MemorySample) == 528, "layout 1");
static_assert(offsetof(MemorySample, processId) == 64, "layout 1");
static_assert(offsetof(MemorySample, memoryControl) == 104, "layout 1");
static_assert(offsetof(MemorySample, limit) == 184, "layout 1");
static_assert(offsetof(MemorySample, blockStatistics) == 232, "layout 1");
static_assert(offsetof(MemorySample, messages) == 496, "layout 1");

// The block's content. Two processes access it: all fields are atomic words.
struct MemoryBlock {
  std::atomic<uint64_t> magic;     // stored last, once the first sample is complete
  std::atomic<uint64_t> version;   // of the layout
  std::atomic<uint64_t> ended;     // 1 once the host has stopped publishing
  std::atomic<uint64_t> sequence;  // odd while a sample is being written
  std::array<std::atomic<uint64_t>, kMemorySampleWords> words;
};
static_assert(std::atomic<uint64_t>::is_always_lock_free);
static_assert(offsetof(MemoryBlock, sequence) == 24, "layout 1");
static_assert(offsetof(MemoryBlock, words) == 32, "layout 1");

// Writes a sample. One thread of one process writes.
inline void WriteMemorySample(MemoryBlock* block, const MemorySample& sample) {
  const auto words = std::bit_cast<MemorySampleWords>(sample);
  // relaxed: only this thread writes the sequence.
  const uint64_t sequence = block->sequence.load(std::memory_order_relaxed);
  block->sequence.store(sequence + 1, std::memory_order_relaxed);
  // release: pairs with the acquire fence of a reader that saw one of the words below. That reader
  // then sees the odd number or a later one.
  std::atomic_thread_fence(std::memory_order_release);
  for (size_t i = 0; i < words.size(); ++i) {
    block->words[i].store(words[i], std::memory_order_relaxed);
  }
  // release: pairs with the reader's first load.
  block->sequence.store(sequence + 2, std::memory_order_release);
}

// Tries once to read a sample. Returns false if the writer is at work.
inline bool TryReadMemorySample(const MemoryBlock& block, MemorySample* sample) {
  MemorySampleWords words;
  // acquire: pairs with the writer's last store.
  const uint64_t before = block.sequence.load(std::memory_order_acquire);
  if (before % 2 != 0) return false;
  for (size_t at = 0; at < words.size(); ++at) {
    words[at] = block.words[at].load(std::memory_order_relaxed);
  }
  // acquire: pairs with the writer's fence.
  std::atomic_thread_fence(std::memory_order_acquire);
  if (block.sequence.load(std::memory_order_relaxed) != before) return false;
  *sample = std::bit_cast<MemorySample>(words);
  sample->host[kMemoryHostNameBytes - 1] = '\0';
  return true;
}

// Reads a sample. Returns false after at least a tenth of a second in which the writer was at work at
// every try: it writes all the time, or its process ended while it wrote.
inline bool ReadMemorySample(const MemoryBlock& block, MemorySample* sample) {
  constexpr int kRounds = 100;
  constexpr int kTriesInARound = 100;
  for (int i = 0; i < kRounds * kTriesInARound; ++i) {
    if (TryReadMemorySample(block, sample)) return true;
    // The writer may have lost its processor to another thread, this one included.
    if (i % kTriesInARound == kTriesInARound - 1) KivSdSleep(nullptr, 1);
  }
  return TryReadMemorySample(block, sample);
}

// The name of a process's block.
struct MemoryBlockName {
  char text[40];
};
inline MemoryBlockName MemoryBlockNameOf(uint32_t processId, const char* prefix = "") {
  MemoryBlockName name;
  std::snprintf(name.text, sizeof name.text, "%skivsdu-memory-%u", prefix,
                static_cast<unsigned>(processId));
  return name;
}

// On Windows a service's names are in the global namespace. Programs of a user's session find them
// with this prefix.
inline constexpr char kMemoryServicePrefix[] = "Global\\";

// The time in milliseconds since 1970, UTC.
inline uint64_t MemoryClockMs() {
  KivSdUtcTimestamp now = {};
  KivSdGetUtcTimestamp(nullptr, 0, &now);
  return uint64_t{now.seconds} * 1000 + now.microseconds / 1000;
}

// ---- The host's side ----

class MemoryPublisher {
 public:
  MemoryPublisher() = default;
  ~MemoryPublisher() { Stop(); }
  MemoryPublisher(const MemoryPublisher&) = delete;
  MemoryPublisher& operator=(const MemoryPublisher&) = delete;

  // Starts publishing. One publisher of a process may run at a time. In failover mode this calls
  // the lease guard (settings.h).
  //
  //   host        the host's name for people; may be null. The first 63 bytes are kept
  //   intervalMs  milliseconds between two samples; at least 1
  //
  // 0, or KIV_ST_ARGUMENT          intervalMs is 0, or this publisher runs already
  //       KIV_ST_SHARED_MEM_ALLOC  the block was not made, or another publisher runs
  //       KIV_ST_EVENT_CREATE      no event for the thread
  //       KIV_ST_THREAD_CREATE     the thread was not started
  uint32_t Start(const char* host, uint32_t intervalMs = 1000) {
    if (intervalMs == 0 || block_ != nullptr) return KIV_ST_ARGUMENT;
    if (isPublished.exchange(true)) return KIV_ST_SHARED_MEM_ALLOC;
    KivSdProcessIdGet(nullptr, &processId_);
    uint32_t status = OpenBlock();
    if (status == KIV_ST_OK) {
      Prepare(host, intervalMs);
      status = StartThread();
    }
    if (status != KIV_ST_OK) CloseBlock();
    return status;
  }

  // Stops the thread, marks the block as ended and closes it. Does nothing if no publisher runs. Call
  // it before adMemThreadHeapTerm.
  void Stop() {
    if (block_ == nullptr) return;
    KivSdStdEventSet(nullptr, &stop_);
    KivSdThreadJoin(nullptr, &thread_);
    KivSdThreadDelete(nullptr, &thread_);
    KivSdStdEventClose(nullptr, &stop_);
    CloseBlock();
  }

  // Counts a message of the memory manager. The host calls it in its message function (manager.h).
  // Any thread.
  void CountMessage(uint32_t status) {
    for (size_t i = 0; i < kMemoryMessages.size(); ++i) {
      // relaxed: the counts order nothing.
      if (kMemoryMessages[i] == status) messages_[i].fetch_add(1, std::memory_order_relaxed);
    }
  }

 private:
  uint32_t OpenBlock() {
    uint32_t ignoredId = 0;
    void* view = nullptr;
    const uint32_t status =
        KivSdSharedMemAlloc(nullptr, MemoryBlockNameOf(processId_).text, sizeof(MemoryBlock),
                            KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                            KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping_, &ignoredId, &view);
    if (status != KIV_ST_OK || view == nullptr) return KIV_ST_SHARED_MEM_ALLOC;
    // A reader can keep the block of an ended process with this identifier: begin anew.
    block_ = new (view) MemoryBlock{};
    return KIV_ST_OK;
  }

  void CloseBlock() {
    if (block_ != nullptr) {
      block_->ended.store(1, std::memory_order_release);
      KivSdSharedMemFree(nullptr, mapping_, block_);
    }
    block_ = nullptr;
    isPublished.store(false);
  }

  // Takes the first sample, so that a reader never finds an empty block.
  void Prepare(const char* host, uint32_t intervalMs) {
    sample_ = {};
    if (host != nullptr) std::strncpy(sample_.host, host, kMemoryHostNameBytes - 1);
    sample_.processId = processId_;
    sample_.startMs = MemoryClockMs();
    sample_.intervalMs = intervalMs;
    Publish();
    block_->version.store(kMemoryLayoutVersion, std::memory_order_relaxed);
    // release: a reader that sees it also sees the version and the sample.
    block_->magic.store(kMemoryMagic, std::memory_order_release);
  }

  uint32_t StartThread() {
    uint32_t id = 0;
    uint32_t status = KivSdStdEventCreate(nullptr, &stop_);
    if (status != KIV_ST_OK) return status;
    status = KivSdThreadCreate(nullptr, &MemoryPublisher::Run, 0, 0, this, &id, &thread_);
    if (status != KIV_ST_OK) KivSdStdEventClose(nullptr, &stop_);
    return status;
  }

  static uint32_t Run(void* argument) {
    auto* self = static_cast<MemoryPublisher*>(argument);
    const auto waitMs = static_cast<int32_t>(
        self->sample_.intervalMs < INT32_MAX ? self->sample_.intervalMs : INT32_MAX);
    while (KivSdStdEventTimedWait(nullptr, &self->stop_, waitMs) == KIV_ST_EVENT_TIMEOUT) {
      self->Publish();
    }
    return 0;
  }

  void Publish() {
    sample_.timeMs = MemoryClockMs();
    ++sample_.samples;
    SampleUsage();
    SampleSettings();
    sample_.blockStatistics =
        adMemGetUsedMemoryBlocks(1, sample_.allocated, sample_.freed) == 0 ? 1 : 0;
    for (size_t i = 0; i < messages_.size(); ++i) {
      sample_.messages[i] = messages_[i].load(std::memory_order_relaxed);
    }
    WriteMemorySample(block_, sample_);
  }

  void SampleUsage() {
    const uint32_t used =
        adMemGetUsedMemory(&sample_.usedOutsideHeaps, &sample_.inHeaps, &sample_.aligned,
                           &sample_.usedPeak, &sample_.alignedPeak, &sample_.totalPeak);
    const uint32_t marks =
        adMemGetMaxUsedMarkMemory(&sample_.usedMark, &sample_.alignedMark, &sample_.totalMark);
    sample_.memoryControl = used == 0 && marks == 0 ? 1 : 0;
    // The manager subtracts two figures of different moments: the difference may be below 0.
    if (sample_.usedOutsideHeaps > INT64_MAX) sample_.usedOutsideHeaps = 0;
  }

  void SampleSettings() {
    uint64_t settings[7] = {};
    adMemGetMemorySettings(settings);
    constexpr uint64_t kTerminated = ~uint64_t{0};
    sample_.limit = settings[0];
    sample_.slots = settings[1] == kTerminated ? 0 : settings[1];
    sample_.heapBudget = settings[2];
    sample_.heapBytes = settings[3];
    sample_.shortHeapBytes = settings[4];
    sample_.largestRequest = settings[5];
  }

  inline static std::atomic<bool> isPublished = false;

  uint32_t processId_ = 0;
  KivHandle mapping_ = nullptr;
  MemoryBlock* block_ = nullptr;
  KivHandle stop_ = nullptr;
  KivHandle thread_ = nullptr;
  MemorySample sample_ = {};  // of the thread while it runs
  std::array<std::atomic<uint64_t>, kMemoryMessages.size()> messages_ = {};
};

// ---- The reader's side ----

// Reads the samples of one host.
class MemoryReader {
 public:
  enum class Outcome {
    kSample,   // a sample was read
    kEnded,    // the host has stopped publishing; the sample is its last
    kUnknown,  // the block has another layout: reader and host have different versions
    kTorn      // the host ended while it wrote, or writes all the time
  };

  MemoryReader() = default;
  ~MemoryReader() { Close(); }
  MemoryReader(const MemoryReader&) = delete;
  MemoryReader& operator=(const MemoryReader&) = delete;

  // Opens the block of a process of this session, or of a service.
  //
  // 0, or KIV_ST_SHARED_MEM_ALLOC  the process does not publish, or another user runs it
  uint32_t Open(uint32_t processId) {
    Close();
    const bool found = OpenBlock(MemoryBlockNameOf(processId)) ||
                       OpenBlock(MemoryBlockNameOf(processId, kMemoryServicePrefix));
    return found ? KIV_ST_OK : KIV_ST_SHARED_MEM_ALLOC;
  }

  void Close() {
    if (block_ != nullptr) KivSdSharedMemFree(nullptr, mapping_, const_cast<MemoryBlock*>(block_));
    block_ = nullptr;
  }

  // Reads the newest sample. Open must have succeeded.
  Outcome Read(MemorySample* sample) const {
    // acquire: pairs with the release of Prepare.
    const uint64_t magic = block_->magic.load(std::memory_order_acquire);
    const uint64_t version = block_->version.load(std::memory_order_relaxed);
    if (magic != kMemoryMagic || version != kMemoryLayoutVersion) return Outcome::kUnknown;
    // Before the sample: the last sample is written before the host ends.
    const bool ended = block_->ended.load(std::memory_order_acquire) != 0;
    if (!ReadMemorySample(*block_, sample)) return Outcome::kTorn;
    return ended ? Outcome::kEnded : Outcome::kSample;
  }

 private:
  bool OpenBlock(const MemoryBlockName& name) {
    uint32_t ignoredId = 0;
    void* view = nullptr;
    const uint32_t status =
        KivSdSharedMemAlloc(nullptr, name.text, 0, KIV_SHAREDMEM_READ,
                            KIV_SHAREDMEM_PAGES_READ_ONLY, &mapping_, &ignoredId, &view);
    if (status != KIV_ST_OK) return false;
    block_ = static_cast<const MemoryBlock*>(view);
    return view != nullptr;
  }

  KivHandle mapping_ = nullptr;
  const MemoryBlock* block_ = nullptr;
};

}  // namespace kivsdu

#endif
