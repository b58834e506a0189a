// A file for direct I/O, in a slot of the handle table.
#ifndef KIV_OS_LNX_DIRECT_FILE_H
#define KIV_OS_LNX_DIRECT_FILE_H

#include "os/lnx/slot_use.h"

namespace kiv::os {

struct DirectFile {
  static constexpr Kind kKind = Kind::kFile;

  Result End();

  ObjectWord word;
  int descriptor;
  bool overlapped;  // a transfer with a record and an event is only started
  bool transfers;   // opened for reading or writing, not for its attributes alone
  bool deleteOnClose;
};

using DirectFileUse = SlotUse<DirectFile>;

}  // namespace kiv::os

#endif
