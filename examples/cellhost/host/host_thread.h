// A thread of the server. It has a thread record while it runs; see thread_record.h.
#ifndef CELLHOST_HOST_HOST_THREAD_H
#define CELLHOST_HOST_HOST_THREAD_H

#include <stdint.h>

#include <atomic>

#include "kivsdu/api.h"

namespace cellhost {

// Must not be moved while the thread runs. The same owner thread starts and ends it.
class HostThread {
 public:
  using Work = void (*)(void* argument);

  HostThread() = default;
  HostThread(const HostThread&) = delete;
  HostThread& operator=(const HostThread&) = delete;
  ~HostThread();  // waits for the thread, even if waiting for its events fails

  // Starts the thread and waits until it has its record. Returns false if the thread or its record
  // cannot be made, after reporting it; no thread runs then.
  bool Start(Work work, void* argument);

  // Waits until the thread has ended. Returns whether it has; true if it was never started.
  //
  //   limitMs  negative: waits forever
  bool EndsWithin(int32_t limitMs);

 private:
  static uint32_t Run(void* thread);
  bool MakeEvents();
  void CloseEvents();
  void Signal(KivHandle* event, std::atomic<bool>* flag);
  bool Await(KivHandle* event, const std::atomic<bool>& flag, int32_t limitMs);
  void Join();

  Work work_ = nullptr;
  void* argument_ = nullptr;
  KivHandle thread_ = nullptr;
  KivHandle begun_ = nullptr;
  KivHandle ended_ = nullptr;
  // Set behind the two events. Store release in Signal pairs with load acquire in Await and Join:
  // the owner then sees everything that the thread wrote before.
  std::atomic<bool> hasBegun_{false};
  std::atomic<bool> hasEnded_{false};  // the last member that the thread touches
  bool hasRecord_ = false;             // written by the thread before hasBegun_
};

}  // namespace cellhost

#endif
