// A context record for tests, and checks of the status that an operation returned and recorded.
#ifndef KIV_TESTS_CONTEXT_H
#define KIV_TESTS_CONTEXT_H

#include <gtest/gtest.h>

#include "kivsdu/context.h"
#include "kivsdu/status.h"

namespace kiv::test {

// Starts with an older failure in the record, so that every check of a success also checks that the
// success cleared it. Converts to a KivSdContext*.
class Context {
 public:
  static constexpr uint32_t kOldStatus = 1130999;
  static constexpr uint32_t kOldError = 4711;

  Context() { Spoil(); }

  operator KivSdContext*() { return &record_; }

  // Puts the older failure back.
  void Spoil() { record_ = {kOldStatus, kOldError, 0}; }

  bool IsUntouched() const { return record_.status == kOldStatus && record_.osError == kOldError; }

  uint32_t status() const { return record_.status; }
  uint32_t osError() const { return record_.osError; }

 private:
  KivSdContext record_;
};

// Checks that `returned`, the status that an operation returned, is `status`, and that the record
// holds `status` and `osError`.
inline void ExpectOutcome(const Context& ctx, uint32_t returned, uint32_t status,
                          uint32_t osError) {
  EXPECT_EQ(returned, status);
  EXPECT_EQ(ctx.status(), status);
  EXPECT_EQ(ctx.osError(), osError);
}

}  // namespace kiv::test

// CHECK_OUTCOME(ctx, KivSdMemClear(ctx, p, n), KIV_ST_OK, 0) puts the older failure into the
// record, makes the call, and checks the status and the record together.
#define CHECK_OUTCOME(ctx, call, status, osError)             \
  do {                                                        \
    SCOPED_TRACE(#call);                                      \
    (ctx).Spoil();                                            \
    const uint32_t returned = (call);                         \
    kiv::test::ExpectOutcome(ctx, returned, status, osError); \
  } while (false)

// Checks that a call succeeds and leaves {0, 0} in the record.
#define CHECK_OK(ctx, call) CHECK_OUTCOME(ctx, call, KIV_ST_OK, 0u)

// Checks the status of an operation that does not write the record.
#define CHECK_SILENT(ctx, call, status)        \
  do {                                         \
    (ctx).Spoil();                             \
    EXPECT_EQ(call, status) << #call;          \
    EXPECT_TRUE((ctx).IsUntouched()) << #call; \
  } while (false)

// Checks that a call fails with KIV_ST_ARGUMENT and leaves {KIV_ST_ARGUMENT, 0} in the record.
#define CHECK_ARGUMENT(ctx, call) CHECK_OUTCOME(ctx, call, KIV_ST_ARGUMENT, 0u)

#endif
