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

// What one thread does with the lock, from its beginning to its end.
class Visitor {
 public:
  virtual ~Visitor() = default;

  // Takes the lock, looks around, and gives it back.
  virtual void Visit() = 0;
};

class Subject {
 public:
  virtual ~Subject() = default;

  // On the thread that will use it.
  virtual std::unique_ptr<Visitor> MakeVisitor(Worker* worker) = 0;

  // Checks the lock when all threads have ended.
  virtual void ExpectFree() = 0;

  // The lock's fields, for a report; read as they are while threads use them.
  virtual std::string Describe() const = 0;
};

struct Kind {
  const char* name;
  uint32_t mostThreads;  // that get on where there are fewer processors
  // `random` draws what may differ from trial to trial.
  std::unique_ptr<Subject> (*make)(Random* random);
};

const std::vector<Kind>& SpinlockKinds();
const std::vector<Kind>& RWLockKinds();
const std::vector<Kind>& AtomicsKinds();

}  // namespace kiv::stress

#endif
