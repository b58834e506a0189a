// Direct I/O of the C++ layer: pages, files, transfers in the background and their lease.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "kivsdu/kivsdu.hpp"
#include "support/import_patch.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::ScriptedImport;
using kivsdu::AlignedPages;
using kivsdu::DirectFile;
using kivsdu::ErrorCode;
using kivsdu::Transfer;
using kivsdu::TransferLease;

constexpr uint32_t kReadAndWrite = KIV_ACCESS_READ | KIV_ACCESS_WRITE;

class CppDirectIo : public testing::Test {
 protected:
  std::string Path() const { return folder_.Path("blocks"); }

  DirectFile Open(uint32_t flags) const {
    return DirectFile(Path().c_str(), kReadAndWrite, KIV_SHARE_NONE, KIV_DISPOSITION_OPEN_ALWAYS,
                      flags);
  }

  static char FirstByteOf(const AlignedPages& pages, uint32_t block) {
    return *static_cast<const char*>(pages.Block(block));
  }

 private:
  kiv::test::TemporaryFolder folder_;
};

TEST(CppAlignedPages, AreFewerThan4GiB) {
  ErrorCode error;
  for (const uint32_t count : {524288u, 524289u, UINT32_MAX}) {
    const AlignedPages pages(count, error);
    EXPECT_EQ(error.Status(), KIV_ST_ARGUMENT) << count;
    EXPECT_EQ(pages.Count(), 0u) << count;
    EXPECT_EQ(pages.Data(), nullptr) << count;
  }
}

TEST_F(CppDirectIo, ReadsTheBlocksThatItWrote) {
  DirectFile file = Open(0);
  AlignedPages pages(2);
  EXPECT_EQ(pages.Count(), 2u);
  std::memset(pages.Block(0), 'a', KIV_PAGE_UNIT);
  std::memset(pages.Block(1), 'b', KIV_PAGE_UNIT);
  EXPECT_EQ(file.Write(0, pages.Data(), 2), 2u);
  EXPECT_EQ(file.Size(), 2u);
  EXPECT_EQ(file.Read(1, pages.Block(0), 1), 1u);
  EXPECT_EQ(FirstByteOf(pages, 0), 'b');
  EXPECT_EQ(file.Read(1, pages.Block(0), 2), 1u);
  EXPECT_EQ(file.Read(2, pages.Block(0), 1), 0u);
  file.Resize(1);
  EXPECT_EQ(file.Size(), 1u);
  file.Close();
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(CppDirectIo, ReportsFailures) {
  ErrorCode error;
  DirectFile missing(Path().c_str(), KIV_ACCESS_READ, KIV_SHARE_ALL, KIV_DISPOSITION_OPEN_EXISTING,
                     0, error);
  EXPECT_EQ(error.Status(), KIV_ST_FILE_CREATE);
  EXPECT_NE(error.OsError(), 0u);
  EXPECT_FALSE(missing.IsOpen());
  AlignedPages pages(1);
  EXPECT_THROW(missing.Read(0, pages.Data(), 1), kivsdu::Failure);
  EXPECT_THROW(missing.Write(0, pages.Data(), 1), kivsdu::Failure);
  EXPECT_THROW(missing.Size(), kivsdu::Failure);
  EXPECT_THROW(missing.Resize(1), kivsdu::Failure);
  EXPECT_THROW(AlignedPages(0), kivsdu::Failure);
}

TEST_F(CppDirectIo, ClosesAMovedFileOnce) {
  DirectFile first = Open(0);
  const uint32_t number = first.Get();
  DirectFile second(std::move(first));
  EXPECT_FALSE(first.IsOpen());
  EXPECT_EQ(second.Release(), number);
  EXPECT_EQ(KivSdDirectIOFileClose(nullptr, number), KIV_ST_OK);
}

// ---- Transfers ----

TEST_F(CppDirectIo, CollectsWhatItStarted) {
  DirectFile file = Open(KIV_OPEN_OVERLAPPED);
  AlignedPages pages(2);
  std::memset(pages.Data(), 'c', 2 * KIV_PAGE_UNIT);
  Transfer transfer;
  EXPECT_FALSE(transfer.IsInFlight());
  transfer.StartWrite(file, 0, pages.Data(), 2);
  EXPECT_TRUE(transfer.IsInFlight());
  ErrorCode error;
  transfer.StartRead(file, 0, pages.Data(), 1, error);
  EXPECT_EQ(error.Status(), KIV_ST_ARGUMENT) << "a record serves one transfer at a time";
  EXPECT_EQ(transfer.Collect(), 2u);
  EXPECT_FALSE(transfer.IsInFlight());
  EXPECT_EQ(transfer.Collect(), 2u);  // again, without a wait

  std::memset(pages.Data(), 0, 2 * KIV_PAGE_UNIT);
  transfer.StartRead(file, 1, pages.Data(), 2);
  EXPECT_EQ(transfer.Collect(), 1u);
  EXPECT_EQ(FirstByteOf(pages, 0), 'c');
  transfer.StartRead(file, 9, pages.Data(), 1);
  EXPECT_EQ(transfer.Collect(), 0u);
}

TEST_F(CppDirectIo, WaitsForATransferInItsDestructor) {
  DirectFile file = Open(KIV_OPEN_OVERLAPPED);
  AlignedPages pages(1);
  std::memset(pages.Data(), 'd', KIV_PAGE_UNIT);
  {
    Transfer transfer;
    transfer.StartWrite(file, 0, pages.Data(), 1);
  }
  EXPECT_EQ(file.Size(), 1u);
}

TEST_F(CppDirectIo, DoesNotWaitForATransferThatFailedToStart) {
  const DirectFile closed;
  AlignedPages pages(1);
  Transfer transfer;
  EXPECT_THROW(transfer.StartRead(closed, 0, pages.Data(), 1), kivsdu::Failure);
  EXPECT_FALSE(transfer.IsInFlight());
  EXPECT_THROW(transfer.StartWrite(closed, 0, pages.Data(), 1), kivsdu::Failure);
  EXPECT_EQ(transfer.Collect(), 0u);
}

TEST_F(CppDirectIo, NeedsAnEvent) {
  const ScriptedImport failing("CreateEventA", {.result = 0, .error = 8});
  EXPECT_THROW(Transfer(), kivsdu::Failure);
  ErrorCode error;
  const Transfer transfer(error);
  EXPECT_EQ(error.Status(), KIV_ST_EVENT_CREATE);
  EXPECT_EQ(error.OsError(), 8u);
}

// ---- The lease ----

TEST_F(CppDirectIo, KeepsTheLeaseUntilTheLastWriteIsCollected) {
  kivsdu::WritePause pause;
  kivsdu::Writer writer(pause);
  DirectFile file = Open(KIV_OPEN_OVERLAPPED);
  AlignedPages pages(2);
  TransferLease lease(writer);
  Transfer first;
  Transfer second;
  first.StartWrite(file, 0, pages.Block(0), 1, &lease);
  second.StartWrite(file, 1, pages.Block(1), 1, &lease);
  EXPECT_EQ(lease.InFlight(), 2u);
  EXPECT_EQ(pause.Get()->leases, 1);
  EXPECT_EQ(first.Collect(), 1u);
  EXPECT_EQ(pause.Get()->leases, 1);
  EXPECT_EQ(second.Collect(), 1u);
  EXPECT_EQ(pause.Get()->leases, 0);
  EXPECT_EQ(lease.InFlight(), 0u);
}

TEST_F(CppDirectIo, ReturnsTheLeaseOfAWriteThatFailedToStart) {
  kivsdu::WritePause pause;
  kivsdu::Writer writer(pause);
  const DirectFile closed;
  AlignedPages pages(1);
  TransferLease lease(writer);
  Transfer transfer;
  EXPECT_THROW(transfer.StartWrite(closed, 0, pages.Data(), 1, &lease), kivsdu::Failure);
  EXPECT_EQ(pause.Get()->leases, 0);
  EXPECT_EQ(lease.InFlight(), 0u);
}

TEST_F(CppDirectIo, ReturnsTheLeaseInTheDestructor) {
  kivsdu::WritePause pause;
  kivsdu::Writer writer(pause);
  DirectFile file = Open(KIV_OPEN_OVERLAPPED);
  AlignedPages pages(1);
  TransferLease lease(writer);
  {
    Transfer transfer;
    transfer.StartWrite(file, 0, pages.Data(), 1, &lease);
    EXPECT_EQ(pause.Get()->leases, 1);
  }
  EXPECT_EQ(pause.Get()->leases, 0);
}

}  // namespace
