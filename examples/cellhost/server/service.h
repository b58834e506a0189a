// What the server's connections and workers share.
#ifndef CELLHOST_SERVER_SERVICE_H
#define CELLHOST_SERVER_SERVICE_H

#include <stdint.h>

#include <atomic>

#include "cube/cell_cache.h"
#include "kivsdu/api.h"
#include "server/request_ring.h"
#include "server/segment_server.h"
#include "storage/cell_files.h"

namespace cellhost {

class Service {
 public:
  // cube: see CellCache.
  //
  //   cellFiles  where the cells are kept; null: nowhere. Not copied
  Service(Cube* cube, uint64_t factRows, CellFiles* cellFiles)
      : cells(cube), rows(factRows), files(cellFiles) {}
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service();

  // False on failure, which has then been told.
  bool Create();

  // Have AwaitStop return and every connection end soon, on a client's word or because a
  // connection cannot go on, which has been told. Any thread.
  void Stop();
  void Fail();
  bool AwaitStop();
  bool stopping() const { return stop.load(std::memory_order_relaxed); }

  // Stores a number in a cell, and in the files if there are any; see CellCache::Put.
  bool Put(const PutOrder& order, Fault* fault);

  uint64_t uptimeSeconds() const;

  CellCache cells;
  const uint64_t rows;
  CellFiles* const files;  // null if there are none
  RequestRing ring;
  SegmentServer segment;

  // For a client that is cut off to read the last reply and to close the pipe. Tests have less.
  uint32_t goodbyeMs = 3000;

  // relaxed wherever they are used: the flags and counts order nothing.
  std::atomic<bool> stop{false};
  std::atomic<bool> failed{false};
  std::atomic<uint32_t> clients{0};  // that have come
  std::atomic<uint32_t> lost{0};     // of these, went without taking leave
  std::atomic<uint64_t> queries{0};  // answered
  std::atomic<uint64_t> puts{0};     // carried out

 private:
  uint64_t startSeconds_ = 0;    // wall clock
  KivHandle stopped_ = nullptr;  // standard event
};

}  // namespace cellhost

#endif
