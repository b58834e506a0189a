/* A host that looks at the modules which the utility library lists: kivsdu is one. */
#include <stdio.h>
#include <string.h>

#include "kivsdu/kivsdu.h"
#include "kivutlu/kivutlu.h"

int main(void) {
  int i;
  KivSdMemoryBarrier(); /* a call loads the library */
  for (i = 0; i < AD_MODULES_MAX; i++) {
    const AdModule* module = &adModules[i];
    if (module->handle != NULL && strncmp(module->descriptor.banner, "kivsdu ", 7) == 0) {
      puts(module->descriptor.banner);
      return 0;
    }
  }
  return 1;
}
