// Comparing answers; see answer_check.h.
#include "cube/answer_check.h"

#include <stdio.h>

#include <algorithm>

#include "host/console_report.h"

namespace cellhost {
namespace {

constexpr char kSource[] = "cellhost/answer_check";
constexpr std::string_view kNothing = "(nothing)";

std::string_view FileName(std::string_view path) {
  const size_t separator = path.find_last_of("/\\");
  return separator == path.npos ? path : path.substr(separator + 1);
}

void ShowLine(uint32_t line, std::string_view expected, std::string_view got) {
  printf("  line %u\n    expected  %.*s\n    got       %.*s\n", line + 1,
         static_cast<int>(expected.size()), expected.data(), static_cast<int>(got.size()),
         got.data());
}

}  // namespace

AnswerCheck::AnswerCheck() : differences_(kSource) {}

bool AnswerCheck::Read(const char* path, const char* option) {
  path_ = path;
  return expected_.Read(path, option);
}

std::string_view AnswerCheck::Expected(uint32_t line) const {
  return line < expected_.count() ? expected_.line(line) : kNothing;
}

bool AnswerCheck::Compare(std::string_view answer) {
  const uint32_t line = compared_++;
  if (line < expected_.count() && answer == expected_.line(line)) return true;
  std::string_view kept;
  return texts_.Push(answer, &kept) && differences_.Append({.line = line, .got = kept});
}

void AnswerCheck::Show(const Difference& difference) const {
  ShowLine(difference.line, Expected(difference.line), difference.got);
}

void AnswerCheck::ShowMissing() const {
  for (uint32_t line = compared_; line < expected_.count(); ++line) {
    ShowLine(line, expected_.line(line), kNothing);
  }
}

uint32_t AnswerCheck::lines() const { return std::max(compared_, expected_.count()); }

void AnswerCheck::ShowDifferences(const char* title) const {
  if (agreeing() == lines()) return;
  Heading(title);
  for (uint32_t at = 0; at < differences_.count(); ++at) Show(differences_[at]);
  ShowMissing();
}

bool AnswerCheck::Conclude() const {
  ShowDifferences("Differences");
  const std::string_view name = FileName(path_);
  printf("\n%u of %u answers agree with %.*s\n", agreeing(), lines(), static_cast<int>(name.size()),
         name.data());
  return agreeing() == lines();
}

}  // namespace cellhost
