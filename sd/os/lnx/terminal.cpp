#include "os/lnx/terminal.h"

#include <pthread.h>
#include <termios.h>
#include <unistd.h>

namespace kiv::os {
namespace {

// Guards the variables below, and the order of changes of the terminal.
pthread_mutex_t modeMutex = PTHREAD_MUTEX_INITIALIZER;
int users = 0;
bool isSet = false;  // whether `before` is to be restored
termios before = {};

termios KeyModeOf(termios mode) {
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
  mode.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR | ISTRIP | IXON);
  mode.c_cc[VMIN] = 0;  // a read returns at once
  mode.c_cc[VTIME] = 0;
  return mode;
}

bool IsKeyMode(const termios& mode) {
  return (mode.c_lflag & (ICANON | ECHO | ISIG)) == 0 && mode.c_cc[VMIN] == 0;
}

// The mutex must be held.
void SetKeyMode(int descriptor) {
  termios current = {};
  if (!IsInForeground(descriptor) || tcgetattr(descriptor, &current) != 0) return;
  if (isSet && IsKeyMode(current)) return;
  before = current;
  const termios wanted = KeyModeOf(current);
  const StopsBlocked blocked;
  isSet = tcsetattr(descriptor, TCSANOW, &wanted) == 0;
}

// The mutex must be held. A background process leaves the terminal to its shell.
void RestoreMode(int descriptor) {
  if (!isSet || !IsInForeground(descriptor)) return;
  const StopsBlocked blocked;
  static_cast<void>(tcsetattr(descriptor, TCSANOW, &before));
}

}  // namespace

StopsBlocked::StopsBlocked() {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTTIN);
  sigaddset(&stops, SIGTTOU);
  pthread_sigmask(SIG_BLOCK, &stops, &mask_);
}

StopsBlocked::~StopsBlocked() { pthread_sigmask(SIG_SETMASK, &mask_, nullptr); }

// A terminal that is not the session's own has no foreground.
bool IsInForeground(int descriptor) {
  const pid_t foreground = tcgetpgrp(descriptor);
  return foreground == -1 || foreground == getpgrp();
}

KeyMode::KeyMode(int descriptor) : descriptor_(descriptor) {
  pthread_mutex_lock(&modeMutex);
  ++users;
  SetKeyMode(descriptor_);
  pthread_mutex_unlock(&modeMutex);
}

KeyMode::~KeyMode() {
  pthread_mutex_lock(&modeMutex);
  --users;
  if (users == 0) {
    RestoreMode(descriptor_);
    isSet = false;
  }
  pthread_mutex_unlock(&modeMutex);
}

void KeyMode::Keep() const {
  pthread_mutex_lock(&modeMutex);
  SetKeyMode(descriptor_);
  pthread_mutex_unlock(&modeMutex);
}

}  // namespace kiv::os
