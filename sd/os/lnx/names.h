// Named objects: semaphores, mutexes and blocks that the processes of a user share by name. All
// kinds have one set of names.
//
// An object is a file in the user's private folder (name_folder.h). A process holds an object by a
// shared lock: on the byte of the file "holders" whose offset is the inode number of the object's
// file. The kernel takes the locks of a killed process back. An object that nobody holds does not
// exist: its file is removed or made anew by whoever finds it. Therefore an object ends with its last
// handle, however its processes end.
//
// Making, opening and closing take an exclusive lock on one byte of "holders" for all their steps.
// A process that is killed between two steps leaves at most a file that nobody holds.
// tests/model/named_objects.pml describes the steps for a model checker; change both together.
//
// A process has one NamedObject for an object, however many handles. Another process of the user can
// write an object's file: nothing that this process reads from it is used as a size or an address.
//
// Thread safety: all functions may run on any thread. The process's own mutex is taken before the
// lock on "holders".
#ifndef KIV_OS_LNX_NAMES_H
#define KIV_OS_LNX_NAMES_H

#include "os/lnx/mutex.h"
#include "os/lnx/object_word.h"
#include "os/os.h"

namespace kiv::os {

enum class NamedKind : uint32_t { kSemaphore = 1, kMutex = 2, kBlock = 3 };

// What a new object is. An object that exists keeps its own.
struct NamedShape {
  NamedKind kind;
  int32_t initialCount;  // of a semaphore
  int32_t maximumCount;
  uint32_t blockBytes;
  uint32_t protection;  // of a block's pages
};

struct NamedObject {
  NamedKind kind;
  int32_t maximumCount;   // of a semaphore
  ObjectWord* semaphore;  // in shared memory
  OwnedMutex mutex;
  int file;             // of a block
  uint64_t blockBytes;  // a multiple of the page size
  uint32_t protection;
};

// A block begins in its file behind the header.
constexpr uint32_t kBlockOffset = 4096;

// Failures: ENAMETOOLONG; EEXIST if the name belongs to an object of another kind; ENOENT if there
// is no object to open. Each success is paid back by ReleaseNamed.
ValueResult<NamedObject*> MakeNamed(const char* name, const NamedShape& shape);
ValueResult<NamedObject*> OpenNamed(const char* name, NamedKind kind);
void ReleaseNamed(NamedObject* object);

}  // namespace kiv::os

#endif
