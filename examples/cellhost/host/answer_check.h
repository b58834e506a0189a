// Compares the server's answers with a file of expected ones, line by line, and keeps those that
// differ so that they can be shown together.
#ifndef CELLHOST_HOST_ANSWER_CHECK_H
#define CELLHOST_HOST_ANSWER_CHECK_H

#include <stdint.h>

#include <string_view>

#include "cube/text_stack.h"
#include "host/host_memory.h"
#include "host/text_lines.h"

namespace cellhost {

class AnswerCheck {
 public:
  AnswerCheck();

  // Reads the expected answers; see InputFile::Open for the arguments. False on failure, which has
  // then been told.
  bool Read(const char* path, const char* option);

  // Takes the next answer; it may go away afterwards. False when there is no memory.
  bool Compare(std::string_view answer);

  // After the last answer: shows what differs, and says in one line how many agree. Whether all
  // do, and none was expected beyond them.
  bool Conclude() const;

  // The parts of it.
  uint32_t agreeing() const { return compared_ - differences_.count(); }
  uint32_t lines() const;  // expected ones and those beyond them
  void ShowDifferences(const char* title) const;

 private:
  struct Difference {
    uint32_t line;  // from 0
    std::string_view got;
  };

  std::string_view Expected(uint32_t line) const;
  void Show(const Difference& difference) const;
  void ShowMissing() const;

  const char* path_ = "";
  TextLines expected_;
  uint32_t compared_ = 0;
  TextStack texts_;
  HostArray<Difference> differences_;
};

}  // namespace cellhost

#endif
