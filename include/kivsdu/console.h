/* The console: text output, and keys, waited for or not.
 *
 * A context may always be null. The lease guard is never called. All of a process's threads read
 * one queue of input, so one thread at a time uses KivSdConsoleKeyHit and KivSdConsoleKeyGet;
 * threads that may race pass one lock to KivSdConsoleIsKeyDown. KivSdConsoleRead, which this
 * platform does not have, is declared in context.h. */
#ifndef KIVSDU_CONSOLE_H
#define KIVSDU_CONSOLE_H

#include "api.h"
#include "context.h"
#include "spinlock.h"

/* A console; the caller's. The handles are the system's own and are never closed. */
typedef struct KivSdConsole {
  KivHandle input;
  KivHandle output;
} KivSdConsole;

KIV_ASSERT_SIZE(KivSdConsole, 16);
KIV_ASSERT_FIELD(KivSdConsole, input, 0);
KIV_ASSERT_FIELD(KivSdConsole, output, 8);

/* A key: {character, 0} for an ordinary one, {0, scan code} for an extended one, such as an arrow
 * or a function key. */
typedef struct KivSdConsoleKey {
  uint8_t character;
  uint8_t scanCode;
} KivSdConsoleKey;

KIV_ASSERT_SIZE(KivSdConsoleKey, 2);
KIV_ASSERT_FIELD(KivSdConsoleKey, character, 0);
KIV_ASSERT_FIELD(KivSdConsoleKey, scanCode, 1);

/* Fills a console with the handles of standard input and standard output, which may be null in a
 * process without them.
 *
 *   console  must not be null
 *
 * 0, or KIV_ST_ARGUMENT      console is null
 *       KIV_ST_CONSOLE_INIT  a handle could not be got; its field and those after it are null */
KIVSDU_API uint32_t KivSdConsoleInit(KivSdContext* ctx, KivSdConsole* console);

/* Clears a console.
 *
 * 0, or KIV_ST_ARGUMENT  console is null */
KIVSDU_API uint32_t KivSdConsoleTerm(KivSdContext* ctx, KivSdConsole* console);

/* Writes a text through the C runtime's standard output, and so in order with the caller's own
 * printf; it is buffered as that is.
 *
 *   ignored  any value; hosts pass their console
 *   length   at 0 nothing is written; otherwise all of the text is, whatever the length says
 *   text     terminated; when null nothing is written
 *
 * 0, or KIV_ST_CONSOLE_WRITE  not written; the OS error is errno */
KIVSDU_API uint32_t KivSdConsoleWrite(KivSdContext* ctx, const void* ignored, uint32_t length,
                                      const char* text);

/* Takes an event from the console's input if one waits, and tells whether one did. Events that are
 * no key are taken too: a key let go, the mouse, the focus count as a hit with the key {0, 0}.
 *
 *   console  must not be null
 *   hit      receives 1 when an event waited, else 0; may be null
 *   key      receives the key that was pressed, else {0, 0}; may be null
 *
 * 0, or KIV_ST_ARGUMENT     console is null; hit and key are left alone
 *       KIV_ST_CONSOLE_KEY  the input could not be looked at (hit is 0) or the event not taken
 *                           (hit is 1); OS error 6 when the input is no console */
KIVSDU_API uint32_t KivSdConsoleKeyHit(KivSdContext* ctx, const KivSdConsole* console, uint8_t* hit,
                                       KivSdConsoleKey* key);

/* Waits for a key on the process's console; it is not echoed.
 *
 *   raw      0: an extended key gives {0, scan code}. Otherwise it gives its prefix, {0, 0} or
 *            {224, 0}, and the next call gives the scan code as {code, 0}
 *   ignored  any value; hosts pass their console
 *   key      receives the key; may be null
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdConsoleKeyGet(KivSdContext* ctx, uint8_t raw, const void* ignored,
                                       KivSdConsoleKey* key);

/* Takes an event from standard input if one waits: 1 when it is a key being pressed, else 0. Other
 * events are taken too, and lost.
 *
 *   key   receives the key that was pressed; may be null. For an ordinary key its first byte is the
 *         virtual-key code and not the character: hosts tell keys from one another, whatever the
 *         layout and the shift keys. Left alone when the result is 0
 *   lock  held while the event is looked at and taken, so that no other thread takes it in
 *         between; may be null
 *
 * Any thread with a lock, else one at a time. */
KIVSDU_API int32_t KivSdConsoleIsKeyDown(KivSdConsoleKey* key, KivSdLWSpinlock* lock);

#endif
