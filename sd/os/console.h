// Standard handles, console input, and text output through the C runtime.
#ifndef KIV_OS_CONSOLE_H
#define KIV_OS_CONSOLE_H

#include "os/os.h"

namespace kiv::os {

// One console input event. All members are 0 unless the event is a key press.
struct ConsoleEvent {
  bool keyPressed;
  bool extended;       // an arrow key, a function key or similar
  uint8_t character;   // in the console's code page
  uint8_t virtualKey;  // low byte of the platform's key number
  uint8_t scanCode;    // low byte of the keyboard's scan code
};

// The handle may be null: a process may have no standard handles.
ValueResult<void*> StandardInput();
ValueResult<void*> StandardOutput();

// The number of events in the queue, counted up to 1. Removes none.
ValueResult<uint32_t> ConsoleEventsWaiting(void* input);

// Removes the next event from the queue; waits if there is none.
ValueResult<ConsoleEvent> TakeConsoleEvent(void* input);

// Waits for a byte from the keyboard and returns it. It is not echoed.
uint8_t ReadKeyByte();

// Prints the text on the C runtime's standard output.
Result PrintText(const char* text);

}  // namespace kiv::os

#endif
