// The node table that the NUMA queries answer from.
#ifndef KIV_SDCOMMON_NUMA_H
#define KIV_SDCOMMON_NUMA_H

#include <cstdint>

#include "kivsdu/numa.h"

namespace kiv {

struct NodeTable {
  uint32_t count;
  const uint32_t* ids;  // `count` of them; null when there is none
};

// Index modulo the count. The remainder has the sign of the index, so that a negative index
// stays negative or becomes 0; callers of a table with nodes pass what they counted up.
inline int32_t NodePosition(const NodeTable& table, int32_t index) {
  return table.count == 0 ? 0 : index % static_cast<int32_t>(table.count);
}

inline uint32_t NodeAt(const NodeTable& table, int32_t position) {
  return table.count == 0 ? KIV_NUMA_NO_NODE : table.ids[position];
}

}  // namespace kiv

#endif
