/* Dynamic modules: loading, entry points, names, and what went wrong in words.
 *
 * In failover mode all but KivSdModuleUnload and KivSdModuleGetErrorMessage first call the lease
 * guard (settings.h), before they look at their arguments. A context may always be null. Loading
 * and messages share two buffers of the process that no lock guards: use them from one thread at
 * a time.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_MODULE_H
#define KIVSDU_MODULE_H

#include "api.h"
#include "context.h"

/* Loads a module. Never shows a box on the screen.
 *
 *   path     must not be null; its first 1028 characters are kept for KivSdModuleGetErrorMessage
 *   module   receives the handle, null on failure; must not be null
 *   altered  non-zero searches the modules that this one needs in its own folder first
 *
 * 0, or KIV_ST_ARGUMENT     path or module is null
 *       KIV_ST_MODULE_LOAD  not loaded */
KIVSDU_API uint32_t KivSdModuleLoad(KivSdContext* ctx, const char* path, KivHandle* module,
                                    uint8_t altered);

/* Unloads a module.
 *
 * 0, or KIV_ST_MODULE_UNLOAD */
KIVSDU_API uint32_t KivSdModuleUnload(KivSdContext* ctx, KivHandle module);

/* Finds an entry point.
 *
 *   name     must not be null
 *   address  receives it, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT          name or address is null
 *       KIV_ST_MODULE_PROCEDURE  the module has no such entry */
KIVSDU_API uint32_t KivSdModuleProcAddrGet(KivSdContext* ctx, KivHandle module, const char* name,
                                           void** address);

/* A module's path in upper case.
 *
 *   module  null for the main program
 *   length  size of name in bytes; at 0, or when name is null, nothing is done. A longer path is
 *           cut; an unknown module gives the empty text
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdModuleNameGet(KivSdContext* ctx, KivHandle module, uint32_t length,
                                       char* name);

/* The main program's handle.
 *
 *   module  receives it; may be null
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdModuleHandleGet(KivSdContext* ctx, KivHandle* module);

/* The system's text for an OS error. Texts that tell of a bad module name the one that was loaded
 * last.
 *
 *   ctx  the error is its OS error; null for the thread's last error
 *
 * Never null: "No errors" for 0, "Unknown error" where there is no text. The system's texts end
 * with a line break. Valid until the next call from any thread. */
KIVSDU_API const char* KivSdModuleGetErrorMessage(const KivSdContext* ctx);

#endif
