// An exception that ends the command with a message.
#ifndef KIVSD_FAILURE_H
#define KIVSD_FAILURE_H

#include <stdexcept>

namespace kivsd {

// The message says what failed and what to do. The command ends with kExitFailed.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kivsd

#endif
