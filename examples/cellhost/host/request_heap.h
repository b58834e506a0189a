// The memory of one request: an owner of the library's short heaps. The end of the request frees
// all of them at once.
//
// If the library has no short heap for the request (plain mode, "shortmemoryoff", or no memory),
// each piece is a block of the memory manager. A ring links the blocks, and the end frees them:
//
//   | previous | next | piece ...
//
// One thread at a time; not locked.
#ifndef CELLHOST_HOST_REQUEST_HEAP_H
#define CELLHOST_HOST_REQUEST_HEAP_H

#include <stdint.h>

#include "kivsdu/shortheap.h"

namespace cellhost {

// Must not be moved between the first piece and End.
class RequestHeap {
 public:
  // Begins a request; does nothing if a request has begun. Take calls it.
  void Begin();

  // Allocates a piece, aligned for any number or pointer.
  //
  //   sizeBytes  at least 1, below 2 GiB
  //   piece      receives the piece; null on failure
  //
  // Returns 0 or the library's status.
  uint32_t Take(uint32_t sizeBytes, void** piece);

  // Frees a single piece before the request ends.
  void GiveBack(void* piece);

  // Ends the request and frees all its pieces.
  void End();

  // Whether the pieces come from short heaps. Call it between Begin and End.
  bool hasShortHeap() const;

 private:
  struct Block {
    Block* previous;
    Block* next;
  };
  static_assert(sizeof(Block) % 16 == 0, "a piece has its block's alignment");

  uint32_t TakeBlock(uint32_t sizeBytes, void** piece);

  AdShortHeapOwner owner_ = {};
  Block* blocks_ = nullptr;  // newest block of the ring; null if the request has short heaps
  bool begun_ = false;
};

}  // namespace cellhost

#endif
