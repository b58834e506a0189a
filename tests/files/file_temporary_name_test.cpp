// Names of temporary files: every prefix that is passed to the runtime, and the handling of the
// runtime's results.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/process.h"
#include "support/stream.h"
#include "support/stubbed_import.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kAttempts = 16384;
constexpr size_t kNameBytes = 1029;

// ---- A stub of the runtime that makes the names for a test ----

// Only one object at a time. The names are blocks of the runtime; the destructor checks that each
// has been freed.
class Names {
 public:
  // Makes the name for a prefix. Attempts count from 0.
  using Maker = std::function<std::string(const std::string& prefix, uint32_t attempt)>;

  explicit Names(Maker maker) {
    current_ = this;
    maker_ = std::move(maker);
    free_ = std::make_unique<ImportPatch>("free", reinterpret_cast<void*>(&Free));
    tempnam_ = std::make_unique<ImportPatch>("_tempnam", reinterpret_cast<void*>(&Make));
  }
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;
  ~Names() {
    tempnam_.reset();
    free_.reset();
    EXPECT_TRUE(live_.empty()) << live_.size() << " names are not freed";
  }

  const std::vector<std::string>& prefixes() const { return prefixes_; }
  void Forget() { prefixes_.clear(); }

 private:
  static char* Make(const char* folder, const char* prefix) {
    EXPECT_EQ(folder, nullptr) << "null selects the runtime's folder";
    const auto attempt = static_cast<uint32_t>(current_->prefixes_.size());
    current_->prefixes_.emplace_back(prefix);
    const std::string made = current_->maker_(prefix, attempt);
    char* name = static_cast<char*>(std::malloc(made.size() + 1));
    std::memcpy(name, made.c_str(), made.size() + 1);
    current_->live_.insert(name);
    return name;
  }

  static void Free(void* block) {
    current_->live_.erase(block);
    std::free(block);
  }

  static inline Names* current_ = nullptr;
  Maker maker_;
  std::vector<std::string> prefixes_;
  std::set<void*> live_;
  std::unique_ptr<ImportPatch> free_;
  std::unique_ptr<ImportPatch> tempnam_;
};

// Makes the first `count` names that are checked exist, and the others not. Only one object at a
// time.
class Taken {
 public:
  explicit Taken(uint32_t count) : access_("_access", reinterpret_cast<void*>(&Access)) {
    left_ = count;
    asked_ = 0;
  }

  uint32_t asked() const { return asked_; }

 private:
  static int Access(const char*, int mode) {
    EXPECT_EQ(mode, 0);
    ++asked_;
    if (left_ == 0) return -1;
    --left_;
    return 0;
  }

  static inline uint32_t left_ = 0;
  static inline uint32_t asked_ = 0;
  ImportPatch access_;
};

// ---- The expected prefixes, computed independently ----

char SymbolOf(unsigned value) {
  if (value < 26) return static_cast<char>('a' + value);
  if (value < 52) return static_cast<char>('A' + (value - 26));
  if (value < 62) return static_cast<char>('0' + (value - 52));
  return value == 62 ? '_' : '-';
}

std::string ExpectedPrefix(char first, char second, unsigned process, unsigned attempt) {
  std::string text = {first, second, '?', '?', '?'};
  text[4] = SymbolOf(process % 64);
  text[3] = SymbolOf(process / 64 % 64);
  text[2] = SymbolOf(attempt % 4 * 16 + process / 4096 % 16);
  if (attempt >= 5) text[1] = SymbolOf(attempt / 4 % 64);
  if (attempt >= 257) text[0] = SymbolOf(attempt / 256 % 64);
  return text;
}

unsigned ProcessId() {
#ifdef _WIN32
  return static_cast<unsigned>(_getpid());
#else
  return static_cast<unsigned>(getpid());
#endif
}

std::string ExpectedPrefix(char first, char second, unsigned attempt) {
  return ExpectedPrefix(first, second, ProcessId(), attempt);
}

std::string MakePlainly(const std::string& prefix, uint32_t) { return "?:/" + prefix; }

// Returns the prefixes that are tried if the first `taken` names exist.
std::vector<std::string> PrefixesTried(const char* asked, uint32_t taken) {
  Names names(MakePlainly);
  const Taken some(taken);
  Context ctx;
  GuardedBytes name(kNameBytes);
  CHECK_OK(ctx, KivSdFileTempNameGet(ctx, asked, name.text()));
  EXPECT_EQ(some.asked(), taken + 1);
  EXPECT_EQ(std::string(name.text()), "?:/" + names.prefixes().back());
  return names.prefixes();
}

// ---- Prefixes ----

TEST(TemporaryName, HasAStampForEachAttempt) {
  for (const uint32_t taken : {0u, 1u, 3u, 4u, 5u, 64u, 255u, 256u, 257u, 300u}) {
    const std::vector<std::string> tried = PrefixesTried("tm", taken);
    ASSERT_EQ(tried.size(), taken + 1);
    for (uint32_t i = 0; i <= taken; ++i) {
      EXPECT_EQ(tried[i], ExpectedPrefix('t', 'm', i)) << "attempt " << i;
    }
  }
}

TEST(TemporaryName, StartsWithTheFirstAttemptInEachCall) {
  PrefixesTried("tm", 300);
  EXPECT_EQ(PrefixesTried("tm", 0).at(0), ExpectedPrefix('t', 'm', 0));
  EXPECT_EQ(PrefixesTried(nullptr, 0).at(0), ExpectedPrefix('q', 'x', 0));
}

TEST(TemporaryName, RepeatsTheFirstPrefixAtTheFifthAttempt) {
  const std::vector<std::string> tried = PrefixesTried("tm", 5);
  EXPECT_EQ(tried[4], tried[0]);
  EXPECT_NE(tried[5], tried[1]);
}

TEST(TemporaryName, KeepsTheFirstCharacterUpToAttempt256) {
  const std::vector<std::string> tried = PrefixesTried("$!", 257);
  EXPECT_EQ(tried[4].substr(0, 2), "$!");
  EXPECT_EQ(tried[5].substr(0, 2), "$b");
  EXPECT_EQ(tried[256].substr(0, 2), "$a");
  EXPECT_EQ(tried[257].substr(0, 2), "ba");
}

TEST(TemporaryName, BeginsWithTheCallersCharactersOrTheDefault) {
  struct {
    const char* asked;
    char first;
    char second;
  } const cases[] = {{nullptr, 'q', 'x'}, {"", 'q', 'x'},    {"a", 'a', 'x'},    {"ab", 'a', 'b'},
                     {"abc", 'a', 'b'},   {"\0b", 'q', 'x'}, {"a\0c", 'a', 'x'}, {" -", ' ', '-'}};
  for (const auto& [asked, first, second] : cases) {
    EXPECT_EQ(PrefixesTried(asked, 0).at(0), ExpectedPrefix(first, second, 0));
  }
}

TEST(TemporaryName, FailsIfEveryNameIsTaken) {
  Names names(MakePlainly);
  const Taken all(kAttempts);
  Context ctx;
  GuardedBytes name(kNameBytes);
  CHECK_OUTCOME(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()), KIV_ST_FILE_TEMP_NAME, 0u);
  EXPECT_TRUE(name.IsAll(kSpoilt));
  ASSERT_EQ(names.prefixes().size(), kAttempts);
  for (uint32_t i = 0; i < kAttempts; ++i) {
    ASSERT_EQ(names.prefixes()[i], ExpectedPrefix('t', 'm', i)) << "attempt " << i;
  }
}

TEST(TemporaryName, IsFoundAtTheLastAttempt) {
  EXPECT_EQ(PrefixesTried("tm", kAttempts - 1).size(), kAttempts);
}

// Checks every significant bit of the process identifier and every kind of symbol.
TEST(TemporaryNameProcess, StampsNamesWithItsIdentifierWhichIsReadOnce) {
  IN_FRESH_PROCESS([] {
    constexpr unsigned kProcess = 63u | 62u << 6 | 13u << 12 | 0x7FFu << 16;
    Names names(MakePlainly);
    const ScriptedImport pid("_getpid", {.result = kProcess});
    const Taken some(300);
    char name[kNameBytes];
    EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name), KIV_ST_OK);
    EXPECT_EQ(names.prefixes().at(0), "tmn_-");
    for (uint32_t i = 0; i <= 300; ++i) {
      EXPECT_EQ(names.prefixes().at(i), ExpectedPrefix('t', 'm', kProcess, i));
    }
    names.Forget();
    EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name), KIV_ST_OK);
    EXPECT_EQ(pid.calls().size(), 1u);
  });
}

TEST(TemporaryNameProcess, WithIdentifierOneStampsNamesWithIt) {
  IN_FRESH_PROCESS([] {
    Names names(MakePlainly);
    const ScriptedImport pid("_getpid", {.result = 1});
    const Taken none(0);
    char name[kNameBytes];
    EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name), KIV_ST_OK);
    EXPECT_EQ(names.prefixes().at(0), "tmaab");
    EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name), KIV_ST_OK);
    EXPECT_EQ(names.prefixes().at(1), "tmaab");
  });
}

// ---- Results of the runtime ----

TEST(TemporaryName, IsTriedAgainIfItIsEmpty) {
  Names names([](const std::string& prefix, uint32_t attempt) {
    return attempt < 3 ? std::string() : "?:/" + prefix;
  });
  const Taken none(0);
  Context ctx;
  GuardedBytes name(kNameBytes);
  CHECK_OK(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()));
  EXPECT_EQ(names.prefixes().size(), 4u);
  EXPECT_EQ(none.asked(), 1u);
  EXPECT_EQ(std::string(name.text()), "?:/" + ExpectedPrefix('t', 'm', 3));
}

TEST(TemporaryName, FailsWithTheRuntimesErrorIfItIsNotMade) {
  const StubbedImport tempnam("_tempnam", 0, ENOMEM, 7777);
  Context ctx;
  GuardedBytes name(kNameBytes);
  CHECK_OUTCOME(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()), KIV_ST_FILE_TEMP_NAME, ENOMEM);
  EXPECT_EQ(tempnam.calls(), 1u) << "must not try another name";
  EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name.text()), KIV_ST_FILE_TEMP_NAME);
  EXPECT_TRUE(name.IsAll(kSpoilt));
}

TEST(TemporaryName, MayHaveUpTo1028Characters) {
  const Taken none(0);
  Context ctx;
  for (const size_t length : {size_t{1}, size_t{1027}, size_t{1028}}) {
    const std::string made(length, 'n');
    Names names([&](const std::string&, uint32_t) { return made; });
    GuardedBytes name(kNameBytes);
    CHECK_OK(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()));
    EXPECT_EQ(std::string(name.text()), made);
    EXPECT_TRUE(name.IsAll(kSpoilt, length + 1, kNameBytes));
  }
}

TEST(TemporaryName, FailsWithoutAnErrorIfItIsLonger) {
  const Taken none(0);
  Context ctx;
  for (const size_t length : {size_t{1029}, size_t{1030}, size_t{5000}}) {
    Names names([&](const std::string&, uint32_t) { return std::string(length, 'n'); });
    GuardedBytes name(kNameBytes);
    CHECK_OUTCOME(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()), KIV_ST_FILE_TEMP_NAME, 0u);
    EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name.text()), KIV_ST_FILE_TEMP_NAME);
    EXPECT_TRUE(name.IsAll(kSpoilt));
    EXPECT_EQ(names.prefixes().size(), 2u) << "must not try another name";
  }
}

TEST(TemporaryName, NeedsAnOutput) {
  Context ctx;
  const StubbedImport tempnam("_tempnam", 0, ENOMEM, 7777);
  CHECK_ARGUMENT(ctx, KivSdFileTempNameGet(ctx, "tm", nullptr));
  CHECK_ARGUMENT(ctx, KivSdFileTempNameGet(ctx, nullptr, nullptr));
  EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(tempnam.calls(), 0u);
}

// ---- Real files ----

// The runtime's folder for temporary files.
std::filesystem::path RuntimesFolder() {
#ifdef _WIN32
  char* name = _tempnam(nullptr, "tm");
  const std::filesystem::path folder = std::filesystem::path(name).parent_path();
  std::free(name);
  return folder;
#else
  for (const char* variable : {"TMP", "TMPDIR"}) {
    const char* folder = std::getenv(variable);
    if (folder != nullptr && std::filesystem::is_directory(folder)) return folder;
  }
  return "/tmp";
#endif
}

TEST(TemporaryName, IsInTheTemporaryFolderAndDoesNotExist) {
  Context ctx;
  GuardedBytes name(kNameBytes);
  CHECK_OK(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()));
  const std::filesystem::path path = name.text();
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(path.parent_path(), RuntimesFolder());
  // The runtime decides how many characters of the prefix it uses: at least three.
  const std::string asked = ExpectedPrefix('t', 'm', 0).substr(0, 3);
  EXPECT_EQ(path.filename().string().substr(0, 3), asked);
}

TEST(TemporaryName, DiffersIfTheFirstNameExists) {
  char first[kNameBytes];
  char second[kNameBytes];
  ASSERT_EQ(KivSdFileTempNameGet(nullptr, nullptr, first), KIV_ST_OK);
  {
    Stream stream(first);
    ASSERT_EQ(KivSdFileTempNameGet(nullptr, nullptr, second), KIV_ST_OK);
    EXPECT_STRNE(first, second);
    EXPECT_FALSE(std::filesystem::exists(second));
  }
  EXPECT_EQ(KivSdFileRemove(nullptr, first), KIV_ST_OK);
}

// Names with one key are one file: on Windows, case does not count.
std::string KeyOf(std::string text) {
#ifdef _WIN32
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
#endif
  return text;
}

// The files exist beforehand, and the stub of the runtime makes each name from the prefix alone.
TEST(TemporaryName, SkipsThreeHundredExistingFiles) {
  const TemporaryFolder folder;
  std::set<std::string> present;
  for (unsigned i = 0; i <= 300; ++i) {
    const std::string prefix = ExpectedPrefix('t', 'm', i);
    if (present.insert(KeyOf(prefix)).second) folder.Write(prefix, "");
  }
  unsigned free = 301;
  while (present.count(KeyOf(ExpectedPrefix('t', 'm', free))) != 0) ++free;

  Names names([&](const std::string& prefix, uint32_t) { return folder.Path(prefix); });
  Context ctx;
  GuardedBytes name(kNameBytes);
  CHECK_OK(ctx, KivSdFileTempNameGet(ctx, "tm", name.text()));
  EXPECT_EQ(std::string(name.text()), folder.Path(ExpectedPrefix('t', 'm', free)));
  EXPECT_EQ(names.prefixes().size(), free + 1);
}

}  // namespace
