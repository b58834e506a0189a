// Cells under a reader-writer lock; see cell_cache.h.
#include "cube/cell_cache.h"

#include "cube/answer.h"
#include "host/complain.h"
#include "host/thread_record.h"

namespace cellhost {
namespace {

// The server has one reader-writer lock, which therefore uses a list of each thread's table alone.
constexpr int32_t kLockNumber = 1;
constexpr int32_t kSlot = 0;
// Waiters may sleep, because a query may read every cell while it holds the lock.
constexpr uint8_t kBlockingAllowed = 1;

// Holds the lock for its scope, through the calling thread's table. Does not hold it if memory for
// the table is lacking; see held.
class Hold {
 public:
  // KivSdStartRead or KivSdStartWrite
  using Start = uint32_t (*)(void* owner, KivRWLockTable* table, KivRWLock* lock);

  Hold(Start start, KivRWLock* lock) : lock_(lock), table_(&ThisThread()->locks) {
    held_ = Succeeded(nullptr, start(nullptr, table_, lock_), "lock the cells");
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;
  ~Hold() {
    if (held_) Succeeded(nullptr, KivSdEndRW(nullptr, table_, lock_), "release a lock");
  }

  bool held() const { return held_; }

 private:
  KivRWLock* lock_;
  KivRWLockTable* table_;
  bool held_;
};

bool HasAsManyMembers(const Cube& cube, const PutOrder& order, Fault* fault) {
  if (order.memberCount == cube.dimensionCount()) return true;
  return Wrong(fault, "nothing stored: a cell has %u members, one of each dimension, not %u",
               cube.dimensionCount(), order.memberCount);
}

bool IsKnown(const Cube& cube, const PutOrder& order, const CellPlace& place, Fault* fault) {
  if (place.known()) return true;
  const std::string_view dimension = cube.dimension(place.unknownIn).name();
  const std::string_view member = order.members[place.unknownIn];
  return Wrong(fault, "nothing stored: '%.*s' has no member '%.*s'", ShownLength(dimension),
               dimension.data(), ShownLength(member), member.data());
}

bool Locate(const Cube& cube, const PutOrder& order, CellPlace* place, Fault* fault) {
  if (!HasAsManyMembers(cube, order, fault)) return false;
  *place = cube.Locate(order.members);
  return IsKnown(cube, order, *place, fault);
}

}  // namespace

CellCache::CellCache(Cube* cube) : cube_(*cube) {
  KivRWLockInit(nullptr, kLockNumber, &lock_, kBlockingAllowed, kSlot);
}

bool CellCache::Answer(const Query& query, std::string_view* answer) {
  const Hold reading(KivSdStartRead, &lock_);
  return reading.held() && AnswerQuery(cube_, query, answer);
}

bool CellCache::Put(const PutOrder& order, Fault* fault) {
  CellPlace place;
  if (!Locate(cube_, order, &place, fault)) return false;
  return Set(place, order.value) || NoMemory(fault, "nothing stored: no memory for the cell");
}

bool CellCache::MakeRoomFor(const PutOrder& order, CellPlace* place, Fault* fault) {
  if (!Locate(cube_, order, place, fault)) return false;
  const Hold writing(KivSdStartWrite, &lock_);
  if (writing.held() && cube_.MakeRoomFor(*place)) return true;
  return NoMemory(fault, "nothing stored: no memory for the cell");
}

bool CellCache::Set(const CellPlace& place, double value) {
  const Hold writing(KivSdStartWrite, &lock_);
  return writing.held() && cube_.SetCell(place, value);
}

bool CellCache::Count(uint32_t* cells) {
  const Hold reading(KivSdStartRead, &lock_);
  if (reading.held()) *cells = cube_.cells().count();
  return reading.held();
}

}  // namespace cellhost
