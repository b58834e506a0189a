// Finds the hosts that publish their memory figures.
#ifndef KIVSD_TOP_HOST_H
#define KIVSD_TOP_HOST_H

#include <cstdint>
#include <string>
#include <vector>

#include "kivsdu/publisher.hpp"

namespace kivsd {

struct Host {
  uint32_t processId;
  std::string name;
};

// The hosts of this user that publish at the moment, in ascending order of their identifiers.
std::vector<Host> FindHosts();

// The host that the user means: its process identifier, or its name, or the only host if `wanted`
// is empty. Throws Failure, with a list of the hosts, if none or more than one fits.
Host ChooseHost(const std::string& wanted);

}  // namespace kivsd

#endif
