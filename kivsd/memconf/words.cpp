#include "memconf/words.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "failure.h"
#include "memsys/configuration_words.h"
#include "scratch_file.h"

namespace kivsd {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// No word and no comment goes beyond a line, so a line can be read alone.
void AppendWords(const std::string& lineText, size_t line, std::vector<Word>* words) {
  const ScratchFile scratch(lineText);
  const File file(scratch.Open());
  kiv::TokenReader reader(file.get());
  while (const char* word = reader.Next()) words->push_back({word, line});
}

}  // namespace

std::string ReadFile(const std::string& path) {
  const File file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    throw Failure(path + " cannot be opened: " + std::strerror(errno) +
                  ". Check the path and your access to it.");
  }
  std::string text;
  char buffer[4096];
  while (const size_t count = std::fread(buffer, 1, sizeof buffer, file.get())) {
    text.append(buffer, count);
  }
  if (std::ferror(file.get()) != 0) {
    throw Failure(path + " cannot be read: " + std::strerror(errno) + ". Is it a file?");
  }
  return text;
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = text.find('\n', begin);
    const size_t next = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(begin, next - begin));
    begin = next;
  }
  return lines;
}

std::vector<Word> WordsOf(const std::string& text) {
  std::vector<Word> words;
  size_t line = 0;
  for (const std::string& lineText : LinesOf(text)) AppendWords(lineText, ++line, &words);
  return words;
}

}  // namespace kivsd
