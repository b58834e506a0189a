// A dimension: its name and its members, numbered from 0 in the order in which the facts first
// name them. The names lie on the cube's stack. Members are only added while facts are loaded;
// afterwards any number of threads may look them up.
#ifndef CELLHOST_CUBE_DIMENSION_H
#define CELLHOST_CUBE_DIMENSION_H

#include <stdint.h>

#include <string_view>

#include "cube/hash_index.h"
#include "cube/text_stack.h"
#include "host/host_memory.h"

namespace cellhost {

class Dimension {
 public:
  Dimension();

  // name: lies on a stack that outlives the dimension.
  void SetName(std::string_view name) { name_ = name; }
  std::string_view name() const { return name_; }

  // The number of a member, or kNoEntry.
  uint32_t Find(std::string_view member) const;

  // The number of a member that is added if it is new. False when there is no memory.
  bool FindOrAdd(std::string_view member, TextStack* names, uint32_t* number);

  uint32_t memberCount() const { return members_.count(); }
  std::string_view member(uint32_t number) const { return members_[number]; }
  uint64_t bytesHeld() const { return members_.bytesHeld() + index_.bytesHeld(); }

 private:
  uint32_t FindHashed(uint32_t hash, std::string_view member) const;

  std::string_view name_;
  HostArray<std::string_view> members_;
  HashIndex index_;
};

}  // namespace cellhost

#endif
