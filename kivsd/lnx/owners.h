// Which processes have the files of a folder open or mapped.
#ifndef KIVSD_LNX_OWNERS_H
#define KIVSD_LNX_OWNERS_H

#include <map>
#include <string>
#include <vector>

#include "ls/listing.h"

namespace kivsd {

// By the file's name. Processes of other users are only found by root. Without this process.
std::map<std::string, std::vector<Owner>> OwnersIn(const std::string& folder);

}  // namespace kivsd

#endif
