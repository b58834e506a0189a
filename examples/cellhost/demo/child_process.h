// A child process: another process of this program, and its output.
#ifndef CELLHOST_DEMO_CHILD_PROCESS_H
#define CELLHOST_DEMO_CHILD_PROCESS_H

#include <stdint.h>

#include <initializer_list>
#include <string_view>

#include "host/host_memory.h"
#include "host/waiting.h"
#include "kivsdu/api.h"

namespace cellhost {

// The same thread must use all objects; see StartProcess.
class ChildProcess {
 public:
  ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();  // ends a process that still runs

  // Starts `cellhost` with these arguments, without the empty ones. Returns false on failure, after
  // reporting it.
  bool Start(std::initializer_list<std::string_view> arguments);

  // Reads the output since the last call. Call it regularly: a process whose pipe is full stops.
  // Returns false without memory.
  bool Pump();

  bool alive() const;

  // Pumps until the process has ended. If it exceeds the limit, kills it and returns false.
  bool AwaitEnd(const TimeLimit& limit);

  bool Kill();

  uint32_t id() const { return id_; }
  uint32_t exitCode() const;  // only after the process has ended by itself
  std::string_view output() const { return {output_.data(), output_.count()}; }

 private:
  KivHandle process_ = nullptr;
  KivHandle readEnd_ = nullptr;  // of the pipe into which the process prints
  uint32_t id_ = 0;
  HostArray<char> output_;
};

// Removes the first line from an output; *line receives it without the line end. Returns false if
// there is no complete line.
bool TakeLine(std::string_view* output, std::string_view* line);

}  // namespace cellhost

#endif
