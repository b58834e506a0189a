// The state that the server's connections and workers share.
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
  //   cube       see CellCache
  //   cellFiles  files that keep the cells; not copied; null: cells only in memory
  Service(Cube* cube, uint64_t factRows, CellFiles* cellFiles)
      : cells(cube), rows(factRows), files(cellFiles) {}
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service();

  // Returns false on failure, after reporting it.
  bool Create();

  // Stop, at a client's request, and Fail, after a connection has reported that it cannot go on:
  // both make AwaitStop return and every connection end soon. Any thread.
  void Stop();
  void Fail();
  bool AwaitStop();
  bool stopping() const { return stop.load(std::memory_order_relaxed); }

  // Stores a number in a cell, and in the files if the server has files; see CellCache::Put.
  bool Put(const PutOrder& order, Fault* fault);

  uint64_t uptimeSeconds() const;

  CellCache cells;
  const uint64_t rows;
  CellFiles* const files;  // null: cells only in memory
  RequestRing ring;
  SegmentServer segment;

  // Time for a disconnected client to read its last reply and close the pipe. Tests shorten it.
  uint32_t goodbyeMs = 3000;

  // Every access is relaxed: the flags and counts order nothing.
  std::atomic<bool> stop{false};
  std::atomic<bool> failed{false};
  std::atomic<uint32_t> clients{0};  // clients so far
  std::atomic<uint32_t> lost{0};     // clients that left without BYE
  std::atomic<uint64_t> queries{0};  // queries answered
  std::atomic<uint64_t> puts{0};     // PUTs carried out

 private:
  uint64_t startSeconds_ = 0;    // wall clock
  KivHandle stopped_ = nullptr;  // standard event
};

}  // namespace cellhost

#endif
