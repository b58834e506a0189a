// The memory configuration file: its words, keywords and numbers, and the reports of wrong ones.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "memsys/configuration_words.h"
#include "support/memory_settings.h"

namespace {

using kiv::MemorySettings;
using kiv::test::Defaults;
using kiv::test::Parse;
using kiv::test::Parsed;
using kiv::test::ParseOver;
using std::string_literals::operator""s;

constexpr uint64_t kTiB = uint64_t{1} << 40;

std::string Unknown(const std::string& word) {
  return "\nUnknown keyword [" + word + "] in the memory configuration file\n";
}

std::string Wrong(const std::string& value, const std::string& keyword) {
  return "\nWrong keyword [" + value + "] in the memory configuration file after keyword [" +
         keyword + "]\n";
}

// Expects that the file sets these settings and nothing is reported.
void ExpectSet(const std::string& bytes, const MemorySettings& settings) {
  EXPECT_EQ(Parse(bytes), (Parsed{settings, ""})) << bytes;
}

// Expects that the file sets nothing and this report is printed.
void ExpectNothing(const std::string& bytes, const std::string& printed) {
  EXPECT_EQ(Parse(bytes), (Parsed{kiv::DefaultMemorySettings(), printed})) << bytes;
}

MemorySettings WithHeapBudget(int32_t count) {
  return Defaults([count](MemorySettings* s) { s->heapBudget = count; });
}

// ---- Keywords ----

struct KeywordCase {
  const char* name;
  const char* value;  // null: a flag
  MemorySettings settings;
};

std::vector<KeywordCase> EveryKeyword() {
  return {
      {"numheaps", "5", WithHeapBudget(5)},
      {"numthreadheaps", "7", Defaults([](MemorySettings* s) { s->threadHeaps = 7; })},
      {"heapsize", "1M", Defaults([](MemorySettings* s) { s->heapBytes = 1048576; })},
      {"shortheapsize", "400k", Defaults([](MemorySettings* s) { s->shortHeapBytes = 409600; })},
      {"maxblock", "64k", Defaults([](MemorySettings* s) { s->largestBlockBytes = 65536; })},
      {"maxblock", "4096", Defaults([](MemorySettings* s) { s->largestBlockBytes = 4096; })},
      {"memorylimit", "5G", Defaults([](MemorySettings* s) {
         s->limitBytes = 5368709120;
         s->memoryControl = true;
         s->threadHeaps = 16;
       })},
      {"mallocmemoryinit", "7", Defaults([](MemorySettings* s) { s->freedFill = 7; })},
      {"freememoryinit", "3", Defaults([](MemorySettings* s) { s->freedFill = 3; })},
      {"maxshortmemorypoolsize", "9", Defaults([](MemorySettings* s) { s->shortPoolMost = 9; })},
      {"limitshortheapsforremove", "8",
       Defaults([](MemorySettings* s) { s->shortPoolDrainedAbove = 8; })},
      {"memoryblockscontrol", nullptr,
       Defaults([](MemorySettings* s) { s->blockStatistics = true; })},
      {"shortmemoryoff", nullptr, Defaults([](MemorySettings* s) { s->shortHeaps = false; })},
  };
}

TEST(ConfigurationKeyword, SetsItsSettingAndNoOther) {
  for (const KeywordCase& keyword : EveryKeyword()) {
    const std::string value = keyword.value != nullptr ? " "s + keyword.value : "";
    ExpectSet(keyword.name + value + "\n", keyword.settings);
  }
}

TEST(ConfigurationKeyword, NoMemoryControlTurnsMemoryControlOff) {
  MemorySettings settings = kiv::DefaultMemorySettings();
  const MemorySettings off = settings;
  settings.memoryControl = true;
  EXPECT_EQ(ParseOver(settings, "nomemorycontrol\n"), (Parsed{off, ""}));
}

TEST(ConfigurationKeyword, MayBeInUpperOrLowerCase) {
  for (const KeywordCase& keyword : EveryKeyword()) {
    std::string upper;
    std::string mixed;
    for (const char letter : std::string(keyword.name)) {
      upper += static_cast<char>(std::toupper(letter));
      mixed += mixed.size() % 2 == 0 ? upper.back() : letter;
    }
    const std::string value = keyword.value != nullptr ? " "s + keyword.value : "";
    ExpectSet(upper + value, keyword.settings);
    ExpectSet(mixed + value, keyword.settings);
  }
}

TEST(ConfigurationKeyword, IsAWholeWord) {
  for (const KeywordCase& keyword : EveryKeyword()) {
    const std::string name = keyword.name;
    const std::string shorter = name.substr(0, name.size() - 1);
    ExpectNothing(name + "s\n", Unknown(name + "s"));
    ExpectNothing(shorter + "\n", Unknown(shorter));
    ExpectNothing("x" + name + "\n", Unknown("x" + name));
  }
  ExpectNothing("nomemorycontrols", Unknown("nomemorycontrols"));
}

// A character that differs from a letter only in the case bit, and is not a letter, is not equal.
TEST(ConfigurationKeyword, IgnoresTheCaseOfLettersOnly) {
  ExpectNothing("n5mheaps", Unknown("n5mheaps"));
  ExpectNothing("num\xC8"s + "eaps", Unknown("num\xC8"s + "eaps"));
}

TEST(ConfigurationKeyword, UnknownIsReportedAndSkipped) {
  EXPECT_EQ(Parse("budget 5\nnumheaps 6\n"),
            (Parsed{WithHeapBudget(6),
                    "\nUnknown keyword [budget] in the memory configuration file\n"
                    "\nUnknown keyword [5] in the memory configuration file\n"}));
}

TEST(ConfigurationKeyword, RepeatedHasItsLastValue) {
  ExpectSet("numheaps 5\nnumheaps 6\n", WithHeapBudget(6));
}

TEST(ConfigurationKeyword, TakesTheNextWordEvenIfThatIsAKeyword) {
  ExpectNothing("numheaps heapsize 1M", Wrong("heapsize", "numheaps") + Unknown("1M"));
  ExpectNothing("numheaps shortmemoryoff", Wrong("shortmemoryoff", "numheaps"));
  ExpectNothing("mallocmemoryinit numheaps", Wrong("numheaps", "freememoryinit"));
}

TEST(ConfigurationKeyword, FlagsTakeNoValue) {
  EXPECT_EQ(Parse("shortmemoryoff 1 memoryblockscontrol shortmemoryoff"),
            (Parsed{Defaults([](MemorySettings* s) {
                      s->shortHeaps = false;
                      s->blockStatistics = true;
                    }),
                    Unknown("1")}));
}

TEST(ConfigurationKeyword, IsReportedInLowerCase) {
  ExpectNothing("NumHeaps x",
                "\nWrong keyword [x] in the memory configuration file after keyword "
                "[numheaps]\n");
  ExpectNothing("FREEMEMORYINIT X", Wrong("X", "freememoryinit"));
}

TEST(ConfigurationKeyword, IsNamedInTheReportOfAWrongNumber) {
  for (const KeywordCase& keyword : EveryKeyword()) {
    if (keyword.value == nullptr || std::string(keyword.name).ends_with("memoryinit")) continue;
    ExpectNothing(std::string(keyword.name) + " 64KB\n", Wrong("64KB", keyword.name));
  }
}

// ---- The limit and memory control ----

TEST(ConfigurationLimit, TurnsMemoryControlOnUnlessALaterKeywordTurnsItOff) {
  EXPECT_TRUE(Parse("nomemorycontrol memorylimit 20M").settings.memoryControl);
  EXPECT_FALSE(Parse("memorylimit 20M nomemorycontrol").settings.memoryControl);
  EXPECT_TRUE(Parse("memorylimit 0").settings.memoryControl);
}

TEST(ConfigurationLimit, SelectsThreadHeapsIfThereAreNone) {
  EXPECT_EQ(Parse("memorylimit 20M").settings.threadHeaps, 16);
  EXPECT_EQ(Parse("memorylimit 0").settings.threadHeaps, 16);
  EXPECT_EQ(Parse("numthreadheaps 0 memorylimit 20M").settings.threadHeaps, 16);
  EXPECT_EQ(Parse("numthreadheaps 8 memorylimit 20M").settings.threadHeaps, 8);
  EXPECT_EQ(Parse("numthreadheaps -1 memorylimit 20M").settings.threadHeaps, -1);
  EXPECT_EQ(Parse("memorylimit 20M numthreadheaps 0").settings.threadHeaps, 0);
}

TEST(ConfigurationLimit, WithAWrongValueTurnsNothingOn) {
  ExpectNothing("memorylimit 20X", Wrong("20X", "memorylimit"));
}

// ---- Numbers ----

uint64_t LimitOf(const std::string& number) {
  const Parsed parsed = Parse("memorylimit " + number);
  EXPECT_EQ(parsed.printed, "") << number;
  return parsed.settings.limitBytes;
}

void ExpectNoNumber(const std::string& word) {
  ExpectNothing("memorylimit " + word, Wrong(word, "memorylimit"));
}

TEST(ConfigurationNumber, IsDecimal) {
  EXPECT_EQ(LimitOf("0"), 0u);
  EXPECT_EQ(LimitOf("9"), 9u);
  EXPECT_EQ(LimitOf("1234567890"), 1234567890u);
  EXPECT_EQ(LimitOf("0000010"), 10u);
  EXPECT_EQ(LimitOf("18446744073709551615"), UINT64_MAX);
}

TEST(ConfigurationNumber, MayHaveASign) {
  EXPECT_EQ(LimitOf("+7"), 7u);
  EXPECT_EQ(LimitOf("-1"), UINT64_MAX);
  EXPECT_EQ(LimitOf("-5"), UINT64_MAX - 4);
  EXPECT_EQ(LimitOf("-0"), 0u);
  EXPECT_EQ(LimitOf("-18446744073709551615"), 1u);
  for (const char* word : {"+", "-", "--5", "+-5", "-+5", "++5", "-K", "5-", "5+"}) {
    ExpectNoNumber(word);
  }
}

TEST(ConfigurationNumber, IsTakenModulo2To64) {
  EXPECT_EQ(LimitOf("18446744073709551616"), 0u);
  EXPECT_EQ(LimitOf("18446744073709551617"), 1u);
  EXPECT_EQ(LimitOf("99999999999999999999"), 7766279631452241919u);
  EXPECT_EQ(LimitOf("100000000000000000000"), 7766279631452241920u);
  EXPECT_EQ(LimitOf("340282366920938463463374607431768211457"), 1u);  // 2^128 + 1
  EXPECT_EQ(LimitOf("-340282366920938463463374607431768211457"), UINT64_MAX);
  EXPECT_EQ(LimitOf(std::string(100000, '0') + "5"), 5u);
}

TEST(ConfigurationNumber, MayHaveAUnitUpToItsLimit) {
  const struct {
    const char* word;
    uint64_t bytes;
  } cases[] = {{"1K", 1024},
               {"3k", 3072},
               {"+3k", 3072},
               {"1073741823K", 1073741823 * uint64_t{1024}},
               {"1073741824K", kTiB},
               {"1073741823k", 1073741823 * uint64_t{1024}},
               {"1073741824k", kTiB},
               {"1M", 1048576},
               {"10m", 10485760},
               {"1048575M", 1048575 * uint64_t{1048576}},
               {"1048576M", kTiB},
               {"1048576m", kTiB},
               {"1G", 1073741824},
               {"2g", 2147483648},
               {"1023G", 1023 * uint64_t{1073741824}},
               {"1024G", kTiB},
               {"2048G", kTiB},
               {"1024g", kTiB},
               {"-5K", kTiB},
               {"18446744073709551615G", kTiB},
               {"18446744073709551617K", 1024}};
  for (const auto& [word, bytes] : cases) EXPECT_EQ(LimitOf(word), bytes) << word;
}

TEST(ConfigurationNumber, RejectsAnythingElse) {
  for (const char* word :
       {"0K",   "0k",   "0M",   "0G",    "-0K",  "00G",   "18446744073709551616K",
        "64KB", "64KK", "5KM",  "1T",    "1B",   "5x",    "5.",
        "5,0",  "1e3",  "0x10", "K",     "M",    "x",     "x5",
        "1K5",  "5K\r", "5\r",  "5\v",   "5K\f", "5\r\r", "$",
        "5k0",  "5/k",  "\xB2", "5\xFF", "/",    ":",     "5\xCB",
        "5+K"}) {
    ExpectNoNumber(word);
  }
}

// Carriage return, vertical tab and form feed do not separate words, but numbers may follow them.
TEST(ConfigurationNumber, MayFollowWhiteSpaceThatDoesNotSeparateWords) {
  for (const char* word : {"\v5", "\f5", "\r5", "\r\v\f\r+5"}) EXPECT_EQ(LimitOf(word), 5u) << word;
  EXPECT_EQ(LimitOf("\r5K"), 5120u);
  for (const char* word : {"\v", "\r", "-\r5", "\r-", "5\rK", "\x1F+5", "\x0E+5", "\x08+5"}) {
    ExpectNoNumber(word);
  }
}

TEST(ConfigurationNumber, MayHaveAUnitInACount) {
  ExpectSet("numheaps 1K", WithHeapBudget(1024));
  ExpectSet("numheaps 2m", WithHeapBudget(2097152));
}

TEST(ConfigurationNumber, IsTruncatedTo32BitsForMostSettings) {
  const struct {
    const char* word;
    uint32_t low;
  } cases[] = {{"2147483647", 2147483647}, {"2147483648", 2147483648},
               {"4294967295", 4294967295}, {"4294967296", 0},
               {"4294967297", 1},          {"4G", 0},
               {"5G", 1073741824},         {"2048G", 0},
               {"-1", 4294967295},         {"-5", 4294967291},
               {"-2147483648", 2147483648}};
  for (const auto& [word, low] : cases) {
    const MemorySettings settings =
        Parse("numheaps "s + word + " numthreadheaps " + word + " heapsize " + word +
              " shortheapsize " + word + " maxblock " + word + " maxshortmemorypoolsize " + word +
              " limitshortheapsforremove " + word)
            .settings;
    const auto count = static_cast<int32_t>(low);
    EXPECT_EQ(settings.heapBudget, count) << word;
    EXPECT_EQ(settings.threadHeaps, count) << word;
    EXPECT_EQ(settings.heapBytes, low) << word;
    EXPECT_EQ(settings.shortHeapBytes, low) << word;
    EXPECT_EQ(settings.largestBlockBytes, low) << word;
    EXPECT_EQ(settings.shortPoolMost, count) << word;
    EXPECT_EQ(settings.shortPoolDrainedAbove, count) << word;
  }
}

#ifdef _WIN32

// Scans a size with the C runtime of this platform.
const std::string kNumberAndTwoMore = "%I64u%c%c";  // not a literal: it is not standard C

bool ScanSizeByRuntime(const char* word, uint64_t* value) {
  char unit = 0;
  char more = 0;
  const int scanned = std::sscanf(word, kNumberAndTwoMore.c_str(), value, &unit, &more);
  if (scanned == 1) return true;
  const size_t order = std::string("kmg").find(static_cast<char>(std::tolower(unit)));
  if (scanned != 2 || *value == 0 || order == std::string::npos) return false;
  const uint64_t bytes = uint64_t{1024} << (10 * order);
  *value = *value < kTiB / bytes ? *value * bytes : kTiB;
  return true;
}

TEST(ConfigurationNumber, HasTheValueOfTheRuntimesScanner) {
  const std::string characters = "01234567890123456789KMkmgG+-x.\r\v\f\b";
  std::mt19937 random(1);
  const auto below = [&random](size_t limit) { return random() % limit; };
  for (int i = 0; i < 200000; ++i) {
    // Mostly digits, sometimes a sign, a unit or another character.
    std::string word(1 + below(24), '0');
    for (char& character : word) character = characters[below(20)];
    if (below(3) == 0) word.front() = characters[below(characters.size())];
    if (below(2) == 0) word.back() = characters[below(characters.size())];
    if (below(9) == 0) word[below(word.size())] = characters[below(characters.size())];
    uint64_t value = 0;
    uint64_t expected = 0;
    ASSERT_EQ(kiv::ScanSize(word.c_str(), &value), ScanSizeByRuntime(word.c_str(), &expected))
        << testing::PrintToString(word);
    if (ScanSizeByRuntime(word.c_str(), &expected)) {
      ASSERT_EQ(value, expected) << testing::PrintToString(word);
    }
  }
}

#endif

// ---- Fill bytes ----

TEST(ConfigurationFillByte, IsOneDigitAndSetsTheByteOfFreedMemory) {
  for (const char* keyword : {"mallocmemoryinit", "freememoryinit"}) {
    for (char digit = '0'; digit <= '9'; ++digit) {
      ExpectSet(std::string(keyword) + " " + digit, Defaults([digit](MemorySettings* s) {
                  s->freedFill = static_cast<uint8_t>(digit - '0');
                }));
    }
  }
}

TEST(ConfigurationFillByte, RejectsAnythingElseAndReportsItUnderOneName) {
  for (const char* keyword : {"mallocmemoryinit", "freememoryinit"}) {
    for (const char* word : {"10", "12", "255", "256", "00", "05", "+5", "-1", "5K", "0x5", "a",
                             "-", "\v", "\r5", "5\r", "18446744073709551616"}) {
      ExpectNothing(std::string(keyword) + " " + word, Wrong(word, "freememoryinit"));
    }
  }
}

// ---- Words ----

TEST(ConfigurationWord, IsSeparatedBySpacesTabsAndLineFeeds) {
  const MemorySettings both = Defaults([](MemorySettings* s) {
    s->heapBudget = 5;
    s->shortHeaps = false;
  });
  ExpectSet("numheaps 5 shortmemoryoff", both);
  ExpectSet("numheaps\t5\tshortmemoryoff\t", both);
  ExpectSet("numheaps\n5\nshortmemoryoff\n", both);
  ExpectSet("\n\n \t numheaps \t\n\n 5\n \tshortmemoryoff \n\t", both);
  ExpectSet("", kiv::DefaultMemorySettings());
  ExpectSet(" \t\n ", kiv::DefaultMemorySettings());
}

TEST(ConfigurationWord, MayContainEveryOtherCharacter) {
  for (int value = 1; value < 256; ++value) {
    const char character = static_cast<char>(value);
    if (std::string(" \t\n#").find(character) != std::string::npos) continue;
    // This character ends a text file of Windows, and with it the captured output.
    if (character == '\x1A') continue;
    const std::string word = std::string("a") + character + "b";
    ExpectNothing(word, Unknown(word));
  }
}

TEST(ConfigurationWord, IncludesACarriageReturn) {
  EXPECT_EQ(Parse("shortmemoryoff\r\nnumheaps 5\r\nnumheaps 6 \r\n"),
            (Parsed{WithHeapBudget(6),
                    Unknown("shortmemoryoff\r") + Wrong("5\r", "numheaps") + Unknown("\r")}));
}

TEST(ConfigurationWord, MayHaveAnyLength) {
  for (const size_t length : {63u, 64u, 65u, 127u, 128u, 4095u, 4096u, 4097u, 1000000u}) {
    const std::string word(length, 'w');
    EXPECT_EQ(Parse(word + " numheaps 5"), (Parsed{WithHeapBudget(5), Unknown(word)})) << length;
    ExpectNothing("numheaps " + word, Wrong(word, "numheaps"));
  }
}

// A zero byte ends the text of a word.
TEST(ConfigurationWord, EndsAtAZeroByte) {
  ExpectSet("numheaps\0junk 5"s, WithHeapBudget(5));
  ExpectSet("numheaps 5\0K"s, WithHeapBudget(5));
  ExpectSet("freememoryinit 5\0K"s, Defaults([](MemorySettings* s) { s->freedFill = 5; }));
  ExpectNothing("\0numheaps"s, Unknown(""));
  ExpectNothing("numheaps \0"s, Wrong("", "numheaps"));
  ExpectNothing("freememoryinit \0"s, Wrong("", "freememoryinit"));
}

// ---- The end of the file ----

TEST(ConfigurationEnd, EndsAWord) {
  ExpectSet("numheaps 5", WithHeapBudget(5));
  ExpectNothing("numheap", Unknown("numheap"));
  ExpectNothing("numheaps 5x", Wrong("5x", "numheaps"));
}

TEST(ConfigurationEnd, AfterAKeywordSetsNothing) {
  for (const KeywordCase& keyword : EveryKeyword()) {
    if (keyword.value == nullptr) continue;
    const std::string name = keyword.name;
    for (const char* rest : {"", " ", "\n", " \t\n", " #", " # 5", " # 5\n", " 5#", " 5# 5\n"}) {
      ExpectNothing(name + rest, "");
    }
  }
}

// A file that is truncated anywhere has the same effect as one with a line end at that place.
TEST(ConfigurationEnd, MayBeAnywhere) {
  const std::string whole =
      "# comment\nnumheaps 5 # more\n\theapsize 1M\nbad word#lost\nshortmemoryoff\n"
      "mallocmemoryinit 12 memorylimit 64KB memorylimit 20M\n#\n#x";
  for (size_t length = 0; length <= whole.size(); ++length) {
    const std::string cut = whole.substr(0, length);
    EXPECT_EQ(Parse(cut), Parse(cut + "\n")) << "after " << length << " characters";
  }
}

// ---- Comments ----

TEST(ConfigurationComment, EndsWithItsLine) {
  ExpectSet("# numheaps 4\nnumheaps 5\n#numheaps 6\n#\n##\n#", WithHeapBudget(5));
  ExpectSet("numheaps # the budget\n # of heaps\n 5 # heaps", WithHeapBudget(5));
}

TEST(ConfigurationComment, IncludesTheTextBeforeItInTheWord) {
  ExpectNothing("num#comment\nheaps", Unknown("heaps"));
  ExpectSet("num#comment\nnumheaps 5", WithHeapBudget(5));
  EXPECT_EQ(Parse("numheaps 5#comment\nheapsize 1M\nnumheaps 6"),
            (Parsed{WithHeapBudget(6), Wrong("heapsize", "numheaps") + Unknown("1M")}));
  ExpectNothing("numheaps 5#", "");
  ExpectNothing("shortmemoryoff#", "");
}

TEST(ConfigurationComment, MayEndTheFile) {
  ExpectSet("numheaps 5\n#", WithHeapBudget(5));
  ExpectSet("numheaps 5\n# no line end", WithHeapBudget(5));
}

// One read skips 4095 characters after the "#".
TEST(ConfigurationComment, LongerThanOneReadContinuesAsWords) {
  const std::string most(4095, 'c');
  const std::string fewer(4094, 'c');
  const std::string line = "\nnumheaps 5\n";
  ExpectSet("#" + fewer + line, WithHeapBudget(5));
  ExpectSet("#" + most + line, WithHeapBudget(5));
  EXPECT_EQ(Parse("#" + most + "d" + line), (Parsed{WithHeapBudget(5), Unknown("d")}));
  ExpectSet("#" + most + " numheaps 6", WithHeapBudget(6));
  ExpectSet("#" + most + "numheaps 6", WithHeapBudget(6));
  ExpectSet("#" + most + "#numheaps 6" + line, WithHeapBudget(5));
  ExpectNothing("#" + most + "d e", Unknown("d") + Unknown("e"));
  ExpectNothing("lost#" + most + "d", Unknown("d"));
}

TEST(ConfigurationComment, MayContainZeroBytes) {
  ExpectSet("#a\0b\nnumheaps 5"s, WithHeapBudget(5));
}

}  // namespace
