// The named objects of the library that are alive, as far as the platform tells.
#ifndef KIVSD_LS_LISTING_H
#define KIVSD_LS_LISTING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kivsd {

// A process that has an object open.
struct Owner {
  uint32_t processId;
  std::string program;
};

enum class ObjectKind { kSemaphore, kMutex, kBlock, kSegment, kPipe, kUnknown };

struct ListedObject {
  ObjectKind kind;
  std::string name;
  uint64_t sizeBytes = 0;             // of a block or a segment
  std::optional<int64_t> count = {};  // of a semaphore: how often it can be taken now
  std::vector<Owner> owners = {};     // in ascending order of the processes
};

struct Listing {
  std::vector<ListedObject> objects;
  std::string note;  // what the platform does not tell; may be empty
};

// Lists the objects, sorted by name. Implemented for each platform.
Listing ListObjects();

// Joins the blocks and the semaphores that belong to a segment.
void JoinSegments(std::vector<ListedObject>* objects);

}  // namespace kivsd

#endif
