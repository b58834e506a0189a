// The data of each thread: its context, in which the library stores the status of the thread's last
// operation; the heap of its current request; and its table for reader-writer locks. The library's
// per-thread slot holds the record, which therefore need not be passed as an argument.
#ifndef CELLHOST_HOST_THREAD_RECORD_H
#define CELLHOST_HOST_THREAD_RECORD_H

#include <stdint.h>

#include "host/request_heap.h"
#include "kivsdu/context.h"
#include "kivsdu/rwlock.h"

namespace cellhost {

struct ThreadRecord {
  KivSdContext* ctx;
  RequestHeap request;   // emptied when a request ends
  KivRWLockTable locks;  // the thread's part of every reader-writer lock; used by the thread alone
};

// Makes the calling thread's record; LeaveThread on the same thread frees it. Call them between
// StartHost and StopHost. LeaveThread requires that the thread holds no lock. EnterThread returns
// false on failure, after reporting it.
bool EnterThread();
void LeaveThread();

// The calling thread's record; null before EnterThread and after LeaveThread.
ThreadRecord* ThisThread();

// The calling thread's context. Null without a record: the library accepts a null context.
KivSdContext* ThisContext();

}  // namespace cellhost

#endif
