// The console: its handles, text output, and keys.
//
// Keys are two bytes, as consoles have told them since before there were windows: a character and
// 0, or 0 and a scan code.
#include "kivsdu/console.h"

#include "os/console.h"
#include "report.h"

namespace {

namespace os = kiv::os;
using kiv::Report;

// What announces an extended key.
constexpr uint8_t kPrefix = 0;
constexpr uint8_t kSecondPrefix = 224;

constexpr KivSdConsoleKey Ordinary(uint8_t character) { return {character, 0}; }
constexpr KivSdConsoleKey Extended(uint8_t scanCode) { return {0, scanCode}; }

// The event that waits, if one does and could be taken; else the event that is no key.
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

// Kept: the length only decides whether there is a text at all. Hosts pass the size of the buffer
// that the text lies in.
uint32_t KivSdConsoleWrite(KivSdContext* ctx, const void* /*ignored*/, uint32_t length,
                           const char* text) {
  if (length == 0 || text == nullptr) return Report(ctx, KIV_ST_OK);
  return kiv::ReportOutcome(ctx, os::PrintText(text), KIV_ST_CONSOLE_WRITE);
}

// Kept: any event is a hit. Hosts ask until there is none, and so drain the queue.
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
  // Kept: the number of an ordinary key, where KivSdConsoleKeyHit gives its character.
  if (key != nullptr) {
    *key = event.extended ? Extended(event.scanCode) : Ordinary(event.virtualKey);
  }
  return 1;
}
