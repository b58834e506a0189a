// A lock under stress.
#ifndef KIV_TESTS_STRESS_SUBJECT_H
#define KIV_TESTS_STRESS_SUBJECT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "stress/random.h"
#include "stress/worker.h"

namespace kiv::stress {

// One thread's use of the lock, from the thread's start to its end.
class Visitor {
 public:
  virtual ~Visitor() = default;

  // Takes the lock, checks the guarded data and releases the lock.
  virtual void Visit() = 0;
};

class Subject {
 public:
  virtual ~Subject() = default;

  // Called on the thread that will use the visitor.
  virtual std::unique_ptr<Visitor> MakeVisitor(Worker* worker) = 0;

  // Checks that the lock is free after all threads have ended.
  virtual void ExpectFree() = 0;

  // Returns the lock's fields for a report; threads may be changing them.
  virtual std::string Describe() const = 0;
};

struct Kind {
  const char* name;
  uint32_t mostThreads;  // limit at which threads still progress on few processors
  // `random` draws the properties that may differ from trial to trial.
  std::unique_ptr<Subject> (*make)(Random* random);
};

const std::vector<Kind>& SpinlockKinds();
const std::vector<Kind>& RWLockKinds();
const std::vector<Kind>& AtomicsKinds();

}  // namespace kiv::stress

#endif
