// What each thread of the server has for itself: a context, in which the library leaves the
// outcome of the thread's last operation, a heap for the request that the thread carries out, and
// the table that reader-writer locks ask for. The record hangs in the library's per-thread
// slot, so that code deep down finds it without its being passed along.
#ifndef CELLHOST_HOST_THREAD_RECORD_H
#define CELLHOST_HOST_THREAD_RECORD_H

#include <stdint.h>

#include "host/request_heap.h"
#include "kivsdu/context.h"
#include "kivsdu/rwlock.h"

namespace cellhost {

struct ThreadRecord {
  KivSdContext* ctx;
  RequestHeap request;   // ended with each request
  KivRWLockTable locks;  // the thread's part of every reader-writer lock; for the thread alone
};

// Makes the calling thread's record. Between StartHost and StopHost, once for each thread that
// answers queries; LeaveThread on the same thread gives the record back, once the thread holds no
// lock.
bool EnterThread();
void LeaveThread();

// The calling thread's record; null outside EnterThread and LeaveThread.
ThreadRecord* ThisThread();

// The calling thread's context; null where it has no record, which the library allows.
KivSdContext* ThisContext();

}  // namespace cellhost

#endif
