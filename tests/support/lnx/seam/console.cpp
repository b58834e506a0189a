#include "os/console.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::ConsoleEvent;
using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(StandardInput, "_ZN3kiv2os13StandardInputEv")
KIV_SEAM_PRIMITIVE(StandardOutput, "_ZN3kiv2os14StandardOutputEv")
KIV_SEAM_PRIMITIVE(ConsoleEventsWaiting, "_ZN3kiv2os20ConsoleEventsWaitingEPv")
KIV_SEAM_PRIMITIVE(TakeConsoleEvent, "_ZN3kiv2os16TakeConsoleEventEPv")
KIV_SEAM_PRIMITIVE(ReadKeyByte, "_ZN3kiv2os11ReadKeyByteEv")
KIV_SEAM_PRIMITIVE(PrintText, "_ZN3kiv2os9PrintTextEPKc")

namespace {

HANDLE GetStdHandle(DWORD which) {
  const ValueResult<void*> handle =
      which == STD_INPUT_HANDLE ? RealStandardInput() : RealStandardOutput();
  StoreError({handle.ok, handle.error});
  return handle.ok ? handle.value : INVALID_HANDLE_VALUE;
}

BOOL PeekConsoleInputA(HANDLE input, INPUT_RECORD*, DWORD, DWORD* count) {
  const ValueResult<uint32_t> waiting = RealConsoleEventsWaiting(input);
  *count = waiting.value;
  return ToBool({waiting.ok, waiting.error});
}

BOOL ReadConsoleInputA(HANDLE input, INPUT_RECORD* record, DWORD, DWORD* count) {
  const ValueResult<ConsoleEvent> taken = RealTakeConsoleEvent(input);
  const ConsoleEvent& event = taken.value;
  *count = taken.ok ? 1 : 0;
  *record = {};
  record->EventType = event.keyPressed ? KEY_EVENT : MENU_EVENT;
  record->Event.KeyEvent.bKeyDown = event.keyPressed;
  record->Event.KeyEvent.wVirtualKeyCode = event.virtualKey;
  record->Event.KeyEvent.wVirtualScanCode = event.scanCode;
  record->Event.KeyEvent.uChar.AsciiChar = static_cast<char>(event.character);
  record->Event.KeyEvent.dwControlKeyState = event.extended ? ENHANCED_KEY : 0;
  return ToBool({taken.ok, taken.error});
}

int32_t _getch() { return RealReadKeyByte(); }

int32_t Printf(const char*, const char* text) { return ToZero(RealPrintText(text)); }

SeamImport<decltype(GetStdHandle)> getStdHandle("GetStdHandle", GetStdHandle);
SeamImport<decltype(PeekConsoleInputA)> peekConsoleInput("PeekConsoleInputA", PeekConsoleInputA);
SeamImport<decltype(ReadConsoleInputA)> readConsoleInput("ReadConsoleInputA", ReadConsoleInputA);
SeamImport<decltype(_getch)> getch("_getch", _getch);
SeamImport<decltype(Printf)> print("printf", Printf);

ValueResult<void*> FromStandardHandle(HANDLE handle) {
  const Result result = FromBool(handle != INVALID_HANDLE_VALUE);
  return {result.ok, result.error, handle};
}

ConsoleEvent FromRecord(const INPUT_RECORD& record) {
  const KEY_EVENT_RECORD& key = record.Event.KeyEvent;
  if (record.EventType != KEY_EVENT || !key.bKeyDown) return {};
  return {true, (key.dwControlKeyState & ENHANCED_KEY) != 0,
          static_cast<uint8_t>(key.uChar.AsciiChar), static_cast<uint8_t>(key.wVirtualKeyCode),
          static_cast<uint8_t>(key.wVirtualScanCode)};
}

}  // namespace

ValueResult<void*> WrapStandardInput() {
  return FromStandardHandle(getStdHandle.Call(STD_INPUT_HANDLE));
}

ValueResult<void*> WrapStandardOutput() {
  return FromStandardHandle(getStdHandle.Call(STD_OUTPUT_HANDLE));
}

ValueResult<uint32_t> WrapConsoleEventsWaiting(void* input) {
  INPUT_RECORD record = {};
  DWORD count = 0;
  const Result result = FromBool(peekConsoleInput.Call(input, &record, 1u, &count));
  return {result.ok, result.error, count};
}

ValueResult<ConsoleEvent> WrapTakeConsoleEvent(void* input) {
  INPUT_RECORD record = {};
  DWORD count = 0;
  const Result result = FromBool(readConsoleInput.Call(input, &record, 1u, &count));
  return {result.ok, result.error, FromRecord(record)};
}

uint8_t WrapReadKeyByte() { return static_cast<uint8_t>(getch.Call()); }

Result WrapPrintText(const char* text) {
  if (print.Call("%s", text) >= 0) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

}  // namespace kiv::test
