// What a stress run uses: the locks, the heaps, files, a segment. Each subject has one or more
// threads that work and check until the run ends.
#ifndef KIVSD_STRESS_SUBJECT_H
#define KIVSD_STRESS_SUBJECT_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace kivsd {

// What all threads of a run share.
class StressRun {
 public:
  bool IsOver() const { return over_.load(std::memory_order_relaxed); }
  void End() { over_.store(true, std::memory_order_relaxed); }

  // Notes an error and ends the run. Any thread.
  void Fail(const std::string& subject, const std::string& what);

  // The errors so far, each once.
  std::vector<std::string> Errors() const;

 private:
  std::atomic<bool> over_ = false;
  mutable std::mutex mutex_;  // guards the errors
  std::vector<std::string> errors_;
};

using Random = std::minstd_rand;

// A number below `limit`.
inline uint32_t Below(Random* random, uint32_t limit) {
  return static_cast<uint32_t>((*random)()) % limit;
}

class StressSubject {
 public:
  StressSubject(std::string name, StressRun* run) : name_(std::move(name)), run_(run) {}
  virtual ~StressSubject() = default;
  StressSubject(const StressSubject&) = delete;
  StressSubject& operator=(const StressSubject&) = delete;

  const std::string& name() const { return name_; }
  uint64_t operations() const { return operations_.load(std::memory_order_relaxed); }

  virtual uint32_t ThreadCount() const = 0;
  // Works until the run is over. Each thread has a number below ThreadCount().
  virtual void Work(uint32_t thread) = 0;
  // Checks what only can be checked when all threads have ended.
  virtual void CheckAtEnd() {}

 protected:
  StressRun* run() const { return run_; }
  void Count(uint64_t operations) {
    operations_.fetch_add(operations, std::memory_order_relaxed);  // only shown
  }
  void Fail(const std::string& what) { run_->Fail(name_, what); }
  // Returns whether the status is a success. Otherwise notes the error.
  bool Succeeded(uint32_t status, const char* action);

 private:
  const std::string name_;
  StressRun* const run_;
  std::atomic<uint64_t> operations_ = 0;
};

std::unique_ptr<StressSubject> MakeLockSubject(StressRun* run, uint32_t threads);
std::unique_ptr<StressSubject> MakeHeapSubject(StressRun* run, uint32_t threads);
std::unique_ptr<StressSubject> MakeFileSubject(StressRun* run, uint32_t threads);
std::unique_ptr<StressSubject> MakeSegmentSubject(StressRun* run);

}  // namespace kivsd

#endif
