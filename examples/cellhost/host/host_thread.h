// A thread of the server, which has a record of its own while it runs; see thread_record.h.
#ifndef CELLHOST_HOST_HOST_THREAD_H
#define CELLHOST_HOST_HOST_THREAD_H

#include <stdint.h>

#include <atomic>

#include "kivsdu/api.h"

namespace cellhost {

// Stays where it is while the thread runs. One thread starts and ends it.
class HostThread {
 public:
  using Work = void (*)(void* argument);

  HostThread() = default;
  HostThread(const HostThread&) = delete;
  HostThread& operator=(const HostThread&) = delete;
  ~HostThread();  // waits for the thread, however its waits for events end

  // Starts the thread and waits until it has its record. False if it has none, which has then
  // been told; no thread runs then.
  bool Start(Work work, void* argument);

  // Waits until the thread has ended, or was never started. Whether it has.
  //
  //   limitMs  negative: for ever
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
  // What the two events signal. acquire and release: what the thread wrote before is seen after.
  std::atomic<bool> hasBegun_{false};
  std::atomic<bool> hasEnded_{false};  // the last thing the thread touches
  bool hasRecord_ = false;             // written by the thread before it has begun
};

}  // namespace cellhost

#endif
