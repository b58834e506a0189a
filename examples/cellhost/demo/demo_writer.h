// The demo's clients that change cells.
#ifndef CELLHOST_DEMO_DEMO_WRITER_H
#define CELLHOST_DEMO_DEMO_WRITER_H

#include <stdint.h>

#include "client/server_client.h"
#include "cube/put_order.h"
#include "host/host_thread.h"
#include "host/line_file.h"

namespace cellhost {

// A client on its own thread, with its own connection. It sends its share of the orders, and reads
// each cell back at once. No other client may change these cells.
class DemoWriter {
 public:
  // Starts the thread. Returns false on failure, after reporting it.
  //
  //   orders  not copied
  //   first   index of its first order
  //   step    distance from each of its orders to the next
  //   number  number of the client, from 1, for the output
  bool Start(Road road, const char* pipe, const LineFile<PutOrder>& orders, uint32_t first,
             uint32_t step, uint32_t number);

  // Waits for the end and prints the outcome. Returns whether all orders were carried out and each
  // cell then held the ordered number.
  bool Finish();

  uint32_t stored() const { return stored_; }  // after Finish

 private:
  void Run();
  bool StoreAll();
  bool Store(ServerClient* server, const PutOrder& order);
  bool ReadBack(ServerClient* server, const PutOrder& order);

  Road road_ = Road::kPipe;
  const char* pipe_ = nullptr;
  const LineFile<PutOrder>* orders_ = nullptr;
  uint32_t first_ = 0;
  uint32_t step_ = 0;
  uint32_t number_ = 0;
  uint32_t stored_ = 0;  // written by the thread before it ends
  bool done_ = false;    // written by the thread before it ends
  HostThread thread_;    // last: the thread uses the other members until it has ended
};

}  // namespace cellhost

#endif
