// Lines of a text file; see text_lines.h.
#include "host/text_lines.h"

#include "host/input_file.h"

namespace cellhost {
namespace {

constexpr char kSourceText[] = "cellhost/text_lines text";
constexpr char kSourceLines[] = "cellhost/text_lines lines";
constexpr uint32_t kPieceBytes = 16 * 1024;

}  // namespace

TextLines::TextLines() : text_(kSourceText), lines_(kSourceLines) {}

bool TextLines::ReadText(const char* path, const char* option) {
  InputFile file;
  if (!file.Open(path, option)) return false;
  uint32_t lengthBytes = 0;
  do {
    const uint32_t before = text_.count();
    if (!text_.Resize(before + kPieceBytes, 0) ||
        !file.Read(text_.data() + before, kPieceBytes, &lengthBytes) ||
        !text_.Resize(before + lengthBytes, 0)) {
      return false;
    }
  } while (lengthBytes != 0);
  return true;
}

bool TextLines::Read(const char* path, const char* option) {
  if (!ReadText(path, option)) return false;
  std::string_view left(text_.data(), text_.count());
  while (!left.empty()) {
    const size_t length = left.find('\n');
    std::string_view line = left.substr(0, length);
    left.remove_prefix(length == left.npos ? left.size() : length + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!lines_.Append(line)) return false;
  }
  return true;
}

}  // namespace cellhost
