// Messages between two processes over several kinds of channel:
//
//   segment  the library's shared memory segment
//   raw      the segment's hand-over, written with the platform's semaphores and shared memory
//   others   the platform's pipes or sockets
//
// The program starts itself as the other process, the peer, which answers each request. Request and
// answer have fixed lengths.
//
// HandOverAlone runs both ends in one thread, where no thread waits or is woken. It shows the cost
// that the library adds to the system's calls, without the scheduler's.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "channel.h"
#include "kivsdu/kivsdu.h"
#include "platform_channels.h"

namespace {

using namespace kiv::bench;

constexpr uint32_t kStreamBytes = 1u << 20;

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

// ---- All channels, the segment first ----

constexpr int kChannels = 1 + static_cast<int>(std::size(kPlatformChannels));

std::string NameOf(int way) { return way == 0 ? "segment" : kPlatformChannels[way - 1]; }

std::unique_ptr<Channel> MakeChannel(int way, const std::string& name, bool peer) {
  if (way == 0) return std::make_unique<SegmentChannel>(name, peer);
  return MakePlatformChannel(way - 1, name, peer);
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

std::unique_ptr<PeerProcess> StartPeer(int way, const std::string& name, uint32_t requestBytes,
                                       uint32_t answerBytes) {
  return std::make_unique<PeerProcess>(std::vector<std::string>{kPeerFlag, std::to_string(way),
                                                                name, std::to_string(requestBytes),
                                                                std::to_string(answerBytes)});
}

// ---- Channels by turns ----

std::string UniqueName() {
  static int runs = 0;
  return "segments-bench-" + std::to_string(OwnProcessId()) + "-" + std::to_string(++runs);
}

double Nanoseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::nano>(now).count();
}

double Middle(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Each iteration makes some transfers over every channel in turn, which spreads a busy moment of the
// machine over all of them. Each channel goes first equally often. The iteration's own time is
// meaningless: the counters hold the median times of a transfer, in nanoseconds.
template <typename Transfer>
void InTurns(benchmark::State& state, int ways, int inARow, Transfer transfer) {
  std::vector<std::vector<double>> times(static_cast<size_t>(ways));
  int first = 0;
  for (auto _ : state) {
    first = (first + 1) % ways;
    for (int turn = 0; turn < ways; ++turn) {
      const int way = (first + turn) % ways;
      const double start = Nanoseconds();
      for (int i = 0; i < inARow; ++i) transfer(way);
      times[static_cast<size_t>(way)].push_back((Nanoseconds() - start) / inARow);
    }
  }
  std::vector<double> middle;
  for (int way = 0; way < ways; ++way) {
    middle.push_back(Middle(times[static_cast<size_t>(way)]));
    state.counters[NameOf(way)] = middle.back();
  }
  for (int way = 1; way < ways; ++way) {
    state.counters["to_" + NameOf(way)] = middle[0] / middle[static_cast<size_t>(way)];
  }
}

void Exchange(benchmark::State& state, uint32_t requestBytes, uint32_t answerBytes, int inARow) {
  std::vector<std::unique_ptr<Channel>> channels;
  std::vector<std::unique_ptr<PeerProcess>> peers;
  for (int way = 0; way < kChannels; ++way) {
    channels.push_back(MakeChannel(way, UniqueName(), false));
    peers.push_back(StartPeer(way, channels.back()->name(), requestBytes, answerBytes));
    channels.back()->Connect();
  }
  std::vector<char> data(std::max(requestBytes, answerBytes), 'x');
  const auto transfer = [&](int way) {
    channels[static_cast<size_t>(way)]->Send(data.data(), requestBytes);
    channels[static_cast<size_t>(way)]->Receive(data.data(), answerBytes);
  };
  for (int way = 0; way < kChannels; ++way) transfer(way);  // waits for the peer
  InTurns(state, kChannels, inARow, transfer);
}

void HandOver(benchmark::State& state, uint32_t length) {
  std::vector<std::unique_ptr<Channel>> senders;
  std::vector<std::unique_ptr<Channel>> receivers;
  for (int way = 0; way <= kOneThreadChannels; ++way) {
    const std::string name = UniqueName();
    senders.push_back(MakeChannel(way, name, false));
    receivers.push_back(MakeChannel(way, name, true));
    senders.back()->Connect();
  }
  std::vector<char> data(length, 'x');
  // The clock has steps of up to 100 ns, a message takes about as long.
  constexpr int kInARow = 50;
  InTurns(state, kOneThreadChannels + 1, kInARow, [&](int way) {
    senders[static_cast<size_t>(way)]->Send(data.data(), length);
    receivers[static_cast<size_t>(way)]->Receive(data.data(), length);
  });
}

void RoundTrip(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  Exchange(state, length, length, 1);
}
BENCHMARK(RoundTrip)->Arg(1)->Arg(100)->Arg(kPayloadBytes)->UseRealTime();

// One after another: the peer may still be looking for the next request when it comes.
void RoundTripsInARow(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  Exchange(state, length, length, 100);
}
BENCHMARK(RoundTripsInARow)->Arg(1)->Arg(100)->Arg(kPayloadBytes)->UseRealTime();

// How the time grows with the length. Longer messages than a half go through it piece by piece.
void Lengths(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  Exchange(state, length, length, 20);
}
BENCHMARK(Lengths)->RangeMultiplier(8)->Range(1, kStreamBytes)->UseRealTime();

void Stream(benchmark::State& state) { Exchange(state, kStreamBytes, 1, 1); }
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
