// The words of a configuration file: what stands between spaces, tabs and line feeds. "#" starts a
// comment.
#ifndef KIV_MEMSYS_CONFIGURATION_TOKENS_H
#define KIV_MEMSYS_CONFIGURATION_TOKENS_H

#include <cstdio>

#include "memsys/growing_text.h"

namespace kiv {

class TokenReader {
 public:
  // The file stays the caller's.
  explicit TokenReader(std::FILE* file) : file_(file) {}

  // The next word, of any length, good until the next call; null at the end of the file. A word
  // that there is no memory for ends the file too: what is left out is more than that word then,
  // but none of its pieces is taken for another.
  const char* Next();

 private:
  bool ReadWord();

  std::FILE* file_;
  GrowingText word_;
  bool ended_ = false;
};

}  // namespace kiv

#endif
