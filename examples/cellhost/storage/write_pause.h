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

  // The process is about to end: writers that wait for the end of a pause go on. Any thread.
  void ShutDown();

  // Whether the last pause, if it is still in force, has lasted its maximum. For who alone may
  // begin one.
  bool HasExpired() const;

  KivSdWritePause* block() { return &block_; }

 private:
  KivSdWritePause block_ = {};
};

// The calling thread's lease context for its scope, during which it takes at most one lease at a
// time. On a thread with a record.
class WriteLease {
 public:
  explicit WriteLease(WritePause* pause);
  WriteLease(const WriteLease&) = delete;
  WriteLease& operator=(const WriteLease&) = delete;
  ~WriteLease();

  KivSdWriteLease* context() { return &lease_; }

 private:
  KivSdWriteLease lease_ = {};
};

}  // namespace cellhost

#endif
