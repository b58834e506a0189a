// The console's input, its standard handles, and text through the C runtime.
#ifndef KIV_OS_CONSOLE_H
#define KIV_OS_CONSOLE_H

#include "os/os.h"

namespace kiv::os {

// An event of the console's input. All zero but for a key being pressed.
struct ConsoleEvent {
  bool keyPressed;
  bool extended;       // an arrow, a function key or the like
  uint8_t character;   // in the console's code page
  uint8_t virtualKey;  // the low byte of the platform's number of the key
  uint8_t scanCode;    // the low byte of the keyboard's number of the key
};

// The handle may be null: a process need not have them.
ValueResult<void*> StandardInput();
ValueResult<void*> StandardOutput();

// The count of events that wait, at most 1; takes none.
ValueResult<uint32_t> ConsoleEventsWaiting(void* input);

// Takes an event, waiting for one.
ValueResult<ConsoleEvent> TakeConsoleEvent(void* input);

// Waits for a byte from the keyboard, which is not echoed.
uint8_t ReadKeyByte();

// Prints a text on the C runtime's standard output.
Result PrintText(const char* text);

}  // namespace kiv::os

#endif
