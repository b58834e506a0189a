// The memory of one request: an owner of short heaps of the library, all of which go back at once
// when the request ends.
//
// Where the library gives no short heap (in plain mode, with "shortmemoryoff", or when memory is
// short) the pieces are blocks of its memory manager, kept in a ring so that they go at once too:
//
//   | previous | next | piece ...
//
// Not locked: one thread's at a time.
#ifndef CELLHOST_HOST_REQUEST_HEAP_H
#define CELLHOST_HOST_REQUEST_HEAP_H

#include <stdint.h>

#include "kivsdu/shortheap.h"

namespace cellhost {

// Must not be moved between the first piece and End.
class RequestHeap {
 public:
  // Begins a request; nothing if one has begun. Take does it by itself.
  void Begin();

  // A piece aligned for any number or pointer.
  //
  //   sizeBytes  at least 1, below 2 GiB
  //   piece      receives it; null on failure
  //
  // 0, or the library's status.
  uint32_t Take(uint32_t sizeBytes, void** piece);

  // Gives a single piece back before the request ends.
  void GiveBack(void* piece);

  // Ends the request: all its pieces go.
  void End();

  // Whether the pieces come from short heaps; between Begin and End.
  bool hasShortHeap() const;

 private:
  struct Block {
    Block* previous;
    Block* next;
  };
  static_assert(sizeof(Block) % 16 == 0, "a piece is aligned as its block is");

  uint32_t TakeBlock(uint32_t sizeBytes, void** piece);

  AdShortHeapOwner owner_ = {};
  Block* blocks_ = nullptr;  // the newest in a ring; null in a request with short heaps
  bool begun_ = false;
};

}  // namespace cellhost

#endif
