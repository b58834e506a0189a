// List of the measuring threads; each entry is on its thread's stack. One simple lock is enough:
// KivGetSpinUpperLimit uses the list, and KivSyncEnvInit until it has read the environment.
#include "sdsync/calibrating_thread.h"

#include "atomic.h"
#include "os/thread.h"

namespace kiv {
namespace {

Atomic<bool> listIsHeld{false};
CalibratingThread* first = nullptr;  // guarded by listIsHeld

// Not one of the library's locks: creating the first of them calls this code.
class ListHold {
 public:
  ListHold() {
    // acquire: pairs with the previous holder's release.
    while (listIsHeld.exchange(true, std::memory_order_acquire)) os::YieldThread();
  }
  ~ListHold() { listIsHeld.store(false, std::memory_order_release); }
  ListHold(const ListHold&) = delete;
  ListHold& operator=(const ListHold&) = delete;
};

}  // namespace

CalibratingThread::CalibratingThread() : thread_(os::CurrentThreadId()) {
  const ListHold hold;
  next_ = first;
  first = this;
}

CalibratingThread::~CalibratingThread() {
  const ListHold hold;
  CalibratingThread** link = &first;
  while (*link != this) link = &(*link)->next_;
  *link = next_;
}

bool CalibratingThread::IsCurrent() {
  const ListHold hold;
  for (const CalibratingThread* entry = first; entry != nullptr; entry = entry->next_) {
    if (entry->thread_ == os::CurrentThreadId()) return true;
  }
  return false;
}

}  // namespace kiv
