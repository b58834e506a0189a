// What happens when the library enters and leaves a process.
#ifndef KIV_LIBRARY_H
#define KIV_LIBRARY_H

namespace kiv {

// Called by the platform's loader, under its lock: neither makes a lock, waits, or allocates.
void LibraryLoaded(void* module);
void LibraryUnloaded(void* module);

}  // namespace kiv

#endif
