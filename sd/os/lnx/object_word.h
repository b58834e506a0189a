// The first word of an object that threads wait for, in its slot of the handle table or in memory
// that processes share:
//
//   bit 63 .. 53     52      51 .. 32    31 .. 0
//      generation   closed   users       the kind's own state; sleepers sleep on this half
//
// The generation is the one of the object's handle, and 0 in shared memory. Every change is a
// compare-and-swap of the whole word. A thread that found the slot just before another thread closed
// the handle therefore cannot change the next object in that slot.
//
// Users are threads that wait for the object or work with what it owns. The slot of a closed object
// goes back to the table when the last user leaves.
#ifndef KIV_OS_LNX_OBJECT_WORD_H
#define KIV_OS_LNX_OBJECT_WORD_H

#include <atomic>
#include <bit>
#include <cstdint>

#include "os/lnx/handles.h"
#include "os/os.h"

namespace kiv::os {

using ObjectWord = std::atomic<uint64_t>;

constexpr uint64_t kOneUser = uint64_t{1} << 32;
constexpr uint64_t kUsersMask = uint64_t{0xFFFFF} << 32;
constexpr uint64_t kClosed = uint64_t{1} << 52;
constexpr uint32_t kGenerationShift = 53;
constexpr uint64_t kIdentityMask = ~(kClosed - 1);  // generation and closed

static_assert(uint64_t{kMaxGeneration} << kGenerationShift >> kGenerationShift == kMaxGeneration);

// What the word of an open object has under kIdentityMask.
constexpr uint64_t kSharedIdentity = 0;
inline uint64_t IdentityOf(const void* handle) {
  return uint64_t{reinterpret_cast<uintptr_t>(handle) >> kSlotNumberBits} << kGenerationShift;
}

inline bool IsOpen(uint64_t word, uint64_t identity) { return (word & kIdentityMask) == identity; }
inline bool HasUsers(uint64_t word) { return (word & kUsersMask) != 0; }
inline bool IsFullOfUsers(uint64_t word) { return (word & kUsersMask) == kUsersMask; }
inline bool IsClosedWithoutUsers(uint64_t word) {
  return (word & (kClosed | kUsersMask)) == kClosed;
}

// The half on which threads sleep.
inline const void* SleepersHalf(const ObjectWord* word) {
  static_assert(std::endian::native == std::endian::little, "the low half comes first");
  return word;
}

// Starts the word of a new object, before its slot is published. Returns the identity.
uint64_t StartWord(ObjectWord* word, const Slot* slot, uint32_t state);

// Adds a user. Fails if the object is closed or replaced.
bool EnterObject(ObjectWord* word, uint64_t identity);

// Removes a user. True if the object is closed and this was the last user: the caller ends it.
bool LeaveObject(ObjectWord* word);

// Closes the object of a handle. EBADF if the handle is not one of this kind. `ended` is the slot
// if nobody uses the object: the caller ends what it holds and frees the slot. Null otherwise.
struct Closing {
  Result result;
  Slot* ended;
};
Closing CloseHandle(const void* handle, Kind kind);

// For kinds that hold nothing.
Result CloseAndFree(const void* handle, Kind kind);

}  // namespace kiv::os

#endif
