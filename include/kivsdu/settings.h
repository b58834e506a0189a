/* Process-wide settings and hooks.
 *
 * The host installs these once, before its own threads use the library. None is locked, none
 * takes a context, and none returns a status.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_SETTINGS_H
#define KIVSDU_SETTINGS_H

#include "api.h"

/* The host's lease guard. Runs on the calling thread before the operations that check it. */
typedef void (*KivSdLeaseGuardFunction)(void);

/* A hook of the host: four values that the library forwards and does not look at. */
typedef void (*KivSdHookFunction)(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth);

/* Failover mode: while it is non-zero, files, directories, direct I/O, pipes, shared blocks,
 * modules and system information first call the lease guard, before they look at their
 * arguments. 0 when the library is loaded; any value is stored as it is given. Any thread. */
KIVSDU_API uint8_t KivSdIsFailoverMode(void);
KIVSDU_API void KivSdSetFailoverModeFlag(uint8_t flag);

/* Calls the lease guard; does nothing while there is none. Any thread. */
KIVSDU_API void KivSdGetLeaseGuard(void);

/* Installs the lease guard.
 *
 *   guard  stored as given; null removes the guard
 *
 * At start-up. */
KIVSDU_API void KivSdSetLeaseGuardAccessFunction(KivSdLeaseGuardFunction guard);

/* Hooks for thread attach, thread detach and statistics.
 *
 *   hook  a null hook is ignored; any other replaces the one before. Once a hook is set it can
 *         be replaced and never taken away
 *
 * At start-up. */
KIVSDU_API void KivSdSetUkrThreadAttachFunction(KivSdHookFunction hook);
KIVSDU_API void KivSdSetUkrThreadDetachFunction(KivSdHookFunction hook);
KIVSDU_API void KivSdSetHMStatisticsFunction(KivSdHookFunction hook);

/* Forward four values to the hook on the calling thread; do nothing while it is not set.
 * Any thread. */
KIVSDU_API void KivSdUkrThreadAttach(uint64_t first, uint64_t second, uint64_t third,
                                     uint64_t fourth);
KIVSDU_API void KivSdUkrThreadDetach(uint64_t first, uint64_t second, uint64_t third,
                                     uint64_t fourth);
KIVSDU_API void KivSdUpdateHMStatistics(uint64_t first, uint64_t second, uint64_t third,
                                        uint64_t fourth);

/* Stores the file-locking mode, 1 when the library is loaded. No operation reads it: locking a
 * file is an operation that does nothing here (context.h). At start-up. */
KIVSDU_API void KivSdSetFileLockingMode(uint32_t mode);

/* The application's folder name, "APP" until one is set.
 *
 *   name  not copied: the text must outlive its use
 *
 * Set it at start-up; read it from any thread. */
KIVSDU_API void KivSdSetAppFolderName(const char* name);
KIVSDU_API const char* KivSdAppFolderName(void);

/* Tells whether a pipe handle variable holds a handle.
 *
 *   pipe  the variable; may be null
 *
 * 1 when it holds a handle, 0 when it holds null or pipe is null. Any thread. */
KIVSDU_API int32_t KivSdNamedPipeIsInitialized(const KivHandle* pipe);

#endif
