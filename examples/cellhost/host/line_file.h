// A file of queries or orders, one a line. Read checks all of them before the first is used. Blank
// lines and lines that start with # are skipped.
#ifndef CELLHOST_HOST_LINE_FILE_H
#define CELLHOST_HOST_LINE_FILE_H

#include <stdint.h>

#include <string_view>

#include "host/complain.h"
#include "host/host_memory.h"
#include "host/text_lines.h"
#include "host/text_room.h"
#include "host/text_stack.h"
#include "host/words.h"

namespace cellhost {

// Owns all texts of its items.
template <class Item>
class LineFile {
 public:
  // Parses a line into an item; see ParseQuery.
  using Parse = bool (*)(std::string_view line, TextRoom* room, Item* item, Fault* fault);

  explicit LineFile(Parse parse) : parse_(parse), items_("cellhost/line_file") {}

  // Reads and checks all items; see InputFile::Open for the arguments. Returns false at the first
  // bad item, after reporting it with its line.
  bool Read(const char* path, const char* option) {
    if (!lines_.Read(path, option)) return false;
    for (uint32_t at = 0; at < lines_.count(); ++at) {
      const std::string_view line = Trimmed(lines_.line(at));
      if (line.empty() || line.starts_with('#')) continue;
      Item item;
      Fault fault;
      if (!parse_(line, &words_, &item, &fault)) return ComplainAt(path, at + 1, "%s", fault.text);
      if (!items_.Append(item)) return false;
    }
    return true;
  }

  uint32_t count() const { return items_.count(); }
  const Item& item(uint32_t number) const { return items_[number]; }

 private:
  Parse parse_;
  TextLines lines_;
  TextStack words_;
  HostArray<Item> items_;
};

}  // namespace cellhost

#endif
