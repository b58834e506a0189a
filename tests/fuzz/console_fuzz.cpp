// The input is a terminal: the bytes that it sends, in what pieces they come, how much time passes in
// between, when another process takes the terminal, and when it hangs up. The operations on keys must
// take every byte, in its order, and leave the terminal's mode as it was.
//
// The linker redirects the library's calls of the system to the functions at the end.
#include <poll.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "fuzz/input.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;

constexpr int kMaxOperations = 200;
constexpr uint8_t kEscape = 27;
constexpr uint8_t kEndOfInput = 255;
constexpr pid_t kShell = 1;  // a process group other than ours

termios LineMode() {
  termios mode = {};
  mode.c_lflag = ICANON | ECHO | ISIG | IEXTEN;
  mode.c_iflag = ICRNL | IXON;
  mode.c_cc[VMIN] = 1;
  return mode;
}

bool IsLineMode(const termios& mode) {
  const termios line = LineMode();
  return mode.c_lflag == line.c_lflag && mode.c_iflag == line.c_iflag &&
         mode.c_cc[VMIN] == line.c_cc[VMIN] && mode.c_cc[VTIME] == line.c_cc[VTIME];
}

// ---- The terminal ----

class Terminal {
 public:
  explicit Terminal(Input* input) : input_(input) {}

  bool IsForeground() const { return isForeground_; }
  const std::string& sent() const { return sent_; }
  int64_t nowMs() const { return nowMs_; }
  termios mode = LineMode();

  // Lets something happen during a wait of at most so long.
  void Pass(int timeoutMs) {
    if (hasHungUp_) return;
    if (input_->IsAtEnd()) return HangUp();
    const uint8_t what = input_->Byte();
    if (what < 200) {
      Type(1 + what % 8);
    } else if (what < 232) {
      nowMs_ += std::max(timeoutMs, 0);
    } else if (what < 240) {
      nowMs_ += what % 8;  // a wait that a signal ends
    } else if (what < 254) {
      GiveTo(what % 2 == 0);
    } else {
      HangUp();
    }
  }

  short Events() const {
    if (hasHungUp_) return POLLIN | POLLHUP;
    return typed_.empty() ? short{0} : short{POLLIN};
  }

  ssize_t Read(void* buffer, size_t count) {
    if (!isForeground_) return Fail(EIO);
    if (!typed_.empty()) return ReadTyped(static_cast<char*>(buffer), count);
    if (hasHungUp_) hasShownEnd_ = true;
    return hasHungUp_ ? Fail(EIO) : 0;
  }

  // Whether a read has met the end of the input since ForgetEnd.
  bool HasShownEnd() const { return hasShownEnd_; }
  void ForgetEnd() { hasShownEnd_ = false; }

  // The shell that takes a terminal sets its own mode, and the owner gets it back with that.
  void GiveTo(bool isOurs) {
    isForeground_ = isOurs;
    mode = LineMode();
  }

  void HangUp() {
    hasHungUp_ = true;
    if (!isForeground_) GiveTo(true);
  }

 private:
  static ssize_t Fail(int error) {
    errno = error;
    return -1;
  }

  void Type(size_t count) {
    for (size_t i = 0; i < count && !input_->IsAtEnd(); ++i) {
      typed_.push_back(static_cast<char>(input_->Byte()));
    }
  }

  // A read may be interrupted, or yield only a part.
  ssize_t ReadTyped(char* to, size_t count) {
    const uint8_t what = input_->Byte();
    if (what == 255) return Fail(EINTR);
    const size_t most = what < 128 ? count : what % 4 + 1;
    const size_t taken = std::min({count, typed_.size(), most});
    std::copy_n(typed_.begin(), taken, to);
    sent_.append(typed_, 0, taken);
    typed_.erase(0, taken);
    return static_cast<ssize_t>(taken);
  }

  Input* input_;
  bool isForeground_ = true;
  bool hasHungUp_ = false;
  bool hasShownEnd_ = false;
  std::string typed_;  // and not yet read
  std::string sent_;   // read by the library
  int64_t nowMs_ = 1000;
};

Terminal* terminal = nullptr;  // null outside of a run

// ---- The host ----

class Host {
 public:
  explicit Host(Input* input) : input_(input) {
    Check(KivSdConsoleInit(nullptr, &console_) == KIV_ST_OK, "a console can be made");
  }

  void Operate() {
    switch (input_->Byte() % 8) {
      case 0:
        return Get(0);
      case 1:
        return Get(1);
      case 2:
        return IsDown();
      case 3:
        return terminal->Pass(0);
      default:
        return Hit();
    }
  }

  // Takes all keys that are left.
  void Drain() {
    terminal->HangUp();
    do {
      terminal->ForgetEnd();
      Get(1);
    } while (!terminal->HasShownEnd() || characters_.back() != static_cast<char>(kEndOfInput));
  }

  // Without an escape byte, all that the terminal sent are characters.
  void CheckCharacters() const {
    if (wasLookedAt_ || terminal->sent().find(kEscape) != std::string::npos) return;
    Check(characters_.compare(0, terminal->sent().size(), Translated(terminal->sent())) == 0,
          "no character is lost or added");
  }

 private:
  static std::string Translated(std::string text) {
    for (char& letter : text) {
      if (letter == '\n') letter = '\r';
      if (letter == 127) letter = '\b';
    }
    return text;
  }

  void Hit() {
    uint8_t hit = 7;
    KivSdConsoleKey key = {7, 7};
    const uint32_t status = KivSdConsoleKeyHit(nullptr, &console_, &hit, &key);
    Check(status == KIV_ST_OK || status == KIV_ST_CONSOLE_KEY, "the status of a hit");
    Check(hit <= 1 && (status == KIV_ST_OK || hit == 0), "a hit");
    Check(key.character == 0 || key.scanCode == 0, "a key has one of two bytes");
    if (hit == 0) Check(key.character == 0 && key.scanCode == 0, "no hit, no key");
    if (hit == 1 && key.scanCode == 0) Note(key.character);
    CheckMode();
  }

  void Get(uint8_t raw) {
    KivSdConsoleKey key = {7, 7};
    Check(KivSdConsoleKeyGet(nullptr, raw, nullptr, &key) == KIV_ST_OK, "the status of a key");
    Check(key.character == 0 || key.scanCode == 0, "a key has one of two bytes");
    if (raw == 0 && key.character == 0) {
      wasLookedAt_ = true;  // a character of the value of a prefix takes the next one along
    } else {
      Note(key.character);
    }
    CheckMode();
  }

  void IsDown() {
    KivSdConsoleKey key = {};
    if (KivSdConsoleIsKeyDown(&key, nullptr) != 0) wasLookedAt_ = true;
    CheckMode();
  }

  void Note(uint8_t character) { characters_.push_back(static_cast<char>(character)); }

  static void CheckMode() {
    Check(!terminal->IsForeground() || IsLineMode(terminal->mode), "the mode is restored");
  }

  Input* input_;
  KivSdConsole console_ = {};
  std::string characters_;
  bool wasLookedAt_ = false;  // a character was taken and not shown
};

}  // namespace

// ---- The system ----

extern "C" {

int __real_poll(pollfd* descriptors, nfds_t count, int timeoutMs);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeoutMs) {
  if (terminal == nullptr) return __real_poll(descriptors, count, timeoutMs);
  const bool isQuiet = terminal->Events() == 0 || count == 0;
  if (timeoutMs != 0 && isQuiet) terminal->Pass(timeoutMs);
  if (count == 0) return 0;
  descriptors->revents = terminal->Events();
  return descriptors->revents != 0 ? 1 : 0;
}

ssize_t __real_read(int descriptor, void* buffer, size_t count);
ssize_t __wrap_read(int descriptor, void* buffer, size_t count) {
  const bool isOurs = terminal != nullptr && descriptor == STDIN_FILENO;
  return isOurs ? terminal->Read(buffer, count) : __real_read(descriptor, buffer, count);
}

int __real_clock_gettime(clockid_t clock, timespec* now);
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (terminal == nullptr) return __real_clock_gettime(clock, now);
  *now = {terminal->nowMs() / 1000, terminal->nowMs() % 1000 * 1000000};
  return 0;
}

int __wrap_isatty(int) { return 1; }

pid_t __wrap_tcgetpgrp(int) { return terminal->IsForeground() ? getpgrp() : kShell; }

int __wrap_tcgetattr(int, termios* mode) {
  *mode = terminal->mode;
  return 0;
}

int __wrap_tcsetattr(int, int, const termios* mode) {
  Check(terminal->IsForeground(), "only the foreground changes the mode");
  terminal->mode = *mode;
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  Input input(bytes, count);
  Terminal now(&input);
  terminal = &now;
  Host host(&input);
  for (int i = 0; i < kMaxOperations && !input.IsAtEnd(); ++i) host.Operate();
  host.Drain();
  host.CheckCharacters();
  terminal = nullptr;
  return 0;
}
}
