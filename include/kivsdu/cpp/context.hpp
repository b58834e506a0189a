// A context record, for calls of the C operations.
#ifndef KIVSDU_CPP_CONTEXT_HPP
#define KIVSDU_CPP_CONTEXT_HPP

#include <utility>

#include "error.hpp"

namespace kivsdu {

// Owns a context record of KivSdInit. One thread uses it. The operations of this layer need none:
// they keep the outcome of a call in their ErrorCode.
class Context {
 public:
  Context() { ThrowIfFailed(Make(), "make a context"); }
  explicit Context(ErrorCode& error) noexcept { error = Make(); }
  Context(Context&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}
  Context& operator=(Context&& other) noexcept {
    std::swap(record_, other.record_);
    return *this;
  }
  ~Context() {
    if (record_ != nullptr) KivSdTerm(record_);
  }

  KivSdContext* Get() const noexcept { return record_; }
  // Implicit, because the C operations take it first. NOLINTNEXTLINE(google-explicit-constructor)
  operator KivSdContext*() const noexcept { return record_; }

  // The outcome of the last operation that received this context.
  ErrorCode Last(OsErrorKind kind) const noexcept { return ErrorOf(*record_, kind); }

 private:
  ErrorCode Make() noexcept { return {KivSdInit(&record_), 0, OsErrorKind::kRuntime}; }

  KivSdContext* record_ = nullptr;
};

}  // namespace kivsdu

#endif
