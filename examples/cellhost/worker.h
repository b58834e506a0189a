// The workers' part of the server: they take queries off the ring and answer them.
#ifndef CELLHOST_WORKER_H
#define CELLHOST_WORKER_H

namespace cellhost {

// Answers queries until the ring ends it. A HostThread's work.
//
//   service  the Service
void RunWorker(void* service);

}  // namespace cellhost

#endif
