// The universal C runtime calls a handler when it is given a bad descriptor, path, mode or time. The
// default handler ends the process. These tests check that every operation that passes such a value
// on survives, and that the host's own handler is back afterwards.
//
// Wine's runtime calls the handler in few of these cases. So each test replaces the runtime's
// function by one that does what Microsoft documents for an invalid argument.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/temporary_folder.h"

extern "C" {
_invalid_parameter_handler _set_thread_local_invalid_parameter_handler(_invalid_parameter_handler);
_invalid_parameter_handler _get_thread_local_invalid_parameter_handler();
}

namespace {

using kiv::test::Context;
using kiv::test::ImportPatch;
using kiv::test::TemporaryFolder;

constexpr uint32_t kNoFile = 4000;  // within the runtime's table, never open

int hostHandlerCalls;
int refusals;        // calls of the replaced function
int endedProcesses;  // those of them that no handler of the library caught

void HostHandler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {
  ++hostHandlerCalls;
}

void RefuseArgument() {
  ++refusals;
  const _invalid_parameter_handler handler = _get_thread_local_invalid_parameter_handler();
  if (handler == nullptr || handler == HostHandler) ++endedProcesses;
  if (handler != nullptr) handler(nullptr, nullptr, nullptr, 0, 0);
  errno = EINVAL;
}

// The runtime's function, given an argument that it considers invalid. Most functions then return
// -1, others null.
intptr_t RefusedNumber() {
  RefuseArgument();
  return -1;
}
void* RefusedPointer() {
  RefuseArgument();
  return nullptr;
}

struct Operation {
  const char* name;
  const char* import;
  void (*call)(KivSdContext* ctx, const std::string& folder);
  bool returnsPointer = false;
  uint32_t recorded = EINVAL;  // the error in the context record
};

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
  return stream << operation.name << ", " << operation.import;
}

char buffer[KIV_SYSTEM_PATH_MAX];
uint32_t number;
uint32_t error;
uint64_t wide;
uint8_t flag;
KivSdLocalTime localTime;
const KivSdLocalTime kThirtyFirstOfFebruary = {1, 0, 0, 0, 31, 1, 70, 4};

const std::array kOperations = {
    Operation{"FileCreate", "_creat",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFileCreate(ctx, "name", 0xFFFF, &number);
              }},
    Operation{"FileOpen", "_open",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFileOpen(ctx, "name", 0xF80F, 0, &number);
              }},
    Operation{"FileSOpen", "_sopen",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFileSOpen(ctx, "name", 0, 0xFFFF, 0, &number);
              }},
    Operation{"FileClose", "_close",
              [](KivSdContext* ctx, const std::string&) { KivSdFileClose(ctx, kNoFile); }},
    Operation{"FileRead", "_read",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFileRead(ctx, kNoFile, buffer, 1, &number);
              }},
    Operation{"FilePRead", "_get_osfhandle",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFilePRead(ctx, kNoFile, buffer, 0, 1, &number);
              }},
    Operation{"FileWrite", "_write",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFileWrite(ctx, kNoFile, buffer, 1, &number);
              }},
    Operation{"FilePWrite", "_get_osfhandle",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFilePWrite(ctx, kNoFile, buffer, 0, 1, &number, &error);
              }},
    Operation{
        "FileLSeek", "_lseek",
        [](KivSdContext* ctx, const std::string&) { KivSdFileLSeek(ctx, kNoFile, 0, 0, &number); }},
    Operation{
        "FileLSeek64", "_lseeki64",
        [](KivSdContext* ctx, const std::string&) { KivSdFileLSeek64(ctx, kNoFile, 0, 0, &wide); }},
    Operation{"FileTell", "_tell",
              [](KivSdContext* ctx, const std::string&) { KivSdFileTell(ctx, kNoFile, &number); }},
    Operation{
        "FileLength", "_filelength",
        [](KivSdContext* ctx, const std::string&) { KivSdFileLength(ctx, kNoFile, &number); }},
    Operation{"FileFlush", "_commit",
              [](KivSdContext* ctx, const std::string&) { KivSdFileFlush(ctx, kNoFile); }},
    Operation{"FileSetEndOfFile", "_chsize",
              [](KivSdContext* ctx, const std::string&) {
                KivSdFileSetEndOfFile(ctx, kNoFile, 1, &number, &error);
              }},
    Operation{"DirectIOFileChangeSize", "_chsize",
              [](KivSdContext* ctx, const std::string&) {
                KivSdDirectIOFileChangeSize(ctx, kNoFile, 1, &number);
              }},
    Operation{"FileRemove", "_unlink",
              [](KivSdContext* ctx, const std::string&) { KivSdFileRemove(ctx, "name"); }},
    Operation{
        "FileTempNameGet", "_tempnam",
        [](KivSdContext* ctx, const std::string&) { KivSdFileTempNameGet(ctx, KIV_NULL, buffer); },
        true},
    Operation{"DirChange", "_chdir",
              [](KivSdContext* ctx, const std::string&) { KivSdDirChange(ctx, "name"); }},
    Operation{"DirCreate", "_mkdir",
              [](KivSdContext* ctx, const std::string&) { KivSdDirCreate(ctx, "name"); }},
    Operation{
        "DirRemove", "_chmod",
        [](KivSdContext* ctx, const std::string& folder) { KivSdDirRemove(ctx, folder.c_str()); },
        false, ENOTEMPTY},
    Operation{"LocalTimeGet", "_localtime64",
              [](KivSdContext* ctx, const std::string&) { KivSdLocalTimeGet(ctx, -1, &localTime); },
              true},
    Operation{"TimeStrGet", "asctime",
              [](KivSdContext* ctx, const std::string&) {
                KivSdTimeStrGet(ctx, &kThirtyFirstOfFebruary, sizeof buffer, buffer);
              },
              true},
    Operation{
        "CTime", "_ctime64",
        [](KivSdContext* ctx, const std::string&) { KivSdCTime(ctx, -1, sizeof buffer, buffer); },
        true},
};

// The operations that report success whatever the runtime's function returns.
const std::array kSilentOperations = {
    Operation{"FileEof", "_eof",
              [](KivSdContext* ctx, const std::string&) { KivSdFileEof(ctx, kNoFile, &flag); }},
    Operation{
        "FileAccess", "_access",
        [](KivSdContext* ctx, const std::string&) { KivSdFileAccess(ctx, "name", 0xFF, &flag); }},
    Operation{
        "DirRemove", "_rmdir",
        [](KivSdContext* ctx, const std::string& folder) { KivSdDirRemove(ctx, folder.c_str()); }},
};

class InvalidParameter : public testing::TestWithParam<Operation> {
 protected:
  void SetUp() override {
    folder_.Write("file", "x");
    hostHandlerCalls = refusals = endedProcesses = 0;
    before_ = _set_thread_local_invalid_parameter_handler(HostHandler);
  }
  void TearDown() override { _set_thread_local_invalid_parameter_handler(before_); }

  void CallWithPatch() {
    const Operation& operation = GetParam();
    void* refuse = operation.returnsPointer ? reinterpret_cast<void*>(&RefusedPointer)
                                            : reinterpret_cast<void*>(&RefusedNumber);
    const ImportPatch patch(operation.import, refuse);
    operation.call(ctx_, folder_.Path());
    EXPECT_GT(refusals, 0) << "the operation does not call the function";
    EXPECT_EQ(endedProcesses, 0) << "the process would have ended";
    EXPECT_EQ(hostHandlerCalls, 0);
    EXPECT_EQ(_get_thread_local_invalid_parameter_handler(), HostHandler);
  }

  Context ctx_;

 private:
  TemporaryFolder folder_;
  _invalid_parameter_handler before_ = nullptr;
};

class RefusedArgument : public InvalidParameter {};
class IgnoredRefusal : public InvalidParameter {};

std::string NameOf(const testing::TestParamInfo<Operation>& info) {
  return std::string(info.param.name) + info.param.import;
}

INSTANTIATE_TEST_SUITE_P(Operations, RefusedArgument, testing::ValuesIn(kOperations), NameOf);
INSTANTIATE_TEST_SUITE_P(Operations, IgnoredRefusal, testing::ValuesIn(kSilentOperations), NameOf);

TEST_P(RefusedArgument, FailsWithErrno) {
  CallWithPatch();
  EXPECT_NE(ctx_.status(), KIV_ST_OK);
  EXPECT_EQ(ctx_.osError(), GetParam().recorded);
}

TEST_P(IgnoredRefusal, EndsWithSuccess) {
  CallWithPatch();
  EXPECT_EQ(ctx_.status(), KIV_ST_OK);
  EXPECT_EQ(ctx_.osError(), 0u);
}

// Without a patch: Wine's runtime calls the handler for a second that no minute has.
TEST(RuntimeHandler, IsNotReachedByABadTime) {
  hostHandlerCalls = 0;
  const auto before = _set_thread_local_invalid_parameter_handler(HostHandler);
  Context ctx;
  const KivSdLocalTime bad = {1, 99, 0, 0, 1, 0, 70, 4};
  CHECK_OUTCOME(ctx, KivSdTimeStrGet(ctx, &bad, sizeof buffer, buffer), KIV_ST_TIME_STRING,
                static_cast<uint32_t>(EINVAL));
  EXPECT_EQ(hostHandlerCalls, 0);
  _set_thread_local_invalid_parameter_handler(before);
}

}  // namespace
