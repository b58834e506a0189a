// The terminal's mode while keys are read: each key at once, without echo and without the keys'
// usual effects (interrupt, stop, flow control).
#ifndef KIV_OS_LNX_TERMINAL_H
#define KIV_OS_LNX_TERMINAL_H

#include <signal.h>

namespace kiv::os {

// Whether the descriptor's terminal is the process's to read. That of a background process is not:
// the kernel would stop the process.
bool IsInForeground(int descriptor);

// Blocks, in this thread, the signals by which the kernel stops a background process that uses its
// terminal. A read then fails, and a change of the mode takes effect.
class StopsBlocked {
 public:
  StopsBlocked();
  ~StopsBlocked();
  StopsBlocked(const StopsBlocked&) = delete;
  StopsBlocked& operator=(const StopsBlocked&) = delete;

 private:
  sigset_t mask_;
};

// Sets the mode for the object's lifetime. Threads share the mode: the first sets it, and the last
// restores what was before. Does nothing in the background or without a terminal.
class KeyMode {
 public:
  explicit KeyMode(int descriptor);
  ~KeyMode();
  KeyMode(const KeyMode&) = delete;
  KeyMode& operator=(const KeyMode&) = delete;

  // Sets the mode again if it was lost: a shell takes the terminal back from a stopped process, and
  // returns it with its own mode.
  void Keep() const;

 private:
  int descriptor_;
};

}  // namespace kiv::os

#endif
