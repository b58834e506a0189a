// Reads arbitrary bytes as a path, as a pattern of file names and as a name: what the operations on
// texts write must fit, and follow from the text.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "kivsdu/path.h"
#include "kivsdu/status.h"
#include "os/lnx/file_pattern.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;
using kiv::os::FilePattern;

std::string TextOf(Input* input) {
  std::string text;
  while (const uint8_t byte = input->Byte()) text.push_back(static_cast<char>(byte));
  return text;
}

// Each buffer has exactly the size that the operation may use, and a sanitizer watches its end.
void CheckParts(const std::string& path) {
  std::vector<char> extension(path.size() + 1);
  KivSdFileGetExtension(path.c_str(), 1, extension.data());
  const size_t dot = path.rfind('.');
  Check(extension.data() == (dot == std::string::npos ? "" : path.substr(dot)), "the extension");
  std::vector<char> parent(path.size() + 3);  // "./" for a path without a folder
  KivSdFileGetParentPath(path.c_str(), parent.data());
  const size_t slash = path.rfind('/');
  Check(slash == std::string::npos || parent.data() == path.substr(0, slash + 1), "the parent");
}

void CheckCanonical(const std::string& path, uint32_t sizeBytes) {
  std::vector<char> whole(sizeBytes);
  const uint32_t status =
      KivSdFileGetCanonicalPath(path.c_str(), static_cast<int32_t>(sizeBytes), whole.data());
  if (status != KIV_ST_OK) return Check(status == KIV_ST_FILE_LENGTH, "the status of a path");
  const size_t length = strnlen(whole.data(), sizeBytes);
  Check(length < sizeBytes, "the end of a path");
  if (length == 0 || whole[0] != '/') return;
  std::vector<char> again(sizeBytes);
  Check(KivSdFileGetCanonicalPath(whole.data(), static_cast<int32_t>(sizeBytes), again.data()) ==
            KIV_ST_OK,
        "a canonical path can be made canonical");
  Check(std::strcmp(whole.data(), again.data()) == 0, "a canonical path stays as it is");
}

void CheckPattern(const std::string& text, const std::string& name) {
  FilePattern pattern;
  if (!pattern.Set(text.c_str())) return Check(text.size() > FilePattern::kMost, "long patterns");
  const bool matches = pattern.Matches(name.c_str());
  if (text == "*" || text == "*.*") Check(matches, "a star matches every name");
  if (FilePattern::HasWildcards(text.c_str()) || name.size() > FilePattern::kMost) return;
  if (text == name) Check(matches, "a name matches itself");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  Input input(bytes, count);
  const uint32_t sizeBytes = 1u + (input.Byte() | (input.Byte() % 5u) << 8);
  const std::string first = TextOf(&input);
  const std::string second = TextOf(&input);
  CheckParts(first);
  CheckCanonical(first, sizeBytes);
  CheckPattern(first, second);
  CheckPattern(first, first);
  return 0;
}
