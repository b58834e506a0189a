// The console operations, with replaced calls of the system and the runtime: the events that count
// as keys, the results after failures, and reading an event in one step under a lock.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/lock_design.h"
#include "support/os_errors.h"
#include "support/system_interface.h"
#include "support/threads.h"

namespace {

using kiv::test::Context;
using kiv::test::Guarded;
using kiv::test::GuardWatch;
using kiv::test::ImportPatch;
using kiv::test::kSpoilt;
using kiv::test::kTestAndSet;
using kiv::test::kTicket;
using kiv::test::OnThreads;
using kiv::test::ScriptedImport;

constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorInvalidHandle = 6;
const uintptr_t kInvalid = reinterpret_cast<uintptr_t>(INVALID_HANDLE_VALUE);
constexpr uint32_t kStandardInput = STD_INPUT_HANDLE;
constexpr uint32_t kStandardOutput = STD_OUTPUT_HANDLE;

KivHandle Handle(uintptr_t value) { return reinterpret_cast<KivHandle>(value); }

// The handles of the process's standard input and output.
#ifdef _WIN32
KivHandle StandardInput() { return GetStdHandle(STD_INPUT_HANDLE); }
KivHandle StandardOutput() { return GetStdHandle(STD_OUTPUT_HANDLE); }
#else
KivHandle StandardInput() { return Handle(1); }
KivHandle StandardOutput() { return Handle(2); }
#endif

// ---- A fake console input ----

INPUT_RECORD Key(bool down, uint16_t virtualKey, uint16_t scanCode, uint8_t character,
                 uint32_t state) {
  INPUT_RECORD record = {};
  record.EventType = KEY_EVENT;
  record.Event.KeyEvent.bKeyDown = down;
  record.Event.KeyEvent.wRepeatCount = 1;
  record.Event.KeyEvent.wVirtualKeyCode = virtualKey;
  record.Event.KeyEvent.wVirtualScanCode = scanCode;
  record.Event.KeyEvent.uChar.AsciiChar = static_cast<char>(character);
  record.Event.KeyEvent.dwControlKeyState = state;
  return record;
}

// An event of another kind, with the same bytes as a pressed key.
INPUT_RECORD Other(uint16_t type) {
  INPUT_RECORD record = Key(true, 65, 30, 'a', 0);
  record.EventType = type;
  return record;
}

const INPUT_RECORD kLetter = Key(true, 65, 30, 'a', 0);
const INPUT_RECORD kLetterUp = Key(false, 65, 30, 'a', 0);
const INPUT_RECORD kArrow = Key(true, 38, 72, 0xE0, ENHANCED_KEY);
const INPUT_RECORD kArrowUp = Key(false, 38, 72, 0xE0, ENHANCED_KEY);

struct Input {
  std::deque<INPUT_RECORD> queue;
  std::vector<HANDLE> peeked;  // handles passed to the call
  std::vector<HANDLE> read;
  DWORD asked = 0;  // number of events that the last call had room for
};
Input input;

BOOL WINAPI Peek(HANDLE handle, INPUT_RECORD* records, DWORD room, DWORD* count) {
  input.peeked.push_back(handle);
  input.asked = room;
  *count = input.queue.empty() ? 0 : 1;
  if (*count != 0) records[0] = input.queue.front();
  SetLastError(kErrorAccessDenied);  // must be ignored: the call succeeds
  return TRUE;
}

BOOL WINAPI Read(HANDLE handle, INPUT_RECORD* records, DWORD room, DWORD* count) {
  input.read.push_back(handle);
  input.asked = room;
  EXPECT_FALSE(input.queue.empty()) << "would wait for an event";
  *count = 1;
  records[0] = input.queue.front();
  input.queue.pop_front();
  SetLastError(kErrorAccessDenied);
  return TRUE;
}

// These calls fail but write the same results as successful calls.
BOOL WINAPI FailToPeek(HANDLE handle, INPUT_RECORD* records, DWORD room, DWORD* count) {
  Peek(handle, records, room, count);
  return FALSE;
}

BOOL WINAPI FailToRead(HANDLE handle, INPUT_RECORD* records, DWORD room, DWORD* count) {
  Read(handle, records, room, count);
  return FALSE;
}

HANDLE WINAPI FailToFindHandle(DWORD) {
  SetLastError(kErrorAccessDenied);
  return INVALID_HANDLE_VALUE;
}

class ConsoleInput : public testing::Test {
 protected:
  ConsoleInput() { input = {}; }

  void Queue(std::initializer_list<INPUT_RECORD> events) { input.queue = events; }

  Context ctx;
  KivSdConsole console = {Handle(40), Handle(44)};
  ImportPatch peek{"PeekConsoleInputA", reinterpret_cast<void*>(&Peek)};
  ImportPatch read{"ReadConsoleInputA", reinterpret_cast<void*>(&Read)};
};

void ExpectKey(const KivSdConsoleKey& key, uint8_t character, uint8_t scanCode) {
  EXPECT_EQ(key.character, character);
  EXPECT_EQ(key.scanCode, scanCode);
}

// ---- The console record ----

TEST(Console, HoldsTheStandardHandles) {
  Context ctx;
  Guarded<KivSdConsole> console;
  CHECK_OK(ctx, KivSdConsoleInit(ctx, console));
  EXPECT_EQ(console->input, StandardInput());
  EXPECT_EQ(console->output, StandardOutput());

  EXPECT_EQ(KivSdConsoleInit(nullptr, console), KIV_ST_OK);
  CHECK_OK(ctx, KivSdConsoleTerm(ctx, console));
  EXPECT_TRUE(console.IsAll(0));
  EXPECT_EQ(KivSdConsoleTerm(nullptr, console), KIV_ST_OK);
}

TEST(Console, RefusesNull) {
  Context ctx;
  const ScriptedImport handles("GetStdHandle", {.result = 40});
  CHECK_ARGUMENT(ctx, KivSdConsoleInit(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdConsoleTerm(ctx, nullptr));
  EXPECT_EQ(KivSdConsoleInit(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdConsoleTerm(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_TRUE(handles.calls().empty());
}

TEST(Console, RequestsTheInputHandleAndThenTheOutputHandle) {
  Guarded<KivSdConsole> console;
  const ScriptedImport handles("GetStdHandle", {.result = 40});
  EXPECT_EQ(KivSdConsoleInit(nullptr, console), KIV_ST_OK);
  ASSERT_EQ(handles.calls().size(), 2u);
  EXPECT_EQ(static_cast<uint32_t>(handles.calls()[0][0]), kStandardInput);
  EXPECT_EQ(static_cast<uint32_t>(handles.calls()[1][0]), kStandardOutput);
}

TEST(Console, SucceedsInAProcessWithoutStandardHandles) {
  Context ctx;
  Guarded<KivSdConsole> console;
  const ScriptedImport handles("GetStdHandle", {.result = 0, .error = kErrorInvalidHandle});
  CHECK_OK(ctx, KivSdConsoleInit(ctx, console));
  EXPECT_TRUE(console.IsAll(0));
}

TEST(Console, HoldsNoHandleIfTheInputFails) {
  Context ctx;
  Guarded<KivSdConsole> console;
  const ScriptedImport handles("GetStdHandle",
                               {.result = kInvalid, .error = kErrorInvalidHandle, .failCount = 1});
  CHECK_OUTCOME(ctx, KivSdConsoleInit(ctx, console), KIV_ST_CONSOLE_INIT, kErrorInvalidHandle);
  EXPECT_TRUE(console.IsAll(0));
}

TEST(Console, HoldsTheInputIfTheOutputFails) {
  Context ctx;
  Guarded<KivSdConsole> console;
  const ScriptedImport handles("GetStdHandle",
                               {.result = kInvalid, .error = kErrorAccessDenied, .passFirst = 1});
  CHECK_OUTCOME(ctx, KivSdConsoleInit(ctx, console), KIV_ST_CONSOLE_INIT, kErrorAccessDenied);
  EXPECT_EQ(console->input, StandardInput());
  EXPECT_EQ(console->output, nullptr);
}

TEST(Console, IsNotGuarded) {
  const ScriptedImport print("printf", {.result = 1});
  const ScriptedImport peek("PeekConsoleInputA", {.result = 0});
  const ScriptedImport getch("_getch", {.result = 'a'});
  GuardWatch guard;
  KivSdConsole console = {};
  EXPECT_EQ(KivSdConsoleInit(nullptr, &console), KIV_ST_OK);
  EXPECT_EQ(KivSdConsoleWrite(nullptr, nullptr, 1, "a"), KIV_ST_OK);
  EXPECT_EQ(KivSdConsoleKeyHit(nullptr, &console, nullptr, nullptr), KIV_ST_CONSOLE_KEY);
  EXPECT_EQ(KivSdConsoleKeyGet(nullptr, 0, nullptr, nullptr), KIV_ST_OK);
  EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, nullptr), 0);
  EXPECT_EQ(KivSdConsoleTerm(nullptr, &console), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 0u);
}

// ---- KivSdConsoleKeyHit ----

struct Event {
  const char* what;
  INPUT_RECORD record;
  KivSdConsoleKey hit;   // key from KivSdConsoleKeyHit
  int32_t isDown;        // result of KivSdConsoleIsKeyDown
  KivSdConsoleKey down;  // key from KivSdConsoleIsKeyDown
};

constexpr uint32_t kAllButEnhanced = ~uint32_t{ENHANCED_KEY};
const Event kEvents[] = {
    {"a letter", kLetter, {'a', 0}, 1, {65, 0}},
    {"a letter let go", kLetterUp, {0, 0}, 0, {}},
    {"an arrow", kArrow, {0, 72}, 1, {0, 72}},
    {"an arrow let go", kArrowUp, {0, 0}, 0, {}},
    {"an accent", Key(true, 0xDE, 40, 0xE4, 0), {0xE4, 0}, 1, {0xDE, 0}},
    {"every state but extended", Key(true, 1, 2, 3, kAllButEnhanced), {3, 0}, 1, {1, 0}},
    {"every state", Key(true, 1, 2, 3, 0xFFFFFFFF), {0, 2}, 1, {0, 2}},
    {"wide numbers", Key(true, 0x1234, 0x5678, 9, 0), {9, 0}, 1, {0x34, 0}},
    {"a wide scan code", Key(true, 0x1234, 0x5678, 9, ENHANCED_KEY), {0, 0x78}, 1, {0, 0x78}},
    {"a shift key", Key(true, 16, 42, 0, SHIFT_PRESSED), {0, 0}, 1, {16, 0}},
    {"the mouse", Other(MOUSE_EVENT), {0, 0}, 0, {}},
    {"the window's size", Other(WINDOW_BUFFER_SIZE_EVENT), {0, 0}, 0, {}},
    {"a menu", Other(MENU_EVENT), {0, 0}, 0, {}},
    {"the focus", Other(FOCUS_EVENT), {0, 0}, 0, {}},
    {"two kinds at once", Other(KEY_EVENT | MOUSE_EVENT), {0, 0}, 0, {}},
    {"nothing known", Other(0), {0, 0}, 0, {}},
};

TEST_F(ConsoleInput, IsHitByEveryEventAndReturnsThePressedKeys) {
  for (const Event& event : kEvents) {
    SCOPED_TRACE(event.what);
    Queue({event.record, kLetter});
    uint8_t hit = kSpoilt;
    Guarded<KivSdConsoleKey> key;
    CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, key));
    EXPECT_EQ(hit, 1);
    ExpectKey(*key, event.hit.character, event.hit.scanCode);
    EXPECT_EQ(input.queue.size(), 1u);
    EXPECT_EQ(input.asked, 1u);
    EXPECT_EQ(input.peeked.back(), console.input);
    EXPECT_EQ(input.read.back(), console.input);
  }
}

TEST_F(ConsoleInput, IsNotHitWithoutAnEvent) {
  uint8_t hit = kSpoilt;
  Guarded<KivSdConsoleKey> key;
  CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, key));
  EXPECT_EQ(hit, 0);
  ExpectKey(*key, 0, 0);
  EXPECT_EQ(input.peeked, std::vector<HANDLE>{console.input});
  EXPECT_EQ(input.asked, 1u);
  EXPECT_TRUE(input.read.empty());
}

TEST_F(ConsoleInput, FillsOnlyTheRequestedResultsOfAHit) {
  uint8_t hit = kSpoilt;
  Guarded<KivSdConsoleKey> key;
  Queue({kLetter, kArrow, kLetter, kLetter});
  CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, nullptr));
  EXPECT_EQ(hit, 1);
  CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, nullptr, key));
  ExpectKey(*key, 0, 72);
  CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, nullptr, nullptr));
  EXPECT_EQ(KivSdConsoleKeyHit(nullptr, &console, nullptr, nullptr), KIV_ST_OK);
  EXPECT_TRUE(input.queue.empty());
  CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, nullptr, nullptr));
}

TEST_F(ConsoleInput, IsNotReadForANullConsole) {
  Queue({kLetter});
  uint8_t hit = kSpoilt;
  Guarded<KivSdConsoleKey> key;
  CHECK_ARGUMENT(ctx, KivSdConsoleKeyHit(ctx, nullptr, &hit, key));
  EXPECT_EQ(KivSdConsoleKeyHit(nullptr, nullptr, nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(hit, kSpoilt);
  EXPECT_TRUE(key.IsAll(kSpoilt));
  EXPECT_TRUE(input.peeked.empty());
}

TEST_F(ConsoleInput, IsNotHitAndFailsIfTheLookFails) {
  Queue({kLetter});
  const ImportPatch failing("PeekConsoleInputA", reinterpret_cast<void*>(&FailToPeek));
  uint8_t hit = kSpoilt;
  Guarded<KivSdConsoleKey> key;
  CHECK_OUTCOME(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, key), KIV_ST_CONSOLE_KEY,
                kErrorAccessDenied);
  EXPECT_EQ(hit, 0);
  ExpectKey(*key, 0, 0);
  EXPECT_TRUE(input.read.empty());
  EXPECT_EQ(KivSdConsoleKeyHit(nullptr, &console, nullptr, nullptr), KIV_ST_CONSOLE_KEY);
}

TEST_F(ConsoleInput, IsHitAndFailsIfTheReadFails) {
  Queue({kLetter, kLetter});
  const ImportPatch failing("ReadConsoleInputA", reinterpret_cast<void*>(&FailToRead));
  uint8_t hit = kSpoilt;
  Guarded<KivSdConsoleKey> key;
  CHECK_OUTCOME(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, key), KIV_ST_CONSOLE_KEY,
                kErrorAccessDenied);
  EXPECT_EQ(hit, 1);
  ExpectKey(*key, 0, 0);
  EXPECT_EQ(KivSdConsoleKeyHit(nullptr, &console, nullptr, nullptr), KIV_ST_CONSOLE_KEY);
}

TEST(ConsoleKeyHit, FailsOnAHandleThatIsNotAConsole) {
  Context ctx;
  KivHandle ends[2] = {};
  ASSERT_EQ(KivSdPipeCreate(nullptr, &ends[0], &ends[1], 0), KIV_ST_OK);
  KivSdConsole console = {ends[0], ends[1]};
  uint8_t hit = kSpoilt;
  CHECK_OUTCOME(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, nullptr), KIV_ST_CONSOLE_KEY,
                kiv::test::kOsNoConsole);
  EXPECT_EQ(hit, 0);
  for (KivHandle& end : ends) EXPECT_EQ(KivSdPipeClose(nullptr, &end), KIV_ST_OK);
}

// ---- KivSdConsoleKeyGet ----

std::deque<int> bytes;  // results of the runtime's calls

int Getch() {
  EXPECT_FALSE(bytes.empty()) << "would wait for a key";
  const int byte = bytes.front();
  bytes.pop_front();
  kiv::test::SetErrors(EBADF, kErrorAccessDenied);
  return byte;
}

class ConsoleKeyGet : public testing::Test {
 protected:
  ConsoleKeyGet() { bytes.clear(); }

  void ExpectGot(uint8_t raw, uint8_t character, uint8_t scanCode) {
    Guarded<KivSdConsoleKey> key;
    CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, raw, &ctx, key));
    ExpectKey(*key, character, scanCode);
  }

  Context ctx;
  ImportPatch patch{"_getch", reinterpret_cast<void*>(&Getch)};
};

TEST_F(ConsoleKeyGet, ReturnsOrdinaryKeysByTheirCharacter) {
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == 224) continue;
    bytes = {byte, 'x'};
    ExpectGot(0, static_cast<uint8_t>(byte), 0);
    EXPECT_EQ(bytes.size(), 1u);
  }
}

TEST_F(ConsoleKeyGet, ReturnsExtendedKeysByTheirScanCode) {
  for (const int prefix : {0, 224}) {
    for (const int code : {72, 0, 224, 255}) {
      bytes = {prefix, code, 'x'};
      ExpectGot(0, 0, static_cast<uint8_t>(code));
      EXPECT_EQ(bytes.size(), 1u);
    }
  }
}

TEST_F(ConsoleKeyGet, RawReturnsOneByteAtATime) {
  for (const uint8_t raw : {uint8_t{1}, uint8_t{2}, uint8_t{0x80}, uint8_t{0xFF}}) {
    bytes = {224, 72, 0, 59, 'a'};
    ExpectGot(raw, 224, 0);
    ExpectGot(raw, 72, 0);
    ExpectGot(raw, 0, 0);
    ExpectGot(raw, 59, 0);
    ExpectGot(raw, 'a', 0);
  }
}

TEST_F(ConsoleKeyGet, RemovesTheKeyEvenWithoutAResultPointer) {
  bytes = {224, 72, 'a', 'b'};
  CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, 0, nullptr, nullptr));
  EXPECT_EQ(bytes.size(), 2u);
  EXPECT_EQ(KivSdConsoleKeyGet(nullptr, 0, nullptr, nullptr), KIV_ST_OK);
  EXPECT_EQ(KivSdConsoleKeyGet(nullptr, 1, nullptr, nullptr), KIV_ST_OK);
  EXPECT_TRUE(bytes.empty());
}

// ---- KivSdConsoleIsKeyDown ----

TEST_F(ConsoleInput, HasAKeyDownForPressedKeysOnly) {
  for (const Event& event : kEvents) {
    SCOPED_TRACE(event.what);
    Queue({event.record, kLetter});
    Guarded<KivSdConsoleKey> key;
    const bool isDown = event.isDown != 0;
    EXPECT_EQ(KivSdConsoleIsKeyDown(key, nullptr), event.isDown);
    if (isDown) {
      ExpectKey(*key, event.down.character, event.down.scanCode);
    } else {
      EXPECT_TRUE(key.IsAll(kSpoilt));
    }
    EXPECT_EQ(input.queue.size(), 1u);
    EXPECT_EQ(input.asked, 1u);

    Queue({event.record});
    EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, nullptr), event.isDown);
    EXPECT_TRUE(input.queue.empty());
  }
}

TEST_F(ConsoleInput, HasNoKeyDownWithoutAnEvent) {
  Guarded<KivSdConsoleKey> key;
  EXPECT_EQ(KivSdConsoleIsKeyDown(key, nullptr), 0);
  EXPECT_TRUE(key.IsAll(kSpoilt));
  EXPECT_EQ(input.peeked.size(), 1u);
  EXPECT_TRUE(input.read.empty());
}

TEST_F(ConsoleInput, OfAKeyDownIsTheStandardInput) {
  Queue({kLetter});
  const ScriptedImport handles("GetStdHandle", {.result = 48});
  EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, nullptr), 1);
  ASSERT_EQ(handles.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(handles.calls()[0][0]), kStandardInput);
  EXPECT_EQ(input.peeked, std::vector<HANDLE>{Handle(48)});
  EXPECT_EQ(input.read, std::vector<HANDLE>{Handle(48)});
}

TEST_F(ConsoleInput, HasNoKeyDownWhenACallFails) {
  struct {
    const char* call;
    void* replacement;
  } const failures[] = {{"GetStdHandle", reinterpret_cast<void*>(&FailToFindHandle)},
                        {"PeekConsoleInputA", reinterpret_cast<void*>(&FailToPeek)},
                        {"ReadConsoleInputA", reinterpret_cast<void*>(&FailToRead)}};
  for (const auto& failure : failures) {
    SCOPED_TRACE(failure.call);
    Queue({kLetter, kLetter});
    const ImportPatch failing(failure.call, failure.replacement);
    KivSdLWSpinlock lock;
    KivSdLWSpinlockInit(&lock);
    Guarded<KivSdConsoleKey> key;
    EXPECT_EQ(KivSdConsoleIsKeyDown(key, nullptr), 0);
    EXPECT_EQ(KivSdConsoleIsKeyDown(key, &lock), 0);
    EXPECT_TRUE(key.IsAll(kSpoilt));
    EXPECT_EQ(KivSdLWSpinlockOwner(&lock), 0);
  }
}

// ---- KivSdConsoleIsKeyDown with a lock ----

struct LockedInput {
  KivSdLWSpinlock lock;
  std::atomic<int> waiting{0};  // number of unread events
  std::atomic<int> inside{0};   // number of threads between the peek and the end of the read
  std::atomic<int> overlaps{0};
  std::atomic<int> unlocked{0};
  std::atomic<int> wouldWait{0};
};
LockedInput* locked;

void CheckTheLock() {
  if (KivSdLWSpinlockOwner(&locked->lock) != 1) ++locked->unlocked;
}

BOOL WINAPI LockedPeek(HANDLE, INPUT_RECORD* records, DWORD, DWORD* count) {
  CheckTheLock();
  if (locked->inside.fetch_add(1) != 0) ++locked->overlaps;
  *count = locked->waiting.load() > 0 ? 1 : 0;
  records[0] = kLetter;
  std::this_thread::yield();  // other threads peek here if the lock fails
  if (*count == 0) --locked->inside;
  return TRUE;
}

BOOL WINAPI LockedRead(HANDLE, INPUT_RECORD* records, DWORD, DWORD* count) {
  CheckTheLock();
  std::this_thread::yield();
  if (locked->waiting.fetch_sub(1) <= 0) ++locked->wouldWait;
  records[0] = kLetter;
  *count = 1;
  --locked->inside;
  return TRUE;
}

class ConsoleLock : public kiv::test::LockDesignTest {
 protected:
  ConsoleLock() {
    KivSdLWSpinlockInit(&state_.lock);
    locked = &state_;
  }

  LockedInput state_;
  ImportPatch peek_{"PeekConsoleInputA", reinterpret_cast<void*>(&LockedPeek)};
  ImportPatch read_{"ReadConsoleInputA", reinterpret_cast<void*>(&LockedRead)};
};

TEST_P(ConsoleLock, IsHeldWhileAnEventIsExaminedAndRead) {
  state_.waiting = 1;
  EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, &state_.lock), 1);
  EXPECT_EQ(KivSdLWSpinlockOwner(&state_.lock), 0);
  EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, &state_.lock), 0);
  EXPECT_EQ(KivSdLWSpinlockOwner(&state_.lock), 0);
  EXPECT_EQ(state_.unlocked, 0);
}

TEST_P(ConsoleLock, IsStillHeldAfterwardsIfTheCallerHeldIt) {
  KivSdLWSpinlockAcquire(&state_.lock);
  state_.waiting = 1;
  EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, &state_.lock), 1);
  EXPECT_EQ(KivSdLWSpinlockOwner(&state_.lock), 1);
  KivSdLWSpinlockRelease(&state_.lock);
  EXPECT_EQ(KivSdLWSpinlockOwner(&state_.lock), 0);
}

TEST_P(ConsoleLock, LetsEachKeyBeReadOnce) {
  constexpr int kKeys = 2000;
  state_.waiting = kKeys;
  std::atomic<int> taken{0};
  OnThreads(2, [&](uint32_t) {
    for (int i = 0; i < kKeys; ++i) taken += KivSdConsoleIsKeyDown(nullptr, &state_.lock);
  });
  EXPECT_EQ(taken, kKeys);
  EXPECT_EQ(state_.waiting, 0);
  EXPECT_EQ(state_.overlaps, 0);
  EXPECT_EQ(state_.unlocked, 0);
  EXPECT_EQ(state_.wouldWait, 0);
}

INSTANTIATE_TEST_SUITE_P(Designs, ConsoleLock, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);

}  // namespace
