#include <cstdio>
#include <string>

#include "exit_code.h"
#include "json.h"
#include "memconf/check.h"
#include "memconf/memconf_command.h"
#include "memconf/report.h"
#include "memconf/words.h"

namespace kivsd {
namespace {

// Plain mode uses no setting, and nothing uses the fill bytes.
std::string InUseText(const Entry& entry, const Examination& result) {
  const bool isUsed =
      result.settings.threadHeaps != 0 && entry.keyword->kind != KeywordKind::kDigit;
  return isUsed ? ValueText(*entry.keyword, result.settings) : "not used";
}

void PrintEntries(const Examination& result) {
  std::printf("%5s  %-26s%-14s%-14s%s\n", "line", "keyword", "value", "as read", "in use");
  for (const Entry& entry : result.entries) {
    std::printf("%5s  %-26s%-14s%-14s%s\n", std::to_string(entry.line).c_str(), entry.keyword->name,
                entry.word.c_str(), entry.asRead.c_str(), InUseText(entry, result).c_str());
  }
}

bool IsInFile(const Examination& result, const Keyword& keyword) {
  for (const Entry& entry : result.entries) {
    if (entry.keyword == &keyword) return true;
  }
  return false;
}

void PrintDefaults(const Examination& result) {
  if (result.settings.threadHeaps == 0) return;
  std::string text;
  for (const Keyword& keyword : Keywords()) {
    if (IsInFile(result, keyword) || !TakesValue(keyword) || keyword.kind == KeywordKind::kDigit) {
      continue;
    }
    if (!text.empty()) text += ", ";
    text += std::string(keyword.name) + " " + ValueText(keyword, result.settings);
  }
  if (!text.empty()) std::printf("\n%s", Wrapped("not in the file:", 2, text + ".").c_str());
}

void PrintText(const std::string& file, const Examination& result) {
  std::printf("%s: %s, %s\n\n", file.c_str(), Counted(result.entries.size(), "keyword").c_str(),
              Counted(result.findings.size(), "finding").c_str());
  if (!result.entries.empty()) PrintEntries(result);
  PrintDefaults(result);
  if (!result.findings.empty()) std::printf("\n");
  PrintFindings(result, stdout);
}

Json JsonOfEntry(const Entry& entry, const Examination& result) {
  return {{"line", entry.line},
          {"keyword", entry.keyword->name},
          {"value", entry.word},
          {"as_read", entry.keyword->get(entry.settings)},
          {"in_use", entry.keyword->get(result.settings)}};
}

Json JsonOf(const std::string& file, const Examination& result) {
  Json entries = Json::array();
  for (const Entry& entry : result.entries) entries.push_back(JsonOfEntry(entry, result));
  Json settings = Json::object();
  for (const Keyword& keyword : Keywords()) settings[keyword.name] = keyword.get(result.settings);
  return {{"file", file},
          {"entries", entries},
          {"findings", JsonOfFindings(result)},
          {"settings", settings},
          {"messages", result.messages}};
}

}  // namespace

void PrintFindings(const Examination& result, std::FILE* stream) {
  for (const Finding& finding : result.findings) {
    const std::string place =
        finding.line != 0 ? "line " + std::to_string(finding.line) + ": " : "file: ";
    std::fprintf(stream, "%s", Wrapped("", 0, place + finding.text).c_str());
  }
}

Json JsonOfFindings(const Examination& result) {
  Json findings = Json::array();
  for (const Finding& finding : result.findings) {
    findings.push_back({{"line", finding.line}, {"text", finding.text}});
  }
  return findings;
}

int MemconfCheckCommand(const MemconfCheckOptions& options) {
  const Examination result = Examine(ReadFile(options.file));
  if (options.format == Format::kJson) {
    PrintJson(JsonOf(options.file, result));
  } else {
    PrintText(options.file, result);
  }
  return result.findings.empty() ? kExitDone : kExitFound;
}

}  // namespace kivsd
