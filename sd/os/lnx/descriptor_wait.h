// Waiting for a descriptor until a deadline.
#ifndef KIV_OS_LNX_DESCRIPTOR_WAIT_H
#define KIV_OS_LNX_DESCRIPTOR_WAIT_H

#include <poll.h>

#include <cerrno>

#include "os/lnx/futex.h"

namespace kiv::os {

// Returns the events that came, 0 after the deadline, or -1 with errno. Continues after signals.
inline int PollUntil(int descriptor, short events, const Deadline& deadline) {
  while (true) {
    pollfd one = {descriptor, events, 0};
    const timespec left = deadline.never ? timespec{} : TimeLeft(deadline);
    const int count = ppoll(&one, 1, deadline.never ? nullptr : &left, nullptr);
    if (count > 0) return one.revents;
    if (count == 0 || errno != EINTR) return count;
  }
}

}  // namespace kiv::os

#endif
