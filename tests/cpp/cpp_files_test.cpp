// Files, and the write pause over them.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <thread>

#include "kivsdu/kivsdu.hpp"
#include "support/temporary_folder.h"

namespace {

using kivsdu::ErrorCode;
using kivsdu::File;

constexpr uint32_t kNewBinary =
    KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY;

class CppFile : public testing::Test {
 protected:
  std::string Path() const { return folder_.Path("file"); }

 private:
  kiv::test::TemporaryFolder folder_;
};

TEST_F(CppFile, ReadsWhatItWrote) {
  File file(Path().c_str(), kNewBinary);
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(file.Write("one\ntwo\n", 8), 8u);
  file.Flush();
  EXPECT_EQ(file.Length(), 8u);
  EXPECT_EQ(file.Seek(4, KIV_SEEK_START), 4u);
  char text[16] = {};
  EXPECT_EQ(file.Read(text, sizeof(text)), 4u);
  EXPECT_STREQ(text, "two\n");
  EXPECT_EQ(file.Read(text, sizeof(text)), 0u);
  EXPECT_EQ(file.Seek(-8, KIV_SEEK_END), 0u);
  EXPECT_TRUE(file.ReadLine(text, sizeof(text)));
  EXPECT_STREQ(text, "one\n");
  EXPECT_TRUE(file.ReadLine(text, sizeof(text)));
  EXPECT_FALSE(file.ReadLine(text, sizeof(text)));
}

TEST_F(CppFile, TransfersAtAnOffset) {
  File file(Path().c_str(), kNewBinary);
  EXPECT_EQ(file.WriteAt("abcdef", 2, 6), 6u);
  char text[8] = {};
  EXPECT_EQ(file.ReadAt(text, 4, 4), 4u);
  EXPECT_STREQ(text, "cdef");
  EXPECT_EQ(file.ReadAt(text, 8, 4), 0u);
  EXPECT_EQ(file.ReadAt(text, 100, 4), 0u);
}

TEST_F(CppFile, ThrowsIfItCannotBeOpened) {
  try {
    File file(Path().c_str(), KIV_FILEO_READ | KIV_FILEO_BINARY);
    FAIL() << "a missing file was opened";
  } catch (const kivsdu::Failure& failure) {
    EXPECT_EQ(failure.Error().Status(), KIV_ST_FILE_OPEN);
    EXPECT_EQ(failure.Error().OsError(), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(failure.Error().OsErrorText(), std::generic_category().message(ENOENT));
  }
}

TEST_F(CppFile, StoresTheErrorInTheFormWithoutExceptions) {
  ErrorCode error;
  File file(Path().c_str(), KIV_FILEO_READ | KIV_FILEO_BINARY, 0, error);
  EXPECT_EQ(error.Status(), KIV_ST_FILE_OPEN);
  EXPECT_FALSE(file.IsOpen());
  file = File(Path().c_str(), kNewBinary, kivsdu::kReadAndWritePermissions, error);
  EXPECT_FALSE(error);
  EXPECT_TRUE(file.IsOpen());
}

TEST_F(CppFile, ReportsABadDescriptorAsAnErrorOfTheRuntime) {
  File file;
  char byte = 0;
  ErrorCode error;
  EXPECT_EQ(file.Read(&byte, 1, error), 0u);
  EXPECT_EQ(error.Status(), KIV_ST_FILE_READ);
  EXPECT_EQ(file.ReadAt(&byte, 0, 1, error), 0u);
  EXPECT_EQ(error.OsError(), static_cast<uint32_t>(EBADF));
  EXPECT_EQ(error.OsErrorText(), std::generic_category().message(EBADF));
  EXPECT_EQ(file.WriteAt(&byte, 0, 1, error), 0u);
  EXPECT_EQ(error.OsErrorText(), std::generic_category().message(EBADF));
  EXPECT_THROW(file.Flush(), kivsdu::Failure);
  EXPECT_THROW(file.Seek(0, KIV_SEEK_START), kivsdu::Failure);
  EXPECT_THROW(file.Length(), kivsdu::Failure);
  EXPECT_THROW(file.Write(&byte, 1), kivsdu::Failure);
  EXPECT_THROW(file.Close(), kivsdu::Failure);
}

TEST_F(CppFile, DeniesOthersTheirAccess) {
  File first = File::OpenShared(Path().c_str(), kNewBinary, KIV_FILE_DENY_ALL);
  ErrorCode error;
  File second = File::OpenShared(Path().c_str(), KIV_FILEO_READ | KIV_FILEO_BINARY,
                                 KIV_FILE_DENY_NONE, 0, error);
  EXPECT_EQ(error.Status(), KIV_ST_FILE_SHARING);
  EXPECT_EQ(error, std::errc::device_or_resource_busy);
  first.Close();
  EXPECT_FALSE(first.IsOpen());
  EXPECT_NO_THROW(second = File::OpenShared(Path().c_str(), KIV_FILEO_READ | KIV_FILEO_BINARY,
                                            KIV_FILE_DENY_NONE));
}

TEST_F(CppFile, ClosesItsDescriptorOnce) {
  uint32_t descriptor = KIV_FILE_NONE;
  {
    File file(Path().c_str(), kNewBinary);
    descriptor = file.Descriptor();
    File other(std::move(file));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(other.Descriptor(), descriptor);
  }
  uint32_t length = 0;
  EXPECT_EQ(KivSdFileLength(nullptr, descriptor, &length), KIV_ST_FILE_LENGTH);

  File kept(Path().c_str(), kNewBinary);
  descriptor = kept.Release();
  EXPECT_FALSE(kept.IsOpen());
  EXPECT_EQ(KivSdFileClose(nullptr, descriptor), KIV_ST_OK);
}

// ---- Leases ----

TEST_F(CppFile, IsWrittenUnderALease) {
  kivsdu::WritePause pause;
  kivsdu::Writer writer(pause);
  File file(Path().c_str(), kNewBinary);
  EXPECT_EQ(writer.WriteAt(file, "abc", 0, 3), 3u);
  {
    std::lock_guard lease(writer);
    EXPECT_EQ(pause.Get()->leases, 1);
  }
  EXPECT_EQ(pause.Get()->leases, 0);

  const File closed;
  ErrorCode error;
  EXPECT_EQ(writer.WriteAt(closed, "abc", 0, 3, error), 0u);
  EXPECT_EQ(error.Status(), KIV_ST_FILE_READ);
  EXPECT_EQ(error.OsErrorText(), std::generic_category().message(EBADF));
}

TEST_F(CppFile, IsNotWrittenDuringAPause) {
  kivsdu::WritePause pause;
  kivsdu::Writer pauser(pause);
  File file(Path().c_str(), kNewBinary);
  std::atomic<bool> written = false;
  std::thread thread;
  {
    kivsdu::PauseGuard guard(pauser, std::chrono::seconds(30));
    thread = std::thread([&] {
      kivsdu::Writer writer(pause);
      writer.WriteAt(file, "abc", 0, 3);
      written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(written);
    EXPECT_EQ(file.Length(), 0u);

    ErrorCode error;
    pauser.Pause(std::chrono::seconds(30), error);
    EXPECT_EQ(error.Status(), KIV_ST_WRITE_PAUSE);
    EXPECT_THROW(kivsdu::PauseGuard(pauser, std::chrono::seconds(30)), kivsdu::Failure);
    EXPECT_EQ(pause.Get()->paused, 1u);  // the failed guard did not lift the pause
  }
  thread.join();
  EXPECT_EQ(file.Length(), 3u);
}

}  // namespace
