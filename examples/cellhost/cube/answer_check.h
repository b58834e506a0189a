// Compares answers with a file of expected answers, line by line. Keeps the differences and shows
// them together at the end.
#ifndef CELLHOST_CUBE_ANSWER_CHECK_H
#define CELLHOST_CUBE_ANSWER_CHECK_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"
#include "host/text_lines.h"
#include "host/text_stack.h"

namespace cellhost {

class AnswerCheck {
 public:
  AnswerCheck();

  // Reads the expected answers; see InputFile::Open for the arguments. Returns false on failure,
  // after reporting it.
  bool Read(const char* path, const char* option);

  // Compares the next answer, and copies it if it differs. Returns false without memory.
  bool Compare(std::string_view answer);

  // Call after the last answer. Prints the differences, and in one line how many answers agree.
  // Returns whether all agree and no expected answer is missing.
  bool Conclude() const;

  // The parts of Conclude.
  uint32_t agreeing() const { return compared_ - differences_.count(); }
  uint32_t lines() const;  // number of expected answers, or of given answers if that is higher
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
