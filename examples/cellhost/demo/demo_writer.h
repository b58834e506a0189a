// The demo's clients that change cells.
#ifndef CELLHOST_DEMO_DEMO_WRITER_H
#define CELLHOST_DEMO_DEMO_WRITER_H

#include <stdint.h>

#include "client/server_client.h"
#include "cube/put_order.h"
#include "host/host_thread.h"
#include "host/line_file.h"

namespace cellhost {

// A client on a thread of its own, with its own connection: it sends its share of the orders and
// asks for each cell as soon as it is stored. No other client may change these cells.
class DemoWriter {
 public:
  // Starts it. False on failure, which has then been told.
  //
  //   orders  not copied
  //   first   number of its first order
  //   step    from each of its orders to the next
  //   number  from 1; for what is printed
  bool Start(Road road, const char* pipe, const LineFile<PutOrder>& orders, uint32_t first,
             uint32_t step, uint32_t number);

  // Waits for the end and prints the outcome. Whether all of its orders were carried out, and each
  // cell was then as ordered.
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
  bool done_ = false;    // and this
  HostThread thread_;    // last: it uses the others until it has ended
};

}  // namespace cellhost

#endif
