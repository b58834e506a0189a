// The server's segment; see segment_server.h.
#include "server/segment_server.h"

#include <stdio.h>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/sharedmem.h"
#include "kivsdu/thread.h"
#include "kivsdu/time.h"

namespace cellhost {
namespace {

constexpr uint32_t kWritesFirstHalves = 1;
constexpr uint8_t kMakeIt = 1;
constexpr uint32_t kMadeAndWritten = KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE;

// The owner of the segment.
struct Owner {
  uint32_t process;
  uint32_t microseconds;  // fast timer: tells apart several servers in one process
};

bool ThisOwner(Owner* owner) {
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdProcessIdGet(ctx, &owner->process), "read the process's identifier") &&
         Succeeded(nullptr, KivSdGetFastTimer(nullptr, &owner->microseconds),
                   "read the fast timer");
}

}  // namespace

SegmentServer::~SegmentServer() {
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivDeleteSharedMemSeg(ctx, list_), "close the segment");
}

bool SegmentServer::Create() {
  KivSdContext* ctx = ThisContext();
  Owner owner = {};
  if (!ThisOwner(&owner)) return false;
  char name[KIV_SEGMENT_NAME_BYTES];
  snprintf(name, sizeof name, "cellhost-%u-%u", owner.process, owner.microseconds);
  const uint32_t found =
      KivFindShareMemSeg(ctx, name, kWritesFirstHalves, &list_, kMakeIt, owner.process,
                         owner.microseconds, nullptr, nullptr, &segment_);
  uint32_t mappingId = 0;
  void* view = nullptr;
  return Succeeded(ctx, found, "make a segment's descriptor") &&
         Succeeded(ctx,
                   KivCreateSharedMemSeg(ctx, name, kWritesFirstHalves, kMadeAndWritten,
                                         KIV_SHAREDMEM_PAGES_READ_WRITE, segment_,
                                         kSegmentTimeoutMs, &mappingId, &view),
                   "make the segment") &&
         Succeeded(ctx, KivSetSharedMemSegBuffer(ctx, segment_, view), "use the segment");
}

bool SegmentServer::TakeChunk(int32_t* chunk) {
  return Succeeded(nullptr, KivGetSharedMemChunk(nullptr, segment_, chunk), "take a chunk");
}

void SegmentServer::GiveBackChunk(int32_t chunk) {
  Succeeded(nullptr, KivPutSharedMemChunk(nullptr, segment_, chunk), "return a chunk");
}

}  // namespace cellhost
