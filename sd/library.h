// Work of the library when a process loads and unloads it.
#ifndef KIV_LIBRARY_H
#define KIV_LIBRARY_H

namespace kiv {

// The platform's loader calls both under its own lock: neither may create a lock, wait, or
// allocate.
void LibraryLoaded(void* module);
void LibraryUnloaded(void* module);

}  // namespace kiv

#endif
