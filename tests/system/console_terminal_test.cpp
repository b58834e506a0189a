// Keys of a real console. tests/system/run-on-terminal runs this program on a terminal and types
// the keys that the program requests on standard error.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/threads.h"
#include "support/waiting.h"

namespace {

using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::OnThreads;
using kiv::test::Stopwatch;

// The sequences that a terminal sends for keys without a character, in the notation of printf.
constexpr char kTypeUp[] = "\\033[A";
constexpr char kTypeDown[] = "\\033[B";
constexpr char kTypeAltUp[] = "\\033[1;3A";

constexpr uint8_t kScanUp = 72;
constexpr uint8_t kScanDown = 80;
constexpr uint8_t kScanAltUp = 152;
constexpr uint8_t kPrefix = 224;

void Type(const std::string& keys) {
  std::fprintf(stderr, "type %s\n", keys.c_str());
  std::fflush(stderr);
}

class Terminal : public testing::Test {
 protected:
  void SetUp() override {
    CHECK_OK(ctx, KivSdConsoleInit(ctx, &console));
    ASSERT_TRUE(FlushConsoleInputBuffer(console.input)) << "standard input is no console";
  }

  // Returns the key of the next hit; fails if there is none in time.
  KivSdConsoleKey NextHit() {
    const Stopwatch watch;
    while (watch.ElapsedMs() < kLimitMs) {
      uint8_t hit = 0;
      KivSdConsoleKey key = {};
      CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, &key));
      if (hit != 0) return key;
      Sleep(1);
    }
    ADD_FAILURE() << "no event comes";
    return {};
  }

  // Returns the next key that is pressed; fails if there is none in time.
  static KivSdConsoleKey NextDown(KivSdLWSpinlock* lock) {
    const Stopwatch watch;
    while (watch.ElapsedMs() < kLimitMs) {
      KivSdConsoleKey key = {};
      if (KivSdConsoleIsKeyDown(&key, lock) != 0) return key;
      Sleep(1);
    }
    ADD_FAILURE() << "no key comes";
    return {};
  }

  // Adds events to the console's queue, like the system does.
  void Inject(const std::vector<INPUT_RECORD>& records) {
    DWORD count = 0;
    ASSERT_TRUE(WriteConsoleInputA(console.input, records.data(),
                                   static_cast<DWORD>(records.size()), &count));
    ASSERT_EQ(count, records.size());
  }

  Context ctx;
  KivSdConsole console = {};
};

void ExpectKey(const KivSdConsoleKey& key, uint8_t character, uint8_t scanCode) {
  EXPECT_EQ(key.character, character);
  EXPECT_EQ(key.scanCode, scanCode);
}

INPUT_RECORD ExtendedKey(uint8_t scanCode) {
  INPUT_RECORD record = {};
  record.EventType = KEY_EVENT;
  record.Event.KeyEvent.bKeyDown = TRUE;
  record.Event.KeyEvent.wRepeatCount = 1;
  record.Event.KeyEvent.wVirtualKeyCode = VK_UP;
  record.Event.KeyEvent.wVirtualScanCode = scanCode;
  record.Event.KeyEvent.dwControlKeyState = ENHANCED_KEY;
  return record;
}

INPUT_RECORD OtherEvent(int type) {
  INPUT_RECORD record = {};
  record.EventType = static_cast<WORD>(type);
  return record;
}

TEST_F(Terminal, IsTheConsole) {
  DWORD mode = 0;
  EXPECT_TRUE(GetConsoleMode(console.input, &mode));
  EXPECT_TRUE(GetConsoleMode(console.output, &mode));
}

TEST_F(Terminal, IsNotHitUntilAKeyIsTyped) {
  uint8_t hit = 1;
  KivSdConsoleKey key = {1, 1};
  CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, &key));
  EXPECT_EQ(hit, 0);
  ExpectKey(key, 0, 0);
  EXPECT_EQ(KivSdConsoleIsKeyDown(&key, nullptr), 0);

  Type("a");
  ExpectKey(NextHit(), 'a', 0);
  ExpectKey(NextHit(), 0, 0);  // the key is released
}

TEST_F(Terminal, ReturnsTheCharacterOfAHitAndTheNumberOfAKeyDown) {
  Type("b");
  ExpectKey(NextHit(), 'b', 0);
  ExpectKey(NextHit(), 0, 0);
  Type("b");
  ExpectKey(NextDown(nullptr), 'B', 0);
  ExpectKey(NextHit(), 0, 0);
}

// Wine converts the terminal's sequences to keys but marks none of them as extended, so the test
// adds marked events to the queue itself.
TEST_F(Terminal, ReturnsExtendedKeysByTheirScanCode) {
  Inject({ExtendedKey(kScanUp)});
  ExpectKey(NextHit(), 0, kScanUp);
  Inject({ExtendedKey(kScanDown)});
  ExpectKey(NextDown(nullptr), 0, kScanDown);
}

TEST_F(Terminal, IsHitByEventsThatAreNotKeys) {
  for (const int type : {MOUSE_EVENT, WINDOW_BUFFER_SIZE_EVENT, MENU_EVENT, FOCUS_EVENT}) {
    SCOPED_TRACE(type);
    Inject({OtherEvent(type)});
    ExpectKey(NextHit(), 0, 0);
    uint8_t hit = 1;
    CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, nullptr));
    EXPECT_EQ(hit, 0);
    Inject({OtherEvent(type)});
    EXPECT_EQ(KivSdConsoleIsKeyDown(nullptr, nullptr), 0);
    CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, nullptr));
    EXPECT_EQ(hit, 0);
  }
}

class TerminalKeyGet : public Terminal {
 protected:
  void ExpectGot(uint8_t raw, uint8_t character, uint8_t scanCode) {
    KivSdConsoleKey key = {};
    CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, raw, &console, &key));
    ExpectKey(key, character, scanCode);
  }
};

TEST_F(TerminalKeyGet, WaitsForTheKey) {
  Type("q");
  ExpectGot(0, 'q', 0);
  Type("Q");
  ExpectGot(1, 'Q', 0);
}

TEST_F(TerminalKeyGet, ReturnsAnArrowWholeOrByteByByte) {
  Type(kTypeUp);
  ExpectGot(0, 0, kScanUp);
  Type(kTypeDown);
  ExpectGot(1, kPrefix, 0);
  ExpectGot(1, kScanDown, 0);
}

// With the alternate key the prefix is 0. Only arrows are tested, because Wine's runtime waits
// forever for function keys.
TEST_F(TerminalKeyGet, ReturnsAnAlternateArrowWholeOrByteByByte) {
  Type(kTypeAltUp);
  ExpectGot(0, 0, kScanAltUp);
  Type(kTypeAltUp);
  ExpectGot(1, 0, 0);
  ExpectGot(1, kScanAltUp, 0);
}

TEST_F(Terminal, ReturnsEachKeyToOneOfTheThreadsThatShareALock) {
  constexpr int kKeys = 200;
  KivSdLWSpinlock lock;
  KivSdLWSpinlockInit(&lock);
  Inject(std::vector<INPUT_RECORD>(kKeys, ExtendedKey(kScanUp)));
  std::atomic<int> taken{0};
  std::atomic<int> others{0};
  OnThreads(2, [&](uint32_t) {
    for (int i = 0; i < kKeys; ++i) {
      KivSdConsoleKey key = {};
      if (KivSdConsoleIsKeyDown(&key, &lock) == 0) continue;
      ++taken;
      if (key.character != 0 || key.scanCode != kScanUp) ++others;
    }
  });
  EXPECT_EQ(taken, kKeys);
  EXPECT_EQ(others, 0);
}

}  // namespace
