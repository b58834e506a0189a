// Which threads measure the spin budget at the moment.
//
// The pipes of the measurement run the host's lease guard, on the thread that measures and on the
// two that it starts. A guard that makes the first lock of the process would begin another
// measurement inside this one, and that one another, without an end.
#ifndef KIV_SDSYNC_CALIBRATING_THREAD_H
#define KIV_SDSYNC_CALIBRATING_THREAD_H

#include <cstdint>

namespace kiv {

// The calling thread takes part in a measurement as long as this lives, on its stack.
class CalibratingThread {
 public:
  CalibratingThread();
  ~CalibratingThread();
  CalibratingThread(const CalibratingThread&) = delete;
  CalibratingThread& operator=(const CalibratingThread&) = delete;

  // Whether the calling thread takes part in one.
  static bool IsCurrent();

 private:
  const uint32_t thread_;
  CalibratingThread* next_;
};

}  // namespace kiv

#endif
