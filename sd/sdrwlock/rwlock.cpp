// The reader-writer lock: who may enter.
//
//   count and flags, 64 bits:  | active readers ... | R | A | I |
//                                units of 8           4   2   1
//
//   I  a writer is interested: one is at the head of the writers, waiting or working
//   A  a writer is active: it is next, or works; readers that drain wake it
//   R  readers are interested: a batch of them forms behind a writer
//
// Writers queue through `writerTail`, each with a link to the next. Readers that come together
// are a batch: each links to the one before it, and the batch is let in from the newest to the
// oldest, every reader counting itself before it wakes the one before.
//
// I1  A writer works only when A is set and no reader is counted.
// I2  A reader is counted before it works, and before its batch's next one is woken.
// I3  A node is woken once for each time it blocks.
//
// Orders: the queue tails, the head and the word change by sequentially consistent operations,
// which is one locked instruction each; argued together, for every handing over runs through
// one of them. tests/model/rwlock.pml is the same algorithm for a model checker, which tries every
// order of steps; the two change together.
#include "kivsdu/rwlock.h"

#include "atomic.h"
#include "kivsdu/status.h"
#include "kivsdu/sync.h"
#include "sdrwlock/node.h"
#include "sdrwlock/wait.h"
#include "sdsync/spin.h"
#include "sdsync/tuning.h"

using namespace kiv;

namespace {

using Node = KivRWLockNode;

constexpr uint64_t RW_WRITER_INTERESTED = 1;
constexpr uint64_t RW_WRITER_ACTIVE = 2;
constexpr uint64_t RW_READER_INTERESTED = 4;
constexpr uint64_t RW_READER_UNIT = 8;

// ---- The word. Additions act on its low 32 bits, ORs and clears on the whole of it ----

uint32_t AddToLow(KivRWLock* lock, uint64_t addend) {
  auto* low = reinterpret_cast<uint32_t*>(&lock->countAndFlags);  // little-endian
  return AtomicRef<uint32_t>(*low).fetch_add(static_cast<uint32_t>(addend));
}

uint64_t SetFlags(KivRWLock* lock, uint64_t flags) {
  return AtomicRef<uint64_t>(lock->countAndFlags).fetch_or(flags);
}

uint64_t ClearFlags(KivRWLock* lock, uint64_t flags) {
  return AtomicRef<uint64_t>(lock->countAndFlags).fetch_and(~flags);
}

Node* Exchange(Node** place, Node* node) { return AtomicRef<Node*>(*place).exchange(node); }

// ---- Gates ----

// For the writer at the head of the queue: lets it in, or leaves it to the readers that are
// there. `own` is the caller's own node, or null.
void WriterGate(KivRWLock* lock, Node* writer, const Node* own) {
  Exchange(&lock->writerHead, writer);
  // A batch that is forming goes first; its gate makes the writer active.
  if ((SetFlags(lock, RW_WRITER_INTERESTED) & RW_READER_INTERESTED) != 0) return;
  // With readers active the last of them wakes the writer.
  if (SetFlags(lock, RW_WRITER_ACTIVE) < RW_READER_UNIT) Wake(writer, own);
}

// Admits the batch of waiting readers and counts its first. The newest of them, which the caller
// is to let in.
Node* ReaderGate(KivRWLock* lock) {
  const uint32_t before = AddToLow(lock, RW_READER_UNIT - RW_READER_INTERESTED);
  // The flags as the addition found them. Read afresh they may be those of a writer that has
  // come since, and a last reader that was delayed would wake its node a second time after it
  // has queued again: two would be in the lock.
  const uint32_t writer = before & (RW_WRITER_INTERESTED | RW_WRITER_ACTIVE);
  if (writer == RW_WRITER_INTERESTED) SetFlags(lock, RW_WRITER_ACTIVE);
  return Exchange(&lock->readerTail, nullptr);
}

// ---- Entering ----

// The ways of a thread that has to wait lie apart from the one of a thread that need not, which
// so has nothing to save across calls.

void OwnAsWriter(Node* node) {
  node->mode = KIV_RWLOCK_WRITE;
  node->depth = 1;
}

[[gnu::noinline]] void AwaitTurn(Node* node) {
  WaitAsWriter(node);
  OwnAsWriter(node);
}

void EnterAsWriter(KivRWLock* lock, Node* node) {
  // relaxed: the exchange of the tail, a full fence, publishes both.
  node->blocked.store(1, std::memory_order_relaxed);
  node->queueLink.store(nullptr, std::memory_order_relaxed);
  Node* previous = Exchange(&lock->writerTail, node);
  if (previous == nullptr) {
    WriterGate(lock, node, node);
  } else {
    // release: pairs with the acquire of the writer before, which wakes the node it reads.
    previous->queueLink.store(node, std::memory_order_release);
  }
  if (IsBlocked(*node)) return AwaitTurn(node);
  OwnAsWriter(node);
}

[[gnu::noinline]] void AwaitAdmission(Node* node) {
  WaitAsReader(node);
  node->mode = KIV_RWLOCK_READ;
}

// A reader that found one before it: counts itself and lets that one in.
[[gnu::noinline]] void EnterAsFollower(KivRWLock* lock, Node* node, Node* previous) {
  WaitAsReader(node);
  AddToLow(lock, RW_READER_UNIT);
  Wake(previous, nullptr);
  node->mode = KIV_RWLOCK_READ;
}

// The first of a batch that others joined.
[[gnu::noinline]] void EnterAsOldest(Node* node, Node* newest) {
  Wake(newest, nullptr);
  AwaitAdmission(node);
}

void EnterAsReader(KivRWLock* lock, Node* node) {
  node->depth = 1;
  node->blocked.store(1, std::memory_order_relaxed);
  // The link needs no publishing: only its own thread reads it, to let in the one before.
  Node* previous = Exchange(&lock->readerTail, node);
  node->queueLink.store(previous, std::memory_order_relaxed);
  if (previous != nullptr) return EnterAsFollower(lock, node, previous);

  // The first reader of a batch. The gate counts it, whoever runs the gate.
  const uint64_t before = SetFlags(lock, RW_READER_INTERESTED);
  if ((before & (RW_WRITER_INTERESTED | RW_WRITER_ACTIVE)) != 0) return AwaitAdmission(node);
  Node* newest = ReaderGate(lock);
  if (newest != node) return EnterAsOldest(node, newest);
  // Alone in its batch: lets itself in.
  Unblock(node);
  node->mode = KIV_RWLOCK_READ;
}

// ---- Leaving ----

// Whether it was the last before a writer, which the caller is to let in.
bool LeaveAsReader(KivRWLock* lock) {
  const uint32_t before = AddToLow(lock, uint64_t{0} - RW_READER_UNIT);
  constexpr uint32_t kLastBeforeWriter = RW_READER_UNIT + RW_WRITER_ACTIVE + RW_WRITER_INTERESTED;
  return (before & ~uint32_t{RW_READER_INTERESTED}) == kLastBeforeWriter;
}

Node* Successor(const Node* node) { return node->queueLink.load(std::memory_order_acquire); }

// The writer behind a node that is no longer the tail: it has swung the tail and is about to
// link itself, unless its processor was taken from it just then.
Node* AwaitSuccessor(const KivRWLock& lock, const Node* node) {
  const auto isLinked = [node] { return Successor(node) != nullptr; };
  if (lock.blockingAllowed != 0) {
    SpinAndYieldUntil(isLinked);
  } else {
    SpinUntil(isLinked);
  }
  return Successor(node);
}

void LeaveAsWriter(KivRWLock* lock, Node* node) {
  Node* next = Successor(node);
  if (next != nullptr) {
    // From writer to writer; the flags stay.
    Wake(next, nullptr);
    return;
  }
  const uint64_t before = ClearFlags(lock, RW_WRITER_INTERESTED | RW_WRITER_ACTIVE);
  if ((before & RW_READER_INTERESTED) != 0) Wake(ReaderGate(lock), nullptr);
  Node* expected = node;
  const bool wasLast =
      AtomicRef<Node*>(lock->writerTail).compare_exchange_strong(expected, nullptr);
  if (!wasLast) WriterGate(lock, AwaitSuccessor(*lock, node), nullptr);
}

[[gnu::noinline]] uint32_t WakeWriterAndRetire(void* owner, KivRWLockTable* table, Node* node,
                                               int32_t slot) {
  Wake(AtomicRef<Node*>(node->lock->writerHead).load(), nullptr);
  return RetireNode(owner, table, node, slot);
}

// A thread's first meeting with a lock: makes the node, and starts over.
[[gnu::noinline]] uint32_t StartWithNewNode(decltype(KivSdStartRead)* start, void* owner,
                                            KivRWLockTable* table, KivRWLock* lock) {
  const uint32_t status = AddNode(owner, table, lock);
  return status == KIV_ST_OK ? start(owner, table, lock) : status;
}

}  // namespace

uint32_t KivRWLockInit(void* /*ignored*/, int32_t callerValue, KivRWLock* lock,
                       uint8_t blockingAllowed, int32_t slot) {
  KivSyncEnvInit();
  constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
  *lock = KivRWLock{};
  lock->readerSpinLoops = readerLimits.spinLoops.load(kRelaxed);
  lock->writerSpinLoops = writerLimits.spinLoops.load(kRelaxed);
  lock->readerSpinYields = readerLimits.spinYields.load(kRelaxed);
  lock->writerSpinYields = writerLimits.spinYields.load(kRelaxed);
  lock->readerWaitLoops = readerLimits.waitLoops.load(kRelaxed);
  lock->writerWaitLoops = writerLimits.waitLoops.load(kRelaxed);
  lock->callerValue = callerValue;
  lock->blockingAllowed = blockingAllowed;
  lock->slot = slot;
  return KIV_ST_OK;
}

uint32_t KivSdStartRead(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  Node* node = FindOrReuseNode(table, lock);
  if (node == nullptr) return StartWithNewNode(KivSdStartRead, owner, table, lock);
  if (node->depth != 0) {
    ++node->depth;
  } else {
    EnterAsReader(lock, node);
  }
  return KIV_ST_OK;
}

uint32_t KivSdStartWrite(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  Node* node = FindOrReuseNode(table, lock);
  if (node == nullptr) return StartWithNewNode(KivSdStartWrite, owner, table, lock);
  if (node->depth == 0) {
    EnterAsWriter(lock, node);
    return KIV_ST_OK;
  }
  // A reader that waited for the others to leave would wait for itself.
  if (node->mode != KIV_RWLOCK_WRITE) return KIV_ST_MUTEX_REQUEST;
  ++node->depth;
  return KIV_ST_OK;
}

uint32_t KivSdEndRW(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  Node* node = FindActiveNode(*table, lock);
  if (node == nullptr || node->depth < 1) return KIV_ST_MUTEX_CLEAR;
  if (--node->depth > 0) return KIV_ST_OK;
  // Read while the lock is held: a writer that is let in may end the lock at once.
  const int32_t slot = lock->slot;
  if (node->mode == KIV_RWLOCK_WRITE) {
    LeaveAsWriter(lock, node);
  } else if (LeaveAsReader(lock)) {
    return WakeWriterAndRetire(owner, table, node, slot);
  }
  return RetireNode(owner, table, node, slot);
}

int32_t KivSdOwnerRW(void* /*ignored*/, const KivRWLockTable* table, const KivRWLock* lock) {
  return KivSdModeRW(nullptr, table, lock) != KIV_RWLOCK_FREE ? 1 : 0;
}

uint32_t KivSdModeRW(void* /*ignored*/, const KivRWLockTable* table, const KivRWLock* lock) {
  const Node* node = FindActiveNode(*table, lock);
  return node == nullptr ? KIV_RWLOCK_FREE : node->mode;
}

uint32_t KivRWLockFreeQNodes(KivRWLockTable* table) {
  FreeTable(table);
  return KIV_ST_OK;
}
