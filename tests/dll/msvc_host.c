/* A host in MSVC's object format, linked with the import library and without a C runtime. The exit
 * code identifies the step that failed. */
#include "kivsdu/kivsdu.h"

int Start(void) {
  KivSdContext* ctx = KIV_NULL;
  void* block = KIV_NULL;
  if (KivSdInit(&ctx) != KIV_ST_OK) return 1;
  if (KivSdMemAlloc(ctx, 0, 64, &block, "msvc_host", 1) != KIV_ST_OK) return 2;
  if (KivSdMemFree(ctx, block, "msvc_host", 2) != KIV_ST_OK) return 3;
  /* Exports that share a body have one address, also through the import library. */
  if (KivSdMemPoolInit(ctx) != KIV_ST_OK || KivSdMemTerm(ctx) != KIV_ST_OK) return 4;
  if (KivSdConsoleRead(ctx) != KIV_ST_NOT_SUPPORTED) return 5;
  return KivSdTerm(ctx) == KIV_ST_OK ? 0 : 6;
}
