// The workers' part of the server: they take requests off the ring and do what they ask.
#ifndef CELLHOST_SERVER_WORKER_H
#define CELLHOST_SERVER_WORKER_H

namespace cellhost {

// Answers queries and carries out PUTs until the ring ends it. A HostThread's work.
//
//   service  the Service
void RunWorker(void* service);

}  // namespace cellhost

#endif
