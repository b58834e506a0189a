/* Channel: a request and its answer over a shared memory segment.
 *
 * Here the two ends are two threads. Two processes would do the same: each sets up its own end, and
 * both agree on the segment's name and the chunk. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivsdu/kivsdu.h"

enum { kClient = 0, kServer = 1 }; /* the kinds of the two ends */
enum { kOpen = KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE };
enum { kHandOver = 1, kSplit = 1, kString = 1, kDone = 1 };
enum { kTextBytes = KIV_SEGMENT_HALF_BYTES + 1, kTimeoutMs = 30000, kDoNotWait = 0 };

static const char kName[] = "kivsdu-example-channel";

static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "channel: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

static KivSharedMemSeg* Open(uint32_t kind, KivSharedMemSeg** list) {
  KivSharedMemSeg* segment;
  uint32_t mappingId;
  void* view;
  Check(KivFindShareMemSeg(KIV_NULL, kName, kind, list, 1, 0, 0, KIV_NULL, KIV_NULL, &segment),
        "make a descriptor");
  Check(KivCreateSharedMemSeg(KIV_NULL, kName, kind, kOpen, KIV_SHAREDMEM_PAGES_READ_WRITE, segment,
                              kTimeoutMs, &mappingId, &view),
        "set up the segment");
  Check(KivSetSharedMemSegBuffer(KIV_NULL, segment, view), "set the view");
  return segment;
}

static void Send(KivSharedMemSeg* segment, int32_t chunk, const char* text) {
  const uint32_t length = (uint32_t)strlen(text) + 1;
  Check(KivWriteSharedMemChunk(KIV_NULL, segment, chunk, length, kHandOver, kSplit, text), "write");
}

/* The peer might send no zero byte. The buffer is one byte longer than a half and ends with one. */
static void Receive(KivSharedMemSeg* segment, int32_t chunk, char text[kTextBytes]) {
  memset(text, 0, kTextBytes);
  Check(KivReadSharedMemChunk(KIV_NULL, segment, chunk, 0, kString, KIV_NULL, text), "read");
  const KivSharedMemTransfer* state = &segment->reading[chunk];
  const int announcesTooMuch = state->lengthBytes > KIV_SEGMENT_HALF_BYTES - state->offset;
  Check(announcesTooMuch ? KIV_CHUNK_OVERRUN : KIV_ST_OK, "trust the peer");
}

/* Prepares a chunk for the next peer after one that ended or died, whatever it left behind. Nobody
 * else may use the chunk meanwhile. Member `full` belongs to one half; the next one is "empty". */
static void Reset(KivSharedMemSeg* segment, int32_t chunk) {
  const KivSharedMemTransfer none = {0, 0, 0};
  segment->reading[chunk] = none;
  segment->writing[chunk] = none;
  for (int32_t full = 4 * chunk + 1; full <= 4 * chunk + 3; full += 2) {
    const uint16_t members[] = {(uint16_t)full, (uint16_t)(full + 1)};
    KivSdShSemSetRequest(KIV_NULL, members[0], segment->semaphores, kDoNotWait);
    KivSdShSemSetRequest(KIV_NULL, members[1], segment->semaphores, kDoNotWait);
    Check(KivSdShSemSetClear(KIV_NULL, members[1], segment->semaphores), "empty a half");
  }
}

/* The client's end. It uses the chunk that the server has taken for it. */
static uint32_t Ask(void* argument) {
  const int32_t chunk = *(const int32_t*)argument;
  KivSharedMemSeg *list = KIV_NULL, *segment = Open(kClient, &list);
  char answer[kTextBytes];
  uint32_t code;
  Send(segment, chunk, "SUM section=libs");
  Receive(segment, chunk, answer);
  Check(KivReadSharedMemChunkCode(KIV_NULL, segment, chunk, &code), "read the code");
  printf("client: received \"%s\", then code %u\n", answer, code);
  Check(KivDeleteSharedMemSeg(KIV_NULL, list), "leave the segment");
  return 0;
}

int main(void) {
  KivSharedMemSeg *list = KIV_NULL, *segment = Open(kServer, &list);
  char request[kTextBytes];
  int32_t chunk;
  uint32_t id;
  KivHandle client;
  Check(KivGetSharedMemChunk(KIV_NULL, segment, &chunk), "take a chunk");
  Check(KivSdThreadCreate(KIV_NULL, Ask, 0, 0, &chunk, &id, &client), "start the client");
  Receive(segment, chunk, request);
  printf("server: received \"%s\" in chunk %d\n", request, chunk);
  Send(segment, chunk, "42");
  Check(KivWriteSharedMemChunkCode(KIV_NULL, segment, chunk, kDone), "write the code");
  Check(KivSdThreadJoin(KIV_NULL, &client), "wait for the client's end");
  Check(KivSdThreadDelete(KIV_NULL, &client), "close the handle");
  Reset(segment, chunk);
  Check(KivPutSharedMemChunk(KIV_NULL, segment, chunk), "give the chunk back");
  return KivDeleteSharedMemSeg(KIV_NULL, list) == KIV_ST_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
