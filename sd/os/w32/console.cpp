#include "os/console.h"

#include <conio.h>

#include <cerrno>
#include <cstdio>

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

ValueResult<void*> FromStandardHandle(HANDLE handle) {
  const Result result = FromBool(handle != INVALID_HANDLE_VALUE);
  return {result.ok, result.error, handle};
}

ConsoleEvent FromRecord(const INPUT_RECORD& record) {
  if (record.EventType != KEY_EVENT || !record.Event.KeyEvent.bKeyDown) return {};
  const KEY_EVENT_RECORD& key = record.Event.KeyEvent;
  return {true, (key.dwControlKeyState & ENHANCED_KEY) != 0,
          static_cast<uint8_t>(key.uChar.AsciiChar), static_cast<uint8_t>(key.wVirtualKeyCode),
          static_cast<uint8_t>(key.wVirtualScanCode)};
}

}  // namespace

ValueResult<void*> StandardInput() { return FromStandardHandle(GetStdHandle(STD_INPUT_HANDLE)); }

ValueResult<void*> StandardOutput() { return FromStandardHandle(GetStdHandle(STD_OUTPUT_HANDLE)); }

ValueResult<uint32_t> ConsoleEventsWaiting(void* input) {
  INPUT_RECORD record = {};
  DWORD count = 0;
  const Result result = FromBool(PeekConsoleInputA(input, &record, 1, &count));
  return {result.ok, result.error, count};
}

ValueResult<ConsoleEvent> TakeConsoleEvent(void* input) {
  INPUT_RECORD record = {};
  DWORD count = 0;
  const Result result = FromBool(ReadConsoleInputA(input, &record, 1, &count));
  return {result.ok, result.error, FromRecord(record)};
}

uint8_t ReadKeyByte() { return static_cast<uint8_t>(_getch()); }

Result PrintText(const char* text) {
  if (std::printf("%s", text) >= 0) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

}  // namespace kiv::os
