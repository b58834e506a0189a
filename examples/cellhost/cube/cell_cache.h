// The cells in memory, shared by the server's threads. The library's reader-writer lock guards
// them: queries share the lock, a PUT holds it alone. Each answer therefore shows one state of the
// cells.
//
// A PUT changes a cell or makes one. It adds no dimension and no member, which allows looking up
// names without the lock.
#ifndef CELLHOST_CUBE_CELL_CACHE_H
#define CELLHOST_CUBE_CELL_CACHE_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "cube/put_order.h"
#include "cube/query.h"
#include "host/words.h"
#include "kivsdu/rwlock.h"

namespace cellhost {

// Any thread with a record; see thread_record.h.
class CellCache {
 public:
  // cube: loaded, and not copied; nothing else may use its cells afterwards.
  explicit CellCache(Cube* cube);
  CellCache(const CellCache&) = delete;
  CellCache& operator=(const CellCache&) = delete;

  // See answer.h. Returns false without memory.
  bool Answer(const Query& query, std::string_view* answer);

  // Stores a number in a cell; makes the cell if needed.
  //
  //   fault  set if the order names no possible cell, or without memory
  //
  // Returns whether the number is stored; if not, nothing has changed.
  bool Put(const PutOrder& order, Fault* fault);

  // The two steps of Put. A caller that keeps files records the change between them. One thread at
  // a time may make them, and no thread may call Put meanwhile.
  //
  //   place  receives the place of the existing or future cell
  //
  // MakeRoomFor returns whether Set can follow. Set returns false only without memory for the lock;
  // a thread that has just called MakeRoomFor has that memory.
  bool MakeRoomFor(const PutOrder& order, CellPlace* place, Fault* fault);
  bool Set(const CellPlace& place, double value);

  // Stores the number of cells. Returns false without memory for the lock.
  bool Count(uint32_t* cells);

 private:
  Cube& cube_;
  // Guards the cells of the cube. Its holder takes no other lock of the server.
  KivRWLock lock_;
};

}  // namespace cellhost

#endif
