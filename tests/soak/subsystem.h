// One subsystem of the library under load in one process.
#ifndef KIV_TESTS_SOAK_SUBSYSTEM_H
#define KIV_TESTS_SOAK_SUBSYSTEM_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "soak/heaps.h"
#include "stress/random.h"

namespace kiv::soak {

using stress::Random;

// What the subsystems of a process share.
struct World {
  uint32_t process = 0;    // number of its place, from 0
  bool hasHeaps = false;   // thread heaps; otherwise plain mode with thread caches
  std::string prefix;      // of all names that processes share
  std::string folder;      // for the files of this process
  Heaps* heaps = nullptr;  // the thread heaps that were seen
};

// One thread's use of a subsystem, from the thread's start to its end.
class Visitor {
 public:
  virtual ~Visitor() = default;
  // Uses the subsystem a little, and checks what it can. Takes milliseconds at most.
  virtual void Step() = 0;
};

class Subsystem {
 public:
  virtual ~Subsystem() = default;

  // Called on the visiting thread. `place` is a number that no other running thread of the process
  // has.
  virtual std::unique_ptr<Visitor> Enter(uint32_t place, Random* random) = 0;

  // Checks what must hold when no thread uses the subsystem.
  virtual void Check() {}
};

struct Kind {
  const char* name;
  std::unique_ptr<Subsystem> (*make)(const World& world);
};

// In the order in which a thread enters them.
const std::vector<Kind>& Kinds();

// A subsystem without state of its own: each visitor is one V, made from {world, place, random}.
template <class V>
class Separate : public Subsystem {
 public:
  explicit Separate(const World& world) : world_(world) {}
  std::unique_ptr<Visitor> Enter(uint32_t place, Random* random) override {
    return std::make_unique<V>(world_, place, random);
  }

 private:
  const World world_;
};

// A name that only this place uses, also after the process was killed and started anew.
inline std::string NameOf(const World& world, uint32_t place, const char* what) {
  return world.prefix + "-" + std::to_string(world.process) + "-" + std::to_string(place) + "-" +
         what;
}

inline std::string FileOf(const World& world, uint32_t place, const char* what) {
  return world.folder + "/" + std::to_string(place) + "-" + what;
}

// Fills bytes with a pattern that depends on a number, and checks for it.
void Fill(void* bytes, uint64_t count, uint64_t number);
bool IsFilled(const void* bytes, uint64_t count, uint64_t number);

// ---- The subsystems, each in a file of its name ----

std::unique_ptr<Subsystem> MakeAccounting(const World& world);
std::unique_ptr<Subsystem> MakeAtomics(const World& world);
std::unique_ptr<Subsystem> MakeBlocks(const World& world);
std::unique_ptr<Subsystem> MakeDirectFiles(const World& world);
std::unique_ptr<Subsystem> MakeFiles(const World& world);
std::unique_ptr<Subsystem> MakeKernelObjects(const World& world);
std::unique_ptr<Subsystem> MakeMemoryStacks(const World& world);
std::unique_ptr<Subsystem> MakeModules(const World& world);
std::unique_ptr<Subsystem> MakeNamedObjects(const World& world);
std::unique_ptr<Subsystem> MakePipes(const World& world);
std::unique_ptr<Subsystem> MakeRWLocks(const World& world);
std::unique_ptr<Subsystem> MakeSegments(const World& world);
std::unique_ptr<Subsystem> MakeSharedBlocks(const World& world);
std::unique_ptr<Subsystem> MakeShortHeaps(const World& world);
std::unique_ptr<Subsystem> MakeSpinlocks(const World& world);
std::unique_ptr<Subsystem> MakeSystem(const World& world);
std::unique_ptr<Subsystem> MakeThreadCaches(const World& world);
std::unique_ptr<Subsystem> MakeThreads(const World& world);
std::unique_ptr<Subsystem> MakeWritePauses(const World& world);

}  // namespace kiv::soak

#endif
