// The reader-writer lock: the queues and the order of entry.
//
//   count and flags, 64 bits:  | active readers ... | R | A | I |
//                                units of 8           4   2   1
//
//   I  a writer is interested: there is a writer at the head of the queue, waiting or inside
//   A  a writer is active: it is inside, or enters next; the last leaving reader wakes it
//   R  readers are interested: a batch of them is forming
//
// Writers queue through `writerTail`; each links to the next. Readers that wait together form a
// batch; each links to the reader before it. The batch enters from the newest to the oldest: each
// reader counts itself before it wakes the reader before it.
//
// A reader that finds no flag set enters at once, by one compare-and-swap. The lock is then as if the
// reader had joined the queue, formed a batch alone, and entered, with nothing in between.
//
// I1  A writer is inside only when A is set and no reader is counted.
// I2  A reader is counted before it is inside, and before it wakes the next reader of its batch.
// I3  A node is woken once for each time it blocks.
//
// Memory orders: the queue tails and the word change by sequentially consistent operations, one
// locked instruction each. Every handover goes through one of them.
// tests/model/rwlock.pml describes this algorithm for a model checker, which tries every order of
// steps; change both together.
#include "kivsdu/rwlock.h"

#include "atomic.h"
#include "compiler.h"
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
constexpr uint64_t kFlags = RW_WRITER_INTERESTED | RW_WRITER_ACTIVE | RW_READER_INTERESTED;

// ---- The word. Additions change its low 32 bits, ORs and clears all 64 ----

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

// Counts a reader if no flag is set.
bool CountReaderAlone(KivRWLock* lock) {
  constexpr uint64_t kLowHalf = UINT32_MAX;
  AtomicRef<uint64_t> word(lock->countAndFlags);
  uint64_t seen = word.load(std::memory_order_relaxed);
  while ((seen & kFlags) == 0) {
    const uint64_t next = (seen & ~kLowHalf) | ((seen + RW_READER_UNIT) & kLowHalf);
    if (word.compare_exchange_weak(seen, next)) return true;
  }
  return false;
}

// Marks the writer at the head interested, and active too unless a batch of readers is forming.
// Returns the word before.
uint64_t AnnounceWriter(KivRWLock* lock) {
  AtomicRef<uint64_t> word(lock->countAndFlags);
  uint64_t seen = word.load(std::memory_order_relaxed);
  uint64_t next;
  do {
    const bool batchForms = (seen & RW_READER_INTERESTED) != 0;
    next = seen | RW_WRITER_INTERESTED | (batchForms ? 0 : RW_WRITER_ACTIVE);
  } while (!word.compare_exchange_weak(seen, next));
  return seen;
}

Node* Exchange(Node** place, Node* node) { return AtomicRef<Node*>(*place).exchange(node); }

// ---- Gates ----

// Run for the writer that has become the head of the queue. Wakes it, or leaves that to the readers
// that are inside or waiting. `own` is the caller's own node, or null.
void WriterGate(KivRWLock* lock, Node* writer, const Node* own) {
  // relaxed: read only by a reader that has seen the flags, which are set next.
  AtomicRef<Node*>(lock->writerHead).store(writer, std::memory_order_relaxed);
  const uint64_t before = AnnounceWriter(lock);
  // A forming batch enters first; its gate makes the writer active.
  if ((before & RW_READER_INTERESTED) != 0) return;
  // If readers are counted, the last one to leave wakes the writer.
  if (before < RW_READER_UNIT) Wake(writer, own);
}

// Admits the batch of waiting readers and counts the first to enter. Returns the batch's newest
// node, which the caller must wake.
Node* ReaderGate(KivRWLock* lock) {
  const uint32_t before = AddToLow(lock, RW_READER_UNIT - RW_READER_INTERESTED);
  // A writer is interested without being active only if it came while this batch was forming.
  const uint32_t writer = before & (RW_WRITER_INTERESTED | RW_WRITER_ACTIVE);
  if (writer == RW_WRITER_INTERESTED) SetFlags(lock, RW_WRITER_ACTIVE);
  return Exchange(&lock->readerTail, nullptr);
}

// ---- Entering ----

// Contended paths are out of line so that the uncontended paths save no registers.

void OwnAsWriter(Node* node) {
  node->mode = KIV_RWLOCK_WRITE;
  node->depth = 1;
}

KIV_NOINLINE void AwaitTurn(Node* node) {
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
    // release: pairs with the acquire in Successor, with which the previous writer finds this node.
    previous->queueLink.store(node, std::memory_order_release);
  }
  if (IsBlocked(*node)) return AwaitTurn(node);
  OwnAsWriter(node);
}

KIV_NOINLINE void AwaitAdmission(Node* node) {
  WaitAsReader(node);
  node->mode = KIV_RWLOCK_READ;
}

// For a reader that found another reader in the queue: counts itself and wakes that reader.
KIV_NOINLINE void EnterAsFollower(KivRWLock* lock, Node* node, Node* previous) {
  WaitAsReader(node);
  AddToLow(lock, RW_READER_UNIT);
  Wake(previous, nullptr);
  node->mode = KIV_RWLOCK_READ;
}

// For the first reader of a batch that others have joined.
KIV_NOINLINE void EnterAsOldest(Node* node, Node* newest) {
  Wake(newest, nullptr);
  AwaitAdmission(node);
}

KIV_NOINLINE void EnterWithBatch(KivRWLock* lock, Node* node) {
  node->blocked.store(1, std::memory_order_relaxed);
  // relaxed: in a reader's node only its own thread uses the link.
  Node* previous = Exchange(&lock->readerTail, node);
  node->queueLink.store(previous, std::memory_order_relaxed);
  if (previous != nullptr) return EnterAsFollower(lock, node, previous);

  // The first reader of a batch. The gate counts it, whichever thread runs the gate.
  const uint64_t before = SetFlags(lock, RW_READER_INTERESTED);
  if ((before & (RW_WRITER_INTERESTED | RW_WRITER_ACTIVE)) != 0) return AwaitAdmission(node);
  Node* newest = ReaderGate(lock);
  if (newest != node) return EnterAsOldest(node, newest);
  // Alone in its batch.
  Unblock(node);
  node->mode = KIV_RWLOCK_READ;
}

void EnterAsReader(KivRWLock* lock, Node* node) {
  node->depth = 1;
  if (!CountReaderAlone(lock)) return EnterWithBatch(lock, node);
  node->mode = KIV_RWLOCK_READ;
}

// ---- Leaving ----

// Returns whether this was the last reader before a writer, which the caller must wake.
bool LeaveAsReader(KivRWLock* lock) {
  const uint32_t before = AddToLow(lock, uint64_t{0} - RW_READER_UNIT);
  constexpr uint32_t kLastBeforeWriter = RW_READER_UNIT + RW_WRITER_ACTIVE + RW_WRITER_INTERESTED;
  return (before & ~uint32_t{RW_READER_INTERESTED}) == kLastBeforeWriter;
}

Node* Successor(const Node* node) { return node->queueLink.load(std::memory_order_acquire); }

// Waits for the link to the writer behind a node that is not the tail any more. That writer has
// exchanged the tail and links itself next, but the system may have suspended it in between.
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
    // Handover from writer to writer; the flags stay.
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

KIV_NOINLINE uint32_t WakeWriterAndRetire(void* owner, KivRWLockTable* table, NodeList* link,
                                          int32_t slot) {
  Wake(AtomicRef<Node*>((*link)->lock->writerHead).load(), nullptr);
  return RetireNode(owner, table, link, slot);
}

// Out of line so that a reader that leaves saves no registers.
KIV_NOINLINE uint32_t EndWrite(void* owner, KivRWLockTable* table, KivRWLock* lock,
                               NodeList* link) {
  const int32_t slot = lock->slot;  // before the next writer, which may end the lock
  LeaveAsWriter(lock, *link);
  return RetireNode(owner, table, link, slot);
}

// For a thread that uses this lock for the first time: makes its node and starts over.
KIV_NOINLINE uint32_t StartWithNewNode(decltype(KivSdStartRead)* start, void* owner,
                                       KivRWLockTable* table, KivRWLock* lock) {
  const uint32_t status = AddNode(owner, table, lock);
  return status == KIV_ST_OK ? start(owner, table, lock) : status;
}

}  // namespace

uint32_t KivRWLockInit(void* /*ignored*/, int32_t callerValue, KivRWLock* lock,
                       uint8_t blockingAllowed, int32_t slot) {
  KivSyncEnvInit();
  *lock = KivRWLock{};
  lock->readerSpinLoops = readerLimits.spinLoops.load(std::memory_order_relaxed);
  lock->writerSpinLoops = writerLimits.spinLoops.load(std::memory_order_relaxed);
  lock->readerSpinYields = readerLimits.spinYields.load(std::memory_order_relaxed);
  lock->writerSpinYields = writerLimits.spinYields.load(std::memory_order_relaxed);
  lock->readerWaitLoops = readerLimits.waitLoops.load(std::memory_order_relaxed);
  lock->writerWaitLoops = writerLimits.waitLoops.load(std::memory_order_relaxed);
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
  // Not upgraded: a reader that waited for all readers to leave would wait for itself.
  if (node->mode != KIV_RWLOCK_WRITE) return KIV_ST_MUTEX_REQUEST;
  ++node->depth;
  return KIV_ST_OK;
}

uint32_t KivSdEndRW(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  // The slot is read while the lock is held: the next writer may end the lock as soon as it is woken.
  const int32_t slot = lock->slot;
  NodeList* link = FindLink(table->active, lock, slot);
  if (link == nullptr || *link == nullptr) return KIV_ST_MUTEX_CLEAR;
  Node* node = *link;
  if (node->depth < 1) return KIV_ST_MUTEX_CLEAR;
  if (--node->depth > 0) return KIV_ST_OK;
  if (node->mode == KIV_RWLOCK_WRITE) return EndWrite(owner, table, lock, link);
  if (LeaveAsReader(lock)) return WakeWriterAndRetire(owner, table, link, slot);
  return RetireNode(owner, table, link, slot);
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
