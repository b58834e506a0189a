// Child processes; see child_process.h.
#include "demo/child_process.h"

#include <string.h>

#include <algorithm>

#include "host/complain.h"
#include "host/own_process.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"
#include "kivsdu/thread.h"

namespace cellhost {
namespace {

constexpr char kSourceOutput[] = "cellhost/child_process output";
constexpr char kSourceCommandLine[] = "cellhost/child_process command line";
constexpr uint32_t kPathBytes = 4096;
constexpr uint32_t kPipeBytes = 64 * 1024;
constexpr uint32_t kEndAfterKillMs = 5 * 1000;

bool Append(HostArray<char>* text, size_t count, char c) {
  return text->Resize(text->count() + static_cast<uint32_t>(count), c);
}

// Appends an argument in quotes, by the C runtime's rules for parsing a command line: in front of a
// quote, each backslash is doubled, and one more escapes the quote; elsewhere a backslash is plain.
bool AppendArgument(std::string_view argument, HostArray<char>* commandLine) {
  if (commandLine->count() != 0 && !Append(commandLine, 1, ' ')) return false;
  if (!Append(commandLine, 1, '"')) return false;
  size_t backslashes = 0;  // number of backslashes directly before `c`
  for (const char c : argument) {
    if (c == '"' && !Append(commandLine, backslashes + 1, '\\')) return false;
    if (!Append(commandLine, 1, c)) return false;
    backslashes = c == '\\' ? backslashes + 1 : 0;
  }
  return Append(commandLine, backslashes, '\\') && Append(commandLine, 1, '"');
}

}  // namespace

ChildProcess::ChildProcess() : output_(kSourceOutput) {}

ChildProcess::~ChildProcess() {
  if (process_ != nullptr) {
    if (alive()) Kill();
    CloseProcess(process_);
  }
  KivSdContext* ctx = ThisContext();
  if (readEnd_ != nullptr) Succeeded(ctx, KivSdPipeClose(ctx, &readEnd_), "close a pipe");
}

bool ChildProcess::MakeCommandLine(std::initializer_list<std::string_view> arguments,
                                   HostArray<char>* commandLine) {
  char program[kPathBytes];
  if (!OwnProgram(program, sizeof program)) {
    return Complain("the path of this program is too long; move it to a shorter one");
  }
  if (!AppendArgument({program, strlen(program)}, commandLine)) return false;
  for (const std::string_view argument : arguments) {
    if (!argument.empty() && !AppendArgument(argument, commandLine)) return false;
  }
  return Append(commandLine, 1, '\0');
}

bool ChildProcess::Start(std::initializer_list<std::string_view> arguments) {
  HostArray<char> commandLine(kSourceCommandLine);
  if (!MakeCommandLine(arguments, &commandLine)) return false;
  KivSdContext* ctx = ThisContext();
  KivHandle writeEnd = nullptr;
  if (!Succeeded(ctx, KivSdPipeCreate(ctx, &readEnd_, &writeEnd, kPipeBytes), "make a pipe")) {
    return false;
  }
  const StartedProcess started = StartProcess(commandLine.data(), writeEnd);
  // The child has its own handle. While this one is open, the pipe would never end.
  Succeeded(ctx, KivSdPipeClose(ctx, &writeEnd), "close a pipe");
  process_ = started.process;
  id_ = started.id;
  if (process_ != nullptr) return true;
  return Complain("could not start '%s': OS error %u", commandLine.data(), started.osError);
}

bool ChildProcess::Pump() {
  KivSdContext* ctx = ThisContext();
  for (;;) {
    uint32_t availableBytes = 0;
    // The pipe ends with the process, which AwaitEnd notices.
    if (KivSdNamedPipePeek(ctx, &readEnd_, 0, nullptr, nullptr, &availableBytes, nullptr) != 0 ||
        availableBytes == 0) {
      return true;
    }
    const uint32_t before = output_.count();
    uint32_t readBytes = 0;
    if (!output_.Resize(before + availableBytes, 0)) return false;
    const uint32_t status =
        KivSdPipeRead(ctx, &readEnd_, output_.data() + before, availableBytes, &readBytes);
    if (!output_.Resize(before + readBytes, 0)) return false;
    if (status != 0) return Succeeded(ctx, status, "read what a process has printed");
  }
}

bool ChildProcess::alive() const { return KivSdProcessCheckAlive(ThisContext(), process_) == 0; }

bool ChildProcess::AwaitEnd(const TimeLimit& limit) {
  for (Pause pause; alive(); pause.Take()) {
    if (!Pump()) return false;
    if (!limit.passed()) continue;
    Complain("process %u takes too long and is killed; run its command by itself to see why", id_);
    Kill();
    return false;
  }
  return Pump();
}

bool ChildProcess::Kill() {
  KivSdContext* ctx = ThisContext();
  if (!Succeeded(ctx, KivSdProcessDelete(ctx, process_), "kill a process")) return false;
  const TimeLimit limit(kEndAfterKillMs);
  for (Pause pause; alive(); pause.Take()) {
    if (limit.passed()) return Complain("process %u does not end; end it by hand", id_);
  }
  return true;
}

uint32_t ChildProcess::exitCode() const { return ExitCodeOf(process_); }

bool TakeLine(std::string_view* output, std::string_view* line) {
  const size_t length = output->find('\n');
  if (length == output->npos) return false;
  *line = output->substr(0, length);
  output->remove_prefix(length + 1);
  if (line->ends_with('\r')) line->remove_suffix(1);
  return true;
}

}  // namespace cellhost
