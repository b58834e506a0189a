// A dimension: its name and its members. Members are numbered from 0, in the order in which they
// first occur in the facts. Their names lie on the cube's stack. Members are added only while facts
// are loaded; afterwards any number of threads may look them up.
#ifndef CELLHOST_CUBE_DIMENSION_H
#define CELLHOST_CUBE_DIMENSION_H

#include <stdint.h>

#include <string_view>

#include "cube/hash_index.h"
#include "host/host_memory.h"
#include "host/text_stack.h"

namespace cellhost {

class Dimension {
 public:
  Dimension();

  // name: lies on a stack that outlives the dimension.
  void SetName(std::string_view name) { name_ = name; }
  std::string_view name() const { return name_; }

  // Returns the number of a member, or kNoEntry.
  uint32_t Find(std::string_view member) const;

  // Stores the number of a member; adds the member if it is unknown. Returns false without memory.
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
