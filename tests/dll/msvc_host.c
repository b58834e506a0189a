/* A host built the way MSVC builds one: its object format and import library, no runtime of its
 * own. The exit code says which step failed. */
#include "kivsdu/kivsdu.h"

int Start(void) {
  KivSdContext* ctx = KIV_NULL;
  void* block = KIV_NULL;
  if (KivSdInit(&ctx) != KIV_ST_OK) return 1;
  if (KivSdMemAlloc(ctx, 0, 64, &block, "msvc_host", 1) != KIV_ST_OK) return 2;
  if (KivSdMemFree(ctx, block, "msvc_host", 2) != KIV_ST_OK) return 3;
  /* Names of one entry are one address, also through the import library. */
  if (KivSdMemPoolInit(ctx) != KIV_ST_OK || KivSdMemTerm(ctx) != KIV_ST_OK) return 4;
  if (KivSdConsoleRead(ctx) != KIV_ST_NOT_SUPPORTED) return 5;
  return KivSdTerm(ctx) == KIV_ST_OK ? 0 : 6;
}
