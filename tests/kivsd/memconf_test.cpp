// The check of a memory configuration, compared with what the library's reader and a start do.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#ifdef _WIN32
#include <windows.h>
#endif

#include "memconf/check.h"
#include "memconf/reading.h"
#include "scratch_file.h"
#include "support/manager.h"

namespace {

using kivsd::Examination;
using kivsd::Examine;
using kivsd::Finding;
using kivsd::Keyword;
using kivsd::KeywordKind;

bool Finds(const Examination& result, size_t line, const std::string& text) {
  return std::ranges::any_of(result.findings, [&](const Finding& finding) {
    return finding.line == line && finding.text.find(text) != std::string::npos;
  });
}

std::string FindingsOf(const Examination& result) {
  std::string text;
  for (const Finding& finding : result.findings) {
    text += std::to_string(finding.line) + ": " + finding.text + "\n";
  }
  return text;
}

TEST(MemconfKeywords, EachIsOneOfTheReaderAndShowsItsSetting) {
  EXPECT_EQ(kivsd::Keywords().size(), 13u);
  for (const Keyword& keyword : kivsd::Keywords()) {
    const bool isFlag = keyword.kind == KeywordKind::kFlag;
    const kivsd::Reading reading =
        kivsd::ReadSettings(std::string(keyword.name) + (isFlag ? "" : " 5"));
    EXPECT_EQ(reading.messages, "") << keyword.name;
    EXPECT_EQ(keyword.get(reading.settings), isFlag ? 1 : 5) << keyword.name;
  }
}

TEST(MemconfKeywords, ASimilarOneIsFound) {
  EXPECT_STREQ(kivsd::SimilarKeyword("heapsise")->name, "heapsize");
  EXPECT_STREQ(kivsd::SimilarKeyword("MEMORYLIMITS")->name, "memorylimit");
  EXPECT_EQ(kivsd::SimilarKeyword("threads"), nullptr);
}

TEST(MemconfCheck, FindsNothingInAGoodFile) {
  for (const char* text :
       {"", "\n\n", "# only a comment", "heapsize 4M\n", "HeapSize\t4m # four\n", "numheaps 100",
        "memorylimit 1G nomemorycontrol memorylimit 2G # on one line\n", "maxblock 256K"}) {
    const Examination result = Examine(text);
    const bool repeats = std::string(text).find("nomemory") != std::string::npos;
    EXPECT_EQ(result.findings.empty(), !repeats) << text << FindingsOf(result);
  }
}

TEST(MemconfCheck, FindsWhatDoesNotDoWhatItSeemsTo) {
  const struct {
    const char* text;
    size_t line;
    const char* finding;
  } kCases[] = {
      {"heapsise 4M", 1, "Did you mean 'heapsize'?"},
      {"\nnumheaps 2K", 2, "numheaps is a count. With the unit it is 2048."},
      {"maxblock 64KB", 1, "Write 64K."},
      {"heapsize 2048G", 1, "too large for its unit"},
      {"heapsize 1024G", 1, "keeps the low 32 bits: 0 bytes."},
      {"heapsize 4 M", 1, "'M' is not a keyword"},
      {"heapsize", 1, "has no value"},
      {"heapsize maxblock 64K", 1, "The value is missing"},
      {"mallocmemoryinit 12", 1, "Write one digit."},
      {"freememoryinit 7", 1, "nothing uses it"},
      {"heapsize 4M# four", 1, "directly before # belongs to the comment"},
      {"heapsize 4M\r\n", 1, "carriage return"},
      {"numheaps -1", 1, "negative number"},
      {"memorylimit 5M", 1, "is rejected"},
      {"memorylimit 10M", 1, "24 heaps of 2 MiB, which need 48 MiB"},
      {"numthreadheaps 0", 1, "plain mode"},
      {"numthreadheaps 100", 1, "lowered from 100 to 64"},
      {"heapsize 1K", 1, "raised from 1 KiB to 512 KiB"},
      {"heapsize 1M\nheapsize 2M", 2, "stands on line 1 already"},
      {"memorylimit 1G\nnomemorycontrol", 2, "turns the limit off"},
      {"numheaps 5", 1, "below the 24 heaps"},
      {"maxblock 0", 1, "makes no heaps"},
  };
  for (const auto& example : kCases) {
    const Examination result = Examine(example.text);
    EXPECT_TRUE(Finds(result, example.line, example.finding)) << example.text << "\n"
                                                              << FindingsOf(result);
  }
}

TEST(MemconfCheck, FindsALongCommentThatIsReadAsKeywords) {
  EXPECT_EQ(FindingsOf(Examine("#" + std::string(4095, 'x') + "\n")), "");
  const Examination result = Examine("#" + std::string(4096, 'x') + " heapsize 1M\n");
  EXPECT_TRUE(Finds(result, 1, "the comment is too long")) << FindingsOf(result);
  EXPECT_EQ(result.entries.size(), 1u);
}

TEST(MemconfCheck, ReadsAnyBytes) {
  std::string text;
  for (int i = 0; i < 1024; ++i) text += static_cast<char>(i * 7);
  EXPECT_FALSE(Examine(text).findings.empty());
}

TEST(MemconfCheck, ALimitThatItFindsTooSmallMakesTheStartFail) {
  const std::string heaps = "numthreadheaps 4 heapsize 1M memorylimit ";
  const std::string tooSmall = heaps + "12582911";
  const std::string enough = heaps + "12582912";
  EXPECT_TRUE(Finds(Examine(tooSmall), 1, "memorylimit is too small"));
  EXPECT_EQ(kiv::test::Initialize(tooSmall), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(FindingsOf(Examine(enough)), "");
  EXPECT_EQ(kiv::test::Initialize(enough), KIV_ST_OK);
}

#ifdef _WIN32

// A folder for temporary files whose name has a letter outside ASCII, as that of many users has.
class UmlautFolder {
 public:
  UmlautFolder() {
    GetTempPathW(MAX_PATH, earlier_);
    path_ = std::wstring(earlier_) + L"kivsd-\u00FC-" + std::to_wstring(GetCurrentProcessId());
    CreateDirectoryW(path_.c_str(), nullptr);
    SetEnvironmentVariableW(L"TMP", path_.c_str());
  }
  ~UmlautFolder() {
    SetEnvironmentVariableW(L"TMP", earlier_);
    RemoveDirectoryW(path_.c_str());
  }
  UmlautFolder(const UmlautFolder&) = delete;
  UmlautFolder& operator=(const UmlautFolder&) = delete;

  bool IsInTheCodePage() const {
    BOOL isMissing = FALSE;
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path_.c_str(), -1, nullptr, 0, nullptr,
                        &isMissing);
    return isMissing == FALSE;
  }

 private:
  wchar_t earlier_[MAX_PATH + 1] = L"";
  std::wstring path_;
};

TEST(ScratchFile, MayLieInAFolderWhoseNameIsNotAscii) {
  const UmlautFolder folder;
  if (!folder.IsInTheCodePage()) GTEST_SKIP() << "the ANSI code page has no such letter";
  const kivsd::ScratchFile scratch("numheaps 16");
  std::FILE* file = scratch.Open();
  ASSERT_NE(file, nullptr);
  char text[32] = "";
  EXPECT_EQ(std::fread(text, 1, sizeof text, file), 11u);
  std::fclose(file);
}

#endif

}  // namespace
