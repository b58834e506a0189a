// The handle of this process, which some of the library's operations ask for.
#ifndef CELLHOST_OWN_PROCESS_H
#define CELLHOST_OWN_PROCESS_H

#include "kivsdu/api.h"

namespace cellhost {

// Not to be closed. Any thread.
KivHandle OwnProcess();

}  // namespace cellhost

#endif
