/* Process-wide settings and hooks.
 *
 * The host installs these once, before its own threads use the library. None is locked, none takes
 * a context, and none returns a status.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_SETTINGS_H
#define KIVSDU_SETTINGS_H

#include "api.h"

/* The host's lease guard. In failover mode it runs on the calling thread, at the start of every
 * operation that checks the mode. */
typedef void (*KivSdLeaseGuardFunction)(void);

/* A hook of the host. The library forwards its four arguments without reading them. */
typedef void (*KivSdHookFunction)(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth);

/* Failover mode. While the flag is not 0, operations on files, directories, direct I/O, pipes,
 * shared blocks, modules and system information call the lease guard before they check their
 * arguments. The header of each family names its exceptions. The flag is 0 when the library is
 * loaded.
 *
 *   flag  any value; stored unchanged
 *
 * KivSdIsFailoverMode returns the flag. Set it at start-up; read it from any thread. */
KIVSDU_API uint8_t KivSdIsFailoverMode(void);
KIVSDU_API void KivSdSetFailoverModeFlag(uint8_t flag);

/* Calls the lease guard. Does nothing if there is none. Any thread. */
KIVSDU_API void KivSdGetLeaseGuard(void);

/* Installs the lease guard. Call it at start-up.
 *
 *   guard  stored unchanged; null removes the guard */
KIVSDU_API void KivSdSetLeaseGuardAccessFunction(KivSdLeaseGuardFunction guard);

/* Install the hooks for thread attach, thread detach and statistics. Call these at start-up.
 *
 *   hook  replaces the earlier hook; null is ignored. A hook can be replaced but not removed */
KIVSDU_API void KivSdSetUkrThreadAttachFunction(KivSdHookFunction hook);
KIVSDU_API void KivSdSetUkrThreadDetachFunction(KivSdHookFunction hook);
KIVSDU_API void KivSdSetHMStatisticsFunction(KivSdHookFunction hook);

/* Forward four values to the hook, on the calling thread. Do nothing if there is no hook. Any
 * thread. */
KIVSDU_API void KivSdUkrThreadAttach(uint64_t first, uint64_t second, uint64_t third,
                                     uint64_t fourth);
KIVSDU_API void KivSdUkrThreadDetach(uint64_t first, uint64_t second, uint64_t third,
                                     uint64_t fourth);
KIVSDU_API void KivSdUpdateHMStatistics(uint64_t first, uint64_t second, uint64_t third,
                                        uint64_t fourth);

/* Stores the file-locking mode, which is 1 when the library is loaded. No operation reads it:
 * KivSdFileLock does nothing on this platform (context.h). Call it at start-up. */
KIVSDU_API void KivSdSetFileLockingMode(uint32_t mode);

/* Set and return the application's folder name. It is "APP" until one is set.
 *
 *   name  not copied: the text must stay valid while the library is loaded
 *
 * Set it at start-up; read it from any thread. */
KIVSDU_API void KivSdSetAppFolderName(const char* name);
KIVSDU_API const char* KivSdAppFolderName(void);

/* Returns whether a pipe handle variable holds a handle.
 *
 *   pipe  the variable; may be null
 *
 * Returns 1 if it holds a handle; 0 if it holds null or pipe is null. Any thread. */
KIVSDU_API int32_t KivSdNamedPipeIsInitialized(const KivHandle* pipe);

#endif
