// Answers calls that the library makes of the C library, or of its own functions, in place of these.
// Tests use it to make one call fail, to give it a rare result, or to do something just before it.
//
// The linker sends the calls to wrappers (--wrap): system_calls.cpp lists the calls of the C library,
// library_calls.cpp the library's own functions. Link the program with kiv_answered_calls.
#ifndef KIV_TESTS_LNX_ANSWERED_CALLS_H
#define KIV_TESTS_LNX_ANSWERED_CALLS_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace kiv::test {

using Word = long;  // NOLINT(google-runtime-int): the width of a register

// The arguments of a call; those that the called function does not have are meaningless.
using Words = std::array<Word, 7>;

enum class Answer {
  kPass,    // the call reaches the function
  kRefuse,  // the call fails with errno
  kGive,    // the call returns the word
};

// Decides about a call. May set errno and the word.
using Answering = std::function<Answer(const Words& arguments, Word* word)>;

// What AnsweredCall has given to the wrappers.
struct AnswerEntry;

// Answers a call by any thread while the object lives. Objects of one call nest: the newest decides.
class AnsweredCall {
 public:
  AnsweredCall(std::string call, Answering answering);
  ~AnsweredCall();
  AnsweredCall(const AnsweredCall&) = delete;
  AnsweredCall& operator=(const AnsweredCall&) = delete;

  // How many calls were not passed on.
  uint32_t answered() const;

 private:
  AnswerEntry* const entry_;
};

// Refuses a call with an error: after the first `passed` calls, the next `refused` ones.
Answering Refuse(int error, uint32_t passed = 0, uint32_t refused = UINT32_MAX);

// As above with a result in place of a failure; errno is set too.
Answering Give(Word word, uint32_t passed = 0, uint32_t given = UINT32_MAX, int error = 0);

// Does something before the next call after the first `passed` ones, which is passed on.
Answering Precede(std::function<void()> action, uint32_t passed = 0);

// ---- For the wrappers of the calls ----

// Decides about a call of the C library before the tests' answers do. Null, as at first, decides
// nothing.
using CallFault = bool (*)(const char* call);
void SetCallFault(CallFault fault);

// How many blocks the wrapped functions have taken from the C library. Whoever frees one does not
// tell.
int64_t BlocksTaken();

bool IsFault(const char* call);
Answer AnswerTo(const char* call, const Words& arguments, Word* word);
void NoteBlock();

}  // namespace kiv::test

#endif
