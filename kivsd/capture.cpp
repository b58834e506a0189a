#include "capture.h"

#include "failure.h"
#include "platform.h"
#include "scratch_file.h"

namespace kivsd {

Capture::Capture() : file_(OpenScratch()) {
  std::fflush(stdout);
  const int standardOutput = DescriptorOf(stdout);
  output_ = CopyDescriptor(standardOutput);
  if (output_ == -1) {
    std::fclose(file_);
    throw Failure("standard output cannot be redirected; run the command with fewer open files");
  }
  ReplaceDescriptor(standardOutput, DescriptorOf(file_));
}

Capture::~Capture() {
  End();
  std::fclose(file_);
}

std::string Capture::End() {
  if (output_ == -1) return {};
  std::fflush(stdout);
  ReplaceDescriptor(DescriptorOf(stdout), output_);
  CloseDescriptor(output_);
  output_ = -1;
  std::rewind(file_);
  std::string text;
  for (int character; (character = std::fgetc(file_)) != EOF;) {
    if (character != '\r') text += static_cast<char>(character);
  }
  return text;
}

}  // namespace kivsd
