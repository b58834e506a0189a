// A folder of names for this process and its children alone. Tests use it to put files there that
// would disturb other tests, or to change the folder. Link the program with kiv_system_calls.
#ifndef KIV_TESTS_LNX_OWN_NAMES_H
#define KIV_TESTS_LNX_OWN_NAMES_H

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/lnx/answered_calls.h"
#include "support/temporary_folder.h"

namespace kiv::test {

// The library takes the user's runtime folder, because /dev/shm seems to be missing.
class OwnNames {
 public:
  OwnNames() { setenv("XDG_RUNTIME_DIR", folder_.Path().c_str(), 1); }

 private:
  static Answer IsMissing(const Words& arguments, Word*) {
    const auto* path = reinterpret_cast<const char*>(arguments[0]);
    if (std::strcmp(path, "/dev/shm") != 0) return Answer::kPass;
    errno = ENOENT;
    return Answer::kRefuse;
  }

  const TemporaryFolder folder_;
  const AnsweredCall missing_{"stat", IsMissing};
};

}  // namespace kiv::test

#endif
