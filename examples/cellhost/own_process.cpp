// The handle of this process; the one file here that asks the operating system itself.
#include "own_process.h"

#include <windows.h>

namespace cellhost {

KivHandle OwnProcess() { return GetCurrentProcess(); }

}  // namespace cellhost
