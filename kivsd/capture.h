// Collects what the library prints on standard output.
#ifndef KIVSD_CAPTURE_H
#define KIVSD_CAPTURE_H

#include <cstdio>
#include <string>

namespace kivsd {

// Redirects standard output into a file of its own until it ends. One at a time, in one thread.
class Capture {
 public:
  Capture();
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  // Ends the redirection and returns the text.
  std::string End();

 private:
  std::FILE* file_;
  int output_;  // a copy of standard output; -1 after the end
};

}  // namespace kivsd

#endif
