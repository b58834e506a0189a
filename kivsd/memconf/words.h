// The words of a memory configuration file and their lines.
#ifndef KIVSD_MEMCONF_WORDS_H
#define KIVSD_MEMCONF_WORDS_H

#include <cstddef>
#include <string>
#include <vector>

namespace kivsd {

struct Word {
  std::string text;
  size_t line;  // from 1
};

// Reads a whole file, without changing its line ends.
std::string ReadFile(const std::string& path);

// The lines of a text, each with its line feed.
std::vector<std::string> LinesOf(const std::string& text);

// The words of the text, as the library's reader takes them from a file.
std::vector<Word> WordsOf(const std::string& text);

}  // namespace kivsd

#endif
