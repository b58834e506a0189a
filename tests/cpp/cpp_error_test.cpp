// Statuses as std::error_code, OS errors in words, exceptions, contexts.
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

#include "kivsdu/kivsdu.hpp"

namespace {

using kivsdu::ErrorCode;
using kivsdu::OsErrorKind;

#ifdef _WIN32
constexpr bool kRuntimeIsSystem = false;
#else
constexpr bool kRuntimeIsSystem = true;
#endif

TEST(StatusCategory, HasANameAndTheTextOfEachStatus) {
  EXPECT_STREQ(kivsdu::StatusCategory().name(), "kivsdu");
  ASSERT_GT(KivStatusCount(), 100u);
  for (size_t i = 0; i < KivStatusCount(); i++) {
    const KivStatusInfo* info = KivStatusAt(i);
    const ErrorCode code(info->status, 0, OsErrorKind::kSystem);
    EXPECT_EQ(code.message(), info->text);
    EXPECT_EQ(code.Status(), info->status);
  }
}

TEST(StatusCategory, WordsANumberThatIsNoStatus) {
  EXPECT_EQ(ErrorCode(4711, 0, OsErrorKind::kSystem).message(), "Status 4711");
  EXPECT_EQ(ErrorCode(KIV_CHUNK_LATCHED, 0, OsErrorKind::kSystem).message(), "Status 4294967295");
}

TEST(StatusCategory, MapsStatusesToConditionsOfTheStandard) {
  const struct {
    uint32_t status;
    std::errc condition;
  } cases[] = {
      {KIV_ST_ARGUMENT, std::errc::invalid_argument},
      {KIV_ST_NOT_SUPPORTED, std::errc::not_supported},
      {KIV_ST_OUT_OF_MEMORY, std::errc::not_enough_memory},
      {KIV_ST_SEM_TIMEOUT, std::errc::timed_out},
      {KIV_ST_MUTEX_TIMEOUT, std::errc::timed_out},
      {KIV_ST_EVENT_TIMEOUT, std::errc::timed_out},
      {KIV_ST_SEM_OVERFLOW, std::errc::value_too_large},
      {KIV_ST_PIPE_CLOSED, std::errc::broken_pipe},
      {KIV_ST_DISK_FULL, std::errc::no_space_on_device},
      {KIV_ST_DIR_MISSING, std::errc::no_such_file_or_directory},
      {KIV_ST_FILE_SHARING, std::errc::device_or_resource_busy},
      {KIV_ST_DIRECT_READ_PENDING, std::errc::operation_in_progress},
      {KIV_ST_DIRECT_WRITE_PENDING, std::errc::operation_in_progress},
  };
  for (const auto& [status, condition] : cases) {
    const std::error_code code = ErrorCode(status, 0, OsErrorKind::kSystem);
    EXPECT_EQ(code, condition) << status;
  }
  const std::error_code other = ErrorCode(KIV_ST_FILE_OPEN, 0, OsErrorKind::kSystem);
  EXPECT_EQ(other.default_error_condition().value(), static_cast<int>(KIV_ST_FILE_OPEN));
}

TEST(ErrorCode, IsASuccessAtFirst) {
  const ErrorCode code;
  EXPECT_FALSE(code);
  EXPECT_EQ(code.Status(), 0u);
  EXPECT_EQ(code.OsError(), 0u);
  EXPECT_EQ(&code.category(), &kivsdu::StatusCategory());
}

TEST(ErrorCode, KeepsStatusAndOsError) {
  const ErrorCode code(KIV_ST_FILE_OPEN, EACCES, OsErrorKind::kRuntime);
  EXPECT_TRUE(code);
  EXPECT_EQ(code.value(), static_cast<int>(KIV_ST_FILE_OPEN));
  EXPECT_EQ(code.OsError(), static_cast<uint32_t>(EACCES));
  EXPECT_EQ(code.Text(),
            code.message() + " (OS error 13: " + std::generic_category().message(EACCES) + ")");
  EXPECT_EQ(ErrorCode(KIV_ST_FILE_OPEN, 0, OsErrorKind::kRuntime).Text(), code.message());
}

TEST(ErrorCode, TakesTheOsErrorOfATimeOutForAWaitsResult) {
  for (const uint32_t status : {KIV_ST_SEM_TIMEOUT, KIV_ST_MUTEX_TIMEOUT, KIV_ST_EVENT_TIMEOUT}) {
    const ErrorCode code(status, KIV_OS_TIMED_OUT, OsErrorKind::kSystem);
    EXPECT_EQ(code.Kind(), OsErrorKind::kWait);
    EXPECT_EQ(code.OsErrorText(), "The wait timed out");
  }
}

// 13 is EACCES in the runtime and "Invalid data" in Windows.
TEST(OsErrorText, DependsOnTheKind) {
  const std::string ofRuntime = kivsdu::OsErrorText(13, OsErrorKind::kRuntime);
  const std::string ofSystem = kivsdu::OsErrorText(13, OsErrorKind::kSystem);
  EXPECT_EQ(ofRuntime, std::generic_category().message(13));
  EXPECT_EQ(ofRuntime == ofSystem, kRuntimeIsSystem);
}

TEST(OsErrorText, HasNoLineBreak) {
  for (uint32_t error = 0; error < 200; error++) {
    const std::string text = kivsdu::OsErrorText(error, OsErrorKind::kSystem);
    EXPECT_FALSE(text.empty()) << error;
    EXPECT_EQ(text.find_last_of("\r\n"), std::string::npos) << error;
  }
}

TEST(OsErrorText, WordsZeroAndResultsOfWaits) {
  EXPECT_EQ(kivsdu::OsErrorText(0, OsErrorKind::kSystem), "no OS error");
  EXPECT_EQ(kivsdu::OsErrorText(0xFFFFFFFF, OsErrorKind::kWait), "The wait failed");
  EXPECT_EQ(kivsdu::OsErrorText(128, OsErrorKind::kWait),
            "The mutex's owner ended without releasing it");
  EXPECT_EQ(kivsdu::OsErrorText(38, OsErrorKind::kWait), "wait result 38");
}

TEST(Failure, SaysActionStatusAndOsError) {
  try {
    kivsdu::ThrowIfFailed({KIV_ST_FILE_OPEN, ENOENT, OsErrorKind::kRuntime}, "open the journal");
    FAIL() << "nothing was thrown";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), static_cast<int>(KIV_ST_FILE_OPEN));
    const std::string text = error.what();
    EXPECT_EQ(text.find("could not open the journal: OS error 2, "), 0u) << text;
    EXPECT_NE(text.find(KivStatusFind(KIV_ST_FILE_OPEN)->text), std::string::npos) << text;
    const auto& failure = dynamic_cast<const kivsdu::Failure&>(error);
    EXPECT_EQ(failure.Error().OsError(), static_cast<uint32_t>(ENOENT));
  }
  EXPECT_NO_THROW(kivsdu::ThrowIfFailed({}, "do nothing"));
}

TEST(Context, ReceivesTheOutcomeOfCOperations) {
  kivsdu::Context ctx;
  uint32_t file = 0;
  EXPECT_EQ(KivSdFileOpen(ctx, "no such file", KIV_FILEO_BINARY, 0, &file), KIV_ST_FILE_OPEN);
  const ErrorCode last = ctx.Last(OsErrorKind::kRuntime);
  EXPECT_EQ(last.Status(), KIV_ST_FILE_OPEN);
  EXPECT_EQ(last.OsError(), static_cast<uint32_t>(ENOENT));
}

TEST(Context, MovesToAnotherOwner) {
  kivsdu::Context first;
  KivSdContext* record = first.Get();
  kivsdu::Context second(std::move(first));
  EXPECT_EQ(second.Get(), record);
  EXPECT_EQ(first.Get(), nullptr);
  ErrorCode error;
  kivsdu::Context third(error);
  EXPECT_FALSE(error);
  third = std::move(second);
  EXPECT_EQ(third.Get(), record);
}

}  // namespace
