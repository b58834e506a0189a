#include "lnx/owners.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "platform.h"

namespace kivsd {
namespace {

namespace fs = std::filesystem;

// Adds the file if it lies in the folder. A removed file has " (deleted)" behind its path.
void AddFile(const std::string& path, const std::string& prefix, std::set<std::string>* files) {
  if (path.starts_with(prefix)) files->insert(path.substr(prefix.size()));
}

void AddMapped(const fs::path& process, const std::string& prefix, std::set<std::string>* files) {
  std::ifstream maps(process / "maps");
  for (std::string line; std::getline(maps, line);) {
    const size_t path = line.find('/');
    if (path != std::string::npos) AddFile(line.substr(path), prefix, files);
  }
}

void AddOpen(const fs::path& process, const std::string& prefix, std::set<std::string>* files) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(process / "fd", error)) {
    std::error_code gone;
    AddFile(fs::read_symlink(entry.path(), gone).string(), prefix, files);
  }
}

std::string ProgramOf(const fs::path& process) {
  std::string name;
  std::ifstream file(process / "comm");
  std::getline(file, name);
  return name;
}

}  // namespace

std::map<std::string, std::vector<Owner>> OwnersIn(const std::string& folder) {
  std::map<std::string, std::vector<Owner>> owners;
  std::vector<uint32_t> processes = ProcessIds();
  std::ranges::sort(processes);
  for (const uint32_t processId : processes) {
    if (processId == ProcessId()) continue;
    const fs::path process = fs::path("/proc") / std::to_string(processId);
    std::set<std::string> files;
    AddMapped(process, folder + "/", &files);
    AddOpen(process, folder + "/", &files);
    for (const std::string& file : files) {
      owners[file].push_back({processId, ProgramOf(process)});
    }
  }
  return owners;
}

}  // namespace kivsd
