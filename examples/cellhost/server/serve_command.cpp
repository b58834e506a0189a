// `cellhost serve`; see serve_command.h.
//
//   main thread      loads, starts the other threads, waits for the stop, ends the other threads
//   8 connections    one client each; put requests into the ring
//   4 workers        take requests from the ring; read and change the cell cache
//
// With --data the cells are also in files (cell_files.h). They are read before the threads start
// and written back when no worker runs any more. A connection whose client does not read its
// answers cannot be ended. It changes no cells; the cells are therefore written back while it still
// runs, and the end of the process ends it.
//
// The ring has a lightweight spinlock, the cell cache a reader-writer lock. No thread holds both.
#include "server/serve_command.h"

#include <stdio.h>
#include <stdlib.h>

#include "cube/fact_loader.h"
#include "host/complain.h"
#include "host/console_report.h"
#include "host/exit_code.h"
#include "host/host.h"
#include "host/host_thread.h"
#include "host/waiting.h"
#include "kivsdu/settings.h"
#include "server/connection.h"
#include "server/service.h"
#include "server/worker.h"
#include "storage/cell_files.h"

namespace cellhost {
namespace {

constexpr uint32_t kWorkers = 4;
constexpr uint32_t kStopLimitMs = 5 * 1000;  // longer than Service::goodbyeMs
constexpr int32_t kBetweenWakesMs = 20;
constexpr int32_t kForEver = -1;

bool EndConnections(Connection* connections, const char* pipe) {
  const TimeLimit limit(kStopLimitMs);
  for (uint32_t at = 0; at < kConnections; ++at) {
    // The wake-up may reach another connection, which needs one as well.
    while (!connections[at].EndsWithin(kBetweenWakesMs)) {
      if (limit.passed()) {
        return Complain("a client does not read its answer, and is cut off with the server's end");
      }
      WakeAccept(pipe);
    }
  }
  return true;
}

bool StartWorkers(Service* service, HostThread* workers) {
  for (uint32_t at = 0; at < kWorkers; ++at) {
    if (!workers[at].Start(RunWorker, service)) return false;
  }
  return true;
}

bool StartConnections(Service* service, const char* pipe, Connection* connections) {
  for (uint32_t at = 0; at < kConnections; ++at) {
    if (!connections[at].Start(service, pipe, at == 0)) return false;
  }
  return true;
}

void PrintServing(const ServeOptions& options, LockDesign locks, Service* service) {
  uint32_t cells = 0;
  service->cells.Count(&cells);
  Heading("Serving");
  Item("Facts", "%s, %s rows in %s cells", options.facts.c_str(), Grouped(service->rows).text,
       Grouped(cells).text);
  Item("Pipe", "%s, for %u clients at a time", options.pipe.c_str(), kConnections);
  Item("Segment", "%s, for %u of them at a time", service->segment.name(), KIV_SEGMENT_CHUNKS);
  Item("Workers", "%u", kWorkers);
  Item("Spinlocks", "%s", NameOf(locks));
  Item("Failover mode", "%s", KivSdIsFailoverMode() != 0 ? "on" : "off");
  Item("To end it", "cellhost send --pipe %s STOP", options.pipe.c_str());
  fflush(stdout);  // for a reader at the other end of a pipe
}

void PrintFiles(const ServeOptions& options, const CellFiles& files) {
  const Replayed& replayed = files.replayed();
  Heading("Files");
  Item("Folder", "%s", options.data.c_str());
  Item("Cells", "%u blocks", files.pageCount());
  Item("Journal", "%s%s, %s skipped, %u bytes dropped", Grouped(replayed.carriedOut).text,
       kCarriedOutAgain.data(), Grouped(replayed.passedOver).text, replayed.droppedBytes);
  fflush(stdout);  // for a reader that reads it as soon as it can connect
}

void PrintServed(const Service& service) {
  Heading("Served");
  Item("Clients", "%u, %u of them lost", service.clients.load(std::memory_order_relaxed),
       service.lost.load(std::memory_order_relaxed));
  Item("Queries", "%s", Grouped(service.queries.load(std::memory_order_relaxed)).text);
  Item("Cells put", "%s", Grouped(service.puts.load(std::memory_order_relaxed)).text);
  Item("Lease guard", "asked %s times",
       Grouped(Host().leaseChecks.load(std::memory_order_relaxed)).text);
}

// Ends the workers that were started, after they have answered the requests in the ring.
void EndWorkers(Service* service, HostThread* workers) {
  for (uint32_t at = 0; at < kWorkers; ++at) service->ring.EndOne();
  for (uint32_t at = 0; at < kWorkers; ++at) workers[at].EndsWithin(kForEver);
}

// Ends all threads, even if only some of them were started. Returns false if a connection still
// runs. Waits first for the end of a write pause: PUTs that wait for it are still stored, and only
// then does the clients' time limit start.
bool EndAll(Service* service, const char* pipe, Connection* connections, HostThread* workers) {
  service->Stop();
  if (service->files != nullptr) service->files->AwaitPauseEnd();
  const bool ended = EndConnections(connections, pipe);
  EndWorkers(service, workers);
  return ended;
}

// The last steps, when no thread changes cells any more.
bool Conclude(const Service& service, const Cube& cube) {
  PrintServed(service);
  if (service.failed.load(std::memory_order_relaxed)) return false;
  return service.files == nullptr || service.files->WriteBack(cube);
}

// Ends the process without freeing anything, because a thread that cannot be ended still uses it.
[[noreturn]] void Abandon(int exitCode) {
  fflush(stdout);
  _Exit(exitCode);
}

int Serve(const ServeOptions& options, LockDesign locks, const Cube& cube, Service* service) {
  const char* pipe = options.pipe.c_str();
  // Ended and destroyed in reverse order.
  HostThread workers[kWorkers];
  Connection connections[kConnections];
  const bool started =
      StartWorkers(service, workers) && StartConnections(service, pipe, connections);
  if (started) PrintServing(options, locks, service);
  const bool stopped = started && service->AwaitStop();
  const bool ended = EndAll(service, pipe, connections, workers);
  const int exitCode = stopped && Conclude(*service, cube) ? kExitDone : kExitFailed;
  if (!ended) Abandon(exitCode);
  return exitCode;
}

// Loads the cube from the facts, and its cells from the files if the folder has cells.
bool LoadCells(const ServeOptions& options, CellFiles* files, Cube* cube, LoadResult* load) {
  const FactParts parts = files->HasCells() ? FactParts::kNames : FactParts::kAll;
  if (!LoadFacts(options.facts.c_str(), parts, cube, load)) return false;
  if (options.data.empty()) return true;
  if (!files->Load(cube)) return false;
  PrintFiles(options, *files);
  return true;
}

}  // namespace

int ServeCommand(const ServeOptions& options, LockDesign locks) {
  Cube cube;
  LoadResult load;
  CellFiles files;
  const bool inFiles = !options.data.empty();
  if (inFiles && !files.Open(options.data)) return kExitFailed;
  if (!LoadCells(options, &files, &cube, &load)) return kExitFailed;
  Service service(&cube, load.rows, inFiles ? &files : nullptr);
  return service.Create() ? Serve(options, locks, cube, &service) : kExitFailed;
}

}  // namespace cellhost
