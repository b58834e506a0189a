// The demo's part about files: backups while clients change cells; a pause that expires; a server
// that is killed under PUTs and restarted; servers on the backups.
#ifndef CELLHOST_DEMO_DEMO_FILES_H
#define CELLHOST_DEMO_DEMO_FILES_H

#include <stdint.h>

#include <string>

#include "cube/put_order.h"
#include "demo/demo_command.h"
#include "demo/demo_counter.h"
#include "demo/demo_server.h"
#include "host/line_file.h"
#include "host/lock_design.h"

namespace cellhost {

class DemoFiles {
 public:
  // orders: see KillUnderPuts; not copied.
  DemoFiles(const DemoOptions& options, LockDesign locks, const LineFile<PutOrder>& orders)
      : options_(options), locks_(locks), orders_(orders) {}
  DemoFiles(const DemoFiles&) = delete;
  DemoFiles& operator=(const DemoFiles&) = delete;
  ~DemoFiles();  // removes the folder

  // The steps. Each returns false on failure, after reporting it.

  // Chooses a folder for the server's files. The server makes the folder.
  bool ChooseFolder();

  // Makes backups while clients change the cells of the first orders. Kills the server meanwhile
  // and starts another on its files. The caller must carry out the orders afterwards, because their
  // cells now hold other numbers.
  bool KillUnderPuts(DemoServer* killed, DemoServer* next);

  // Makes a backup for CheckLastCopy.
  bool MakeLastBackup(const DemoServer& server);

  // Starts a server on the last backup and compares its answers with those after the changes. Call
  // it when the first server has ended.
  bool CheckLastCopy();

  const std::string& folder() const { return folder_; }

  // Prints the demo's last line about files.
  void PrintOutcome() const;

 private:
  static constexpr uint32_t kCounters = 3;

  bool StartCounters(const DemoServer& server);
  bool AwaitMore() const;
  bool BackUpMeanwhile(PipeClient* control);
  enum class PauseSeen { kYes, kTooLate, kFailed };
  PauseSeen SeePause(PipeClient* control, uint32_t seconds) const;
  bool LetPauseExpire(PipeClient* control) const;
  bool KillNow(DemoServer* server);
  bool CheckRestarted(DemoServer* server);
  bool CheckFirstCopy(const DemoServer& server) const;
  bool BackUp(PipeClient* control, std::string* report) const;
  bool Order(PipeClient* control, const char* order, bool* accepted, std::string* text) const;
  std::string FolderIn(const std::string& report) const;

  const DemoOptions& options_;
  LockDesign locks_;
  const LineFile<PutOrder>& orders_;
  std::string folder_;
  uint32_t counterCount_ = 0;
  DemoCounter counters_[kCounters];
  std::string firstCopy_;
  uint32_t atLeast_[kCounters] = {};  // bounds of the numbers in the first copy's cells
  uint32_t atMost_[kCounters] = {};
  uint32_t putsKept_ = 0;
  std::string lastCopy_;
  uint32_t copiesRight_ = 0;
};

}  // namespace cellhost

#endif
