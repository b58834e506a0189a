// Files that two processes open, with all share flags.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/stream.h"
#include "support/temporary_folder.h"
#include "support/waiting.h"
#include "support/wine.h"

namespace {

using namespace kiv::test;

// {path, share flags, ready, go, mode, access}: opens a file, sets `ready`, and holds the file until
// `go`.
const RegisteredRole holder("holder", [](const RoleArguments& arguments) {
  const auto shareFlags = static_cast<uint32_t>(std::stoul(arguments.at(1)));
  const auto access = static_cast<uint32_t>(std::stoul(arguments.at(5)));
  if (arguments.at(4) == "failover") KivSdSetFailoverModeFlag(1);
  uint32_t file = 0;
  EXPECT_EQ(
      KivSdFileSOpen(nullptr, arguments.at(0).c_str(), kBinary | access, shareFlags, 0, &file),
      KIV_ST_OK);
  const SharedSignal ready(arguments.at(2));
  const SharedSignal go(arguments.at(3));
  ready.Set();
  go.Await();
  EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
  return kRoleDone;
});

// Another process, which holds a file during the object's lifetime.
class Holder {
 public:
  Holder(const std::string& path, uint32_t shareFlags, bool failover = false,
         uint32_t access = kReadWrite)
      : process_("holder", {path, std::to_string(shareFlags), ready_.name(), go_.name(),
                            failover ? "failover" : "alone", std::to_string(access)}) {
    ready_.Await();
  }
  ~Holder() {
    go_.Set();
    EXPECT_EQ(process_.ExitCode(), kRoleDone);
  }

 private:
  SharedSignal ready_{UniqueName("ready")};
  SharedSignal go_{UniqueName("go")};
  ChildProcess process_;
};

class SharedFile : public testing::Test {
 protected:
  SharedFile() { folder_.Write("file", "content"); }

  std::string path() const { return folder_.Path("file"); }

  // Whether the file can be opened for `access` with full sharing. If not, checks that a sharing
  // violation is the reason.
  bool CanOpenFor(uint32_t access) {
    uint32_t file = kUntouched;
    ctx_.Spoil();
    const uint32_t status =
        KivSdFileSOpen(ctx_, path().c_str(), kBinary | access, kDenyNone, 0, &file);
    if (status == KIV_ST_OK) {
      ExpectOutcome(ctx_, status, KIV_ST_OK, 0);
      EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
      return true;
    }
    ExpectOutcome(ctx_, status, KIV_ST_FILE_SHARING, kErrnoSharing);
    EXPECT_EQ(file, KIV_FILE_NONE);
    return false;
  }

  TemporaryFolder folder_;
  Context ctx_;
};

TEST_F(SharedFile, ThatDeniesAllCannotBeOpened) {
  const Holder held(path(), kDenyAll);
  EXPECT_FALSE(CanOpenFor(kReadOnly));
  EXPECT_FALSE(CanOpenFor(kWriteOnly));
  EXPECT_FALSE(CanOpenFor(kReadWrite));
}

TEST_F(SharedFile, ThatDeniesWritingCanOnlyBeRead) {
  const Holder held(path(), kDenyWrite);
  EXPECT_TRUE(CanOpenFor(kReadOnly));
  EXPECT_FALSE(CanOpenFor(kWriteOnly));
  EXPECT_FALSE(CanOpenFor(kReadWrite));
}

TEST_F(SharedFile, ThatDeniesReadingCanOnlyBeWritten) {
  const Holder held(path(), kDenyRead);
  EXPECT_FALSE(CanOpenFor(kReadOnly));
  EXPECT_TRUE(CanOpenFor(kWriteOnly));
  EXPECT_FALSE(CanOpenFor(kReadWrite));
}

TEST_F(SharedFile, ThatDeniesNothingCanBeOpenedByBoth) {
  const Holder held(path(), kDenyNone);
  EXPECT_TRUE(CanOpenFor(kReadOnly));
  EXPECT_TRUE(CanOpenFor(kWriteOnly));
  EXPECT_TRUE(CanOpenFor(kReadWrite));
}

class SecurelySharedFile : public SharedFile {
 protected:
  void SetUp() override {
    if (IsOnWine()) {
      GTEST_SKIP() << "Microsoft documents secure sharing; Wine's runtime refuses the flag";
    }
  }
};

TEST_F(SecurelySharedFile, OpenedForReadingCanOnlyBeRead) {
  const Holder held(path(), kDenySecure, false, kReadOnly);
  EXPECT_TRUE(CanOpenFor(kReadOnly));
  EXPECT_FALSE(CanOpenFor(kWriteOnly));
}

TEST_F(SecurelySharedFile, OpenedForWritingCannotBeOpened) {
  const Holder held(path(), kDenySecure);
  EXPECT_FALSE(CanOpenFor(kReadOnly));
  EXPECT_FALSE(CanOpenFor(kWriteOnly));
}

TEST_F(SharedFile, CanBeOpenedAfterTheOtherProcessHasEnded) {
  {
    const Holder held(path(), kDenyAll);
    EXPECT_FALSE(CanOpenFor(kReadOnly));
  }
  EXPECT_TRUE(CanOpenFor(kReadWrite));
}

TEST_F(SharedFile, CannotBeOpenedWithoutSharingWhileAnotherProcessHoldsIt) {
  const Holder held(path(), kDenyNone);
  uint32_t file = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileSOpen(ctx_, path().c_str(), kReadWrite, kDenyAll, 0, &file),
                KIV_ST_FILE_SHARING, kErrnoSharing);
  EXPECT_EQ(file, KIV_FILE_NONE);
}

TEST_F(SharedFile, DeniesNothingInFailoverMode) {
  const Holder held(path(), kDenyAll, true);
  EXPECT_TRUE(CanOpenFor(kReadOnly));
  EXPECT_TRUE(CanOpenFor(kReadWrite));
}

TEST_F(SharedFile, OpenedWithoutShareFlagsFailsWithTheOpenStatus) {
  const Holder held(path(), kDenyAll);
  uint32_t file = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileOpen(ctx_, path().c_str(), kReadOnly, 0, &file), KIV_ST_FILE_OPEN,
                kErrnoSharing);
  EXPECT_EQ(file, KIV_FILE_NONE);
}

TEST_F(SharedFile, MadeByOneProcessExistsForTheOther) {
  const Holder held(path(), kDenyNone);
  uint32_t file = kUntouched;
  CHECK_OUTCOME(ctx_,
                KivSdFileSOpenExclusiveMode(ctx_, path().c_str(), kReadWrite | kCreate, kDenyNone,
                                            kBothPermissions, &file),
                KIV_ST_FILE_SHARE_OPEN, EEXIST);
}

TEST_F(SharedFile, IsInUseWhileAnotherProcessHoldsItWithAnyShareFlags) {
  for (const uint32_t shareFlags : {kDenyAll, kDenyWrite, kDenyNone}) {
    SCOPED_TRACE(shareFlags);
    const Holder held(path(), shareFlags);
    uint32_t status = 0;
    CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), &status));
    EXPECT_EQ(status, KIV_FSTAT_INUSE);
  }
  uint32_t status = 0;
  CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), &status));
  EXPECT_EQ(status, KIV_FSTAT_FREE);
}

TEST_F(SharedFile, IsFreeInFailoverModeIfTheOtherProcessSharesIt) {
  KivSdSetFailoverModeFlag(1);
  uint32_t status = 0;
  {
    const Holder held(path(), kDenyNone);
    CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), &status));
    EXPECT_EQ(status, KIV_FSTAT_FREE);
  }
  const Holder held(path(), kDenyWrite);
  CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), &status));
  EXPECT_EQ(status, KIV_FSTAT_INUSE);
  KivSdSetFailoverModeFlag(0);
}

TEST_F(SharedFile, ShowsTheOtherProcessesWrites) {
  const Holder held(path(), kDenyNone);
  Stream stream(path());
  stream.Write("CON");
  EXPECT_EQ(ContentOf(path()), "CONtent");
}

}  // namespace
