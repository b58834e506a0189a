// An event in one word, in a slot of the handle table.
//
//   low half of the object's word:   bit 31      30 .. 22   21 .. 2   1        0
//                                    transfers   round      grants    manual   signalled
//
// Its users are the waiting threads. A signal passes to threads that already wait: an automatic
// event grants one of them, a manual event all of them, and a later UnsignalEvent does not take a
// grant back. An automatic event becomes signalled only if every waiter has a grant. No thread can
// therefore starve behind one that signals and waits in a loop. The round counts the signals that
// made grants: a waiter that came later than a grant sees by it that another was made.
//
// The transfers bit is set while transfers of files are in the background that will signal the
// event. A waiting thread then helps to collect their ends instead of only sleeping.
#ifndef KIV_OS_LNX_EVENT_H
#define KIV_OS_LNX_EVENT_H

#include "os/kernel_objects.h"
#include "os/lnx/object_word.h"

namespace kiv::os {

enum class EventKind { kAutomatic, kManual };

// In the slot of kind kEvent.
struct EventContent {
  ObjectWord word;
  // The transfers that will signal this event. The lock of the transfer queue guards it.
  std::atomic<uint32_t> pendingTransfers;
};

ValueResult<void*> MakeEvent(EventKind kind, bool signalled);
Wait WaitForEvent(Slot* slot, uint64_t identity, uint32_t timeoutMs);
Result SignalEventIn(Slot* slot, uint64_t identity);
Result UnsignalEventIn(Slot* slot, uint64_t identity);

// The transfer queue calls these, under its lock. A transfer begins unless the event is closed. Its
// end signals the event and returns the event's word, or null if the event was closed meanwhile.
bool BeginTransferOn(void* event);
const ObjectWord* EndTransferOn(void* event);
void CancelTransferOn(void* event);

}  // namespace kiv::os

#endif
