// The pause of the process's file writes, and a thread's part in it. Every write of the journal
// goes through a lease, so that during a pause the files stay as they are.
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
  ~WritePause();  // when no thread uses it any more

  // Before anything else. False on failure, which has then been told.
  bool Create();

  // Whether there is a pause. Any thread.
  bool IsInForce();

  // Whether the last pause, if it is still in force, has lasted its maximum. Only for the thread
  // that alone may begin one.
  bool HasExpired() const;

  KivSdWritePause* block() { return &block_; }

 private:
  KivSdWritePause block_ = {};
};

// The calling thread's lease context for its scope, and a lease if it takes one. On a thread with a
// record.
class WriteLease {
 public:
  explicit WriteLease(WritePause* pause);
  WriteLease(const WriteLease&) = delete;
  WriteLease& operator=(const WriteLease&) = delete;
  ~WriteLease();  // gives the lease back

  // Takes the lease, once; during a pause it waits until the pause is lifted, and lifts one that
  // has lasted its maximum. False on failure, which has then been told.
  bool Take();

  KivSdWriteLease* context() { return &lease_; }

 private:
  KivSdWriteLease lease_ = {};
};

}  // namespace cellhost

#endif
