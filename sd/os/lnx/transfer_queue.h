// Transfers in the background. The kernel runs them; the library has no thread of its own.
//
// The end of a transfer is collected by the threads that wait for one. The first of them leads: it
// sleeps in the kernel until transfers end, stores their outcomes and signals their events. The
// others sleep until it wakes them, because their event is signalled or because the lead is free.
// While an event has transfers in the background, a thread that waits for it calls AwaitTransfer.
//
// Lock order: the queue's lock is the last lock; no other is taken while it is held.
//
// Thread safety: all functions may run on any thread. A forked child starts with an empty queue of
// its own; it never sees the end of its parent's transfers.
#ifndef KIV_OS_LNX_TRANSFER_QUEUE_H
#define KIV_OS_LNX_TRANSFER_QUEUE_H

#include <cstdint>

#include "kivsdu/directio.h"
#include "os/lnx/futex.h"
#include "os/lnx/object_word.h"
#include "os/os.h"

namespace kiv::os {

struct Transfer {
  bool isRead;
  void* buffer;
  uint32_t sizeBytes;
  KivSdNoWaitCb* record;
};

// Resets the record's event, makes the record pending and starts the transfer. The result is never
// ok: the error is kErrorTransferPending if the transfer was started. Waits for the end of other
// transfers if the kernel can take no more.
Result StartTransfer(int descriptor, const Transfer& transfer);

// Stores the outcomes of the transfers that have ended. Does not wait, and does nothing while
// another thread leads.
void CollectEndedTransfers();

// Waits until the low half of the event's word no longer has the value seen, the lead is free, or
// the deadline has passed. May return early.
void AwaitTransfer(const ObjectWord* event, uint32_t seen, const Deadline& deadline);

// Wakes the threads that wait in AwaitTransfer for this event, after its word was changed.
void WakeAwaiting(const ObjectWord* event);

// How this process runs its transfers: "io_uring", "aio", or "none" if the kernel allows neither.
// Then every transfer has ended when it is started.
const char* AsyncBackend();

}  // namespace kiv::os

#endif
