// Linux does not record which call made a mapping, and would release a part of one. The binding
// therefore keeps a table of its mappings: a wrong address is an error, and of two threads that
// release one address, one succeeds.
//
// The table is open addressing with linear probing, in pages of its own. An empty place ends a
// probe; a removed mapping leaves no gap, because the mappings behind it move up.
#include "os/pages.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>

#include "kivsdu/api.h"
#include "os/lnx/posix.h"
#include "os/processor.h"

namespace kiv::os {

const uint32_t kErrorLockQuota = ENOMEM;

namespace {

constexpr uint64_t kFirstCapacity = 256;

struct Mapping {
  void* address;  // null: the place is empty
  uint64_t length;
};

struct Table {
  Mapping* places;
  uint64_t capacity;  // a power of two, or 0
  uint64_t count;
};

pthread_mutex_t tableMutex = PTHREAD_MUTEX_INITIALIZER;
constinit Table table = {};

class Lock {
 public:
  Lock() { pthread_mutex_lock(&tableMutex); }
  ~Lock() { pthread_mutex_unlock(&tableMutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

ValueResult<void*> Map(uint64_t length) {
  void* mapped = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return {false, static_cast<uint32_t>(errno), nullptr};
  return {true, 0, mapped};
}

bool IsAligned(const void* address) {
  return reinterpret_cast<uintptr_t>(address) % KIV_PAGE_UNIT == 0;
}

// Maps more than it needs and gives back what lies beside an aligned part.
ValueResult<void*> MapWithMargin(uint64_t length) {
  const ValueResult<void*> mapped = Map(length + KIV_PAGE_UNIT);
  if (!mapped.ok) return mapped;
  auto* start = static_cast<unsigned char*>(mapped.value);
  const uint64_t before = KIV_PAGE_UNIT - reinterpret_cast<uintptr_t>(start) % KIV_PAGE_UNIT;
  munmap(start, before);
  if (before != KIV_PAGE_UNIT) munmap(start + before + length, KIV_PAGE_UNIT - before);
  return {true, 0, start + before};
}

ValueResult<void*> MapAligned(uint64_t length) {
  const ValueResult<void*> mapped = Map(length);
  if (!mapped.ok || IsAligned(mapped.value)) return mapped;
  munmap(mapped.value, length);
  return MapWithMargin(length);
}

// ---- The table; all locked ----

uint64_t HomeOf(const void* address) {
  const auto number = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(address));
  return (number / KIV_PAGE_UNIT * 0x9E3779B97F4A7C15) >> 20 & (table.capacity - 1);
}

uint64_t After(uint64_t place) { return (place + 1) & (table.capacity - 1); }

// The place of an address, or the empty place where it would be.
uint64_t PlaceOf(const void* address) {
  uint64_t place = HomeOf(address);
  while (table.places[place].address != nullptr && table.places[place].address != address) {
    place = After(place);
  }
  return place;
}

void Put(const Mapping& mapping) { table.places[PlaceOf(mapping.address)] = mapping; }

// Keeps at least half of the places empty.
bool MakeRoom() {
  if (2 * (table.count + 1) <= table.capacity) return true;
  const Table old = table;
  const uint64_t capacity = old.capacity == 0 ? kFirstCapacity : 2 * old.capacity;
  const ValueResult<void*> mapped = Map(capacity * sizeof(Mapping));
  if (!mapped.ok) return false;
  table = {static_cast<Mapping*>(mapped.value), capacity, old.count};
  for (uint64_t i = 0; i < old.capacity; ++i) {
    if (old.places[i].address != nullptr) Put(old.places[i]);
  }
  if (old.capacity != 0) munmap(old.places, old.capacity * sizeof(Mapping));
  return true;
}

bool Remember(const Mapping& mapping) {
  const Lock lock;
  if (!MakeRoom()) return false;
  Put(mapping);
  ++table.count;
  return true;
}

// Moves mappings behind the gap into it if their probes passed it.
void CloseGap(uint64_t gap) {
  for (uint64_t place = After(gap); table.places[place].address != nullptr; place = After(place)) {
    const uint64_t home = HomeOf(table.places[place].address);
    const uint64_t mask = table.capacity - 1;
    if (((place - home) & mask) < ((place - gap) & mask)) continue;
    table.places[gap] = table.places[place];
    gap = place;
  }
  table.places[gap] = {};
}

// Length 0 if the address is not in the table.
Mapping Forget(const void* address) {
  const Lock lock;
  if (table.capacity == 0 || address == nullptr) return {};
  const uint64_t place = PlaceOf(address);
  const Mapping found = table.places[place];
  if (found.address == nullptr) return {};
  CloseGap(place);
  --table.count;
  return found;
}

}  // namespace

ValueResult<void*> CommitPages(uint64_t sizeBytes) {
  if (sizeBytes == 0) return {false, EINVAL, nullptr};
  const uint64_t page = PageSizeBytes();
  const uint64_t length = (sizeBytes + page - 1) / page * page;
  const ValueResult<void*> mapped = MapAligned(length);
  if (!mapped.ok || Remember({mapped.value, length})) return mapped;
  munmap(mapped.value, length);
  return {false, ENOMEM, nullptr};
}

// Forgotten first: as soon as the pages are released, another thread may be given their address.
Result ReleasePages(void* address) {
  const Mapping mapping = Forget(address);
  if (mapping.length == 0) return {false, EINVAL};
  return FromErrno(munmap(mapping.address, mapping.length));
}

// The kernel accepts a range without bytes. A caller means 2^32 bytes, which wrap to 0.
Result LockPages(void* address, uint64_t sizeBytes) {
  return sizeBytes == 0 ? Result{false, EINVAL} : FromErrno(mlock(address, sizeBytes));
}

Result UnlockPages(void* address, uint64_t sizeBytes) {
  return sizeBytes == 0 ? Result{false, EINVAL} : FromErrno(munlock(address, sizeBytes));
}

}  // namespace kiv::os
