// Transfers in the background on Linux: rare answers of the kernel's two services, and what becomes
// of a transfer that the kernel does not take.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <liburing.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "os/direct_files.h"
#include "os/kernel_objects.h"
#include "os/lnx/transfer_kernel.h"
#include "os/lnx/transfer_queue.h"
#include "os/lnx/transfer_record.h"
#include "support/lnx/answered_calls.h"
#include "support/open_handles.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

constexpr uint32_t kSize = 8;

Answering OnlyCall(long number, Answering answering) {
  return [=](const Words& arguments, Word* word) {
    return arguments[0] == number ? answering(arguments, word) : Answer::kPass;
  };
}

// Runs in a new process, which has not chosen a service yet. The result is its exit code.
int RunInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) std::exit(body());  // as a host ends, with the library's destructors
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A file of 8 bytes, and a transfer that reads it.
class Transfers : public testing::Test {
 protected:
  Transfers() {
    folder_.Write("file", "abcdefgh");
    descriptor_ = open(folder_.Path("file").c_str(), O_RDWR | O_CLOEXEC);
  }
  ~Transfers() override { close(descriptor_); }

  Transfer Reading() { return {true, bytes_, kSize, &record_}; }

  const TemporaryFolder folder_;
  int descriptor_ = -1;
  char bytes_[kSize + 1] = {};
  KivSdNoWaitCb record_ = {};
};

// ---- The services, without the queue ----

class Service : public Transfers, public testing::WithParamInterface<const TransferKernel*> {
 protected:
  void SetUp() override {
    if (!kernel().open()) GTEST_SKIP() << "this kernel does not offer " << kernel().name;
    kernel().drop();
  }
  Service() : before_(OpenHandles()) {}
  ~Service() override { EXPECT_EQ(OpenHandles(), before_) << "the service left descriptors open"; }

  const TransferKernel& kernel() const { return *GetParam(); }

  void ExpectOneEnd(KivSdNoWaitCb* record, int64_t answer) {
    TransferEnd ends[2] = {};
    const Deadline never = {{}, true};
    ASSERT_EQ(kernel().collect(ends, 1, &never), 1u);
    EXPECT_EQ(ends[0].record, record);
    if (record != nullptr) {
      EXPECT_EQ(ends[0].answer, answer);
    }
  }

  const size_t before_;
};

TEST_P(Service, RunsATransferAndAKick) {
  ASSERT_TRUE(kernel().open());
  EXPECT_TRUE(kernel().start(descriptor_, Reading()).ok);
  ExpectOneEnd(&record_, kSize);
  EXPECT_STREQ(bytes_, "abcdefgh");
  kernel().kick();
  ExpectOneEnd(nullptr, 0);
  TransferEnd ends[1];
  EXPECT_EQ(kernel().collect(ends, 1, nullptr), 0u);
  kernel().drop();
}

INSTANTIATE_TEST_SUITE_P(Transfers, Service, testing::Values(&ringKernel, &aioKernel),
                         [](const auto& row) { return std::string(row.param->name); });

class Aio : public Service {};
INSTANTIATE_TEST_SUITE_P(Transfers, Aio, testing::Values(&aioKernel));

TEST_P(Aio, IsNotOfferedIfTheKernelRefusesIt) {
  const AnsweredCall refused("syscall", OnlyCall(SYS_io_setup, Refuse(ENOSYS)));
  EXPECT_FALSE(kernel().open());
  EXPECT_EQ(refused.answered(), 1u);
}

TEST_P(Aio, TakesFewerTransfersWhenOtherProcessesHaveMany) {
  {
    const AnsweredCall few("syscall", OnlyCall(SYS_io_setup, Refuse(EAGAIN)));
    EXPECT_FALSE(kernel().open());
    EXPECT_EQ(few.answered(), 6u) << "from 2048 transfers down to 64";
  }
  const AnsweredCall few("syscall", OnlyCall(SYS_io_setup, Refuse(EAGAIN, 0, 2)));
  EXPECT_TRUE(kernel().open());
  kernel().drop();
}

TEST_P(Aio, NeedsADescriptorToBeKicked) {
  uint32_t destroyed = 0;
  const AnsweredCall destroys("syscall", OnlyCall(SYS_io_destroy, [&](const Words&, Word*) {
                                ++destroyed;
                                return Answer::kPass;
                              }));
  const AnsweredCall refused("eventfd", Refuse(EMFILE));
  EXPECT_FALSE(kernel().open());
  EXPECT_EQ(destroyed, 1u);
}

TEST_P(Aio, ReportsATransferThatItDoesNotTake) {
  ASSERT_TRUE(kernel().open());
  const auto start = [&](Answering answering) {
    const AnsweredCall submits("syscall", OnlyCall(SYS_io_submit, std::move(answering)));
    return kernel().start(descriptor_, Reading()).error;
  };
  EXPECT_EQ(start(Give(0)), uint32_t{EAGAIN});
  EXPECT_EQ(start(Refuse(EBADF)), uint32_t{EBADF});
  EXPECT_EQ(start(Refuse(EINTR, 0, 1)), 0u) << "an interrupted call is repeated";
  ExpectOneEnd(&record_, kSize);
  kernel().drop();
}

class Ring : public Service {};
INSTANTIATE_TEST_SUITE_P(Transfers, Ring, testing::Values(&ringKernel));

TEST_P(Ring, IsNotOfferedIfTheKernelRefusesItOrLacksAFeature) {
  {
    const AnsweredCall refused("io_uring_queue_init_params", Give(-ENOSYS));
    EXPECT_FALSE(kernel().open());
  }
  for (const uint32_t features : {0u, IORING_FEAT_EXT_ARG, IORING_FEAT_NODROP}) {
    const AnsweredCall old("io_uring_queue_init_params", [=](const Words& arguments, Word* word) {
      auto* parameters = reinterpret_cast<io_uring_params*>(arguments[2]);
      *word = io_uring_queue_init_params(static_cast<uint32_t>(arguments[0]),
                                         reinterpret_cast<io_uring*>(arguments[1]), parameters);
      parameters->features = features;
      return Answer::kGive;
    });
    EXPECT_FALSE(kernel().open()) << features;
  }
}

TEST_P(Ring, ReportsATransferThatItDoesNotTake) {
  ASSERT_TRUE(kernel().open());
  const auto start = [&](Word word) {
    const AnsweredCall submits("io_uring_submit", Give(word));
    return kernel().start(descriptor_, Reading()).error;
  };
  EXPECT_EQ(start(0), uint32_t{EAGAIN});
  EXPECT_EQ(start(-EAGAIN), uint32_t{EAGAIN});
  EXPECT_EQ(start(-EBUSY), uint32_t{EAGAIN});
  EXPECT_EQ(start(-EINVAL), uint32_t{EINVAL});
  const AnsweredCall interrupted("io_uring_submit", Give(-EINTR, 0, 1));
  EXPECT_TRUE(kernel().start(descriptor_, Reading()).ok);
  for (int empty = 0; empty < 4; ++empty) ExpectOneEnd(nullptr, 0);
  ExpectOneEnd(&record_, kSize);
  kernel().drop();
}

TEST_P(Ring, HasRoomForSomeTransfersThatTheKernelHasNotTaken) {
  constexpr int kRoom = 64;
  ASSERT_TRUE(kernel().open());
  {
    const AnsweredCall nothing("io_uring_submit", Give(0));
    for (int i = 0; i < kRoom; ++i) {
      EXPECT_EQ(kernel().start(descriptor_, Reading()).error, uint32_t{EAGAIN});
    }
    EXPECT_EQ(nothing.answered(), uint32_t{kRoom});
    EXPECT_EQ(kernel().start(descriptor_, Reading()).error, uint32_t{EAGAIN});
    kernel().kick();
    EXPECT_EQ(nothing.answered(), uint32_t{kRoom}) << "without an entry there is nothing to submit";
  }
  kernel().drop();
}

// ---- The queue ----

// In a process of its own, which chooses the service by its name.
class Queue : public Transfers, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    const auto isOffered = [] { return std::string(AsyncBackend()) == GetParam() ? 0 : 1; };
    if (Run(isOffered) != 0) GTEST_SKIP() << "this kernel does not offer " << GetParam();
  }

  int Run(const std::function<int()>& body) {
    setenv("KIVSDU_ASYNC_IO", GetParam(), 1);
    const int code = RunInChild([&] {
      record_.event = MakeManualEvent().value;
      return body();
    });
    unsetenv("KIVSDU_ASYNC_IO");
    return code;
  }

  bool HasEvent() const { return WaitOne(record_.event, 0).result == kWaitSignalled; }
  uint32_t Start() { return StartTransfer(descriptor_, Reading()).error; }

  // Makes the kernel take no transfer.
  static const char* SubmitCall() {
    return std::string(GetParam()) == "aio" ? "syscall" : "io_uring_submit";
  }
  static Answering Submit(int error, uint32_t times = UINT32_MAX) {
    if (std::string(GetParam()) == "aio") return OnlyCall(SYS_io_submit, Refuse(error, 0, times));
    return Give(-error, 0, times);
  }
};

INSTANTIATE_TEST_SUITE_P(Transfers, Queue, testing::Values("io_uring", "aio"));

TEST_P(Queue, ATransferWhoseEventIsClosedMeanwhileIsNotStarted) {
  EXPECT_EQ(Run([&] {
              const AnsweredCall closes("BeginTransferOn",
                                        Precede([&] { CloseObject(record_.event); }));
              if (Start() != EBADF) return 1;
              return StatusIn(&record_) == EBADF ? 0 : 2;
            }),
            0);
}

TEST_P(Queue, ATransferThatTheKernelRefusesEndsWithTheError) {
  EXPECT_EQ(Run([&] {
              const AnsweredCall refused(SubmitCall(), Submit(EIO));
              if (Start() != EIO) return 1;
              if (StatusIn(&record_) != EIO) return 2;
              if (HasEvent()) return 3;
              const AnsweredCall full(SubmitCall(), Submit(EAGAIN));
              return Start() == kErrorTransferPending && HasEvent() ? 0 : 4;  // it is alone
            }),
            0);
}

TEST_P(Queue, ATransferThatFindsNoRoomAloneIsMadeAtOnce) {
  EXPECT_EQ(Run([&] {
              const AnsweredCall refused(SubmitCall(), Submit(EAGAIN));
              if (Start() != kErrorTransferPending) return 1;
              if (!HasEvent() || StatusIn(&record_) != 0) return 2;
              return std::string(bytes_) == "abcdefgh" ? 0 : 3;
            }),
            0);
}

TEST_P(Queue, ATransferThatFindsNoRoomBesideOthersWaitsForTheirEnd) {
  EXPECT_EQ(Run([&] {
              KivSdNoWaitCb other = {};
              char bytes[kSize];
              other.event = MakeManualEvent().value;
              StartTransfer(descriptor_, {true, bytes, kSize, &other});
              const AnsweredCall full(SubmitCall(), Submit(EAGAIN, 1));
              if (Start() != kErrorTransferPending) return 1;
              if (WaitOne(other.event, kWaitForEver).result != kWaitSignalled) return 2;
              if (WaitOne(record_.event, kWaitForEver).result != kWaitSignalled) return 3;
              return full.answered() == 1 && StatusIn(&record_) == 0 ? 0 : 4;
            }),
            0);
}

TEST_P(Queue, ATransferOutlivesItsEvent) {
  EXPECT_EQ(Run([&] {
              if (Start() != kErrorTransferPending) return 1;
              CloseObject(record_.event);
              while (StatusIn(&record_) == kErrorTransferPending) CollectEndedTransfers();
              return StatusIn(&record_) == 0 ? 0 : 2;
            }),
            0);
}

TEST_P(Queue, AProcessMayEndBeforeItsTransfers) {
  EXPECT_EQ(Run([&] { return Start() == kErrorTransferPending ? 0 : 1; }), 0);
}

TEST_F(Transfers, WithoutAServiceATransferIsMadeAtOnce) {
  EXPECT_EQ(RunInChild([&] {
              const AnsweredCall ring("io_uring_queue_init_params", Give(-EPERM));
              const AnsweredCall aio("syscall", OnlyCall(SYS_io_setup, Refuse(ENOSYS)));
              if (std::string(AsyncBackend()) != "none") return 1;
              record_.event = MakeManualEvent().value;
              if (StartTransfer(descriptor_, Reading()).error != kErrorTransferPending) return 2;
              return StatusIn(&record_) == 0 && std::string(bytes_) == "abcdefgh" ? 0 : 3;
            }),
            0);
}

}  // namespace
