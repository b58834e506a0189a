// Messages between two processes over four kinds of channel:
//
//   segment         the library's shared memory segment
//   raw             the segment's hand-over, written with the system's semaphores and mapping
//   namedPipe       a named pipe
//   anonymousPipes  a pair of anonymous pipes
//
// The program starts itself as the other process, the peer, which answers each request. Request and
// answer have fixed lengths.
//
// HandOverAlone runs both ends in one thread, where no thread waits or is woken. It shows the cost
// that the library adds to the system's calls, without the scheduler's.
#include <benchmark/benchmark.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"

namespace {

constexpr char kPeerFlag[] = "--peer";
constexpr uint32_t kHalfBytes = KIV_SEGMENT_HALF_BYTES;
constexpr uint32_t kPayloadBytes = KIV_SEGMENT_PAYLOAD_BYTES;
constexpr DWORD kPipeBufferBytes = 4096;
constexpr uint32_t kStreamBytes = 1u << 20;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "segments_bench: %s: %lu\n", what, GetLastError());
  std::exit(1);
}

// One process's end of a connection to the other process.
class Channel {
 public:
  virtual ~Channel() = default;
  virtual void Send(const char* data, uint32_t length) = 0;
  virtual void Receive(char* data, uint32_t length) = 0;
  // Passed to the peer, which opens its end by this name.
  virtual std::string name() const = 0;
  // Called once the peer has been started.
  virtual void Connect() {}
};

// ---- The library's segment ----

class SegmentChannel : public Channel {
 public:
  SegmentChannel(const std::string& name, bool peer) : name_(name) {
    const uint32_t kind = peer ? 0 : 1;
    uint32_t id = 0;
    void* view = nullptr;
    KivFindShareMemSeg(nullptr, name.c_str(), kind, &list_, 1, 0, 0, nullptr, nullptr, &segment_);
    Require(KivCreateSharedMemSeg(nullptr, name.c_str(), kind,
                                  KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                  KIV_SHAREDMEM_PAGES_READ_WRITE, segment_, KIV_WAIT_INFINITE, &id,
                                  &view) == KIV_ST_OK,
            "no segment");
    KivSetSharedMemSegBuffer(nullptr, segment_, view);
  }
  ~SegmentChannel() override { KivDeleteSharedMemSeg(nullptr, list_); }

  void Send(const char* data, uint32_t length) override {
    KivWriteSharedMemChunk(nullptr, segment_, 0, length, 1, 1, data);
  }
  void Receive(char* data, uint32_t length) override {
    KivReadSharedMemChunk(nullptr, segment_, 0, length, 0, nullptr, data);
  }
  std::string name() const override { return name_; }

 private:
  std::string name_;
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;
};

// ---- The segment's hand-over without the library ----

class RawChannel : public Channel {
 public:
  RawChannel(const std::string& name, bool peer)
      : name_(name),
        mapping_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                    2 * kHalfBytes, name.c_str())),
        area_(static_cast<char*>(MapViewOfFile(mapping_, FILE_MAP_WRITE, 0, 0, 2 * kHalfBytes))),
        out_(HalfOf(peer ? 1 : 0)),
        in_(HalfOf(peer ? 0 : 1)) {
    Require(area_ != nullptr, "no mapping");
  }
  ~RawChannel() override {
    for (const HANDLE handle : {out_.full, out_.empty, in_.full, in_.empty, mapping_}) {
      CloseHandle(handle);
    }
    UnmapViewOfFile(area_);
  }

  void Send(const char* data, uint32_t length) override {
    while (length != 0) {
      const uint32_t portion = std::min(length, kPayloadBytes);
      WaitForSingleObject(out_.empty, INFINITE);
      std::memcpy(out_.bytes + sizeof(uint64_t), data, portion);
      const uint64_t header = uint64_t{portion} << 32;
      std::memcpy(out_.bytes, &header, sizeof header);
      ReleaseSemaphore(out_.full, 1, nullptr);
      data += portion;
      length -= portion;
    }
  }
  void Receive(char* data, uint32_t length) override {
    while (length != 0) {
      WaitForSingleObject(in_.full, INFINITE);
      uint64_t header = 0;
      std::memcpy(&header, in_.bytes, sizeof header);
      const uint32_t portion = std::min(length, static_cast<uint32_t>(header >> 32));
      std::memcpy(data, in_.bytes + sizeof header, portion);
      ReleaseSemaphore(in_.empty, 1, nullptr);
      data += portion;
      length -= portion;
    }
  }
  std::string name() const override { return name_; }

 private:
  struct Half {
    char* bytes;
    HANDLE full;
    HANDLE empty;
  };

  Half HalfOf(int number) const {
    const std::string suffix = std::to_string(number);
    return {area_ + static_cast<size_t>(number) * kHalfBytes,
            CreateSemaphoreA(nullptr, 0, 1, (name_ + "-full" + suffix).c_str()),
            CreateSemaphoreA(nullptr, 1, 1, (name_ + "-empty" + suffix).c_str())};
  }

  std::string name_;
  HANDLE mapping_;
  char* area_;
  Half out_;
  Half in_;
};

// ---- Pipes ----

class PipeChannel : public Channel {
 public:
  ~PipeChannel() override {
    CloseHandle(read_);
    if (write_ != read_) CloseHandle(write_);
  }

  void Send(const char* data, uint32_t length) override {
    DWORD count = 0;
    WriteFile(write_, data, length, &count, nullptr);
  }
  void Receive(char* data, uint32_t length) override {
    DWORD count = 0;
    for (uint32_t got = 0; got < length; got += count) {
      if (!ReadFile(read_, data + got, length - got, &count, nullptr)) std::exit(1);
    }
  }

 protected:
  HANDLE read_ = nullptr;
  HANDLE write_ = nullptr;
};

class NamedPipeChannel : public PipeChannel {
 public:
  NamedPipeChannel(const std::string& name, bool peer) : name_(name) {
    const std::string path = "\\\\.\\pipe\\" + name;
    read_ = peer ? CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr)
                 : CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                                    kPipeBufferBytes, kPipeBufferBytes, 0, nullptr);
    write_ = read_;
    Require(read_ != INVALID_HANDLE_VALUE, "no named pipe");
  }
  void Connect() override { ConnectNamedPipe(read_, nullptr); }
  std::string name() const override { return name_; }

 private:
  std::string name_;
};

class AnonymousPipesChannel : public PipeChannel {
 public:
  AnonymousPipesChannel(const std::string& name, bool peer) {
    if (peer) {
      read_ = HandleFrom(name);
      write_ = HandleFrom(name.substr(name.find(':') + 1));
      return;
    }
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    Require(CreatePipe(&peerRead_, &write_, &inherited, kPipeBufferBytes) &&
                CreatePipe(&read_, &peerWrite_, &inherited, kPipeBufferBytes),
            "no pipes");
  }
  ~AnonymousPipesChannel() override {
    if (peerRead_ == nullptr) return;
    CloseHandle(peerRead_);
    CloseHandle(peerWrite_);
  }
  std::string name() const override { return NumberOf(peerRead_) + ":" + NumberOf(peerWrite_); }

 private:
  static std::string NumberOf(HANDLE handle) {
    return std::to_string(reinterpret_cast<uintptr_t>(handle));
  }
  static HANDLE HandleFrom(const std::string& number) {
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(std::stoull(number)));
  }

  HANDLE peerRead_ = nullptr;
  HANDLE peerWrite_ = nullptr;
};

enum Way { kSegment, kRaw, kNamedPipe, kAnonymousPipes };

std::unique_ptr<Channel> MakeChannel(int way, const std::string& name, bool peer) {
  switch (way) {
    case kSegment:
      return std::make_unique<SegmentChannel>(name, peer);
    case kRaw:
      return std::make_unique<RawChannel>(name, peer);
    case kNamedPipe:
      return std::make_unique<NamedPipeChannel>(name, peer);
    default:
      return std::make_unique<AnonymousPipesChannel>(name, peer);
  }
}

// ---- The other process ----

// Answers requests until it is killed.
int RunPeer(int way, const std::string& name, uint32_t requestBytes, uint32_t answerBytes) {
  const std::unique_ptr<Channel> channel = MakeChannel(way, name, true);
  std::vector<char> data(std::max(requestBytes, answerBytes));
  for (;;) {
    channel->Receive(data.data(), requestBytes);
    channel->Send(data.data(), answerBytes);
  }
}

class Peer {
 public:
  Peer(int way, const std::string& name, uint32_t requestBytes, uint32_t answerBytes) {
    char path[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    std::string line = std::string("\"") + path + "\" " + kPeerFlag + " " + std::to_string(way) +
                       " " + name + " " + std::to_string(requestBytes) + " " +
                       std::to_string(answerBytes);
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    Require(CreateProcessA(path, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                           &process_),
            "no other process");
  }
  ~Peer() {
    TerminateProcess(process_.hProcess, 0);
    WaitForSingleObject(process_.hProcess, INFINITE);
    CloseHandle(process_.hThread);
    CloseHandle(process_.hProcess);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

 private:
  PROCESS_INFORMATION process_ = {};
};

// ---- Channels by turns ----

std::string UniqueName() {
  static int runs = 0;
  return "segments-bench-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++runs);
}

double Microseconds() {
  static const double perTick = [] {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1e6 / static_cast<double>(frequency.QuadPart);
  }();
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return static_cast<double>(now.QuadPart) * perTick;
}

double Middle(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Each iteration sends a message over every channel in turn, which spreads a busy moment of the
// machine over all of them. Each channel goes first equally often. The iteration's own time is
// meaningless: the counters hold the median times, in microseconds.
template <typename Transfer>
void InTurns(benchmark::State& state, int ways, Transfer transfer) {
  std::vector<std::vector<double>> times(static_cast<size_t>(ways));
  int first = 0;
  for (auto _ : state) {
    first = (first + 1) % ways;
    for (int turn = 0; turn < ways; ++turn) {
      const int way = (first + turn) % ways;
      const double start = Microseconds();
      transfer(way);
      times[static_cast<size_t>(way)].push_back(Microseconds() - start);
    }
  }
  constexpr const char* kWays[] = {"segment", "raw", "namedPipe", "anonymousPipes"};
  std::vector<double> middle;
  for (int way = 0; way < ways; ++way) {
    middle.push_back(Middle(times[static_cast<size_t>(way)]));
    state.counters[kWays[way]] = middle.back();
  }
  state.counters["toRaw"] = middle[kSegment] / middle[kRaw];
  state.counters["toNamedPipe"] = middle[kSegment] / middle[kNamedPipe];
}

void Exchange(benchmark::State& state, uint32_t requestBytes, uint32_t answerBytes) {
  std::vector<std::unique_ptr<Channel>> channels;
  std::vector<std::unique_ptr<Peer>> peers;
  for (int way = kSegment; way <= kAnonymousPipes; ++way) {
    channels.push_back(MakeChannel(way, UniqueName(), false));
    peers.push_back(
        std::make_unique<Peer>(way, channels.back()->name(), requestBytes, answerBytes));
    channels.back()->Connect();
  }
  std::vector<char> data(std::max(requestBytes, answerBytes), 'x');
  const auto transfer = [&](int way) {
    channels[static_cast<size_t>(way)]->Send(data.data(), requestBytes);
    channels[static_cast<size_t>(way)]->Receive(data.data(), answerBytes);
  };
  for (int way = kSegment; way <= kAnonymousPipes; ++way) transfer(way);  // waits for the peer
  InTurns(state, kAnonymousPipes + 1, transfer);
}

void HandOver(benchmark::State& state, uint32_t length) {
  std::vector<std::unique_ptr<Channel>> senders;
  std::vector<std::unique_ptr<Channel>> receivers;
  for (int way = kSegment; way <= kNamedPipe; ++way) {
    const std::string name = UniqueName();
    senders.push_back(MakeChannel(way, name, false));
    receivers.push_back(MakeChannel(way, name, true));
    senders.back()->Connect();
  }
  std::vector<char> data(length, 'x');
  InTurns(state, kNamedPipe + 1, [&](int way) {
    senders[static_cast<size_t>(way)]->Send(data.data(), length);
    receivers[static_cast<size_t>(way)]->Receive(data.data(), length);
  });
}

void RoundTrip(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  Exchange(state, length, length);
}
BENCHMARK(RoundTrip)->Arg(1)->Arg(100)->Arg(kPayloadBytes)->UseRealTime();

void Stream(benchmark::State& state) { Exchange(state, kStreamBytes, 1); }
BENCHMARK(Stream)->UseRealTime();

void HandOverAlone(benchmark::State& state) {
  HandOver(state, static_cast<uint32_t>(state.range(0)));
}
BENCHMARK(HandOverAlone)->Arg(1)->Arg(100)->Arg(kPayloadBytes)->UseRealTime();

uint32_t NumberFrom(const char* text) { return static_cast<uint32_t>(std::stoul(text)); }

}  // namespace

int main(int argc, char** argv) {
  if (argc == 6 && std::strcmp(argv[1], kPeerFlag) == 0) {
    return RunPeer(std::atoi(argv[2]), argv[3], NumberFrom(argv[4]), NumberFrom(argv[5]));
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
