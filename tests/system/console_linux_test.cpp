// Keys of a Linux terminal: escape sequences, the terminal's mode, input that ends or is no
// terminal, and processes in the background. The terminal is a pseudo-terminal that the test types
// on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "os/console.h"
#include "os/lnx/keys.h"
#include "support/context.h"
#include "support/lnx/answered_calls.h"
#include "support/process.h"
#include "support/waiting.h"

namespace {

using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::Later;
using kiv::test::Stopwatch;

constexpr uint8_t kEndOfInput = 255;
constexpr uint32_t kEscapeMs = 50;  // after which an escape byte is a key by itself

// Makes a descriptor the process's standard input during its lifetime.
class StandardInput {
 public:
  explicit StandardInput(int input) : saved_(dup(STDIN_FILENO)) {
    EXPECT_EQ(dup2(input, STDIN_FILENO), STDIN_FILENO);
  }
  ~StandardInput() {
    if (saved_ == -1) return;
    dup2(saved_, STDIN_FILENO);
    close(saved_);
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  int saved_;
};

// A terminal without a session.
class Terminal {
 public:
  Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_EQ(grantpt(master_), 0);
    EXPECT_EQ(unlockpt(master_), 0);
    path_ = ptsname(master_);
    slave_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_NE(slave_, -1);
  }
  ~Terminal() {
    HangUp();
    close(slave_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  int slave() const { return slave_; }
  const std::string& path() const { return path_; }

  void Type(const std::string& keys) const {
    EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  termios Mode() const {
    termios mode = {};
    EXPECT_EQ(tcgetattr(slave_, &mode), 0);
    return mode;
  }

  void SetMode(const termios& mode) const { EXPECT_EQ(tcsetattr(slave_, TCSANOW, &mode), 0); }

  bool IsInKeyMode() const { return (Mode().c_lflag & (ICANON | ECHO | ISIG)) == 0; }

  // What the terminal shows.
  std::string Screen() const {
    char text[256];
    fcntl(master_, F_SETFL, O_NONBLOCK);
    const ssize_t count = read(master_, text, sizeof text);
    fcntl(master_, F_SETFL, 0);
    return count <= 0 ? "" : std::string(text, static_cast<size_t>(count));
  }

  void HangUp() {
    if (master_ != -1) close(master_);
    master_ = -1;
  }

 private:
  int master_;
  int slave_;
  std::string path_;
};

bool IsSameMode(const termios& one, const termios& other) {
  return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
         one.c_lflag == other.c_lflag && one.c_cc[VMIN] == other.c_cc[VMIN] &&
         one.c_cc[VTIME] == other.c_cc[VTIME];
}

void ExpectKey(const KivSdConsoleKey& key, uint8_t character, uint8_t scanCode) {
  EXPECT_EQ(key.character, character);
  EXPECT_EQ(key.scanCode, scanCode);
}

class Keys : public testing::Test {
 protected:
  Keys() { EXPECT_EQ(KivSdConsoleInit(nullptr, &console), KIV_ST_OK); }

  // Every test takes all that it types.
  ~Keys() override {
    KivSdConsoleKey key = {};
    EXPECT_FALSE(Hit(&key)) << int{key.character} << " " << int{key.scanCode};
    EXPECT_TRUE(IsSameMode(terminal.Mode(), before));
  }

  bool Hit(KivSdConsoleKey* key) {
    uint8_t hit = 7;
    CHECK_OK(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, key));
    EXPECT_LE(hit, 1);
    return hit != 0;
  }

  // The key of the next hit; fails if there is none in time.
  KivSdConsoleKey NextHit() {
    const Stopwatch watch;
    KivSdConsoleKey key = {};
    while (watch.ElapsedMs() < kLimitMs) {
      if (Hit(&key)) return key;
      KivSdSleep(nullptr, 1);
    }
    ADD_FAILURE() << "no key comes";
    return {};
  }

  // Types the first byte of a sequence, which a look takes for no key yet. A thread that had to wait
  // may be too late and find the escape key alone.
  void TypeBeginning() {
    KivSdConsoleKey key = {};
    bool isHit = true;
    for (int trials = 0; isHit && trials < 10; ++trials) {
      terminal.Type("\033");
      isHit = Hit(&key);
    }
    EXPECT_FALSE(isHit);
  }

  KivSdConsoleKey Get(uint8_t raw = 0) {
    KivSdConsoleKey key = {};
    CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, raw, nullptr, &key));
    return key;
  }

  Context ctx;
  KivSdConsole console = {};
  Terminal terminal;
  StandardInput input{terminal.slave()};
  termios before = terminal.Mode();
};

// ---- Sequences ----

// What terminals send, the keyboard's scan code, and the two bytes of the PC convention.
struct Sequence {
  const char* bytes;
  uint8_t scanCode;
  uint8_t prefix;
  uint8_t code;
};

constexpr Sequence kSequences[] = {
    // xterm; with the keypad in application mode; Linux console; VT
    {"\033[A", 72, 224, 72},
    {"\033[B", 80, 224, 80},
    {"\033[C", 77, 224, 77},
    {"\033[D", 75, 224, 75},
    {"\033OA", 72, 224, 72},
    {"\033OB", 80, 224, 80},
    {"\033OC", 77, 224, 77},
    {"\033OD", 75, 224, 75},
    {"\033[H", 71, 224, 71},
    {"\033[F", 79, 224, 79},
    {"\033OH", 71, 224, 71},
    {"\033OF", 79, 224, 79},
    {"\033[1~", 71, 224, 71},
    {"\033[4~", 79, 224, 79},
    {"\033[7~", 71, 224, 71},
    {"\033[8~", 79, 224, 79},
    {"\033[2~", 82, 224, 82},
    {"\033[3~", 83, 224, 83},
    {"\033[5~", 73, 224, 73},
    {"\033[6~", 81, 224, 81},
    {"\033OP", 59, 0, 59},
    {"\033OQ", 60, 0, 60},
    {"\033OR", 61, 0, 61},
    {"\033OS", 62, 0, 62},
    {"\033[[A", 59, 0, 59},
    {"\033[[E", 63, 0, 63},
    {"\033[11~", 59, 0, 59},
    {"\033[15~", 63, 0, 63},
    {"\033[17~", 64, 0, 64},
    {"\033[18~", 65, 0, 65},
    {"\033[19~", 66, 0, 66},
    {"\033[20~", 67, 0, 67},
    {"\033[21~", 68, 0, 68},
    {"\033[23~", 87, 224, 133},
    {"\033[24~", 88, 224, 134},
    // with shift, control, the alternate key, and several of them
    {"\033[1;2A", 72, 224, 72},
    {"\033[1;5A", 72, 224, 141},
    {"\033[1;3A", 72, 0, 152},
    {"\033[1;7D", 75, 0, 155},
    {"\033[1;6C", 77, 224, 116},
    {"\033[3;5~", 83, 224, 147},
    {"\033[6;3~", 81, 0, 161},
    {"\033[1;2P", 59, 0, 84},
    {"\033[1;5S", 62, 0, 97},
    {"\033[15;3~", 63, 0, 108},
    {"\033[24;2~", 88, 224, 136},
    {"\033[23;3~", 87, 224, 139},
};

TEST_F(Keys, OfEveryTerminalAreHitByTheirScanCode) {
  for (const Sequence& sequence : kSequences) {
    SCOPED_TRACE(sequence.bytes + 1);
    terminal.Type(sequence.bytes);
    ExpectKey(NextHit(), 0, sequence.scanCode);
  }
}

TEST_F(Keys, OfEveryTerminalAreReadInThePcConvention) {
  for (const Sequence& sequence : kSequences) {
    SCOPED_TRACE(sequence.bytes + 1);
    terminal.Type(sequence.bytes);
    ExpectKey(Get(), 0, sequence.code);
    terminal.Type(sequence.bytes);
    ExpectKey(Get(1), sequence.prefix, 0);
    ExpectKey(Get(1), sequence.code, 0);
  }
}

// Of every key that has a sequence, what it sends plainly, with shift, control and the alternate key.
// The prefix of a column is 0 or 224.
struct KeyTable {
  const char* sequence;  // its number and last byte
  uint8_t scanCode;
  uint8_t prefixes[4];
  uint8_t codes[4];
};

constexpr KeyTable kKeyTable[] = {
    {"1H", 71, {224, 224, 224, 0}, {71, 71, 119, 151}},
    {"1A", 72, {224, 224, 224, 0}, {72, 72, 141, 152}},
    {"5~", 73, {224, 224, 224, 0}, {73, 73, 134, 153}},
    {"1D", 75, {224, 224, 224, 0}, {75, 75, 115, 155}},
    {"1C", 77, {224, 224, 224, 0}, {77, 77, 116, 157}},
    {"1F", 79, {224, 224, 224, 0}, {79, 79, 117, 159}},
    {"1B", 80, {224, 224, 224, 0}, {80, 80, 145, 160}},
    {"6~", 81, {224, 224, 224, 0}, {81, 81, 118, 161}},
    {"2~", 82, {224, 224, 224, 0}, {82, 82, 146, 162}},
    {"3~", 83, {224, 224, 224, 0}, {83, 83, 147, 163}},
    {"11~", 59, {0, 0, 0, 0}, {59, 84, 94, 104}},
    {"12~", 60, {0, 0, 0, 0}, {60, 85, 95, 105}},
    {"13~", 61, {0, 0, 0, 0}, {61, 86, 96, 106}},
    {"14~", 62, {0, 0, 0, 0}, {62, 87, 97, 107}},
    {"15~", 63, {0, 0, 0, 0}, {63, 88, 98, 108}},
    {"17~", 64, {0, 0, 0, 0}, {64, 89, 99, 109}},
    {"18~", 65, {0, 0, 0, 0}, {65, 90, 100, 110}},
    {"19~", 66, {0, 0, 0, 0}, {66, 91, 101, 111}},
    {"20~", 67, {0, 0, 0, 0}, {67, 92, 102, 112}},
    {"21~", 68, {0, 0, 0, 0}, {68, 93, 103, 113}},
    {"23~", 87, {224, 224, 224, 224}, {133, 135, 137, 139}},
    {"24~", 88, {224, 224, 224, 224}, {134, 136, 138, 140}},
};

TEST_F(Keys, HaveAnOwnCodeWithEachModifier) {
  constexpr const char* kModifiers[] = {";1", ";2", ";5", ";3"};
  for (const KeyTable& key : kKeyTable) {
    const std::string number(key.sequence, std::strlen(key.sequence) - 1);
    for (size_t column = 0; column < 4; ++column) {
      const std::string sequence =
          "\033[" + number + kModifiers[column] + key.sequence[number.size()];
      SCOPED_TRACE(sequence.substr(1));
      terminal.Type(sequence);
      ExpectKey(NextHit(), 0, key.scanCode);
      terminal.Type(sequence);
      ExpectKey(Get(1), key.prefixes[column], 0);
      ExpectKey(Get(1), key.codes[column], 0);
    }
  }
}

TEST_F(Keys, TypedTogetherAreTakenOneByOne) {
  terminal.Type("a\033[Ab\033[3~");
  ExpectKey(NextHit(), 'a', 0);
  ExpectKey(NextHit(), 0, 72);
  ExpectKey(Get(), 'b', 0);
  ExpectKey(Get(), 0, 83);
}

TEST_F(Keys, WithoutAMeaningAreHitsAndAreNotRead) {
  for (const char* unknown : {"\033[99~", "\033[Z", "\033[?1;2c", "\033[[F", "\033Oz", "\033[16~",
                              "\033[1;2;3;4;5R", "\033[12;40R"}) {
    SCOPED_TRACE(unknown + 1);
    terminal.Type(unknown);
    ExpectKey(NextHit(), 0, 0);
    terminal.Type(std::string(unknown) + "q");
    ExpectKey(Get(), 'q', 0);
  }
}

TEST_F(Keys, ThatAreTooLongForASequenceAreOrdinary) {
  terminal.Type("\033[" + std::string(60, '1'));
  ExpectKey(NextHit(), 27, 0);
  ExpectKey(NextHit(), '[', 0);
  for (int i = 0; i < 60; ++i) ExpectKey(NextHit(), '1', 0);
}

// A sequence has 32 bytes at most, with the escape byte.
TEST(KeyDecoder, TakesSequencesUpToALongestOne) {
  for (const size_t length : {size_t{32}, size_t{33}}) {
    const std::string sequence = "\033[" + std::string(length - 3, '1') + "A";
    kiv::os::KeyDecoder decoder;
    decoder.Add(reinterpret_cast<const unsigned char*>(sequence.data()), length);
    kiv::os::Key key = {};
    EXPECT_EQ(decoder.Take(false, &key), kiv::os::Decoded::kKey);
    const size_t left = kiv::os::KeyDecoder::kCapacity - decoder.room();
    EXPECT_EQ(left, length == 32 ? 0 : length - 1) << "the escape byte alone";
  }
}

TEST(KeyDecoder, KnowsThatASequenceIsTooLongBeforeItsEnd) {
  const std::string begin = "\033[" + std::string(30, '1');
  kiv::os::KeyDecoder decoder;
  decoder.Add(reinterpret_cast<const unsigned char*>(begin.data()), begin.size());
  EXPECT_EQ(decoder.Look(false), kiv::os::Decoded::kKey);
}

// Any bytes become keys, each of at least one byte.
TEST(KeyDecoder, TakesEveryByte) {
  std::mt19937 random(7);
  constexpr char kLikely[] = "\033\033[[O;~1259ABHPR";
  std::uniform_int_distribution<size_t> pick(0, sizeof kLikely - 2);
  std::uniform_int_distribution<unsigned> byte(0, 255);
  for (int round = 0; round < 2000; ++round) {
    kiv::os::KeyDecoder decoder;
    const size_t count = byte(random);
    for (size_t i = 0; i < count; ++i) {
      const auto any = static_cast<unsigned char>(byte(random));
      const unsigned char next = any < 32 ? any : static_cast<unsigned char>(kLikely[pick(random)]);
      decoder.Add(&next, 1);
    }
    size_t left = kiv::os::KeyDecoder::kCapacity - decoder.room();
    ASSERT_EQ(left, count);
    kiv::os::Key key = {};
    while (left != 0) {
      ASSERT_EQ(decoder.Look(true), kiv::os::Decoded::kKey);
      ASSERT_EQ(decoder.Take(true, &key), kiv::os::Decoded::kKey);
      const size_t now = kiv::os::KeyDecoder::kCapacity - decoder.room();
      ASSERT_LT(now, left);
      left = now;
    }
    ASSERT_EQ(decoder.Take(true, &key), kiv::os::Decoded::kNothing);
  }
}

// ---- The escape key ----

TEST_F(Keys, EscapeIsAKeyAfterAShortTime) {
  const Stopwatch watch;
  terminal.Type("\033");
  ExpectKey(NextHit(), 27, 0);
  EXPECT_GE(watch.ElapsedMs(), kEscapeMs - 1);
  terminal.Type("\033");
  ExpectKey(Get(), 27, 0);
}

// The rest came in time, but the host looks for it late.
TEST_F(Keys, ASequenceWhoseRestIsReadLateIsOneKey) {
  KivSdConsoleKey key = {};
  TypeBeginning();
  terminal.Type("[A");
  KivSdSleep(nullptr, kEscapeMs + 10);
  ASSERT_TRUE(Hit(&key));
  ExpectKey(key, 0, 72);
  TypeBeginning();
  terminal.Type("[B");
  KivSdSleep(nullptr, kEscapeMs + 10);
  ExpectKey(Get(), 0, 80);
}

TEST_F(Keys, EscapeBeforeAnOtherKeyIsAKeyAtOnce) {
  terminal.Type("\033x");
  ExpectKey(Get(), 27, 0);
  ExpectKey(Get(), 'x', 0);
  terminal.Type("\033\033[A");
  ExpectKey(NextHit(), 27, 0);
  ExpectKey(NextHit(), 0, 72);
}

TEST_F(Keys, ASequenceMayArriveInParts) {
  terminal.Type("\033");
  KivSdConsoleKey key = {9, 9};
  EXPECT_FALSE(Hit(&key));
  ExpectKey(key, 0, 0);
  terminal.Type("[1;");
  EXPECT_FALSE(Hit(&key));
  terminal.Type("5C");
  ExpectKey(Get(), 0, 116);
}

TEST_F(Keys, ASequenceThatDoesNotEndIsOrdinary) {
  terminal.Type("\033[1");
  ExpectKey(NextHit(), 27, 0);
  ExpectKey(NextHit(), '[', 0);
  ExpectKey(NextHit(), '1', 0);
}

// ---- Ordinary keys ----

TEST_F(Keys, OfCharactersAreTheirBytes) {
  const std::string text = "aZ09 ~\t\x01\xC3\xA4\xE2\x82\xAC";
  terminal.Type(text);
  for (const char letter : text) ExpectKey(NextHit(), static_cast<uint8_t>(letter), 0);
}

TEST_F(Keys, ReturnAndBackspaceAreThoseOfThePc) {
  const Later typist([&] { terminal.Type("\r\x7F\b"); });
  for (const int character : {13, 8, 8}) ExpectKey(Get(), static_cast<uint8_t>(character), 0);
  terminal.Type("\n");  // what the terminal makes of the return key between the calls
  ExpectKey(NextHit(), 13, 0);
}

TEST_F(Keys, WithASignalAreReadAndSendNone) {
  const Later typist([&] { terminal.Type("\x03\x1C\x1A\x13\x11"); });
  for (const int character : {3, 28, 26, 19, 17})
    ExpectKey(Get(), static_cast<uint8_t>(character), 0);
}

TEST_F(Keys, ThatAreDownHaveTheirPcNumber) {
  const struct {
    const char* typed;
    uint8_t number;
  } cases[] = {{"a", 'A'},   {"A", 'A'},    {"7", '7'},  {"&", '7'},  {" ", ' '},  {"\r", 13},
               {"\t", 9},    {"\x02", 'B'}, {";", 0xBA}, {":", 0xBA}, {"=", 0xBB}, {"+", 0xBB},
               {",", 0xBC},  {"<", 0xBC},   {"-", 0xBD}, {"_", 0xBD}, {".", 0xBE}, {">", 0xBE},
               {"/", 0xBF},  {"?", 0xBF},   {"`", 0xC0}, {"~", 0xC0}, {"[", 0xDB}, {"{", 0xDB},
               {"\\", 0xDC}, {"|", 0xDC},   {"]", 0xDD}, {"}", 0xDD}, {"'", 0xDE}, {"\"", 0xDE},
               {"!", '1'},   {"@", '2'},    {"#", '3'},  {"$", '4'},  {"%", '5'},  {"^", '6'},
               {"*", '8'},   {"(", '9'},    {")", '0'},  {"\xC3", 0}};
  for (const auto& [typed, number] : cases) {
    SCOPED_TRACE(typed);
    terminal.Type(typed);
    KivSdConsoleKey key = {7, 7};
    const Stopwatch watch;
    while (KivSdConsoleIsKeyDown(&key, nullptr) == 0 && watch.ElapsedMs() < kLimitMs) {
    }
    ExpectKey(key, number, 0);
  }
  KivSdConsoleKey key = {7, 7};
  terminal.Type("\033[21~");
  const Stopwatch watch;
  while (KivSdConsoleIsKeyDown(&key, nullptr) == 0 && watch.ElapsedMs() < kLimitMs) {
  }
  ExpectKey(key, 0, 68);
}

// ---- The terminal's mode ----

TEST_F(Keys, TypedBetweenTheCallsAreKept) {
  terminal.Type("ab");
  KivSdSleep(nullptr, 20);  // the terminal collects a line meanwhile
  ExpectKey(NextHit(), 'a', 0);
  ExpectKey(NextHit(), 'b', 0);
}

TEST_F(Keys, AreNotEchoedWhileACallWaits) {
  std::atomic<bool> wasInKeyMode{false};
  const Later typist([&] {
    wasInKeyMode = terminal.IsInKeyMode();
    terminal.Type("s\033[A");
  });
  ExpectKey(Get(), 's', 0);
  ExpectKey(Get(), 0, 72);
  EXPECT_TRUE(wasInKeyMode);
  EXPECT_FALSE(terminal.IsInKeyMode());
  EXPECT_EQ(terminal.Screen(), "");
}

TEST_F(Keys, AreReadAgainAfterSomebodyElseChangedTheMode) {
  std::atomic<bool> isBack{false};
  std::thread shell([&] {
    KivSdSleep(nullptr, 50);
    terminal.SetMode(before);  // a shell that continues a stopped process
    const Stopwatch watch;
    while (!isBack && watch.ElapsedMs() < kLimitMs) {
      isBack = terminal.IsInKeyMode();
      KivSdSleep(nullptr, 5);
    }
    terminal.Type("k");
  });
  ExpectKey(Get(), 'k', 0);
  shell.join();
  EXPECT_TRUE(isBack);
}

TEST_F(Keys, AreReadAtOnceAlsoAfterSomebodyElseMadeReadsWait) {
  std::atomic<bool> isBack{false};
  std::thread other([&] {
    while (!terminal.IsInKeyMode()) KivSdSleep(nullptr, 1);
    termios waiting = terminal.Mode();
    waiting.c_cc[VMIN] = 1;
    terminal.SetMode(waiting);
    const Stopwatch watch;
    while (!isBack && watch.ElapsedMs() < kLimitMs) {
      isBack = terminal.Mode().c_cc[VMIN] == 0;
      KivSdSleep(nullptr, 5);
    }
    terminal.Type("k");
  });
  ExpectKey(Get(), 'k', 0);
  other.join();
  EXPECT_TRUE(isBack);
  terminal.SetMode(before);
}

TEST_F(Keys, ThatAreNotReadAtOnceComeWithALaterLook) {
  KivSdConsoleKey key = {};
  const kiv::test::Answering failures[] = {kiv::test::Refuse(EAGAIN), kiv::test::Refuse(EINTR),
                                           kiv::test::Give(0)};
  for (const auto& failure : failures) {
    terminal.Type("k");
    const Stopwatch watch;
    {
      const kiv::test::AnsweredCall read("read", failure);
      while (read.answered() == 0 && watch.ElapsedMs() < kLimitMs) EXPECT_FALSE(Hit(&key));
    }
    ExpectKey(NextHit(), 'k', 0);
  }
}

// The kernel refuses a read of a process that has just gone to the background.
TEST_F(Keys, OfATerminalThatWasJustLostComeWhenItIsBack) {
  KivSdConsoleKey key = {};
  terminal.Type("k");
  {
    const kiv::test::AnsweredCall refused("read", kiv::test::Refuse(EIO));
    const kiv::test::AnsweredCall group("tcgetpgrp",
                                        [&](const kiv::test::Words&, kiv::test::Word* word) {
                                          if (refused.answered() == 0)
                                            return kiv::test::Answer::kPass;
                                          *word = getpgrp() + 1;
                                          return kiv::test::Answer::kGive;
                                        });
    const Stopwatch watch;
    while (refused.answered() == 0 && watch.ElapsedMs() < kLimitMs) EXPECT_FALSE(Hit(&key));
  }
  terminal.SetMode(before);  // as its shell does
  ExpectKey(NextHit(), 'k', 0);
}

TEST_F(Keys, OfATerminalThatFailsAreAFailure) {
  terminal.Type("k");
  {
    const kiv::test::AnsweredCall refused("read", kiv::test::Refuse(EIO));
    const auto taken = kiv::os::TakeConsoleEvent(kiv::os::StandardInput().value);
    EXPECT_FALSE(taken.ok);
    EXPECT_EQ(taken.error, uint32_t{EIO});
  }
  ExpectKey(NextHit(), 'k', 0);
}

TEST_F(Keys, OfTwoThreadsLeaveTheModeAsItWas) {
  std::thread waiting([&] { ExpectKey(Get(), 'w', 0); });
  const Stopwatch watch;
  while (!terminal.IsInKeyMode() && watch.ElapsedMs() < kLimitMs) KivSdSleep(nullptr, 1);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(KivSdConsoleKeyHit(nullptr, &console, nullptr, nullptr), 0u);
  EXPECT_TRUE(terminal.IsInKeyMode());
  terminal.Type("w");
  waiting.join();
  EXPECT_TRUE(IsSameMode(terminal.Mode(), before));
}

// ---- Input that ends, and other input ----

TEST(KeysWithoutATerminal, EndIfTheTerminalHangsUp) {
  Terminal terminal;
  const StandardInput input(terminal.slave());
  KivSdConsole console = {};
  ASSERT_EQ(KivSdConsoleInit(nullptr, &console), KIV_ST_OK);
  terminal.Type("z");
  Context ctx;
  KivSdConsoleKey key = {};
  CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, 0, nullptr, &key));
  ExpectKey(key, 'z', 0);
  {
    const Later hangUp([&] { terminal.HangUp(); });
    CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, 0, nullptr, &key));
  }
  ExpectKey(key, kEndOfInput, 0);
  uint8_t hit = 7;
  CHECK_OUTCOME(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, &key), KIV_ST_CONSOLE_KEY,
                uint32_t{EIO});
  EXPECT_EQ(hit, 0);
  EXPECT_EQ(KivSdConsoleIsKeyDown(&key, nullptr), 0);
}

TEST(KeysWithoutATerminal, OfAPipeAreItsBytesUpToItsEnd) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "q\n\x7F\033[A\033", 7), 7);
  close(ends[1]);
  const StandardInput input(ends[0]);
  close(ends[0]);
  Context ctx;
  KivSdConsole console = {};
  CHECK_OK(ctx, KivSdConsoleInit(ctx, &console));
  uint8_t hit = 7;
  CHECK_OUTCOME(ctx, KivSdConsoleKeyHit(ctx, &console, &hit, nullptr), KIV_ST_CONSOLE_KEY,
                uint32_t{ENOTTY});
  EXPECT_EQ(hit, 0);
  const struct {
    uint8_t character, scanCode;
  } keys[] = {{'q', 0}, {'\n', 0}, {127, 0}, {0, 72}, {27, 0}, {255, 0}, {255, 0}};
  for (const auto& [character, scanCode] : keys) {
    KivSdConsoleKey key = {};
    CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, 0, nullptr, &key));
    ExpectKey(key, character, scanCode);
  }
}

TEST(KeysWithoutATerminal, AreNoneWithoutAStandardInput) {
  const int saved = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  Context ctx;
  KivSdConsole console = {&ctx, &ctx};
  CHECK_OK(ctx, KivSdConsoleInit(ctx, &console));
  EXPECT_EQ(console.input, nullptr);
  EXPECT_NE(console.output, nullptr);
  CHECK_OUTCOME(ctx, KivSdConsoleKeyHit(ctx, &console, nullptr, nullptr), KIV_ST_CONSOLE_KEY,
                uint32_t{EBADF});
  KivSdConsoleKey key = {};
  CHECK_OK(ctx, KivSdConsoleKeyGet(ctx, 0, nullptr, &key));
  ExpectKey(key, kEndOfInput, 0);
  if (saved != -1) dup2(saved, STDIN_FILENO);
  close(saved);
}

// ---- The background ----

enum : int { kGood = 41, kBad = 42 };

// Runs in the background of a session whose terminal has a key waiting.
int TryKeysInBackground(const Terminal& terminal) {
  const termios before = terminal.Mode();
  KivSdConsole console = {};
  uint8_t hit = 7;
  if (KivSdConsoleInit(nullptr, &console) != KIV_ST_OK) return kBad;
  if (KivSdConsoleKeyHit(nullptr, &console, &hit, nullptr) != KIV_ST_OK || hit != 0) return kBad;
  if (KivSdConsoleIsKeyDown(nullptr, nullptr) != 0) return kBad;
  return IsSameMode(terminal.Mode(), before) ? kGood : kBad;
}

// Leads a session with the terminal, and starts a process in its background.
int LeadSession(const Terminal& terminal) {
  setsid();
  const int console = open(terminal.path().c_str(), O_RDWR | O_CLOEXEC);
  if (console == -1 || ioctl(console, TIOCSCTTY, 0) != 0) return kBad;
  dup2(console, STDIN_FILENO);
  terminal.Type("b\n");
  const pid_t background = fork();
  if (background == 0) {
    setpgid(0, 0);
    _exit(TryKeysInBackground(terminal));
  }
  int status = 0;
  if (waitpid(background, &status, WUNTRACED) != background || !WIFEXITED(status)) {
    kill(background, SIGKILL);
    return kBad;
  }
  KivSdConsole keys = {};
  KivSdConsoleKey key = {};
  uint8_t hit = 0;
  KivSdConsoleInit(nullptr, &keys);
  KivSdConsoleKeyHit(nullptr, &keys, &hit, &key);
  return WEXITSTATUS(status) == kGood && hit == 1 && key.character == 'b' ? kGood : kBad;
}

TEST(KeysInTheBackground, AreLeftToTheForegroundAndStopNobody) {
  const Terminal terminal;
  const pid_t leader = fork();
  ASSERT_NE(leader, -1);
  if (leader == 0) _exit(LeadSession(terminal));
  int status = 0;
  ASSERT_EQ(waitpid(leader, &status, 0), leader);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kGood) << status;
}

// ---- Text ----

TEST(ConsoleText, ToAPipeThatNobodyReadsFailsWithoutASignal) {
  IN_FRESH_PROCESS([] {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(dup2(ends[1], STDOUT_FILENO), STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    Context ctx;
    const std::string text(100'000, 'x');
    CHECK_OUTCOME(ctx, KivSdConsoleWrite(ctx, nullptr, 1, text.c_str()), KIV_ST_CONSOLE_WRITE,
                  uint32_t{EPIPE});
  });
}

TEST(ConsoleText, LeavesErrnoAsItWas) {
  IN_FRESH_PROCESS([] {
    const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(dup2(sink, STDOUT_FILENO), STDOUT_FILENO);
    close(sink);
    const std::string text(100'000, 'x');
    EXPECT_EQ(KivSdConsoleWrite(nullptr, nullptr, 1, text.c_str()), KIV_ST_OK);
    errno = EXDEV;
    const uint32_t status = KivSdConsoleWrite(nullptr, nullptr, 1, text.c_str());
    const int error = errno;
    EXPECT_EQ(status, KIV_ST_OK);
    EXPECT_EQ(error, EXDEV);
  });
}

}  // namespace
