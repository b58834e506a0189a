// The allocators that the memory manager is compared with. An object belongs to one thread. It has
// Allocate and usually Free and Resize, and DropAll if it can free all its blocks at once.
//
// peer_allocators.h has the other allocators of the platform.
#ifndef KIV_BENCH_ALLOCATORS_H
#define KIV_BENCH_ALLOCATORS_H

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <thread>

namespace kiv::bench {

struct Runtime {
  static constexpr char kName[] = "runtime";

  void* Allocate(uint32_t sizeBytes) { return std::malloc(sizeBytes); }
  void* Resize(void* block, uint32_t sizeBytes) { return std::realloc(block, sizeBytes); }
  void Free(void* block) { std::free(block); }
};

// The cost of a lock and little else: lists of free blocks by powers of two. Each operation takes
// and releases a lock by atomic exchanges: a pair of Allocate and Free has four.
class LockedList {
 public:
  static constexpr char kName[] = "list behind four exchanges";

  void* Allocate(uint32_t sizeBytes) {
    const auto list = static_cast<uint32_t>(std::bit_width(sizeBytes - 1));
    Node* node = Pop(list);
    if (node == nullptr) node = static_cast<Node*>(std::malloc(sizeof(Node) + (1ULL << list)));
    node->list = list;
    return node + 1;
  }

  void Free(void* block) {
    Node* node = static_cast<Node*>(block) - 1;
    Lock();
    node->next = shared.lists[node->list];
    shared.lists[node->list] = node;
    Unlock();
  }

 private:
  struct Node {
    Node* next;
    uint64_t list;
  };
  struct alignas(64) Shared {
    std::atomic<uint32_t> locked;
    std::array<Node*, 32> lists;
  };
  inline static Shared shared;

  static void Lock() {
    while (shared.locked.exchange(1) != 0) std::this_thread::yield();
  }
  static void Unlock() { shared.locked.exchange(0); }

  static Node* Pop(uint32_t list) {
    Lock();
    Node* node = shared.lists[list];
    if (node != nullptr) shared.lists[list] = node->next;
    Unlock();
    return node;
  }
};

}  // namespace kiv::bench

#endif
