#include "support/lnx/answered_calls.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>

namespace kiv::test {

struct AnswerEntry {
  const std::string call;
  const Answering answering;
  AnswerEntry* const older;
  AnswerEntry* olderEnded = nullptr;
  std::atomic<uint32_t> answered{0};
};

namespace {

std::atomic<AnswerEntry*> newest{nullptr};
std::atomic<AnswerEntry*> ended{nullptr};
std::atomic<CallFault> callFault{nullptr};
std::atomic<int64_t> blocksTaken{0};

// An answer that this thread runs. The calls that it makes itself are not for it again.
struct Running {
  const AnswerEntry* answer;
  const Running* outer;
};
thread_local const Running* running = nullptr;

bool IsRunning(const AnswerEntry* answer) {
  const Running* each = running;
  while (each != nullptr && each->answer != answer) each = each->outer;
  return each != nullptr;
}

// Whether the next call is one of `count` calls after the first `passed` ones.
class Turn {
 public:
  Turn(uint32_t passed, uint32_t count) : passed_(passed), count_(count) {}

  bool Comes() {
    const uint32_t call = calls_.fetch_add(1);
    return call >= passed_ && call - passed_ < count_;
  }

 private:
  const uint32_t passed_;
  const uint32_t count_;
  std::atomic<uint32_t> calls_{0};
};

}  // namespace

AnsweredCall::AnsweredCall(std::string call, Answering answering)
    : entry_(new AnswerEntry{std::move(call), std::move(answering), newest}) {
  newest = entry_;
}

// Another thread may still be looking at the entry. It therefore stays, and neither side waits: the
// other thread may be suspended, or belong to the parent of a forked process.
AnsweredCall::~AnsweredCall() {
  newest = entry_->older;
  entry_->olderEnded = ended;
  while (!ended.compare_exchange_weak(entry_->olderEnded, entry_)) {
  }
}

uint32_t AnsweredCall::answered() const { return entry_->answered; }

Answering Refuse(int error, uint32_t passed, uint32_t refused) {
  const auto turn = std::make_shared<Turn>(passed, refused);
  return [=](const Words&, Word*) {
    if (!turn->Comes()) return Answer::kPass;
    errno = error;
    return Answer::kRefuse;
  };
}

Answering Give(Word word, uint32_t passed, uint32_t given, int error) {
  const auto turn = std::make_shared<Turn>(passed, given);
  return [=](const Words&, Word* answer) {
    if (!turn->Comes()) return Answer::kPass;
    *answer = word;
    errno = error;
    return Answer::kGive;
  };
}

Answering Precede(std::function<void()> action, uint32_t passed) {
  const auto turn = std::make_shared<Turn>(passed, 1);
  return [turn, action = std::move(action)](const Words&, Word*) {
    if (turn->Comes()) action();
    return Answer::kPass;
  };
}

void SetCallFault(CallFault fault) { callFault = fault; }

int64_t BlocksTaken() { return blocksTaken; }

void NoteBlock() { ++blocksTaken; }

bool IsFault(const char* call) {
  const CallFault fault = callFault;
  return fault != nullptr && fault(call);
}

Answer AnswerTo(const char* call, const Words& arguments, Word* word) {
  for (AnswerEntry* each = newest; each != nullptr; each = each->older) {
    if (each->call != call || IsRunning(each)) continue;
    const int error = errno;
    const Running self = {each, running};
    running = &self;
    const Answer answer = each->answering(arguments, word);
    running = self.outer;
    if (answer != Answer::kPass) {
      ++each->answered;
      return answer;
    }
    errno = error;
  }
  return Answer::kPass;
}

}  // namespace kiv::test
