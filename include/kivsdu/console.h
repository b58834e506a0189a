/* The console: text output, and keys with and without waiting.
 *
 * The lease guard is never called. A context may always be null. All threads of a process read one
 * input queue: only one thread at a time may use KivSdConsoleKeyHit and KivSdConsoleKeyGet. Threads
 * that may race pass one lock to KivSdConsoleIsKeyDown. KivSdConsoleRead, which this platform does
 * not support, is declared in context.h. */
#ifndef KIVSDU_CONSOLE_H
#define KIVSDU_CONSOLE_H

#include "api.h"
#include "context.h"
#include "spinlock.h"

/* A console, in the caller's storage. The handles belong to the system and are never closed. */
typedef struct KivSdConsole {
  KivHandle input;
  KivHandle output;
} KivSdConsole;

KIV_ASSERT_SIZE(KivSdConsole, 16);
KIV_ASSERT_FIELD(KivSdConsole, input, 0);
KIV_ASSERT_FIELD(KivSdConsole, output, 8);

/* A key: {character, 0} for an ordinary key, {0, scan code} for an extended key, such as an arrow
 * or a function key. */
typedef struct KivSdConsoleKey {
  uint8_t character;
  uint8_t scanCode;
} KivSdConsoleKey;

KIV_ASSERT_SIZE(KivSdConsoleKey, 2);
KIV_ASSERT_FIELD(KivSdConsoleKey, character, 0);
KIV_ASSERT_FIELD(KivSdConsoleKey, scanCode, 1);

/* Fills a console with the handles of standard input and standard output. They may be null in a
 * process without a console.
 *
 *   console  must not be null
 *
 * 0, or KIV_ST_ARGUMENT      console is null
 *       KIV_ST_CONSOLE_INIT  a handle could not be obtained; its field and those after it are
 *                            null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdConsoleInit(KivSdContext* ctx, KivSdConsole* console);

/* Zeroes a console.
 *
 * 0, or KIV_ST_ARGUMENT  console is null */
KIVSDU_API uint32_t KivSdConsoleTerm(KivSdContext* ctx, KivSdConsole* console);

/* Writes a text through the C runtime's standard output, with its buffer, and therefore in order
 * with the caller's printf.
 *
 *   ignored  any value; hosts pass their console
 *   length   0 writes nothing; any other value writes the whole text
 *   text     terminated; null writes nothing
 *
 * 0, or KIV_ST_CONSOLE_WRITE  not written
 * OS error: errno. */
KIVSDU_API uint32_t KivSdConsoleWrite(KivSdContext* ctx, const void* ignored, uint32_t length,
                                      const char* text);

/* Removes one event from the console's input, if there is one, and returns whether there was one.
 *
 * Compatibility: a released key, a mouse event or a focus event is removed too, and counts as a hit
 * with the key {0, 0}. On Linux a terminal reports no released keys.
 *
 *   console  must not be null
 *   hit      receives 1 if there was an event, else 0; may be null
 *   key      receives the pressed key, else {0, 0}; may be null
 *
 * 0, or KIV_ST_ARGUMENT     console is null; hit and key are unchanged
 *       KIV_ST_CONSOLE_KEY  the input could not be examined (hit is 0), or the event not removed
 *                           (hit is 1). OS error 6 (Linux: ENOTTY) if the input is no
 *                           console
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdConsoleKeyHit(KivSdContext* ctx, const KivSdConsole* console, uint8_t* hit,
                                       KivSdConsoleKey* key);

/* Waits for a key on the process's console. The key is not echoed. Always returns 0. On Linux the
 * key is {255, 0} at the end of standard input.
 *
 *   raw      0: an extended key is returned as {0, scan code}. Otherwise its prefix is returned, as
 *            {0, 0} or {224, 0}, and the next call returns the scan code as {code, 0}
 *   ignored  any value; hosts pass their console
 *   key      receives the key; may be null */
KIVSDU_API uint32_t KivSdConsoleKeyGet(KivSdContext* ctx, uint8_t raw, const void* ignored,
                                       KivSdConsoleKey* key);

/* Removes one event from standard input, if there is one. Returns 1 if it is a pressed key, else 0.
 * Other events are lost.
 *
 *   key   receives the pressed key; may be null; unchanged if the result is 0. Compatibility: for
 *         an ordinary key the first byte is the virtual-key code, not the character, because hosts
 *         identify keys independently of layout and shift state
 *   lock  held while the event is examined and removed, to keep other threads from removing it in
 *         between; may be null
 *
 * Any thread with a lock; without one, one thread at a time. */
KIVSDU_API int32_t KivSdConsoleIsKeyDown(KivSdConsoleKey* key, KivSdLWSpinlock* lock);

#endif
