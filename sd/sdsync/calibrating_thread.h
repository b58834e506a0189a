// Marks the threads that are measuring the spin budget.
//
// The measurement uses pipes, whose operations call the host's lease guard, on the measuring thread
// and on the two threads that it starts. A guard that creates the first lock of the process would
// start another measurement inside the running one, and so on without end.
#ifndef KIV_SDSYNC_CALIBRATING_THREAD_H
#define KIV_SDSYNC_CALIBRATING_THREAD_H

#include <cstdint>

namespace kiv {

// Marks the calling thread during the lifetime of this object, which must be on its stack.
class CalibratingThread {
 public:
  CalibratingThread();
  ~CalibratingThread();
  CalibratingThread(const CalibratingThread&) = delete;
  CalibratingThread& operator=(const CalibratingThread&) = delete;

  // Whether the calling thread is marked.
  static bool IsCurrent();

 private:
  const uint32_t thread_;
  CalibratingThread* next_;
};

}  // namespace kiv

#endif
