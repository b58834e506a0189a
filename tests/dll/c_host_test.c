/* A host written in C: compiles the public headers as C11 and calls the library. */
#include <stdio.h>
#include <string.h>

#include "kivsdu/kivsdu.h"

static int failures = 0;

static void Expect(int holds, const char* text) {
  if (holds) return;
  ++failures;
  fprintf(stderr, "failed: %s\n", text);
}

int main(void) {
  KivSdContext* ctx = KIV_NULL;
  void* block = KIV_NULL;
  KivSdMemStack* stack = KIV_NULL;
  void* piece = KIV_NULL;
  KivSdUtcTimestamp stamp = {0, 1};
  int32_t budget = -1;

  Expect(KivSdInit(&ctx) == KIV_ST_OK, "a context is made");
  Expect(KivSdMemAlloc(ctx, 0, 100, &block, "c_host", 1) == KIV_ST_OK, "a block is allocated");
  Expect(block != KIV_NULL && ctx->status == KIV_ST_OK, "the block is there");
  Expect(KivSdMemRealloc(ctx, 200, block, &block, "c_host", 2) == KIV_ST_OK, "the block grows");
  Expect(KivSdMemFree(ctx, block, "c_host", 3) == KIV_ST_OK, "the block is freed");
  Expect(KivSdMemFree(ctx, KIV_NULL, "c_host", 4) == KIV_ST_ARGUMENT, "null is refused");
  Expect(ctx->status == KIV_ST_ARGUMENT && ctx->osError == 0, "the refusal is recorded");
  Expect(KivSdMemStackCreate(ctx, &stack, 8, 1000) == KIV_ST_OK, "a stack is made");
  Expect(KivSdMemStackAllocAndPush(ctx, stack, 10, &piece) == KIV_ST_OK, "a piece is pushed");
  Expect(KivSdMemStackDelete(ctx, stack) == KIV_ST_OK, "the stack is deleted");
  Expect(KivSdGetUtcTimestamp(ctx, 0, &stamp) == KIV_ST_OK, "the time is read");
  Expect(stamp.microseconds % 1000 == 0, "microseconds are whole milliseconds");
  Expect(KivSdMemPoolFixedInit(ctx, 1, 2) == KIV_ST_NOT_SUPPORTED, "fixed pools are elsewhere");
  Expect(strcmp(KivSdAppFolderName(), "APP") == 0, "the folder name is the default");
  Expect(KivGetSpinUpperLimit(&budget) == KIV_ST_OK, "the spin budget is measured");
  Expect(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT == budget, "host and library share the variable");
  Expect(KivSdTerm(ctx) == KIV_ST_OK, "the context is freed");

  printf("%d failed\n", failures);
  return failures == 0 ? 0 : 1;
}
