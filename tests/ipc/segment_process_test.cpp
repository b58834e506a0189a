// Shared memory segments between two processes: the bytes that each puts into the area, data of all
// sizes in both directions, all chunks at once, and a peer that is killed before each of its calls
// of the system.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/import_patch.h"
#include "support/segment.h"
#include "support/waiting.h"

namespace {

using kiv::test::AreaView;
using kiv::test::ChildProcess;
using kiv::test::EmptyMember;
using kiv::test::FullMember;
using kiv::test::HasArea;
using kiv::test::HasMember;
using kiv::test::ImportPatch;
using kiv::test::IsGiven;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::kRoleFailed;
using kiv::test::Pattern;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SegmentEnd;
using kiv::test::SharedSignal;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

uint32_t NumberFrom(const std::string& text) { return static_cast<uint32_t>(std::stoul(text)); }

std::string BytesOf(uint32_t word) {
  return std::string(reinterpret_cast<const char*>(&word), sizeof word);
}

uint32_t WordFrom(const std::string& bytes) {
  uint32_t word = 0;
  std::memcpy(&word, bytes.data(), sizeof word);
  return word;
}

// ---- Bytes that another process puts into the area ----

// {segment, kind, done}: writes into every chunk, sets the signal, and waits until it may leave.
const RegisteredRole fillRole("fills", [](const RoleArguments& arguments) {
  const SegmentEnd end(arguments[0], NumberFrom(arguments[1]));
  const SharedSignal done(arguments[2]);
  for (int32_t chunk = 0; chunk < 4; ++chunk) {
    EXPECT_EQ(end->takenMask, (1u << chunk) - 1);
    int32_t taken = -1;
    EXPECT_EQ(KivGetSharedMemChunk(nullptr, end, &taken), KIV_ST_OK);
    EXPECT_EQ(taken, chunk);
    const std::string data = Pattern(2040 - static_cast<size_t>(chunk), 7u + end->kind);
    EXPECT_EQ(KivWriteSharedMemChunk(nullptr, end, chunk, static_cast<uint32_t>(data.size()), 1, 0,
                                     data.data()),
              KIV_ST_OK);
  }
  EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, end, 4, 0x01020304), KIV_ST_OK);
  done.Set();
  const SharedSignal leave(arguments[2] + "-leave");
  leave.Await();
  return kRoleDone;
});

TEST(SegmentBetweenProcesses, HasTheDocumentedLayoutInTheArea) {
  for (const uint32_t kind : {1u, 0u}) {
    const std::string name = UniqueName("layout");
    const SharedSignal done(UniqueName("done"));
    const SharedSignal leave(done.name() + "-leave");
    const ChildProcess child("fills", {name, std::to_string(kind), done.name()});
    done.Await();
    const AreaView area(name);
    std::string expected(20480, '\0');
    for (size_t chunk = 0; chunk < 4; ++chunk) {
      const size_t half = 4096 * chunk + (kind == 1 ? 0 : 2048);
      const std::string data = Pattern(2040 - chunk, 7u + kind);
      expected.replace(half + 4, 4, BytesOf(static_cast<uint32_t>(data.size())));
      expected.replace(half + 8, data.size(), data);
    }
    expected.replace(4096 * 4 + (kind == 1 ? 0 : 2048), 4, "\x04\x03\x02\x01");
    EXPECT_TRUE(area.all() == expected) << "kind " << kind;
    for (int chunk = 0; chunk < 5; ++chunk) {
      for (const bool first : {true, false}) {
        EXPECT_EQ(IsGiven(name, FullMember(chunk, first)), first == (kind == 1));
        EXPECT_EQ(IsGiven(name, EmptyMember(chunk, first)), first != (kind == 1));
      }
    }
    EXPECT_TRUE(IsGiven(name, 0));
    leave.Set();
    EXPECT_EQ(child.ExitCode(), kRoleDone);
  }
}

// ---- Data in both directions ----

// {segment, kind, chunk}: sends received data back until a length of 0. Each length precedes its
// data.
const RegisteredRole echoRole("echoes", [](const RoleArguments& arguments) {
  SegmentEnd end(arguments[0], NumberFrom(arguments[1]));
  const auto chunk = static_cast<int32_t>(NumberFrom(arguments[2]));
  while (const uint32_t length = WordFrom(end.Read(chunk, 4))) {
    if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) break;
    EXPECT_EQ(end.Write(chunk, end.Read(chunk, length)), KIV_ST_OK);
  }
  return kRoleDone;
});

// A child process in the role "echoes", and transfers with it.
class Echo {
 public:
  Echo(const std::string& name, uint32_t kind, int32_t chunk)
      : child_("echoes", {name, std::to_string(1 - kind), std::to_string(chunk)}), chunk_(chunk) {}

  // Sends the length of data that the test writes next.
  void Announce(SegmentEnd& end, size_t length) const {
    EXPECT_EQ(end.Write(chunk_, BytesOf(static_cast<uint32_t>(length))), KIV_ST_OK);
  }

  void Expect(SegmentEnd& end, const std::string& data) const {
    EXPECT_TRUE(end.Read(chunk_, data.size()) == data) << data.size() << " bytes";
  }

  void Run(SegmentEnd& end, const std::string& data) const {
    Announce(end, data.size());
    EXPECT_EQ(end.Write(chunk_, data), KIV_ST_OK);
    Expect(end, data);
  }

  void Finish(SegmentEnd& end) const {
    Announce(end, 0);
    EXPECT_EQ(child_.ExitCode(), kRoleDone);
  }

 private:
  ChildProcess child_;
  int32_t chunk_;
};

TEST(SegmentBetweenProcesses, CarriesDataOfAllSizesWithAndWithoutFlags) {
  for (const uint32_t kind : {1u, 0u}) {
    const std::string name = UniqueName("sizes");
    SegmentEnd end(name, kind);
    const Echo echo(name, kind, 3);
    for (const size_t length : {1u, 2039u, 2040u, 2041u, 3000u, 1'000'000u}) {
      for (const bool split : {true, false}) {
        for (const bool ended : {true, false}) {
          if (!split && length > 2040) continue;  // the write would never end
          SCOPED_TRACE(testing::Message() << length << (split ? ", split" : ", whole")
                                          << (ended ? ", ended" : ", left open"));
          const std::string data = Pattern(length, static_cast<uint32_t>(length));
          const std::string last = ended ? "" : "last";
          echo.Announce(end, length + last.size());
          EXPECT_EQ(end.Write(3, data, ended, split), KIV_ST_OK);
          if (!ended) {
            EXPECT_EQ(end.Write(3, last), KIV_ST_OK);
          }
          echo.Expect(end, data + last);
        }
      }
    }
    echo.Finish(end);
  }
}

// {segment, kind, count}: receives halves through the semaphores alone, and sends their lengths
// back through the other direction of the segment.
const RegisteredRole lengthsRole("tells-lengths", [](const RoleArguments& arguments) {
  SegmentEnd end(arguments[0], NumberFrom(arguments[1]));
  const AreaView area(arguments[0]);
  const bool first = end->kind == 0;
  kiv::test::Member full(arguments[0], FullMember(2, first));
  kiv::test::Member empty(arguments[0], EmptyMember(2, first));
  for (uint32_t count = NumberFrom(arguments[2]); count > 0; --count) {
    EXPECT_TRUE(full.Take(kLimitMs));
    EXPECT_EQ(end.Write(2, BytesOf(area.length(2, first))), KIV_ST_OK);
    EXPECT_TRUE(empty.Give());
  }
  return kRoleDone;
});

TEST(SegmentBetweenProcesses, StoresTheLengthOfEachHalfInItsHeader) {
  const struct {
    size_t open, length;
    bool split;
    std::vector<uint32_t> halves;
  } cases[] = {{0, 3000, true, {2040, 960}},    {0, 2041, true, {2040, 1}},
               {0, 2040, true, {2040}},         {0, 4080, true, {2040, 2040}},
               {100, 3000, true, {2040, 1060}}, {100, 1940, false, {2040}},
               {100, 1941, false, {100, 1941}}, {2039, 2040, false, {2039, 2040}}};
  uint32_t count = 0;
  for (const auto& now : cases) count += static_cast<uint32_t>(now.halves.size());
  for (const uint32_t kind : {1u, 0u}) {
    const std::string name = UniqueName("halves");
    SegmentEnd end(name, kind);
    const ChildProcess teller("tells-lengths",
                              {name, std::to_string(1 - kind), std::to_string(count)});
    for (const auto& now : cases) {
      SCOPED_TRACE(testing::Message() << now.length << " after " << now.open);
      EXPECT_EQ(end.Write(2, Pattern(now.open), false), KIV_ST_OK);
      std::thread writer(
          [&] { EXPECT_EQ(end.Write(2, Pattern(now.length), true, now.split), KIV_ST_OK); });
      for (const uint32_t length : now.halves) {
        EXPECT_EQ(WordFrom(end.Read(2, 4)), length);
      }
      writer.join();
    }
    EXPECT_EQ(teller.ExitCode(), kRoleDone);
  }
}

// ---- All chunks at once ----

uint32_t Checksum(const std::string& bytes) {
  uint32_t sum = 2166136261u;
  for (const char byte : bytes) sum = (sum ^ static_cast<unsigned char>(byte)) * 16777619u;
  return sum;
}

constexpr uint32_t kStreamEnd = 0xE0D;

// Writes messages of all lengths and then a code. Each message is a length, data and a checksum.
void Stream(SegmentEnd* end, int32_t chunk, double seconds) {
  const Stopwatch watch;
  uint32_t seed = 100 * end->operator->()->kind + static_cast<uint32_t>(chunk);
  while (watch.ElapsedMs() < seconds * 1000) {
    seed = seed * 1664525u + 1013904223u;
    const std::string data = Pattern((seed >> 16) % 5000 + 1, seed);
    const std::string message =
        BytesOf(static_cast<uint32_t>(data.size())) + data + BytesOf(Checksum(data));
    ASSERT_EQ(end->Write(chunk, message), KIV_ST_OK);
  }
  ASSERT_EQ(KivWriteSharedMemChunkCode(nullptr, *end, chunk, kStreamEnd), KIV_ST_OK);
}

// Reads a stream up to its code. Returns the count of messages, or 0 if a checksum is wrong.
uint32_t Drain(SegmentEnd* end, int32_t chunk) {
  uint32_t count = 0;
  for (;; ++count) {
    uint32_t code = 0;
    std::string length(4, '\0');
    EXPECT_EQ(KivReadSharedMemChunk(nullptr, *end, chunk, 4, 0, &code, length.data()), KIV_ST_OK);
    if (code == kStreamEnd) return count;
    if (code != 0 || testing::Test::HasFailure()) return 0;
    const std::string data = end->Read(chunk, WordFrom(length));
    if (WordFrom(end->Read(chunk, 4)) != Checksum(data)) return 0;
  }
}

// Uses both directions of all chunks, each on its own thread. Returns the count of messages read
// from each chunk.
std::vector<uint32_t> UseEveryChunk(SegmentEnd* end, double seconds) {
  std::vector<uint32_t> counts(5);
  std::vector<std::thread> threads;
  for (int32_t chunk = 0; chunk < 5; ++chunk) {
    threads.emplace_back([=] { Stream(end, chunk, seconds); });
    threads.emplace_back([=, &counts] { counts[static_cast<size_t>(chunk)] = Drain(end, chunk); });
  }
  for (std::thread& thread : threads) thread.join();
  return counts;
}

// {segment, kind, seconds}: uses every chunk.
const RegisteredRole streamRole("streams", [](const RoleArguments& arguments) {
  SegmentEnd end(arguments[0], NumberFrom(arguments[1]));
  for (const uint32_t count : UseEveryChunk(&end, std::stod(arguments[2]))) {
    EXPECT_GT(count, 0u);
  }
  return kRoleDone;
});

// The environment variable KIVSDU_SEGMENT_SECONDS sets the duration; 10 seconds by default.
TEST(SegmentBetweenProcesses, UsesFiveChunksInBothDirectionsAtOnce) {
  const char* asked = std::getenv("KIVSDU_SEGMENT_SECONDS");
  const std::string seconds = asked != nullptr ? asked : "10";
  const std::string name = UniqueName("five");
  SegmentEnd end(name, 1);
  const ChildProcess child("streams", {name, "0", seconds});
  for (const uint32_t count : UseEveryChunk(&end, std::stod(seconds))) EXPECT_GT(count, 0u);
  EXPECT_EQ(child.ExitCode(), kRoleDone);
}

// ---- A peer that is killed ----

constexpr uint32_t kPatienceMs = 150;  // time-out of the survivor
constexpr uint32_t kSlackMs = 5000;    // delay allowed on a busy machine
constexpr int32_t kChunk = 0;          // the chunk that the killed peer uses

// Calls of the system that the process still makes before it stops forever.
int callsLeft = -1;
const SharedSignal* stopped = nullptr;
void* realWait = nullptr;
void* realRelease = nullptr;

void StopHere() {
  if (callsLeft-- != 0) return;
  stopped->Set();
  while (true) std::this_thread::sleep_for(std::chrono::hours(1));
}

uint32_t WaitOrStop(KivHandle handle, uint32_t timeoutMs) {
  StopHere();
  return reinterpret_cast<decltype(&WaitOrStop)>(realWait)(handle, timeoutMs);
}

int32_t ReleaseOrStop(KivHandle handle, int32_t count, int32_t* previous) {
  StopHere();
  return reinterpret_cast<decltype(&ReleaseOrStop)>(realRelease)(handle, count, previous);
}

using Operation = void (*)(SegmentEnd& end);

const std::map<std::string, Operation>& Operations() {
  static const std::map<std::string, Operation> operations = {
      {"write", [](SegmentEnd& end) { end.Write(kChunk, Pattern(3000)); }},
      {"open", [](SegmentEnd& end) { end.Write(kChunk, Pattern(100), false); }},
      {"read", [](SegmentEnd& end) { end.Read(kChunk, 3000); }},
      {"read-part", [](SegmentEnd& end) { end.Read(kChunk, 1000); }},
      {"write-code", [](SegmentEnd& end) { KivWriteSharedMemChunkCode(nullptr, end, kChunk, 5); }},
      {"read-code",
       [](SegmentEnd& end) {
         uint32_t code = 0;
         KivReadSharedMemChunkCode(nullptr, end, kChunk, &code);
       }},
      {"get",
       [](SegmentEnd& end) {
         int32_t chunk = 0;
         KivGetSharedMemChunk(nullptr, end, &chunk);
       }},
      {"put", [](SegmentEnd& end) {
         end->takenMask = 1;
         KivPutSharedMemChunk(nullptr, end, kChunk);
       }}};
  return operations;
}

// {segment, kind, operation, calls before it stops, signal}: begins an operation, sets the signal
// when it stops, and waits to be killed. Stops after the operation if that makes no more calls.
const RegisteredRole stopRole("stops", [](const RoleArguments& arguments) {
  SegmentEnd end(arguments[0], NumberFrom(arguments[1]));
  const SharedSignal signal(arguments[4]);
  stopped = &signal;
  const ImportPatch wait("WaitForSingleObject", reinterpret_cast<void*>(&WaitOrStop));
  const ImportPatch release("ReleaseSemaphore", reinterpret_cast<void*>(&ReleaseOrStop));
  realWait = wait.original();
  realRelease = release.original();
  callsLeft = static_cast<int>(NumberFrom(arguments[3]));
  Operations().at(arguments[2])(end);
  callsLeft = 0;
  StopHere();
  return kRoleFailed;
});

// The result of a read within the survivor's time-out: the count of bytes and the status.
struct Got {
  size_t count;
  uint32_t status;
};

Got ReadAll(SegmentEnd& end, size_t length) {
  std::string data(length, '\0');
  const uint32_t status = KivReadSharedMemChunk(nullptr, end, kChunk, static_cast<uint32_t>(length),
                                                0, nullptr, data.data());
  return {std::strlen(data.c_str()), status};
}

struct Death {
  const char* operation;
  int calls;                        // calls of the system before the peer stops
  void (*before)(SegmentEnd& end);  // action of the survivor while the peer lives
  void (*after)(SegmentEnd& end);   // action of the survivor after the peer was killed
};

void Nothing(SegmentEnd&) {}

void ExpectData(SegmentEnd& end, size_t length, size_t count) {
  const Got got = ReadAll(end, length);
  EXPECT_EQ(got.count, count);
  EXPECT_EQ(got.status, count == length ? KIV_ST_OK : KIV_ST_SEM_TIMEOUT);
}

void ExpectChunkLock(SegmentEnd& end, uint32_t status) {
  int32_t chunk = -1;
  EXPECT_EQ(KivGetSharedMemChunk(nullptr, end, &chunk), status);
  EXPECT_EQ(chunk, status == KIV_ST_OK ? 0 : -1);
}

void ExpectCode(SegmentEnd& end, uint32_t status) {
  uint32_t code = 0;
  EXPECT_EQ(KivReadSharedMemChunkCode(nullptr, end, kChunk, &code), status);
  EXPECT_EQ(code, status == KIV_ST_OK ? 5u : 0u);
}

constexpr auto kDeaf = KIV_ST_SEM_TIMEOUT;

// The survivor sends the first 2040 of 3000 bytes, or a code.
void SendHalf(SegmentEnd& end) { EXPECT_EQ(end.Write(kChunk, Pattern(2040)), KIV_ST_OK); }
void SendCode(SegmentEnd& end) {
  EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, end, kChunk, 5), KIV_ST_OK);
}
template <uint32_t kStatus>
void WriteGives(SegmentEnd& end) {
  EXPECT_EQ(end.Write(kChunk, Pattern(960)), kStatus);
}
template <uint32_t kStatus>
void CodeGives(SegmentEnd& end) {
  EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, end, kChunk, 6), kStatus);
  EXPECT_EQ(end.Write(kChunk, "x"), kStatus == KIV_ST_OK ? KIV_ST_SEM_TIMEOUT : KIV_CHUNK_LATCHED);
}
template <size_t kCount>
void DataIs(SegmentEnd& end) {
  ExpectData(end, 3000, kCount);
}
template <uint32_t kStatus>
void CodeIs(SegmentEnd& end) {
  ExpectCode(end, kStatus);
}
template <uint32_t kStatus>
void LockIs(SegmentEnd& end) {
  ExpectChunkLock(end, kStatus);
}

const Death kDeaths[] = {
    // calls: wait for the half, hand it over, wait for the next half, hand it over
    {"write", 0, Nothing, DataIs<0>},
    {"write", 1, Nothing, DataIs<0>},
    {"write", 2, Nothing, DataIs<2040>},
    {"write", 3, [](SegmentEnd& end) { ExpectData(end, 2040, 2040); }, DataIs<0>},
    {"write", 4, [](SegmentEnd& end) { ExpectData(end, 2040, 2040); },
     [](SegmentEnd& end) { ExpectData(end, 960, 960); }},
    {"open", 1, Nothing, DataIs<0>},
    // calls: wait for a half, hand it back, wait for the next half
    {"read", 0, SendHalf, WriteGives<kDeaf>},
    {"read", 1, SendHalf, WriteGives<kDeaf>},
    {"read", 2, SendHalf, WriteGives<KIV_ST_OK>},
    {"read-part", 1, SendHalf, WriteGives<kDeaf>},
    // calls: wait for the half, hand it over or back
    {"write-code", 0, Nothing, CodeIs<kDeaf>},
    {"write-code", 1, Nothing, CodeIs<kDeaf>},
    {"write-code", 2, Nothing, CodeIs<KIV_ST_OK>},
    {"read-code", 0, SendCode, CodeGives<kDeaf>},
    {"read-code", 1, SendCode, CodeGives<kDeaf>},
    {"read-code", 2, SendCode, CodeGives<KIV_ST_OK>},
    // calls: take the chunks' lock, release it
    {"get", 0, Nothing, LockIs<KIV_ST_OK>},
    {"get", 1, Nothing, LockIs<kDeaf>},
    {"get", 2, Nothing, LockIs<KIV_ST_OK>},
    {"put", 1, Nothing, LockIs<kDeaf>},
    {"put", 2, Nothing, LockIs<KIV_ST_OK>},
};

class KilledPeer : public testing::TestWithParam<size_t> {};

TEST_P(KilledPeer, CostsTheSurvivorOneTimeOutAndNoOtherChunk) {
  const Death& death = kDeaths[GetParam()];
  SCOPED_TRACE(testing::Message() << death.operation << " after " << death.calls << " calls");
  const uint32_t kind = GetParam() % 2;
  const std::string name = UniqueName("death");
  auto end = std::make_unique<SegmentEnd>(name, kind);
  {
    const SharedSignal signal(UniqueName("stopped"));
    const ChildProcess peer("stops", {name, std::to_string(1 - kind), death.operation,
                                      std::to_string(death.calls), signal.name()});
    death.before(*end);
    signal.Await();
    peer.Kill();
  }
  (*end)->timeoutMs = kPatienceMs;
  const Stopwatch watch;
  death.after(*end);
  EXPECT_LT(watch.ElapsedMs(), 2 * kPatienceMs + kSlackMs);

  (*end)->timeoutMs = kLimitMs;
  {
    const Echo other(name, kind, 4);
    other.Run(*end, Pattern(3000, 3));
    other.Finish(*end);
  }
  end.reset();
  EXPECT_FALSE(HasArea(name));
  EXPECT_FALSE(HasMember(name, 0));

  SegmentEnd anew(name, kind);
  const Echo again(name, kind, kChunk);
  again.Run(anew, Pattern(3000, 4));
  ExpectChunkLock(anew, KIV_ST_OK);
  again.Finish(anew);
}

INSTANTIATE_TEST_SUITE_P(BeforeEachCall, KilledPeer, testing::Range(size_t{0}, std::size(kDeaths)));

}  // namespace
