#include "platform.h"

#include <link.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>

namespace kivsd {

int DescriptorOf(std::FILE* file) { return fileno(file); }
int CopyDescriptor(int descriptor) { return dup(descriptor); }
void ReplaceDescriptor(int descriptor, int by) { static_cast<void>(dup2(by, descriptor)); }
void CloseDescriptor(int descriptor) { close(descriptor); }
const char* ScratchMode() { return "w+b"; }
bool IsTerminal(std::FILE* file) { return isatty(fileno(file)) != 0; }
unsigned long ProcessId() { return static_cast<unsigned long>(getpid()); }
std::string TemporaryFolder() { return std::filesystem::temp_directory_path().string() + "/"; }
void EnableEscapes(std::FILE*) {}

std::vector<uint32_t> ProcessIds() {
  std::vector<uint32_t> ids;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    uint32_t id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    if (error == std::errc() && *end == '\0') ids.push_back(id);
  }
  return ids;
}

// The handle is the loader's record of the module.
std::string ModulePath(void* handle) { return static_cast<const link_map*>(handle)->l_name; }

}  // namespace kivsd
