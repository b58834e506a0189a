// Per-thread tables of nodes. Only the table's own thread calls these functions, so no lock is
// needed.
#include "sdrwlock/node.h"

#include <cstring>
#include <new>

#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "os/critical_section.h"
#include "os/park.h"

namespace kiv {
namespace {

constexpr char kSource[] = "sd/sdrwlock";
constexpr uint32_t kLineNodeAlloc = 341;
constexpr uint32_t kLineActiveAlloc = 389;
constexpr uint32_t kLineFreeAlloc = 460;
constexpr uint32_t kLineNodeFree = 717;
constexpr uint32_t kLineActiveFree = 749;
constexpr uint32_t kLineFreeFree = 774;

constexpr size_t kListsBytes = KIV_RWLOCK_SLOTS * sizeof(void*);

uint32_t EnsureLists(void* owner, NodeList** lists, uint32_t line) {
  if (*lists != nullptr) return KIV_ST_OK;
  void* memory = nullptr;
  const uint32_t status = adMalloc(owner, kListsBytes, &memory, kSource, line);
  if (status != KIV_ST_OK) return status;
  std::memset(memory, 0, kListsBytes);
  *lists = static_cast<NodeList*>(memory);
  return KIV_ST_OK;
}

// Failures to make a kernel object are not reported: every wait on that object then fails at once,
// so the thread polls `blocked` instead of sleeping.
void MakeCondition(KivRWLockNode* node) {
  node->wakeMutex = os::MakeParkMutex().value;
  node->condition.semaphore = os::MakeParkSemaphore().value;
  os::PrepareCriticalSection(node->condition.section.opaque);
  node->condition.event = os::MakeParkEvent().value;
}

uint32_t MakeNode(void* owner, KivRWLock* lock, KivRWLockNode** made) {
  void* memory = nullptr;
  const uint32_t status = adMalloc(owner, sizeof(KivRWLockNode), &memory, kSource, kLineNodeAlloc);
  if (status != KIV_ST_OK) return status;
  auto* node = new (memory) KivRWLockNode{};
  node->readerWaitLoops = lock->readerWaitLoops;
  node->writerWaitLoops = lock->writerWaitLoops;
  node->readerSpinYields = lock->readerSpinYields;
  node->writerSpinYields = lock->writerSpinYields;
  node->readerSpinLoops = lock->readerSpinLoops;
  node->writerSpinLoops = lock->writerSpinLoops;
  MakeCondition(node);
  node->lock = lock;
  *made = node;
  return KIV_ST_OK;
}

void DestroyNode(KivRWLockNode* node) {
  // Wait until the last waker has released the wake mutex: a spinning thread continues as soon as
  // it is unblocked, while its waker still holds the mutex.
  static_cast<void>(os::TakeParkMutex(node->wakeMutex));
  static_cast<void>(os::ReleaseParkMutex(node->wakeMutex));
  static_cast<void>(os::CloseParkMutex(node->wakeMutex));
  os::EndCriticalSection(node->condition.section.opaque);
  static_cast<void>(os::CloseParkEvent(node->condition.event));
  static_cast<void>(os::CloseParkSemaphore(node->condition.semaphore));
  static_cast<void>(adFree(node, kSource, kLineNodeFree));
}

// Makes a node, then the active lists if there are none yet.
uint32_t MakeNodeAndLists(void* owner, KivRWLockTable* table, KivRWLock* lock,
                          KivRWLockNode** node) {
  uint32_t status = MakeNode(owner, lock, node);
  if (status != KIV_ST_OK) return status;
  status = EnsureLists(owner, &table->active, kLineActiveAlloc);
  if (status != KIV_ST_OK) DestroyNode(*node);
  return status;
}

void FreeLists(NodeList** lists, uint32_t line) {
  if (*lists == nullptr) return;
  for (uint32_t slot = 0; slot < KIV_RWLOCK_SLOTS; ++slot) {
    while ((*lists)[slot] != nullptr) DestroyNode(Unlink(&(*lists)[slot]));
  }
  static_cast<void>(adFree(*lists, kSource, line));
  *lists = nullptr;
}

}  // namespace

uint32_t AddNode(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  KivRWLockNode* node = nullptr;
  const uint32_t status = MakeNodeAndLists(owner, table, lock, &node);
  if (status == KIV_ST_OK) Push(&table->active[lock->slot], node);
  return status;
}

uint32_t RetireToNewLists(void* owner, KivRWLockTable* table, NodeList* link, int32_t slot) {
  const uint32_t status = EnsureLists(owner, &table->free, kLineFreeAlloc);
  if (status == KIV_ST_OK) Push(&table->free[slot], Unlink(link));
  return status;
}

void FreeTable(KivRWLockTable* table) {
  FreeLists(&table->active, kLineActiveFree);
  FreeLists(&table->free, kLineFreeFree);
}

}  // namespace kiv
