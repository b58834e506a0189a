/* kivutlu: the server's utility library, as far as its modules need it.
 *
 * A module registers when the loader brings it into a process and leaves when the loader takes
 * it out. Both calls run under the loader's lock: they neither wait nor allocate. */
#ifndef KIVUTLU_KIVUTLU_H
#define KIVUTLU_KIVUTLU_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KIVUTLU_EXTERN extern "C"
#else
#define KIVUTLU_EXTERN extern
#endif
#if defined(_WIN32) && !defined(KIVUTLU_BUILDING) && !defined(KIVUTLU_STATIC)
#define KIVUTLU_API KIVUTLU_EXTERN __declspec(dllimport)
#else
#define KIVUTLU_API KIVUTLU_EXTERN
#endif

#define AD_MODULE_BANNER_MAX 100   /* characters of a banner, without the terminator */
#define AD_MODULE_OUTPUT_BYTES 256 /* room of the output area that a module gives */
#define AD_MODULES_MAX 64          /* modules that can be registered at a time */

/* What a module says of itself. */
typedef struct AdModuleDescriptor {
  void (*callback)(void); /* null: the module wants no callback */
  uint16_t version;       /* major number in the high byte, minor in the low */
  uint16_t zero;
  char banner[AD_MODULE_BANNER_MAX + 1]; /* build banner, terminated */
} AdModuleDescriptor;

/* A module that is loaded now. */
typedef struct AdModule {
  void* handle; /* null in a free entry */
  AdModuleDescriptor descriptor;
} AdModule;

/* The modules of this process, for tools that list them. Entries come and go as modules do; an
 * entry is whole as long as no module is being loaded or unloaded meanwhile. */
KIVUTLU_API AdModule adModules[AD_MODULES_MAX];

/* Registers a module.
 *
 *   module      the loader's handle of it; must not be null
 *   descriptor  copied; must not be null
 *   output      area of AD_MODULE_OUTPUT_BYTES zeroed bytes; this library writes nothing there
 *
 * 0, or 1  an argument is null, or AD_MODULES_MAX modules are registered
 * A module that registers twice has its descriptor replaced. Under the loader's lock. */
KIVUTLU_API int32_t adInitMod(void* module, const AdModuleDescriptor* descriptor, void* output);

/* Takes a module off the list; one that is not on it is ignored. Under the loader's lock. */
KIVUTLU_API void adTermModLib(void* module);

#endif
