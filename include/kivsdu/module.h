/* Dynamic modules: loading, entry points, names, and error texts.
 *
 * In failover mode every operation, except KivSdModuleUnload and KivSdModuleGetErrorMessage, calls
 * the lease guard (settings.h) before it checks its arguments. A context may always be null.
 * Loading and error texts share two buffers of the process that no lock guards: use them from one
 * thread at a time. The other operations are for any thread.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_MODULE_H
#define KIVSDU_MODULE_H

#include "api.h"
#include "context.h"

/* Loads a module. Never shows an error box: while it runs, error boxes are off in the whole
 * process.
 *
 *   path     must not be null; its first 1028 characters are kept for KivSdModuleGetErrorMessage
 *   module   receives the handle, null on failure; must not be null
 *   altered  not 0 to search the module's own folder first for the modules that it needs
 *
 * 0, or KIV_ST_ARGUMENT     path or module is null
 *       KIV_ST_MODULE_LOAD  not loaded. On Linux the OS error is ELIBACC if the module, or one that
 *                           it needs, is not found, and ELIBBAD if the file is no module
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdModuleLoad(KivSdContext* ctx, const char* path, KivHandle* module,
                                    uint8_t altered);

/* Unloads a module.
 *
 * 0, or KIV_ST_MODULE_UNLOAD  not unloaded
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdModuleUnload(KivSdContext* ctx, KivHandle module);

/* Finds an entry point.
 *
 *   name     must not be null
 *   address  receives the address, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT          name or address is null
 *       KIV_ST_MODULE_PROCEDURE  the module has no such entry point
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdModuleProcAddrGet(KivSdContext* ctx, KivHandle module, const char* name,
                                           void** address);

/* Returns a module's path in upper case. Always returns 0.
 *
 *   module  null for the main program
 *   length  size of name in bytes; if 0, nothing is written
 *   name    receives the path, truncated if it is too long, empty for an unknown module; if null,
 *           nothing is written */
KIVSDU_API uint32_t KivSdModuleNameGet(KivSdContext* ctx, KivHandle module, uint32_t length,
                                       char* name);

/* Returns the main program's handle. Always returns 0.
 *
 *   module  receives the handle; may be null */
KIVSDU_API uint32_t KivSdModuleHandleGet(KivSdContext* ctx, KivHandle* module);

/* Returns the system's text for an OS error. Texts about a bad module name the module that was
 * loaded last.
 *
 * On Windows the number is taken for one of GetLastError. If the declaration of the operation that
 * failed says "OS error: errno", use strerror instead: this operation would word errno 13, no
 * permission, as invalid data.
 *
 *   ctx  the error is the OS error of this context; if null, the calling thread's last error
 *
 * Never null: "No errors" for 0, "Unknown error" if there is no text. A text of the
 * system ends with a line break, except on Linux. It is valid until the next call from any
 * thread. */
KIVSDU_API const char* KivSdModuleGetErrorMessage(const KivSdContext* ctx);

#endif
