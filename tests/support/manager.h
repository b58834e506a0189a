// Uses the memory manager as a host does: its configuration file, its messages, its totals, and the
// headers in front of its blocks.
//
// The configuration file is in a temporary folder, which MOLTAPATH names, until the manager has
// read it.
#ifndef KIV_TESTS_MANAGER_H
#define KIV_TESTS_MANAGER_H

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"

namespace kiv::test {

// ---- Start ----

// The configuration file that the manager reads. Only one object at a time.
class ConfigurationFile {
 public:
  explicit ConfigurationFile(const std::string& text);
  ~ConfigurationFile();
  ConfigurationFile(const ConfigurationFile&) = delete;
  ConfigurationFile& operator=(const ConfigurationFile&) = delete;

 private:
  const std::string folder_;
};

constexpr char kNoFile[] = "";

// Initialises the manager with a file of this text, or without a file if the text is kNoFile.
uint32_t Initialize(const std::string& text, uint32_t enable = 1, uint32_t force = 0);

// Returns the manager to its uninitialised state and initialises it as Initialize does. The clock
// of allocations goes on.
uint32_t Restart(const std::string& text);

// A few small heaps: 4 slots and the usual 8 spare heaps. The manager cannot make more.
constexpr uint64_t kSlots = 4;
constexpr uint64_t kFirstHeaps = 12;
constexpr uint64_t kHeapBytes = 512 * 1024;
constexpr uint64_t kShortHeapBytes = 320 * 1024;
constexpr uint64_t kLargestInHeap = 64 * 1024;
constexpr char kSmall[] = "numheaps 12 numthreadheaps 4 heapsize 512K\n";

// ---- Messages ----

struct Message {
  uint64_t handle;
  uint32_t status;
  uint32_t severity;
  uint32_t first;
  uint32_t second;

  bool operator==(const Message&) const = default;
};

void PrintTo(const Message& message, std::ostream* out);

constexpr uint64_t kHandle = 0x1234567887654321;

// The message function that Initialize registers.
uint32_t ReceiveMessage(uint64_t handle, uint32_t status, uint32_t severity, const uint32_t* first,
                        uint32_t firstTag, const uint32_t* second, uint32_t secondTag);

// Returns the messages since the last call. Any thread may cause messages.
std::vector<Message> TakeMessages();

// Registers the host's context, whose handle is kHandle.
void Listen();

// Sets the result of the message function, and an action that it also runs.
void AnswerMessages(uint32_t result);
void OnMessage(void (*action)());

inline Message Refused(uint64_t total, uint64_t requested) {
  return {kHandle, KIV_ST_MSG_LIMIT_REFUSED, 4, static_cast<uint32_t>(total),
          static_cast<uint32_t>(requested)};
}

inline Message NoMemory(uint64_t total, uint64_t requested) {
  return {kHandle, KIV_ST_MSG_NO_MEMORY, 4, static_cast<uint32_t>(total),
          static_cast<uint32_t>(requested)};
}

inline Message Near(uint64_t total) {
  return {kHandle, KIV_ST_MSG_LIMIT_NEAR, 3, static_cast<uint32_t>(total), 90};
}

// ---- Totals ----

struct Totals {
  uint64_t outside;
  uint64_t inHeaps;
  uint64_t aligned;
  uint64_t usedPeak;
  uint64_t alignedPeak;
  uint64_t totalPeak;

  uint64_t used() const { return outside + inHeaps; }

  bool operator==(const Totals&) const = default;
};

void PrintTo(const Totals& totals, std::ostream* out);

Totals TotalsNow();

struct Marks {
  uint64_t used;
  uint64_t aligned;
  uint64_t total;

  bool operator==(const Marks&) const = default;
};

void PrintTo(const Marks& marks, std::ostream* out);

Marks MarksNow();

// Counts of blocks by size class.
struct Counts {
  std::array<uint64_t, AD_BLOCK_CLASSES> allocated;
  std::array<uint64_t, AD_BLOCK_CLASSES> freed;

  bool operator==(const Counts&) const = default;
};

constexpr uint32_t kSinceStart = 1;
constexpr uint32_t kSinceReset = 0;

Counts CountsNow(uint32_t selector = kSinceStart);

using Settings = std::array<uint64_t, 7>;

// Also checks the call's result.
Settings SettingsNow();

// ---- Blocks ----

// A seed that selects this slot whatever the clock is, if the count of slots is a power of two. The
// library never dereferences it.
inline void* SeedOfSlot(uint64_t slot) { return reinterpret_cast<void*>((slot + 64) * 8); }

inline void* Allocate(uint64_t sizeBytes, void* owner = SeedOfSlot(0)) {
  void* block = nullptr;
  EXPECT_EQ(adMalloc(owner, sizeBytes, &block, "tests", 1), KIV_ST_OK) << sizeBytes;
  EXPECT_NE(block, nullptr) << sizeBytes;
  return block;
}

inline void Free(void* block) { EXPECT_EQ(adFree(block, "tests", 1), KIV_ST_OK); }

template <typename T>
T ReadAt(const void* address, std::ptrdiff_t offset) {
  T value{};
  std::memcpy(&value, static_cast<const char*>(address) + offset, sizeof value);
  return value;
}

// Fields in front of the payload of a heap's block, and fields of that heap.
inline uint64_t WordBefore(const void* payload) { return ReadAt<uint64_t>(payload, -8); }
inline bool IsLarge(const void* payload) { return WordBefore(payload) != 0; }
inline char* HeapOf(const void* payload) { return ReadAt<char*>(payload, -16); }
inline uint32_t BlockBytes(const void* payload) { return ReadAt<uint32_t>(payload, -24); }
inline uint32_t PayloadBytes(const void* payload) { return BlockBytes(payload) - 24; }
inline uint32_t IndexOf(const void* heap) { return ReadAt<uint32_t>(heap, 496); }
inline char* NextInRing(const void* heap) { return ReadAt<char*>(heap, 480); }
inline char* PreviousInRing(const void* heap) { return ReadAt<char*>(heap, 488); }
inline uint32_t SlotOf(const void* payload) { return IndexOf(HeapOf(payload)); }
constexpr uint32_t kSpareIndex = 4095;
constexpr uint32_t kShortIndex = 0x7FFFFFFF;

// The header in front of the payload of a large block.
struct LargeHeader {
  uint64_t sizeBytes;
  void* next;
  void* previous;
  uint64_t owner;
};
constexpr uint64_t kLargeHeaderBytes = sizeof(LargeHeader);
constexpr uint64_t kNobody = 0xFFFFFFFFFFFFFFF7;

inline LargeHeader HeaderOf(const void* payload) { return ReadAt<LargeHeader>(payload, -32); }

// Checks that the block is a large block of that size without an owner.
void ExpectLarge(const void* payload, uint64_t sizeBytes);

// Fills a block with bytes that depend on a number, and checks for them.
void Fill(void* block, uint64_t sizeBytes, uint64_t number);
bool IsFilled(const void* block, uint64_t sizeBytes, uint64_t number);

}  // namespace kiv::test

#endif
