// Text on the console: the bytes written, their order with the host's own output, and failures.
#include <fcntl.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <cerrno>
#include <cstdio>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::Context;
using kiv::test::ImportPatch;
using kiv::test::ScriptedImport;
using kiv::test::TemporaryFolder;

constexpr int kStandardOutput = 1;

// The runtime's descriptor calls.
#ifdef _WIN32
int Open(const char* path) {
  return _open(path, _O_CREAT | _O_TRUNC | _O_WRONLY | _O_BINARY, 0600);
}
int Duplicate(int file) { return _dup(file); }
void DuplicateTo(int file, int target) { EXPECT_NE(_dup2(file, target), -1); }
void Close(int file) { EXPECT_EQ(_close(file), 0); }
#else
int Open(const char* path) { return open(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600); }
int Duplicate(int file) { return dup(file); }
void DuplicateTo(int file, int target) { EXPECT_EQ(dup2(file, target), target); }
void Close(int file) { EXPECT_EQ(close(file), 0); }
#endif

// Redirects the process's standard output to a file during its lifetime.
class CapturedOutput {
 public:
  explicit CapturedOutput(const std::string& path) {
    std::fflush(stdout);
    saved_ = Duplicate(kStandardOutput);
    const int file = Open(path.c_str());
    EXPECT_GE(file, 0);
    DuplicateTo(file, kStandardOutput);
    Close(file);
  }
  ~CapturedOutput() {
    std::fflush(stdout);
    DuplicateTo(saved_, kStandardOutput);
    Close(saved_);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

 private:
  int saved_;
};

class ConsoleWrite : public testing::Test {
 protected:
  // Returns the output of the actions.
  template <typename Actions>
  std::string Output(Actions actions) {
    const std::string path = folder_.Path("output");
    {
      const CapturedOutput captured(path);
      actions();
    }
    std::string text;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return "no output";
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
      text += static_cast<char>(byte);
    }
    std::fclose(file);
    return text;
  }

  Context ctx_;

 private:
  TemporaryFolder folder_;
};

TEST_F(ConsoleWrite, KeepsTheOrderWithTheHostsOutput) {
  EXPECT_EQ(Output([&] {
              std::printf("one ");
              CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, 4, "two "));
              std::fputs("three ", stdout);
              EXPECT_EQ(KivSdConsoleWrite(nullptr, &ctx_, 4, "four "), KIV_ST_OK);
              std::printf("%s", "five");
            }),
            "one two three four five");
}

TEST_F(ConsoleWrite, WritesTheWholeTextOfAnyLength) {
  for (const uint32_t length : {1u, 2u, 100u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Output([&] { CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, length, "a text")); }),
              "a text");
  }
}

TEST_F(ConsoleWrite, WritesNothingForLengthZeroOrNullText) {
  const ScriptedImport print("printf", {.result = 0xFFFFFFFF, .error = EIO});
  CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, 0, "a text"));
  CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, 10, nullptr));
  CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, 0, nullptr));
  EXPECT_EQ(KivSdConsoleWrite(nullptr, nullptr, 0, nullptr), KIV_ST_OK);
  EXPECT_TRUE(print.calls().empty());
}

TEST_F(ConsoleWrite, WritesTheTextUnchanged) {
  const std::string texts[] = {"100%", "%s%n%d", "%", "", std::string(100'000, 'x')};
  for (const std::string& text : texts) {
    EXPECT_EQ(Output([&] { CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, 1, text.c_str())); }),
              text);
  }
}

int printed;  // result of the replaced printf
const char* printedText;

int Print(const char* format, const char* text) {
  EXPECT_STREQ(format, "%s");
  printedText = text;
  kiv::test::SetErrors(ENOSPC, EACCES);
  return printed;
}

TEST_F(ConsoleWrite, FailsWithTheRuntimesError) {
  const ImportPatch patch("printf", reinterpret_cast<void*>(&Print));
  const char text[] = "a text";
  for (const int result : {-1, -2, INT32_MIN}) {
    printed = result;
    CHECK_OUTCOME(ctx_, KivSdConsoleWrite(ctx_, nullptr, 1, text), KIV_ST_CONSOLE_WRITE,
                  uint32_t{ENOSPC});
    EXPECT_EQ(KivSdConsoleWrite(nullptr, nullptr, 1, text), KIV_ST_CONSOLE_WRITE);
    EXPECT_EQ(printedText, text);
  }
  for (const int result : {0, 1, 6, INT32_MAX}) {
    printed = result;
    CHECK_OK(ctx_, KivSdConsoleWrite(ctx_, nullptr, 1, text));
  }
}

}  // namespace
