#include "soak/worker.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "soak/board.h"
#include "soak/check.h"
#include "soak/heaps.h"
#include "soak/platform.h"
#include "soak/subsystem.h"
#include "support/open_handles.h"

namespace kiv::soak {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Few heaps and a limit that the threads reach all the time. The pool keeps no short heap.
constexpr char kConfiguration[] =
    "numheaps 12 numthreadheaps 4 heapsize 512K memorylimit 24M limitshortheapsforremove 0\n";
constexpr uint32_t kWarmUpSteps = 3;
constexpr uint32_t kShortestLife = 100;  // steps of a thread
constexpr uint32_t kLongestLife = 1500;
constexpr uint32_t kLookMs = 20;
constexpr auto kBetweenWalks = std::chrono::seconds(1);
constexpr auto kLongestWithoutLook = std::chrono::seconds(30);

// What a process without users has in use.
struct Usage {
  uint64_t outsideHeaps = 0;
  uint64_t inHeaps = 0;
  uint64_t registered = 0;
  size_t handles = 0;
};

Usage UsageNow(bool hasHeaps) {
  Usage usage;
  uint64_t peaks[3] = {};
  if (hasHeaps) {
    Done(adMemGetUsedMemory(&usage.outsideHeaps, &usage.inHeaps, &usage.registered, &peaks[0],
                            &peaks[1], &peaks[2]),
         "adMemGetUsedMemory");
  }
  usage.handles = test::OpenHandles();
  return usage;
}

void ExpectEqual(uint64_t before, uint64_t after, const char* what) {
  if (before == after) return;
  Break(std::string(what) + " are back at the start: " + std::to_string(before) + " before, " +
        std::to_string(after) + " after");
}

void ExpectBack(const Usage& before, const Usage& after) {
  ExpectEqual(before.outsideHeaps, after.outsideHeaps, "bytes outside the heaps");
  ExpectEqual(before.inHeaps, after.inHeaps, "bytes of the heaps");
  ExpectEqual(before.registered, after.registered, "registered bytes");
  ExpectEqual(before.handles, after.handles, "handles");
}

using Subsystems = std::vector<std::unique_ptr<Subsystem>>;

Subsystems MakeAll(const World& world) {
  Subsystems all;
  for (const Kind& kind : Kinds()) {
    Now(kind.name);
    all.push_back(kind.make(world));
  }
  return all;
}

// Ends in the reverse order, because the first subsystem is the threads' cache.
template <class T>
void EndAll(std::vector<std::unique_ptr<T>>* all) {
  while (!all->empty()) {
    Now(Kinds()[all->size() - 1].name);
    all->pop_back();
  }
}

// One place for a thread. When a thread ends, another takes its place.
class Place {
 public:
  Place(uint32_t number, uint64_t seed, const Subsystems* all, Board* board, uint32_t process)
      : number_(number), random_(seed), all_(*all), board_(*board), process_(process) {}

  void Start() {
    uint32_t id = 0;
    hasEnded_.store(false);
    Done(KivSdThreadCreate(nullptr, &Place::Run, 0, 0, this, &id, &thread_), "KivSdThreadCreate");
    progress().threadsStarted.fetch_add(1);
  }

  bool HasEnded() const { return hasEnded_.load(); }

  void Join() {
    Done(KivSdThreadJoin(nullptr, &thread_), "KivSdThreadJoin");
    Done(KivSdThreadDelete(nullptr, &thread_), "KivSdThreadDelete");
  }

 private:
  Progress& progress() { return board_->processes[process_]; }

  static uint32_t Run(void* argument) {
    auto* place = static_cast<Place*>(argument);
    place->Live();
    place->hasEnded_.store(true);
    return 0;
  }

  void Live() {
    std::vector<std::unique_ptr<Visitor>> visitors;
    for (size_t at = 0; at < all_.size(); ++at) {
      Now(Kinds()[at].name);
      visitors.push_back(all_[at]->Enter(number_, &random_));
    }
    for (uint32_t left = random_.Between(kShortestLife, kLongestLife);
         left > 0 && board_->stop.load(std::memory_order_relaxed) == 0; --left) {
      const uint32_t at = random_.Below(static_cast<uint32_t>(visitors.size()));
      Step(at, visitors[at].get());
    }
    EndAll(&visitors);
    progress().doing[number_].store(0);
  }

  void Step(uint32_t at, Visitor* visitor) {
    Now(Kinds()[at].name);
    progress().doing[number_].store(at + 1, std::memory_order_relaxed);
    visitor->Step();
    progress().steps[at].fetch_add(1, std::memory_order_relaxed);
  }

  const uint32_t number_;
  Random random_;
  const Subsystems& all_;
  Board& board_;
  const uint32_t process_;
  KivHandle thread_ = nullptr;
  std::atomic<bool> hasEnded_{false};
};

// Ends the process when the coordinator has ended, for example because it found something broken.
class CoordinatorWatch {
 public:
  explicit CoordinatorWatch(const Board& board) : board_(board), thread_([this] { Watch(); }) {}
  ~CoordinatorWatch() {
    isOver_.store(true);
    thread_.join();
  }
  CoordinatorWatch(const CoordinatorWatch&) = delete;
  CoordinatorWatch& operator=(const CoordinatorWatch&) = delete;

 private:
  void Watch() {
    Now("watch");
    uint64_t seen = 0;
    for (auto movedAt = Clock::now(); !isOver_.load();) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kLookMs));
      const uint64_t looks = board_->looks.load();
      if (looks != seen) movedAt = Clock::now();
      seen = looks;
      Expect(Clock::now() - movedAt < kLongestWithoutLook,
             "the coordinator outlives its processes");
    }
  }

  const Board& board_;
  std::atomic<bool> isOver_{false};
  std::thread thread_;
};

class Worker {
 public:
  explicit Worker(const Options& options)
      : options_(options),
        world_{.process = static_cast<uint32_t>(options.worker),
               .hasHeaps = options.worker % 2 == 0,
               .prefix = options.prefix,
               .folder = options.folder,
               .heaps = &heaps_} {}

  void Run() {
    Prepare();
    Board board(world_.prefix);
    const CoordinatorWatch watch(board);
    WarmUp();
    const Usage before = UsageNow(world_.hasHeaps);
    Load(&board);
    Now("end");
    ExpectBack(before, UsageNow(world_.hasHeaps));
  }

 private:
  // Two of four processes have thread heaps, and two have ticket locks.
  void Prepare() const {
    fs::remove_all(world_.folder);
    fs::create_directories(fs::path(world_.folder) / "bin");
    std::ofstream(fs::path(world_.folder) / "bin" / "config.mem") << kConfiguration;
    SetVariable("MOLTAPATH", world_.folder);
    KivSdSetHardwareAcceleration(world_.process / 2 % 2 != 0 ? 1 : 0);
    if (!world_.hasHeaps) KivSdSetMemoryManager(1);
    Done(adMemThreadHeapInit(world_.hasHeaps ? 1 : 0, nullptr, "soak", 0), "adMemThreadHeapInit");
    // Leave the machine to whatever else runs on it.
    Done(KivSdProcessPrioritySet(nullptr, nullptr, -1, KIV_PRIORITY_CLASS_IDLE),
         "KivSdProcessPrioritySet");
  }

  // Uses each subsystem once: what the library keeps for the life of a process is then there.
  void WarmUp() {
    Random random(options_.seed);
    Subsystems all = MakeAll(world_);
    for (size_t at = 0; at < all.size(); ++at) {
      Now(Kinds()[at].name);
      const std::unique_ptr<Visitor> visitor = all[at]->Enter(options_.threads, &random);
      for (uint32_t step = 0; step < kWarmUpSteps; ++step) visitor->Step();
    }
    Finish(&all);
  }

  static void Finish(Subsystems* all) {
    for (size_t at = 0; at < all->size(); ++at) {
      Now(Kinds()[at].name);
      (*all)[at]->Check();
    }
    EndAll(all);
  }

  void Load(Board* board) {
    Subsystems all = MakeAll(world_);
    std::deque<Place> places;
    for (uint32_t number = 0; number < options_.threads; ++number) {
      places.emplace_back(number, stress::Scramble(options_.seed) + number, &all, board,
                          world_.process);
    }
    for (Place& place : places) place.Start();
    Watch(&places, board);
    for (Place& place : places) place.Join();
    Walk(board);
    Finish(&all);
  }

  void Watch(std::deque<Place>* places, Board* board) {
    auto nextWalk = Clock::now() + kBetweenWalks;
    while ((*board)->stop.load() == 0) {
      Now("threads");
      KivSdSleep(nullptr, kLookMs);
      for (Place& place : *places) {
        if (!place.HasEnded()) continue;
        place.Join();
        place.Start();
      }
      if (Clock::now() < nextWalk) continue;
      Walk(board);
      nextWalk = Clock::now() + kBetweenWalks;
    }
  }

  void Walk(Board* board) {
    Now("walk");
    (*board)->processes[world_.process].heapsWalked.fetch_add(heaps_.Walk());
  }

  const Options options_;
  Heaps heaps_;
  const World world_;
};

}  // namespace

int RunWorker(const Options& options) {
  DescribeProcess("process " + std::to_string(options.worker) + ", seed " +
                  std::to_string(options.seed));
  Worker(options).Run();
  return 0;
}

}  // namespace kiv::soak
