// A thread of the server, which has a record of its own while it runs; see thread_record.h.
#ifndef CELLHOST_HOST_HOST_THREAD_H
#define CELLHOST_HOST_HOST_THREAD_H

#include <stdint.h>

#include "kivsdu/api.h"

namespace cellhost {

// Stays where it is while the thread runs. One thread starts and ends it.
class HostThread {
 public:
  using Work = void (*)(void* argument);

  HostThread() = default;
  HostThread(const HostThread&) = delete;
  HostThread& operator=(const HostThread&) = delete;
  ~HostThread();  // waits for the thread

  // Starts the thread and waits until it has its record. False if it has none, which has then
  // been told; no thread runs then.
  bool Start(Work work, void* argument);

  // Waits until the thread has ended, or was never started. Whether it has.
  bool EndsWithin(int32_t limitMs);

 private:
  static uint32_t Run(void* thread);
  bool MakeEvents();
  void CloseEvents();
  void Join();

  Work work_ = nullptr;
  void* argument_ = nullptr;
  KivHandle thread_ = nullptr;
  KivHandle begun_ = nullptr;
  KivHandle ended_ = nullptr;
  bool hasRecord_ = false;  // written by the thread before it signals begun_
};

}  // namespace cellhost

#endif
