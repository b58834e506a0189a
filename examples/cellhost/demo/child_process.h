// A process of this program that a command starts, with what it prints.
#ifndef CELLHOST_DEMO_CHILD_PROCESS_H
#define CELLHOST_DEMO_CHILD_PROCESS_H

#include <stdint.h>

#include <initializer_list>
#include <string_view>

#include "host/host_memory.h"
#include "host/waiting.h"
#include "kivsdu/api.h"

namespace cellhost {

// One thread at a time, and one thread for all of them: see StartProcess.
class ChildProcess {
 public:
  ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();  // ends a process that still runs

  // Starts `cellhost` with these arguments; empty ones are left out. False on failure, which has
  // then been told.
  bool Start(std::initializer_list<std::string_view> arguments);

  // Takes what the process has printed since, so that its output never fills up. Call it while
  // the process runs. False when there is no memory.
  bool Pump();

  bool alive() const;

  // Pumps until the process has ended. False if it has not within the limit; it is killed then.
  bool AwaitEnd(const TimeLimit& limit);

  bool Kill();

  uint32_t id() const { return id_; }
  uint32_t exitCode() const;  // of a process that has ended by itself
  std::string_view output() const { return {output_.data(), output_.count()}; }

 private:
  bool MakeCommandLine(std::initializer_list<std::string_view> arguments,
                       HostArray<char>* commandLine);

  KivHandle process_ = nullptr;
  KivHandle readEnd_ = nullptr;  // of an anonymous pipe that is the process's output
  uint32_t id_ = 0;
  HostArray<char> output_;
};

// Takes a line off the front of an output, without its line end. False if there is no whole line.
bool TakeLine(std::string_view* output, std::string_view* line);

}  // namespace cellhost

#endif
