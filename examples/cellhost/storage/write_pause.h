// The pause of the process's file writes, and the leases of its threads. Every write to the journal
// needs a lease; during a pause the files therefore do not change.
#ifndef CELLHOST_STORAGE_WRITE_PAUSE_H
#define CELLHOST_STORAGE_WRITE_PAUSE_H

#include <stdint.h>

#include "kivsdu/writepause.h"

namespace cellhost {

class WritePause {
 public:
  WritePause() = default;
  WritePause(const WritePause&) = delete;
  WritePause& operator=(const WritePause&) = delete;
  ~WritePause();  // no thread may use it any more

  // Call this first. Returns false on failure, after reporting it.
  bool Create();

  // Whether a pause is in force. Any thread.
  bool IsInForce();

  // Whether the maximum of the last pause has passed. The pause may be lifted or still in force.
  // Only for the one thread that may begin a pause.
  bool HasExpired() const;

  KivSdWritePause* block() { return &block_; }

 private:
  KivSdWritePause block_ = {};
};

// A lease context of the calling thread, for one scope. The thread must have a record.
class WriteLease {
 public:
  explicit WriteLease(WritePause* pause);
  WriteLease(const WriteLease&) = delete;
  WriteLease& operator=(const WriteLease&) = delete;
  ~WriteLease();  // releases the lease, if it was taken

  // Takes the lease, once. Waits during a pause; lifts a pause whose maximum has passed. Returns
  // false on failure, after reporting it.
  bool Take();

  KivSdWriteLease* context() { return &lease_; }

 private:
  KivSdWriteLease lease_ = {};
};

}  // namespace cellhost

#endif
