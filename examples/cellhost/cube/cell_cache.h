// The cells in memory, as a server's threads share them: queries read them together, a PUT changes
// them alone. A reader-writer lock of the library guards them.
//
// PUTs change cells and make new ones; dimensions and members stay those of the facts, so that
// names are looked up without the lock. Every query is answered from the cells of one moment.
#ifndef CELLHOST_CUBE_CELL_CACHE_H
#define CELLHOST_CUBE_CELL_CACHE_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "cube/put_order.h"
#include "cube/query.h"
#include "cube/words.h"
#include "kivsdu/rwlock.h"

namespace cellhost {

// Any thread with a record; see thread_record.h.
class CellCache {
 public:
  // cube: full of facts, and not copied; nobody else uses its cells from here on.
  explicit CellCache(Cube* cube);
  CellCache(const CellCache&) = delete;
  CellCache& operator=(const CellCache&) = delete;

  // See answer.h. False when there is no memory.
  bool Answer(const Query& query, std::string_view* answer);

  // Stores a number in a cell, which is made if its members never met.
  //
  //   fault  set when there is no such cell, or no memory
  //
  // Whether it is stored; if not, nothing has changed.
  bool Put(const PutOrder& order, Fault* fault);

  // The two steps of it, between which who keeps files writes down what the second does. One thread
  // at a time does them, and nobody uses Put meanwhile.
  //
  //   place  receives where the cell is or will be
  //
  // MakeRoomFor: whether Set can follow. Set: false when there is no memory to lock the cells,
  // which a thread that has just made room has.
  bool MakeRoomFor(const PutOrder& order, CellPlace* place, Fault* fault);
  bool Set(const CellPlace& place, double value);

  // How many cells there are. False when there is no memory.
  bool Count(uint32_t* cells);

 private:
  Cube& cube_;
  KivRWLock
      lock_;  // guards the cells of the cube; whoever holds it takes no other lock of the server
};

}  // namespace cellhost

#endif
