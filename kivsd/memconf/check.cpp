#include "memconf/check.h"

#include <algorithm>
#include <cctype>

#include "memconf/reading.h"
#include "memconf/words.h"
#include "memsys/configuration_words.h"
#include "output.h"
#include "text.h"

namespace kivsd {
namespace {

constexpr uint64_t kOneTebibyte = uint64_t{1} << 40;  // what a number too large for its unit counts
constexpr size_t kLongestComment = 4095;              // characters that one read skips

bool IsSeparator(char character) { return character == ' ' || character == '\t'; }

// ---- The text of the lines ----

class LineChecks {
 public:
  explicit LineChecks(std::vector<Finding>* findings) : findings_(findings) {}

  void Check(const std::string& line, size_t number) {
    if (!sawReturn_ && line.find('\r') != std::string::npos) {
      sawReturn_ = true;
      Add(number,
          "lines end in carriage return and line feed. Linux takes the carriage return for a part "
          "of the line's last word. Save the file with Unix line ends; Windows reads them too.");
    }
    const size_t mark = line.find('#');
    if (mark == std::string::npos) return;
    if (mark > 0 && !IsSeparator(line[mark - 1])) {
      Add(number, "the text directly before # belongs to the comment. Put a space before #.");
    }
    if (line.find_last_not_of("\r\n") - mark > kLongestComment) {
      Add(number,
          "the comment is too long: from its 4096th character on it is read as keywords. "
          "Break it into several lines.");
    }
  }

 private:
  void Add(size_t line, const char* text) { findings_->push_back({line, text}); }

  std::vector<Finding>* findings_;
  bool sawReturn_ = false;
};

void CheckLines(const std::string& text, std::vector<Finding>* findings) {
  LineChecks checks(findings);
  size_t number = 0;
  for (const std::string& line : LinesOf(text)) checks.Check(line, ++number);
}

// ---- Keywords and values ----

std::string Quoted(const std::string& word) {
  std::string text = "'";
  for (const char letter : word) {
    if (letter == '\r') {
      text += "\\r";
    } else {
      text += letter;
    }
  }
  return text + "'";
}

std::string UnknownKeyword(const std::string& word) {
  const std::string start = Quoted(word) + " is not a keyword and is skipped.";
  if (word.ends_with('\r')) return start + " A carriage return ends it.";
  if (std::isdigit(static_cast<unsigned char>(word[0])) != 0) {
    return start + " A keyword takes one value.";
  }
  const Keyword* similar = SimilarKeyword(word);
  return similar == nullptr ? start : start + " Did you mean '" + similar->name + "'?";
}

bool EndsInLetter(const std::string& word) {
  return !word.empty() && std::isalpha(static_cast<unsigned char>(word.back())) != 0;
}

std::string BadValue(const Keyword& keyword, const std::string& word) {
  const std::string start =
      Quoted(word) + " is not a value of " + keyword.name + ", which keeps its value.";
  if (keyword.kind == KeywordKind::kDigit) return start + " Write one digit.";
  if (FindKeyword(word) != nullptr) {
    return start + " The value is missing, and this keyword has no effect.";
  }
  if (word.size() > 2 && kiv::LowerCase(word.back()) == 'b' && EndsInLetter(word)) {
    const std::string shorter = word.substr(0, word.size() - 1);
    if (EndsInLetter(shorter)) return start + " Write " + shorter + ".";
  }
  return start + " Write a number, or a number above 0 directly followed by K, M or G.";
}

// Whether the number was too large for its unit. 1024G itself means that much.
bool IsOversized(uint64_t value, const std::string& word) {
  return value == kOneTebibyte && EndsInLetter(word) && word != "1024G" && word != "1024g";
}

// What a value that was accepted does other than it seems to.
void CheckValue(const Entry& entry, std::vector<Finding>* findings) {
  uint64_t value = 0;
  if (!kiv::ScanSize(entry.word.c_str(), &value)) return;
  const auto add = [&](const std::string& text) {
    findings->push_back({entry.line, entry.word + ": " + text});
  };
  const std::string name = entry.keyword->name;
  if (entry.word[0] == '-') add("a negative number wraps around to a very large one.");
  if (entry.keyword->kind == KeywordKind::kCount && EndsInLetter(entry.word)) {
    add(name + " is a count. With the unit it is " + std::to_string(value) + ".");
  }
  if (IsOversized(value, entry.word))
    add("the number is too large for its unit, and counts 1024G.");
  const int64_t stored = entry.keyword->get(entry.settings);
  if (static_cast<uint64_t>(stored) != value) {
    add(name + " keeps the low 32 bits: " + entry.asRead + ".");
  }
}

bool IsFillByte(const Keyword& keyword) { return keyword.kind == KeywordKind::kDigit; }

// Reads the words as keywords and values, each pair with the library's reader alone.
class Grammar {
 public:
  Grammar(const std::vector<Word>& words, Examination* result) : words_(words), result_(result) {}

  void Read() {
    while (at_ < words_.size()) ReadKeyword();
  }

 private:
  void Add(const Word& word, const std::string& text) {
    result_->findings.push_back({word.line, text});
  }

  void ReadKeyword() {
    const Word& word = words_[at_++];
    const Keyword* keyword = FindKeyword(word.text);
    if (keyword == nullptr) {
      Add(word, UnknownKeyword(word.text));
    } else if (!TakesValue(*keyword)) {
      Accept(word, *keyword, "", ReadSettings(word.text).settings);
    } else if (at_ == words_.size()) {
      Add(word, std::string(keyword->name) + " has no value and has no effect.");
    } else {
      ReadValue(word, *keyword, words_[at_++]);
    }
  }

  void ReadValue(const Word& word, const Keyword& keyword, const Word& value) {
    const Reading reading = ReadSettings(word.text + " " + value.text);
    if (!reading.messages.empty()) {
      Add(value, BadValue(keyword, value.text));
    } else {
      Accept(word, keyword, value.text, reading.settings);
    }
  }

  void Accept(const Word& word, const Keyword& keyword, const std::string& value,
              const kiv::MemorySettings& settings) {
    NoteEarlier(word, keyword);
    const Entry entry = {word.line, &keyword, value, ValueText(keyword, settings), settings};
    result_->entries.push_back(entry);
    if (IsFillByte(keyword)) {
      Add(word, std::string(keyword.name) + " is read, but nothing uses it.");
    } else {
      CheckValue(entry, &result_->findings);
    }
  }

  // The last one of two equal keywords wins.
  void NoteEarlier(const Word& word, const Keyword& keyword) {
    for (const Entry& entry : result_->entries) {
      if (entry.keyword != &keyword || IsFillByte(keyword)) continue;
      Add(word, std::string(keyword.name) + " stands on line " + std::to_string(entry.line) +
                    " already. The last one counts.");
      return;
    }
  }

  const std::vector<Word>& words_;
  Examination* result_;
  size_t at_ = 0;
};

// ---- The settings together ----

// The line of the last entry of a keyword; 0 if the file does not have it.
size_t LineOf(const Examination& result, const std::string& name) {
  size_t line = 0;
  for (const Entry& entry : result.entries) {
    if (name == entry.keyword->name) line = entry.line;
  }
  return line;
}

void CheckRange(const Keyword& keyword, const kiv::MemorySettings& read, Examination* result) {
  const size_t line = LineOf(*result, keyword.name);
  if (line == 0 || !TakesValue(keyword) || keyword.get(read) == keyword.get(result->settings))
    return;
  const bool raised = keyword.get(read) < keyword.get(result->settings);
  result->findings.push_back({line, std::string(keyword.name) + " is outside its range and is " +
                                        (raised ? "raised" : "lowered") + " from " +
                                        ValueText(keyword, read) + " to " +
                                        ValueText(keyword, result->settings) + "."});
}

void CheckHeaps(Examination* result) {
  const kiv::MemorySettings& settings = result->settings;
  const uint64_t first = FirstHeapBytes(settings);
  const int heaps = settings.threadHeaps + kiv::kSpareHeaps;
  const size_t line = LineOf(*result, "memorylimit");
  if (settings.memoryControl && settings.limitBytes != 0 && settings.limitBytes < first) {
    result->findings.push_back(
        {line, "memorylimit is too small: a start makes " + std::to_string(heaps) + " heaps of " +
                   SizeText(settings.heapBytes) + ", which need " + SizeText(first) +
                   ". The start fails and stays in plain mode. Raise memorylimit, or lower "
                   "numthreadheaps or heapsize."});
  }
  const size_t budgetLine = LineOf(*result, "numheaps");
  if (first != 0 && budgetLine != 0 && settings.heapBudget < heaps) {
    result->findings.push_back({budgetLine, "numheaps is below the " + std::to_string(heaps) +
                                                " heaps that a start makes, and has no effect."});
  }
}

void CheckTogether(const kiv::MemorySettings& read, Examination* result) {
  const kiv::MemorySettings& settings = result->settings;
  const auto add = [&](const char* keyword, const char* text) {
    result->findings.push_back({LineOf(*result, keyword), text});
  };
  if (settings.limitRejected) {
    add("memorylimit",
        "memorylimit is below 10M and is rejected. The manager stays in plain mode: no limit, no "
        "thread heaps, no short heaps.");
    return;
  }
  if (settings.threadHeaps == 0) {
    add("numthreadheaps",
        "numthreadheaps 0 selects plain mode: every block comes from the C runtime, and the other "
        "settings are not used.");
    return;
  }
  for (const Keyword& keyword : Keywords()) CheckRange(keyword, read, result);
  if (settings.limitBytes != 0 && !settings.memoryControl) {
    add("nomemorycontrol", "nomemorycontrol after memorylimit turns the limit off.");
  }
  if (LineOf(*result, "nomemorycontrol") != 0 && settings.memoryControl) {
    add("nomemorycontrol", "nomemorycontrol has no effect, because memorylimit follows.");
  }
  if (settings.largestBlockBytes == 0) {
    add("maxblock", "maxblock 0 makes no heaps: every request becomes a large block.");
  }
  CheckHeaps(result);
}

}  // namespace

Examination Examine(const std::string& text) {
  Examination result;
  CheckLines(text, &result.findings);
  Grammar(WordsOf(text), &result).Read();
  const Reading read = ReadSettings(text);
  const Reading validated = Validated(read.settings);
  result.settings = validated.settings;
  result.messages = read.messages + validated.messages;
  CheckTogether(read.settings, &result);
  std::ranges::stable_sort(result.findings, {}, &Finding::line);
  return result;
}

}  // namespace kivsd
