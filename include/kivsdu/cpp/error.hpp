// Statuses as std::error_code, and the OS error that belongs to them.
//
// An operation that can fail has two forms, as in std::filesystem: one throws a Failure, the other
// stores the outcome in an ErrorCode. An ErrorCode is a std::error_code of StatusCategory() that
// also keeps the OS error and its kind.
#ifndef KIVSDU_CPP_ERROR_HPP
#define KIVSDU_CPP_ERROR_HPP

#include <cstdint>
#include <string>
#include <system_error>

#include "../context.h"
#include "../status.h"
#include "../status_text.h"

#ifdef _WIN32
#include "w32/os_error.hpp"
#else
#include "lnx/os_error.hpp"
#endif

namespace kivsdu {

// Where an OS error comes from. On Linux the first two kinds are errno.
enum class OsErrorKind : uint8_t {
  kSystem,   // GetLastError
  kRuntime,  // errno of the C runtime
  kWait,     // the result of a wait
};

// ---- The category of statuses ----

class StatusErrorCategory : public std::error_category {
 public:
  constexpr StatusErrorCategory() = default;

  const char* name() const noexcept override { return "kivsdu"; }

  std::string message(int status) const override {
    const KivStatusInfo* info = KivStatusFind(static_cast<uint32_t>(status));
    if (info != nullptr) return info->text;
    return "Status " + std::to_string(static_cast<uint32_t>(status));
  }

  // The standard's condition for a status, if it has one.
  std::error_condition default_error_condition(int status) const noexcept override {
    switch (static_cast<uint32_t>(status)) {
      case KIV_ST_OK:
        return {};
      case KIV_ST_NOT_SUPPORTED:
        return std::errc::not_supported;
      case KIV_ST_ARGUMENT:
        return std::errc::invalid_argument;
      case KIV_ST_OUT_OF_MEMORY:
        return std::errc::not_enough_memory;
      case KIV_ST_SEM_TIMEOUT:
      case KIV_ST_MUTEX_TIMEOUT:
      case KIV_ST_EVENT_TIMEOUT:
        return std::errc::timed_out;
      case KIV_ST_SEM_OVERFLOW:
        return std::errc::value_too_large;
      case KIV_ST_PIPE_CLOSED:
        return std::errc::broken_pipe;
      case KIV_ST_DISK_FULL:
        return std::errc::no_space_on_device;
      case KIV_ST_DIR_MISSING:
        return std::errc::no_such_file_or_directory;
      case KIV_ST_FILE_SHARING:
        return std::errc::device_or_resource_busy;
      case KIV_ST_DIRECT_READ_PENDING:
      case KIV_ST_DIRECT_WRITE_PENDING:
        return std::errc::operation_in_progress;
      default:
        return {status, *this};
    }
  }
};

namespace detail {

// Never destroyed: codes may be worded while the process ends.
union LastingCategory {
  StatusErrorCategory category;
  constexpr LastingCategory() : category() {}
  LastingCategory(const LastingCategory&) = delete;
  ~LastingCategory() {}
};
inline constinit const LastingCategory kStatusCategory;

}  // namespace detail

inline const std::error_category& StatusCategory() noexcept {
  return detail::kStatusCategory.category;
}

// ---- OS errors in words ----

// The text of an OS error, without a line break. Any thread.
inline std::string OsErrorText(uint32_t osError, OsErrorKind kind) {
  if (osError == 0) return "no OS error";
  if (const char* text = detail::TextOfOutcome(osError, kind == OsErrorKind::kWait)) return text;
  if (kind == OsErrorKind::kWait) return "wait result " + std::to_string(osError);
  std::string text =
      kind == OsErrorKind::kRuntime
          ? std::error_code(static_cast<int>(osError), std::generic_category()).message()
          : std::error_code(static_cast<int>(osError), std::system_category()).message();
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

// ---- Codes and exceptions ----

class ErrorCode : public std::error_code {
 public:
  ErrorCode() noexcept : std::error_code(0, StatusCategory()) {}

  ErrorCode(uint32_t status, uint32_t osError, OsErrorKind kind) noexcept
      : std::error_code(static_cast<int>(status), StatusCategory()),
        osError_(osError),
        kind_(IsTimeout(status) ? OsErrorKind::kWait : kind) {}

  uint32_t Status() const noexcept { return static_cast<uint32_t>(value()); }
  uint32_t OsError() const noexcept { return osError_; }
  OsErrorKind Kind() const noexcept { return kind_; }
  std::string OsErrorText() const { return kivsdu::OsErrorText(osError_, kind_); }

  // Meaning of the status and text of the OS error, such as "The file could not be opened. (OS
  // error 2: No such file or directory)".
  std::string Text() const {
    if (osError_ == 0) return message();
    return message() + " (OS error " + std::to_string(osError_) + ": " + OsErrorText() + ")";
  }

 private:
  static constexpr bool IsTimeout(uint32_t status) noexcept {
    return status == KIV_ST_SEM_TIMEOUT || status == KIV_ST_MUTEX_TIMEOUT ||
           status == KIV_ST_EVENT_TIMEOUT;
  }

  uint32_t osError_ = 0;
  OsErrorKind kind_ = OsErrorKind::kSystem;
};

// An operation failed. code() is the std::error_code of its status.
class Failure : public std::system_error {
 public:
  Failure(const ErrorCode& error, const char* action)
      : std::system_error(error, Describe(error, action)), error_(error) {}

  const ErrorCode& Error() const noexcept { return error_; }

 private:
  static std::string Describe(const ErrorCode& error, const char* action) {
    std::string text = std::string("could not ") + action;
    if (error.OsError() == 0) return text;
    return text + ": OS error " + std::to_string(error.OsError()) + ", " + error.OsErrorText();
  }

  ErrorCode error_;
};

// The outcome that a C operation stored in a context.
inline ErrorCode ErrorOf(const KivSdContext& ctx, OsErrorKind kind) noexcept {
  return {ctx.status, ctx.osError, kind};
}

// Throws a Failure unless the status is success.
//
//   action  what was tried, as in "could not open the file"
inline void ThrowIfFailed(const ErrorCode& error, const char* action) {
  if (error.Status() != KIV_ST_OK) throw Failure(error, action);
}

namespace detail {

// Calls a C operation with a context of its own.
template <class Operation>
ErrorCode Outcome(OsErrorKind kind, Operation operation) noexcept {
  KivSdContext ctx = {};
  const uint32_t status = operation(&ctx);
  if (status == KIV_ST_OK) return {};
  return {status, ctx.osError, kind};
}

}  // namespace detail
}  // namespace kivsdu

#endif
