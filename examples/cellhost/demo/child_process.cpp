// Child processes; see child_process.h.
#include "demo/child_process.h"

#include <algorithm>

#include "host/complain.h"
#include "host/platform.h"
#include "host/thread_record.h"
#include "kivsdu/thread.h"

namespace cellhost {
namespace {

constexpr char kSourceOutput[] = "cellhost/child_process output";
constexpr char kSourceArguments[] = "cellhost/child_process arguments";
constexpr uint32_t kPathBytes = 4096;
constexpr uint32_t kPieceBytes = 16 * 1024;
constexpr uint32_t kEndAfterKillMs = 5 * 1000;

// Appends an argument with its terminator.
bool AppendArgument(std::string_view argument, HostArray<char>* arguments) {
  const uint32_t before = arguments->count();
  if (!arguments->Resize(before + static_cast<uint32_t>(argument.size()) + 1, '\0')) return false;
  std::copy(argument.begin(), argument.end(), arguments->data() + before);
  return true;
}

// The arguments as StartProcess takes them, without the empty ones.
bool MakeArguments(std::initializer_list<std::string_view> given, HostArray<char>* arguments) {
  char program[kPathBytes];
  if (!OwnProgram(program, sizeof program)) {
    return Complain("the path of this program is too long; move it to a shorter one");
  }
  if (!AppendArgument(program, arguments)) return false;
  for (const std::string_view argument : given) {
    if (!argument.empty() && !AppendArgument(argument, arguments)) return false;
  }
  return arguments->Append('\0');
}

}  // namespace

ChildProcess::ChildProcess() : output_(kSourceOutput) {}

ChildProcess::~ChildProcess() {
  if (process_ == nullptr) return;
  if (alive()) Kill();
  CloseProcess(process_);
  CloseOutput(readEnd_);
}

bool ChildProcess::Start(std::initializer_list<std::string_view> arguments) {
  HostArray<char> made(kSourceArguments);
  if (!MakeArguments(arguments, &made)) return false;
  const StartedProcess started = StartProcess(made.data());
  process_ = started.process;
  readEnd_ = started.output;
  id_ = started.id;
  if (process_ != nullptr) return true;
  return Complain("could not start '%s': OS error %u", made.data(), started.osError);
}

bool ChildProcess::Pump() {
  for (;;) {
    const uint32_t before = output_.count();
    if (!output_.Resize(before + kPieceBytes, 0)) return false;
    const uint32_t readBytes = ReadOutput(readEnd_, output_.data() + before, kPieceBytes);
    output_.Resize(before + readBytes, 0);
    if (readBytes == 0) return true;
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
