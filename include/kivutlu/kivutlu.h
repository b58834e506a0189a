/* kivutlu: the part of the server's utility library that its modules need.
 *
 * A module registers when the loader maps it into a process, and leaves when the loader unmaps it.
 * Both calls run under the loader's lock: they neither wait nor allocate. */
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
#elif !defined(_WIN32) && defined(KIVUTLU_BUILDING)
#define KIVUTLU_API KIVUTLU_EXTERN __attribute__((visibility("default")))
#else
#define KIVUTLU_API KIVUTLU_EXTERN
#endif

#define AD_MODULE_BANNER_MAX 100   /* characters in a banner, terminator excluded */
#define AD_MODULE_OUTPUT_BYTES 256 /* size of a module's output area */
#define AD_MODULES_MAX 64          /* largest number of registered modules */

/* A module's description of itself. */
typedef struct AdModuleDescriptor {
  void (*callback)(void); /* null: the module wants no callback */
  uint16_t version;       /* major number in the high byte, minor in the low */
  uint16_t zero;
  char banner[AD_MODULE_BANNER_MAX + 1]; /* build banner, terminated */
} AdModuleDescriptor;

/* A registered module. */
typedef struct AdModule {
  void* handle; /* null in a free entry */
  AdModuleDescriptor descriptor;
} AdModule;

/* The modules of this process, for tools that list them. Entries change when modules are loaded and
 * unloaded; read them only while no module is being loaded or unloaded. */
KIVUTLU_API AdModule adModules[AD_MODULES_MAX];

/* Registers a module. A module that is registered already has its descriptor replaced.
 *
 *   module      the loader's handle of the module; must not be null
 *   descriptor  copied; must not be null
 *   output      area of AD_MODULE_OUTPUT_BYTES zeroed bytes; must not be null. This library writes
 *               nothing there
 *
 * Returns 0, or 1 if an argument is null or AD_MODULES_MAX modules are registered. Call it under
 * the loader's lock. */
KIVUTLU_API int32_t adInitMod(void* module, const AdModuleDescriptor* descriptor, void* output);

/* Removes a module from the list. Ignores a module that is not registered. Call it under the
 * loader's lock. */
KIVUTLU_API void adTermModLib(void* module);

#endif
