/* A host in C: starts the memory manager, allocates, and fails to open a file. */
#include <stdio.h>
#include <string.h>

#include "kivsdu/kivsdu.h"

int main(void) {
  KivSdContext* ctx;
  void* block;
  uint32_t file;
  uint32_t status;
  if (adMemThreadHeapInit(1, KIV_NULL, "consumer", 0) != KIV_ST_OK) return 1;
  if (KivSdInit(&ctx) != KIV_ST_OK) return 2;
  if (KivSdMemAlloc(ctx, 0, 64, &block, "consumer", 1) != KIV_ST_OK) return 3;
  strcpy(block, "consumer in C, kivsdu " KIV_VERSION);
  puts(block);
  if (KivSdMemFree(ctx, block, "consumer", 2) != KIV_ST_OK) return 4;
  status = KivSdFileOpen(ctx, "no such file", KIV_FILEO_READ | KIV_FILEO_BINARY, 0, &file);
  if (status != KIV_ST_FILE_OPEN || ctx->osError != 2) return 5;
  if (KivSdTerm(ctx) != KIV_ST_OK) return 6;
  adMemThreadHeapTerm();
  return 0;
}
