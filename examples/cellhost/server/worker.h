// A worker thread: takes requests from the ring and carries them out.
#ifndef CELLHOST_SERVER_WORKER_H
#define CELLHOST_SERVER_WORKER_H

namespace cellhost {

// Carries out requests until RequestRing::EndOne. For HostThread::Start.
//
//   service  a Service
void RunWorker(void* service);

}  // namespace cellhost

#endif
