// The console: its handles, text output, and keys.
//
// A key is two bytes: a character and 0 for an ordinary key, 0 and a scan code for an extended key
// (arrows, function keys).
#include "kivsdu/console.h"

#include "os/console.h"
#include "report.h"

using namespace kiv;

namespace {

// Either byte announces that an extended key's scan code follows.
constexpr uint8_t kPrefix = 0;
constexpr uint8_t kSecondPrefix = 224;

constexpr KivSdConsoleKey Ordinary(uint8_t character) { return {character, 0}; }
constexpr KivSdConsoleKey Extended(uint8_t scanCode) { return {0, scanCode}; }

// Removes and returns the next event. Without one, or on failure, returns an event without a key.
os::ConsoleEvent TakeWaitingEvent() {
  const os::ValueResult<void*> input = os::StandardInput();
  if (!input.ok) return {};
  const os::ValueResult<uint32_t> waiting = os::ConsoleEventsWaiting(input.value);
  if (!waiting.ok || waiting.value == 0) return {};
  const os::ValueResult<os::ConsoleEvent> taken = os::TakeConsoleEvent(input.value);
  return taken.ok ? taken.value : os::ConsoleEvent{};
}

os::ConsoleEvent TakeWaitingEventUnder(KivSdLWSpinlock* lock) {
  if (lock == nullptr) return TakeWaitingEvent();
  KivSdLWSpinlockAcquire(lock);
  const os::ConsoleEvent event = TakeWaitingEvent();
  KivSdLWSpinlockRelease(lock);
  return event;
}

}  // namespace

uint32_t KivSdConsoleInit(KivSdContext* ctx, KivSdConsole* console) {
  if (console == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *console = {};
  const os::ValueResult<void*> input = os::StandardInput();
  if (!input.ok) return Report(ctx, KIV_ST_CONSOLE_INIT, input.error);
  console->input = input.value;
  const os::ValueResult<void*> output = os::StandardOutput();
  if (!output.ok) return Report(ctx, KIV_ST_CONSOLE_INIT, output.error);
  console->output = output.value;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdConsoleTerm(KivSdContext* ctx, KivSdConsole* console) {
  if (console == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *console = {};
  return Report(ctx, KIV_ST_OK);
}

// Compatibility: a length of 0 prints nothing; any other prints the whole terminated text. Hosts
// pass the size of the text's buffer.
uint32_t KivSdConsoleWrite(KivSdContext* ctx, const void* /*ignored*/, uint32_t length,
                           const char* text) {
  if (length == 0 || text == nullptr) return Report(ctx, KIV_ST_OK);
  return ReportOutcome(ctx, os::PrintText(text), KIV_ST_CONSOLE_WRITE);
}

// Compatibility: any event is a hit, not only a key. Hosts call until there is no hit, which drains
// the queue.
uint32_t KivSdConsoleKeyHit(KivSdContext* ctx, const KivSdConsole* console, uint8_t* hit,
                            KivSdConsoleKey* key) {
  if (console == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  if (hit != nullptr) *hit = 0;
  if (key != nullptr) *key = {};
  const os::ValueResult<uint32_t> waiting = os::ConsoleEventsWaiting(console->input);
  if (!waiting.ok) return Report(ctx, KIV_ST_CONSOLE_KEY, waiting.error);
  if (waiting.value == 0) return Report(ctx, KIV_ST_OK);

  if (hit != nullptr) *hit = 1;
  const os::ValueResult<os::ConsoleEvent> taken = os::TakeConsoleEvent(console->input);
  if (!taken.ok) return Report(ctx, KIV_ST_CONSOLE_KEY, taken.error);
  const os::ConsoleEvent& event = taken.value;
  if (key != nullptr && event.keyPressed) {
    *key = event.extended ? Extended(event.scanCode) : Ordinary(event.character);
  }
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdConsoleKeyGet(KivSdContext* ctx, uint8_t raw, const void* /*ignored*/,
                            KivSdConsoleKey* key) {
  const uint8_t first = os::ReadKeyByte();
  const bool isPrefix = first == kPrefix || first == kSecondPrefix;
  const KivSdConsoleKey read = raw == 0 && isPrefix ? Extended(os::ReadKeyByte()) : Ordinary(first);
  if (key != nullptr) *key = read;
  return Report(ctx, KIV_ST_OK);
}

int32_t KivSdConsoleIsKeyDown(KivSdConsoleKey* key, KivSdLWSpinlock* lock) {
  const os::ConsoleEvent event = TakeWaitingEventUnder(lock);
  if (!event.keyPressed) return 0;
  // Compatibility: an ordinary key is reported by its virtual-key code, whereas KivSdConsoleKeyHit
  // reports its character. Hosts identify keys by this code.
  if (key != nullptr) {
    *key = event.extended ? Extended(event.scanCode) : Ordinary(event.virtualKey);
  }
  return 1;
}
