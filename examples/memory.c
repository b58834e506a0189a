/* Memory: thread heaps, short heaps, the memory limit, and a memory stack.
 *
 * Heaps and the limit need a configuration file: run this with MOLTAPATH=examples/config. */
#include <stdio.h>
#include <stdlib.h>

#include "kivsdu/kivsdu.h"

static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "memory: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

/* Receives the memory manager's messages, on the thread that allocates. */
static uint32_t Receive(uint64_t handle, uint32_t status, uint32_t severity, const uint32_t* first,
                        uint32_t firstTag, const uint32_t* second, uint32_t secondTag) {
  (void)handle, (void)severity, (void)first, (void)firstTag, (void)secondTag;
  if (status == KIV_ST_MSG_LIMIT_NEAR) printf("warning: over %u%% of the limit in use\n", *second);
  if (status == KIV_ST_MSG_LIMIT_REFUSED) printf("refused: %u bytes\n", *second);
  return 0;
}

/* Thread heaps: each block is freed separately, on any thread. */
static void UseThreadHeap(void) {
  void* block;
  Check(adMalloc(KIV_NULL, 100, &block, "memory", __LINE__), "allocate");
  Check(adFree(block, "memory", __LINE__), "free a block");
  printf("thread heap: a block allocated and freed\n");
}

/* Short heaps: for a unit of work on one thread. The end of the work frees all its blocks. */
static void UseShortHeap(void) {
  AdShortHeapOwner request = {0};
  void* block;
  adMemShortHeapInit(&request);
  for (int i = 0; i < 1000; i++) {
    Check(adMemShortHeapMalloc(&request, 100, &block, "memory", __LINE__), "allocate");
  }
  adMemShortHeapTerm(&request);
  printf("short heap: 1000 blocks went back in one call\n");
}

/* The memory limit: the memory manager warns first, then refuses. */
static void ReachLimit(void) {
  enum { kMiB = 1 << 20, kBlocks = 64 };
  static void* block[kBlocks];
  int n = 0;
  while (n < kBlocks && adMalloc(KIV_NULL, kMiB, &block[n], "memory", __LINE__) == KIV_ST_OK) n++;
  printf("limit: reached after %d blocks of 1 MiB\n", n);
  while (n > 0) Check(adFree(block[--n], "memory", __LINE__), "free a large block");
}

/* Memory stack: scratch memory. A pop frees a piece and all pieces pushed after it. */
static void UseStack(void) {
  KivSdMemStack* stack;
  void *first, *second;
  Check(KivSdMemStackCreate(KIV_NULL, &stack, 8, 8192), "make a stack");
  Check(KivSdMemStackAllocAndPush(KIV_NULL, stack, 64, &first), "push");
  Check(KivSdMemStackAllocAndPush(KIV_NULL, stack, 64, &second), "push");
  Check(KivSdMemStackPopAndFree(KIV_NULL, stack, first), "pop");
  Check(KivSdMemStackDelete(KIV_NULL, stack), "free the stack");
  printf("stack: 2 pieces went back in one call\n");
}

int main(void) {
  static const uint64_t host[27]; /* word 26 is passed back as the handle of each message */
  uint64_t settings[7];
  Check(adMemThreadHeapInit(1, Receive, "example", 0), "start the memory manager");
  adMemSetThreadContext(host);
  adMemGetMemorySettings(settings); /* settings[0] is the limit */
  Check(settings[0] != 0 ? KIV_ST_OK : KIV_ST_ARGUMENT, "find a limit in MOLTAPATH's config.mem");
  UseThreadHeap();
  UseShortHeap();
  ReachLimit();
  UseStack();
  adMemThreadHeapTerm();
  return EXIT_SUCCESS;
}
