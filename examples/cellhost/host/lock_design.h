// The two designs of the library's spinlocks. A process uses one of them.
#ifndef CELLHOST_HOST_LOCK_DESIGN_H
#define CELLHOST_HOST_LOCK_DESIGN_H

#include <stdint.h>

namespace cellhost {

// The values are those of KivSdSetHardwareAcceleration.
enum class LockDesign : uint8_t { kTestAndSet = 0, kTicket = 1 };

constexpr char kTestAndSetName[] = "test-and-set";
constexpr char kTicketName[] = "ticket";

constexpr const char* NameOf(LockDesign locks) {
  return locks == LockDesign::kTicket ? kTicketName : kTestAndSetName;
}

}  // namespace cellhost

#endif
