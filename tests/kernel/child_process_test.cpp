// The tests' child processes: a role that fails makes its test fail too.
#include "support/child_process.h"

#include <gtest/gtest.h>

#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;

const RegisteredRole fails("fails-a-check", [](const RoleArguments& arguments) {
  EXPECT_NE(arguments.size(), 2u) << "expected failure: the test checks that it is reported";
  return kiv::test::kRoleDone;
});

const RegisteredRole waits("waits", [](const RoleArguments& arguments) {
  const SharedSignal runs(arguments[0]);
  const SharedSignal never(arguments[1]);
  runs.Set();
  never.Await();
  return kiv::test::kRoleDone;
});

TEST(ChildProcess, EndsWithTheResultOfItsRole) {
  EXPECT_EQ(ChildProcess("fails-a-check", {"one"}).ExitCode(), kiv::test::kRoleDone);
}

TEST(ChildProcess, ReportsAFailedCheckOfItsRole) {
  EXPECT_EQ(ChildProcess("fails-a-check", {"one", "two"}).ExitCode(), kiv::test::kRoleFailed);
}

TEST(ChildProcess, ReportsAnUnknownRole) {
  EXPECT_EQ(ChildProcess("no-such-role").ExitCode(), kiv::test::kRoleUnknown);
}

TEST(ChildProcess, CanBeKilledWhileItRuns) {
  const SharedSignal runs(kiv::test::UniqueName("runs"));
  const ChildProcess child("waits", {runs.name(), kiv::test::UniqueName("never")});
  runs.Await();
  EXPECT_FALSE(child.EndsWithin(0));
  child.Kill();
  EXPECT_TRUE(child.EndsWithin(0));
  EXPECT_EQ(child.ExitCode(), kiv::test::kKilled);
}

}  // namespace
