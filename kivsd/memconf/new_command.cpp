#include <cstdio>
#include <fstream>
#include <iostream>

#include "exit_code.h"
#include "failure.h"
#include "json.h"
#include "memconf/check.h"
#include "memconf/memconf_command.h"
#include "memconf/report.h"

namespace kivsd {
namespace {

constexpr char kHeading[] =
    "# Memory configuration of the host. A host reads it at its start, from the folder\n"
    "# bin of the directory that MOLTAPATH names. 'kivsd memconf check' checks it.\n";

struct Question {
  const char* keyword;
  const char* text;
};
// What most hosts set. Everything else has an option.
constexpr Question kQuestions[] = {
    {"memorylimit", "Limit on the memory of the manager, such as 2G"},
    {"numthreadheaps", "Slots for threads, about the number of processors, 4 to 64"},
    {"heapsize", "Size of a thread heap, 512K to 16M"},
    {"maxblock", "Largest request that a heap serves, up to 256K"},
};

// Questions go to standard error: standard output may be the file.
void AskForValues(std::map<std::string, std::string>* values) {
  std::fprintf(stderr, "An empty answer keeps the default.\n");
  for (const Question& question : kQuestions) {
    if (values->contains(question.keyword)) continue;
    std::fprintf(stderr, "%s: ", question.text);
    std::string answer;
    if (!std::getline(std::cin, answer)) break;
    if (!answer.empty()) (*values)[question.keyword] = answer;
  }
}

// Every keyword with a comment; those without a value are commented out with their default.
std::string ContentOf(const std::map<std::string, std::string>& values,
                      const kiv::MemorySettings& defaults) {
  std::string text = kHeading;
  for (const Keyword& keyword : Keywords()) {
    const auto given = values.find(keyword.name);
    if (keyword.kind == KeywordKind::kDigit) continue;
    text += std::string("\n# ") + keyword.about + "\n";
    if (given != values.end()) {
      text += keyword.name + (TakesValue(keyword) ? " " + given->second : "") + "\n";
    } else if (TakesValue(keyword)) {
      text += std::string("# ") + keyword.name + ": " + ValueText(keyword, defaults) + "\n";
    } else {
      text += std::string("# ") + keyword.name + "\n";
    }
  }
  return text;
}

void WriteFile(const MemconfNewOptions& options, const std::string& content) {
  if (!options.overwrite && std::ifstream(options.file).good()) {
    throw Failure(options.file + " exists; choose another name, or add --overwrite");
  }
  std::ofstream file(options.file, std::ios::binary | std::ios::trunc);
  file << content << std::flush;
  if (!file) throw Failure(options.file + " cannot be written; check the path and your access");
}

void Deliver(const MemconfNewOptions& options, const std::string& content) {
  if (options.format == Format::kJson) {
    PrintJson({{"file", options.file}, {"content", content}});
  } else if (options.file.empty()) {
    std::printf("%s", content.c_str());
  } else {
    std::printf("wrote %s\n", options.file.c_str());
  }
}

}  // namespace

int MemconfNewCommand(MemconfNewOptions options) {
  if (options.ask) AskForValues(&options.values);
  const std::string content = ContentOf(options.values, Examine("").settings);
  const Examination result = Examine(content);
  if (!result.findings.empty()) {
    std::fprintf(stderr,
                 "kivsd: nothing is written, because these values do not do what they seem "
                 "to:\n");
    PrintFindings(result, stderr);
    return kExitFound;
  }
  if (!options.file.empty()) WriteFile(options, content);
  Deliver(options, content);
  return kExitDone;
}

}  // namespace kivsd
