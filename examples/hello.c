/* Hello: start the library, make a context, allocate a block, read an error, stop the library. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivsdu/kivsdu.h"

/* Ends the program with a message if an operation failed. */
static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "hello: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

int main(void) {
  KivSdContext* ctx;
  KivHandle module;
  void* block;
  const char* text;
  uint32_t status;
  uint32_t osError;

  /* Start. Settings come first, then the memory manager, before any allocation. Without a
   * configuration file it uses the C runtime's heap. */
  KivSdSetAppFolderName("hello");
  KivSdInitNumaResources();
  Check(adMemThreadHeapInit(1, KIV_NULL, "hello", 0), "start the memory manager");
  Check(KivSdVorUtilTlsInit(), "make the per-thread slot");

  /* Each thread makes a context. Operations store their status and the OS error in it. */
  Check(KivSdInit(&ctx), "make a context");
  printf("started as '%s'\n", KivSdAppFolderName());

  /* Each allocation passes the caller's source name and line. */
  Check(KivSdMemAlloc(ctx, 0, 4096, &block, "hello", __LINE__), "allocate a block");
  strcpy(block, "hello from a block");
  printf("%s\n", (const char*)block);
  Check(KivSdMemFree(ctx, block, "hello", __LINE__), "free the block");

  /* An operation that fails: status.h names the status; the OS error comes from the system. */
  status = KivSdModuleLoad(ctx, "no_such_module.dll", &module, 0);
  Check(KivSdLastErrGet(ctx, 0, KIV_NULL, &osError), "read the context");
  text = KivSdModuleGetErrorMessage(ctx); /* ends with a line break */
  printf("loading a missing module: status %u, OS error %u, %.*s\n", status, osError,
         (int)strcspn(text, "\r\n"), text);
  if (status != KIV_ST_MODULE_LOAD) return EXIT_FAILURE;

  /* Stop, in reverse order. */
  Check(KivSdTerm(ctx), "free the context");
  KivSdVorUtilTlsTerm();
  adMemThreadHeapTerm();
  printf("stopped\n");
  return EXIT_SUCCESS;
}
