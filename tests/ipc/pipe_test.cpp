// Anonymous pipes within one process and between two processes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/pipe.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::InheritingChild;
using kiv::test::kOsBadHandle;
using kiv::test::kOsBrokenPipe;
using kiv::test::kOsNoReader;
using kiv::test::Pipe;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;

constexpr uint32_t kUntouched = 4711;

void Write(Pipe& pipe, const std::string& text) {
  Context ctx;
  uint32_t count = 0;
  CHECK_OK(ctx, KivSdPipeWrite(ctx, &pipe.write, text.data(), static_cast<uint32_t>(text.size()),
                               &count));
  EXPECT_EQ(count, text.size());
}

std::string Read(Pipe& pipe, uint32_t atMost) {
  Context ctx;
  std::string text(atMost, '?');
  uint32_t count = 0;
  CHECK_OK(ctx, KivSdPipeRead(ctx, &pipe.read, text.data(), atMost, &count));
  text.resize(std::min(count, atMost));
  return text;
}

KivHandle HandleFrom(const std::string& text) {
  return reinterpret_cast<KivHandle>(static_cast<uintptr_t>(std::stoull(text)));
}

// The end that a role is for, after closing the other end if the process has it.
KivHandle OwnEnd(const RoleArguments& arguments) {
  for (size_t i = 1; i < arguments.size(); ++i) {
    KivHandle other = HandleFrom(arguments[i]);
    KivSdPipeClose(nullptr, &other);
  }
  return HandleFrom(arguments[0]);
}

// ---- Bytes through a pipe ----

TEST(Pipe, CarriesBytesInOrder) {
  Pipe pipe;
  const std::string bytes("one\0two\r\n\x1A\xFFthree", 16);
  Write(pipe, bytes);
  Write(pipe, "four");
  EXPECT_EQ(Read(pipe, 5), bytes.substr(0, 5));
  EXPECT_EQ(Read(pipe, 100), bytes.substr(5) + "four");
}

TEST(Pipe, ReadReturnsTheAvailableBytesWithoutFillingTheBuffer) {
  Pipe pipe;
  Write(pipe, "abc");
  EXPECT_EQ(Read(pipe, 4096), "abc");
}

TEST(Pipe, TakesAnyBufferSize) {
  for (const uint32_t bufferBytes : {0u, 1u, 4096u, 1u << 20}) {
    Pipe pipe(bufferBytes);
    std::thread writer([&] { Write(pipe, "abc"); });
    std::string text;
    while (text.size() < 3) text += Read(pipe, 3);
    writer.join();
    EXPECT_EQ(text, "abc");
  }
}

TEST(Pipe, WriteWaitsUntilAllBytesAreRead) {
  Pipe pipe(4096);
  const std::string bytes(1u << 20, 'x');
  std::string got;
  std::thread writer([&] { Write(pipe, bytes); });
  while (got.size() < bytes.size()) got += Read(pipe, 10000);
  writer.join();
  EXPECT_TRUE(got == bytes);
}

TEST(Pipe, WritingZeroBytesSucceeds) {
  Pipe pipe;
  Write(pipe, "");
}

TEST(Pipe, WorksWithoutAContext) {
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  ASSERT_EQ(KivSdPipeCreate(nullptr, &read, &write, 0), KIV_ST_OK);
  char byte = 'a';
  uint32_t count = 0;
  EXPECT_EQ(KivSdPipeWrite(nullptr, &write, &byte, 1, &count), KIV_ST_OK);
  EXPECT_EQ(count, 1u);
  byte = 0;
  count = 0;
  EXPECT_EQ(KivSdNamedPipePeek(nullptr, &read, 0, nullptr, nullptr, &count, nullptr), KIV_ST_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(KivSdPipeRead(nullptr, &read, &byte, 1, &count), KIV_ST_OK);
  EXPECT_EQ(byte, 'a');
  EXPECT_EQ(KivSdPipeClose(nullptr, &write), KIV_ST_OK);
  EXPECT_EQ(KivSdPipeRead(nullptr, &read, &byte, 1, &count), KIV_ST_PIPE_READ);
  EXPECT_EQ(KivSdPipeClose(nullptr, &read), KIV_ST_OK);
}

#ifdef _WIN32  // elsewhere a child inherits all handles of a process that forks, and none otherwise
TEST(Pipe, ChildrenDoNotInheritItsEnds) {
  Pipe pipe;
  for (const KivHandle end : {pipe.read, pipe.write}) {
    DWORD flags = HANDLE_FLAG_INHERIT;
    EXPECT_TRUE(GetHandleInformation(end, &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
  }
}
#endif

TEST(Pipe, PeekCountsBytesWithoutRemovingThem) {
  Context ctx;
  Pipe pipe;
  uint32_t read = kUntouched;
  uint32_t available = kUntouched;
  uint32_t left = kUntouched;
  CHECK_OK(ctx, KivSdNamedPipePeek(ctx, &pipe.read, 0, nullptr, &read, &available, &left));
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(available, 0u);

  Write(pipe, "abcdef");
  char seen[4] = {};
  CHECK_OK(ctx, KivSdNamedPipePeek(ctx, &pipe.read, 4, seen, &read, &available, &left));
  EXPECT_EQ(std::string(seen, 4), "abcd");
  EXPECT_EQ(read, 4u);
  EXPECT_EQ(available, 6u);
  EXPECT_EQ(Read(pipe, 100), "abcdef");
}

// ---- Closed ends ----

TEST(Pipe, CloseKeepsTheHandleVariableAndFailsTheSecondTime) {
  Context ctx;
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  ASSERT_EQ(KivSdPipeCreate(nullptr, &read, &write, 0), KIV_ST_OK);
  const KivHandle before = read;
  CHECK_OK(ctx, KivSdPipeClose(ctx, &read));
  EXPECT_EQ(read, before);
  CHECK_OUTCOME(ctx, KivSdPipeClose(ctx, &read), KIV_ST_PIPE_CLOSE, kOsBadHandle);
  CHECK_OK(ctx, KivSdPipeClose(ctx, &write));
}

TEST(Pipe, ReadReturnsTheLastBytesOfAClosedWriterAndThenFails) {
  Context ctx;
  Pipe pipe;
  Write(pipe, "last");
  Pipe::Close(&pipe.write);
  EXPECT_EQ(Read(pipe, 100), "last");
  char byte = 0;
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &pipe.read, &byte, 1, &count), KIV_ST_PIPE_READ,
                kOsBrokenPipe);
  EXPECT_EQ(count, 0u);
  CHECK_OUTCOME(ctx, KivSdNamedPipePeek(ctx, &pipe.read, 0, nullptr, nullptr, nullptr, nullptr),
                KIV_ST_PIPE_PEEK, kOsBrokenPipe);
}

TEST(Pipe, WriteFailsAfterTheReaderIsClosed) {
  Context ctx;
  Pipe pipe;
  Pipe::Close(&pipe.read);
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &pipe.write, "x", 1, &count), KIV_ST_PIPE_WRITE,
                kOsNoReader);
  EXPECT_EQ(count, 0u);
}

TEST(Pipe, AWaitingReadEndsWhenTheWriterIsClosed) {
  Context ctx;
  Pipe pipe;
  std::thread closer([&] { Pipe::Close(&pipe.write); });
  char byte = 0;
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &pipe.read, &byte, 1, &count), KIV_ST_PIPE_READ,
                kOsBrokenPipe);
  closer.join();
}

// ---- Arguments ----

TEST(PipeArgument, NullPointersAreRefusedAndNoOutputIsWritten) {
  Context ctx;
  Pipe pipe;
  KivHandle end = &ctx;
  char byte = 'a';
  uint32_t count = kUntouched;
  CHECK_ARGUMENT(ctx, KivSdPipeCreate(ctx, nullptr, &end, 0));
  CHECK_ARGUMENT(ctx, KivSdPipeCreate(ctx, &end, nullptr, 0));
  CHECK_ARGUMENT(ctx, KivSdPipeClose(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdPipeRead(ctx, nullptr, &byte, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeRead(ctx, &pipe.read, nullptr, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeRead(ctx, &pipe.read, &byte, 1, nullptr));
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, nullptr, &byte, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, &pipe.write, nullptr, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, &pipe.write, &byte, 1, nullptr));
  EXPECT_EQ(end, &ctx);
  EXPECT_EQ(count, kUntouched);
  EXPECT_EQ(KivSdPipeCreate(nullptr, nullptr, nullptr, 0), KIV_ST_ARGUMENT);
}

TEST(PipeArgument, WriteRefusesANullHandleAndReadPassesItToTheSystem) {
  Context ctx;
  KivHandle none = nullptr;
  char byte = 'a';
  uint32_t count = kUntouched;
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, &none, &byte, 1, &count));
  EXPECT_EQ(count, kUntouched);
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &none, &byte, 1, &count), KIV_ST_PIPE_READ, kOsBadHandle);
  EXPECT_EQ(count, 0u);
}

TEST(PipeArgument, AHandleVariableIsInitializedUnlessItHoldsNull) {
  KivHandle pipe = nullptr;
  EXPECT_EQ(KivSdNamedPipeIsInitialized(nullptr), 0);
  EXPECT_EQ(KivSdNamedPipeIsInitialized(&pipe), 0);
  pipe = INVALID_HANDLE_VALUE;
  EXPECT_EQ(KivSdNamedPipeIsInitialized(&pipe), 1);
  pipe = reinterpret_cast<KivHandle>(static_cast<uintptr_t>(1) << 32);
  EXPECT_EQ(KivSdNamedPipeIsInitialized(&pipe), 1);
}

// ---- Between two processes ----

constexpr uint32_t kTransferBytes = 64u << 20;
constexpr uint32_t kReadBytes = 200000;

// Depends on every byte, and on the bytes' order and count.
uint32_t Checksum(uint32_t sum, const unsigned char* bytes, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) sum = (sum ^ bytes[i]) * 16777619u;
  return sum;
}
constexpr uint32_t kChecksumStart = 2166136261u;

// Fits an exit code, which has 8 bits natively; never 0.
uint32_t Fold(uint32_t sum) { return (sum ^ sum >> 8 ^ sum >> 16 ^ sum >> 24) % 255 + 1; }

// {handle}: reads until the writer closes the pipe. Returns the checksum, or 0 if the reads end in
// any other way.
uint32_t PlaySummer(const RoleArguments& arguments) {
  KivHandle pipe = OwnEnd(arguments);
  KivSdContext ctx = {};
  std::vector<unsigned char> buffer(kReadBytes);
  uint32_t sum = kChecksumStart;
  uint32_t count = 0;
  while (KivSdPipeRead(&ctx, &pipe, buffer.data(), kReadBytes, &count) == KIV_ST_OK) {
    sum = Checksum(sum, buffer.data(), count);
  }
  return ctx.status == KIV_ST_PIPE_READ && ctx.osError == kOsBrokenPipe ? Fold(sum) : 0;
}
const RegisteredRole sumRole("sum", PlaySummer);

// {handle}: writes one byte and then holds the pipe until the process is killed.
uint32_t PlayHolder(const RoleArguments& arguments) {
  KivHandle pipe = OwnEnd(arguments);
  uint32_t count = 0;
  if (KivSdPipeWrite(nullptr, &pipe, "r", 1, &count) != KIV_ST_OK) return 1;
  KivSdSleep(nullptr, 0xFFFFFFFF);
  return 2;
}
const RegisteredRole holdRole("hold", PlayHolder);

TEST(PipeBetweenProcesses, CarriesManyBytesUnchanged) {
  Context ctx;
  Pipe pipe(65536);
  const InheritingChild summer("sum", pipe.read, pipe.write);
  Pipe::Close(&pipe.read);

  std::vector<unsigned char> block(1u << 20);
  uint32_t state = 1;
  uint32_t sum = kChecksumStart;
  uint32_t sent = 0;
  for (uint32_t length = 1; sent < kTransferBytes; length = length * 7 % 1000003) {
    length = std::min({length, kTransferBytes - sent, static_cast<uint32_t>(block.size())});
    for (uint32_t i = 0; i < length; ++i) {
      state = state * 1664525u + 1013904223u;
      block[i] = static_cast<unsigned char>(state >> 24);
    }
    sum = Checksum(sum, block.data(), length);
    uint32_t count = 0;
    CHECK_OK(ctx, KivSdPipeWrite(ctx, &pipe.write, block.data(), length, &count));
    ASSERT_EQ(count, length);
    sent += length;
  }
  Pipe::Close(&pipe.write);
  EXPECT_EQ(summer.ExitCode(), Fold(sum));
}

TEST(PipeBetweenProcesses, AKilledWriterEndsTheRead) {
  Context ctx;
  Pipe pipe;
  const InheritingChild holder("hold", pipe.write, pipe.read);
  Pipe::Close(&pipe.write);
  EXPECT_EQ(Read(pipe, 100), "r");

  std::thread killer([&] { holder.Kill(); });
  char byte = 0;
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &pipe.read, &byte, 1, &count), KIV_ST_PIPE_READ,
                kOsBrokenPipe);
  EXPECT_EQ(count, 0u);
  killer.join();
}

}  // namespace
