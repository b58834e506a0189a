// Anonymous pipes on Linux: no signal reaches the host, signals of the host end no transfer, and no
// descriptor leaks.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/raw_transfers.h"
#include "support/context.h"
#include "support/pipe.h"
#include "support/waiting.h"

namespace {

using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kShortMs;
using kiv::test::Pipe;
using kiv::test::Stopwatch;

std::set<int> OpenDescriptors() {
  std::set<int> open;
  DIR* entries = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(entries)) {
    const int number = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && number != dirfd(entries)) open.insert(number);
  }
  closedir(entries);
  return open;
}

// ---- Signals ----

std::atomic<int> pipeSignals{0};

// Counts SIGPIPE during its lifetime.
class PipeSignals {
 public:
  PipeSignals() {
    pipeSignals = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++pipeSignals; };
    sigaction(SIGPIPE, &action, &before_);
  }
  ~PipeSignals() { sigaction(SIGPIPE, &before_, nullptr); }
  PipeSignals(const PipeSignals&) = delete;
  PipeSignals& operator=(const PipeSignals&) = delete;

 private:
  struct sigaction before_ = {};
};

// Runs once with the kernel's writes without a signal, if it has them, and once without.
class PipeSignal : public testing::TestWithParam<bool> {
 protected:
  PipeSignal() { kiv::os::kernelHasNoSignal = GetParam(); }
  ~PipeSignal() override { kiv::os::kernelHasNoSignal = true; }
};
INSTANTIATE_TEST_SUITE_P(Kernel, PipeSignal, testing::Bool());

TEST_P(PipeSignal, DoesNotReachTheHost) {
  Context ctx;
  const PipeSignals signals;
  Pipe pipe;
  Pipe::Close(&pipe.read);
  uint32_t count = 0;
  for (int i = 0; i < 3; ++i) {
    CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &pipe.write, "x", 1, &count), KIV_ST_PIPE_WRITE,
                  uint32_t{EPIPE});
  }
  EXPECT_EQ(pipeSignals, 0);
}

TEST_P(PipeSignal, OfAHostsDescriptorDoesNotReachTheHost) {
  Context ctx;
  const PipeSignals signals;
  int pipeEnds[2];
  int sockets[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
  close(pipeEnds[0]);
  close(sockets[0]);
  for (const int end : {pipeEnds[1], sockets[1]}) {
    const auto file = static_cast<uint32_t>(end);
    uint32_t count = 0;
    CHECK_OUTCOME(ctx, KivSdFileWrite(ctx, file, "x", 1, &count), KIV_ST_FILE_WRITE,
                  uint32_t{EPIPE});
    close(end);
  }
  EXPECT_EQ(pipeSignals, 0);
}

TEST_P(PipeSignal, OfTheHostStaysPending) {
  const PipeSignals signals;
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
  raise(SIGPIPE);
  Pipe pipe;
  Pipe::Close(&pipe.read);
  uint32_t count = 0;
  EXPECT_EQ(KivSdPipeWrite(nullptr, &pipe.write, "x", 1, &count), KIV_ST_PIPE_WRITE);
  EXPECT_EQ(pipeSignals, 0);
  pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr);
  EXPECT_EQ(pipeSignals, 1) << "the host's own, once";
}

TEST_P(PipeSignal, DoesNotCutAWriteWhoseReaderLeaves) {
  Context ctx;
  const PipeSignals signals;
  Pipe pipe;
  std::thread reader([&] {
    char bytes[1000];
    uint32_t count = 0;
    EXPECT_EQ(KivSdPipeRead(nullptr, &pipe.read, bytes, sizeof bytes, &count), KIV_ST_OK);
    Pipe::Close(&pipe.read);
  });
  const std::string bytes(1 << 20, 'x');
  uint32_t count = 0;
  CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &pipe.write, bytes.data(), 1 << 20, &count),
                KIV_ST_PIPE_WRITE, uint32_t{EPIPE});
  EXPECT_EQ(count, 0u);
  reader.join();
  EXPECT_EQ(pipeSignals, 0);
}

// Sends a thread signals, whose handler lets system calls end.
class Interruptions {
 public:
  Interruptions() : target_(pthread_self()) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before_);
    sender_ = std::thread([this] {
      while (!mayEnd_) {
        pthread_kill(target_, SIGUSR1);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
  }
  ~Interruptions() {
    mayEnd_ = true;
    sender_.join();
    sigaction(SIGUSR1, &before_, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

 private:
  const pthread_t target_;
  std::atomic<bool> mayEnd_{false};
  std::thread sender_;
  struct sigaction before_ = {};
};

TEST(PipeInterrupted, ReadGoesOn) {
  Context ctx;
  Pipe pipe;
  const Interruptions interruptions;
  const kiv::test::Later write([&] {
    uint32_t count = 0;
    EXPECT_EQ(KivSdPipeWrite(nullptr, &pipe.write, "x", 1, &count), KIV_ST_OK);
  });
  char byte = 0;
  uint32_t count = 0;
  CHECK_OK(ctx, KivSdPipeRead(ctx, &pipe.read, &byte, 1, &count));
  EXPECT_EQ(byte, 'x');
}

TEST(PipeInterrupted, WriteWritesAllBytes) {
  Context ctx;
  Pipe pipe(4096);
  const Interruptions interruptions;
  std::string bytes;
  for (int i = 0; i < 400'000; ++i) bytes += static_cast<char>(i % 251);
  std::string got;
  std::thread reader([&] {
    std::vector<char> buffer(3000);
    while (got.size() < bytes.size()) {
      uint32_t count = 0;
      if (KivSdPipeRead(nullptr, &pipe.read, buffer.data(), 3000, &count) != KIV_ST_OK) break;
      got.append(buffer.data(), count);
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  });
  uint32_t count = 0;
  CHECK_OK(ctx, KivSdPipeWrite(ctx, &pipe.write, bytes.data(), 400'000, &count));
  EXPECT_EQ(count, 400'000u);
  reader.join();
  EXPECT_TRUE(got == bytes);
}

// ---- Handles ----

TEST(PipeHandle, RefusesTransfersInTheWrongDirection) {
  Context ctx;
  Pipe pipe;
  char byte = 'x';
  uint32_t count = 4711;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &pipe.write, &byte, 1, &count), KIV_ST_PIPE_READ,
                uint32_t{EACCES});
  CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &pipe.read, &byte, 1, &count), KIV_ST_PIPE_WRITE,
                uint32_t{EACCES});
  CHECK_OUTCOME(ctx, KivSdNamedPipePeek(ctx, &pipe.write, 0, nullptr, nullptr, nullptr, nullptr),
                KIV_ST_PIPE_PEEK, uint32_t{EACCES});
}

TEST(PipeHandle, IsRefusedIfItIsClosedOrAnotherKinds) {
  Context ctx;
  Pipe pipe;
  KivHandle closed = pipe.read;
  Pipe::Close(&pipe.read);
  KivHandle event = nullptr;
  ASSERT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  char byte = 'x';
  uint32_t count = 0;
  for (KivHandle bad : {closed, event, reinterpret_cast<KivHandle>(uintptr_t{3})}) {
    CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &bad, &byte, 1, &count), KIV_ST_PIPE_READ,
                  uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &bad, &byte, 1, &count), KIV_ST_PIPE_WRITE,
                  uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdPipeClose(ctx, &bad), KIV_ST_PIPE_CLOSE, uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdNamedPipePeek(ctx, &bad, 0, nullptr, nullptr, nullptr, nullptr),
                  KIV_ST_PIPE_PEEK, uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &bad), KIV_ST_PIPE_CONNECT, uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdNamedPipeDisconnect(ctx, &bad), KIV_ST_PIPE_DISCONNECT,
                  uint32_t{EBADF});
  }
  EXPECT_EQ(KivSdEventClose(nullptr, &event), KIV_ST_OK);
}

TEST(PipeHandle, OfAnAnonymousPipeHasNoClients) {
  Context ctx;
  Pipe pipe;
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &pipe.read), KIV_ST_PIPE_CONNECT, uint32_t{EINVAL});
  CHECK_OUTCOME(ctx, KivSdNamedPipeDisconnect(ctx, &pipe.read), KIV_ST_PIPE_DISCONNECT,
                uint32_t{EINVAL});
}

// The descriptor stays open for the read that uses it, whatever is opened meanwhile.
TEST(PipeHandle, CanBeClosedWhileAnotherThreadReads) {
  for (int round = 0; round < 100; ++round) {
    Pipe pipe;
    char byte = 0;
    std::atomic<uint32_t> status{4711};
    KivHandle read = pipe.read;
    std::thread reader([&] {
      uint32_t count = 0;
      status = KivSdPipeRead(nullptr, &read, &byte, 1, &count);
    });
    if (round % 2 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));
    Pipe::Close(&pipe.read);
    const Pipe other;  // would get the descriptor's number
    uint32_t count = 0;
    static_cast<void>(KivSdPipeWrite(nullptr, &pipe.write, "x", 1, &count));
    reader.join();
    EXPECT_TRUE(status == KIV_ST_OK ? byte == 'x' : status == KIV_ST_PIPE_READ) << status;
  }
}

TEST(PipeHandle, LeaksNoDescriptorAndLetsNoProgramInheritOne) {
  const std::set<int> before = OpenDescriptors();
  {
    const Pipe pipe;
    EXPECT_EQ(OpenDescriptors().size(), before.size() + 2);
    for (const int descriptor : OpenDescriptors()) {
      if (before.count(descriptor) != 0) continue;
      EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
    }
  }
  for (int round = 0; round < 1000; ++round) const Pipe pipe;
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(PipeHandle, IsNotMadeWithoutDescriptors) {
  rlimit usual = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
  rlimit few = usual;
  few.rlim_cur = 3;  // the numbers that the process began with
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  Context ctx;
  KivHandle read = &ctx;
  KivHandle write = &ctx;
  const uint32_t status = KivSdPipeCreate(ctx, &read, &write, 0);
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_EQ(status, KIV_ST_PIPE_CREATE);
  EXPECT_EQ(ctx.osError(), uint32_t{EMFILE});
  EXPECT_EQ(read, nullptr);
  EXPECT_EQ(write, nullptr);
}

// ---- Buffers ----

TEST(PipeBuffer, HasTheSizeThatWasAskedFor) {
  for (const uint32_t bufferBytes : {4096u, 65536u, 262144u}) {
    Pipe pipe(bufferBytes);
    const std::string bytes(1 << 20, 'x');
    std::thread writer([&] {
      uint32_t count = 0;
      EXPECT_EQ(KivSdPipeWrite(nullptr, &pipe.write, bytes.data(), 1 << 20, &count), KIV_ST_OK);
    });
    uint32_t available = 0;
    const Stopwatch watch;
    while (available < bufferBytes && watch.ElapsedMs() < kLimitMs) {
      EXPECT_EQ(KivSdNamedPipePeek(nullptr, &pipe.read, 0, nullptr, nullptr, &available, nullptr),
                KIV_ST_OK);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs / 4));
    EXPECT_EQ(KivSdNamedPipePeek(nullptr, &pipe.read, 0, nullptr, nullptr, &available, nullptr),
              KIV_ST_OK);
    EXPECT_EQ(available, bufferBytes);
    std::vector<char> buffer(1 << 20);
    uint32_t got = 0;
    while (got < bytes.size()) {
      uint32_t count = 0;
      ASSERT_EQ(KivSdPipeRead(nullptr, &pipe.read, buffer.data(), 1 << 20, &count), KIV_ST_OK);
      got += count;
    }
    writer.join();
  }
}

TEST(PipePeek, ShowsMoreThanOneBufferOfTheKernel) {
  Context ctx;
  Pipe pipe(1 << 20);
  std::string bytes;
  for (int i = 0; i < 300'000; ++i) bytes += static_cast<char>(i % 251);
  uint32_t count = 0;
  CHECK_OK(ctx, KivSdPipeWrite(ctx, &pipe.write, bytes.data(), 300'000, &count));
  std::string seen(300'000, '\0');
  for (int times = 0; times < 2; ++times) {
    CHECK_OK(ctx,
             KivSdNamedPipePeek(ctx, &pipe.read, 300'000, seen.data(), &count, nullptr, nullptr));
    EXPECT_EQ(count, 300'000u);
    EXPECT_TRUE(seen == bytes);
  }
}

}  // namespace
