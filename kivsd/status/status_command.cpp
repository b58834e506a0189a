#include "status/status_command.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "exit_code.h"
#include "json.h"
#include "kivsdu/status.h"
#include "kivsdu/status_text.h"

namespace kivsd {
namespace {

constexpr size_t kIndent = 12;
constexpr size_t kNameColumn = 9;
constexpr size_t kMostInFull = 3;  // of more matches only number, name and meaning are printed

// Results of operations that are not statuses of the table. Each operation's header says which it
// returns.
struct Exception {
  uint32_t number;
  const char* name;
  const char* text;
};
constexpr Exception kExceptions[] = {
    {1, "1",
     "Not a status of the table. Some operations return 1 for a yes, or for a failure without a "
     "context: the search results of filesearch.h, predicates, compare-and-swap."},
    {0xFFFFFFFF, "KIV_CHUNK_LATCHED",
     "A chunk of a segment is blocked by an earlier code. Other operations return the number as "
     "KIV_WRITE_PAUSE_SHUTDOWN if the host shuts down during a pause, and as \"memory control is "
     "off\" for queries of memory in use."},
    {0xFFFFFFFE, "KIV_CHUNK_OVERRUN",
     "More bytes were read from a chunk of a segment than its half holds. The chunk is blocked "
     "until the segment is set up again."},
    {0xFFFFFFFD, "KIV_CHUNK_NOT_GIVEN",
     "The half of a chunk was not passed to the peer. The chunk is blocked until the segment is "
     "set up again."},
};

std::string Upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char letter) {
    return static_cast<char>(std::toupper(letter));
  });
  return text;
}

// A decimal number, or a hexadecimal one after 0x. Logs also show a status as a negative number.
std::optional<uint32_t> NumberOf(const std::string& word) {
  const bool isHexadecimal = word.starts_with("0x") || word.starts_with("0X");
  const char* begin = word.data() + (isHexadecimal ? 2 : 0);
  const char* end = word.data() + word.size();
  int64_t number = 0;
  const auto [rest, error] = std::from_chars(begin, end, number, isHexadecimal ? 16 : 10);
  if (error != std::errc() || rest != end || begin == end) return std::nullopt;
  if (number < INT32_MIN || number > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(number);
}

const Exception* ExceptionOf(std::optional<uint32_t> number) {
  for (const Exception& exception : kExceptions) {
    if (number == exception.number) return &exception;
  }
  return nullptr;
}

// An exact name wins over names of which it is a part.
std::vector<const KivStatusInfo*> Matches(const std::string& word) {
  if (const std::optional<uint32_t> number = NumberOf(word)) {
    const KivStatusInfo* info = KivStatusFind(*number);
    if (info == nullptr) return {};
    return {info};
  }
  const std::string part = Upper(word);
  for (const std::string& name : {part, "KIV_ST_" + part}) {
    if (const KivStatusInfo* info = KivStatusFindName(name.c_str())) return {info};
  }
  std::vector<const KivStatusInfo*> found;
  for (size_t i = 0; i < KivStatusCount(); ++i) {
    const KivStatusInfo* info = KivStatusAt(i);
    if (std::string(info->name).find(part) != std::string::npos) found.push_back(info);
  }
  return found;
}

Json OperationsOf(const KivStatusInfo& info) {
  Json operations = Json::array();
  for (size_t i = 0; i < info.operationCount; ++i) operations.push_back(info.operations[i]);
  return operations;
}

Json JsonOf(const KivStatusInfo& info) {
  return {{"status", info.status},
          {"name", info.name},
          {"meaning", info.text},
          {"advice", info.advice},
          {"operations", OperationsOf(info)}};
}

std::string OperationText(const KivStatusInfo& info) {
  if (info.status == KIV_ST_OK) return "every operation that succeeds";
  if (info.operationCount == 0) return "no operation";
  std::string text;
  for (size_t i = 0; i < info.operationCount; ++i) {
    if (i != 0) text += ", ";
    text += info.operations[i];
  }
  return text;
}

void PrintInFull(const KivStatusInfo& info) {
  std::printf("%u  %s\n", info.status, info.name);
  std::printf("%s", Wrapped("  meaning", kIndent, info.text).c_str());
  std::printf("%s", Wrapped("  to do", kIndent, info.advice).c_str());
  std::printf("%s", Wrapped("  from", kIndent, OperationText(info)).c_str());
}

void PrintShort(const KivStatusInfo& info) {
  std::printf("%s", Wrapped(std::to_string(info.status), kNameColumn, info.name).c_str());
  std::printf("%s", Wrapped("", kNameColumn + 2, info.text).c_str());
}

void PrintText(const std::vector<const KivStatusInfo*>& found) {
  const bool inFull = found.size() <= kMostInFull;
  for (const KivStatusInfo* info : found) {
    if (inFull) {
      if (info != found.front()) std::printf("\n");
      PrintInFull(*info);
    } else {
      PrintShort(*info);
    }
  }
}

int PrintException(const Exception& exception, Format format) {
  if (format == Format::kJson) {
    PrintJson(Json::array(
        {{{"status", exception.number}, {"name", exception.name}, {"meaning", exception.text}}}));
  } else {
    std::printf("%u  %s\n%s", exception.number, exception.name,
                Wrapped("  meaning", kIndent, exception.text).c_str());
  }
  return kExitDone;
}

int PrintNothingFound(const StatusOptions& options) {
  if (options.format == Format::kJson) PrintJson(Json::array());
  std::fprintf(stderr,
               "kivsd: no status matches '%s'. 'kivsd status' without an argument lists all %s.\n",
               options.word.c_str(), std::to_string(KivStatusCount()).c_str());
  return kExitFound;
}

}  // namespace

int StatusCommand(const StatusOptions& options) {
  const std::vector<const KivStatusInfo*> found = Matches(options.word);
  if (found.empty()) {
    const Exception* exception = ExceptionOf(NumberOf(options.word));
    return exception != nullptr ? PrintException(*exception, options.format)
                                : PrintNothingFound(options);
  }
  if (options.format == Format::kText) {
    PrintText(found);
    return kExitDone;
  }
  Json all = Json::array();
  for (const KivStatusInfo* info : found) all.push_back(JsonOf(*info));
  PrintJson(all);
  return kExitDone;
}

}  // namespace kivsd
