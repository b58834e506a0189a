// The library's own thread-local memory.
//
//   void* ReadThreadWord()             this thread's pointer; null until the thread writes one
//   void WriteThreadWord(void* value)
//   void* ThreadStorage()              kThreadStorageBytes bytes, aligned to 8; 0 at first
//
// Unlike a slot, it exists as soon as the library is loaded, is found without a call, and leaves the
// last error alone. It serves every allocation.
#ifndef KIV_OS_THREAD_WORD_H
#define KIV_OS_THREAD_WORD_H

#include <cstddef>
#include <cstdint>

namespace kiv::os {

struct ThreadArea {
  void* word;
  uint64_t storage[3];
};

constexpr size_t kThreadStorageBytes = sizeof(ThreadArea::storage);

}  // namespace kiv::os

#include "inline/thread_word.h"

namespace kiv::os {

inline void* ReadThreadWord() { return OwnThreadArea()->word; }

inline void WriteThreadWord(void* value) { OwnThreadArea()->word = value; }

inline void* ThreadStorage() { return OwnThreadArea()->storage; }

}  // namespace kiv::os

#endif
