// Memory for the records of the checks: whole pages from the system, so that records lie apart from
// the blocks that they describe, and no allocation of a host is an allocation of the checks.
#ifndef KIV_CHECKED_SLAB_H
#define KIV_CHECKED_SLAB_H

#include <cstdint>
#include <new>

#include "os/pages.h"

namespace kiv::checked {

// Records of one type. The gate guards it. Keeps its pages until the process ends.
template <typename Record>
class Slab {
 public:
  // Returns a record of zeros, or null if there is no memory.
  Record* Take() {
    if (free_ == nullptr && !Grow()) return nullptr;
    Free* const taken = free_;
    free_ = taken->next;
    return new (taken) Record{};
  }

  void Give(Record* record) { free_ = new (record) Free{free_}; }

 private:
  static constexpr uint64_t kGrowthBytes = uint64_t{256} * 1024;

  struct Free {
    Free* next;
  };
  static_assert(sizeof(Record) >= sizeof(Free));
  static_assert(alignof(Record) >= alignof(Free));

  bool Grow() {
    const os::ValueResult<void*> pages = os::CommitPages(kGrowthBytes);
    if (!pages.ok) return false;
    auto* records = static_cast<Record*>(pages.value);
    for (uint64_t i = 0; i < kGrowthBytes / sizeof(Record); ++i) Give(records + i);
    return true;
  }

  Free* free_ = nullptr;
};

}  // namespace kiv::checked

#endif
