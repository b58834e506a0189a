#include "info/library_info.h"

#include <cstdlib>
#include <cstring>

#include "kivutlu/kivutlu.h"
#include "memsys/configuration.h"
#include "platform.h"

namespace kivsd {
namespace {

constexpr char kModule[] = "kivsdu";

constexpr const char* kVariables[] = {
    "MOLTAPATH",
    "AD_TURN_OFF_NUMA",
    "KIV_DISPLAY_LOCKCONFIG",
    "KIV_SPINLOCK_MAXSPINLOOPS",
    "KIV_SPINLOCK_MAXSPINYIELDS",
    "KIV_SPINLOCK_MAXWAITLOOPS",
    "KIV_RWLOCK_RMAXSPINLOOPS",
    "KIV_RWLOCK_RMAXSPINYIELDS",
    "KIV_RWLOCK_RMAXWAITLOOPS",
    "KIV_RWLOCK_WMAXSPINLOOPS",
    "KIV_RWLOCK_WMAXSPINYIELDS",
    "KIV_RWLOCK_WMAXWAITLOOPS",
};

std::string VersionText(uint16_t version) {
  return std::to_string(version >> 8) + "." + std::to_string(version & 0xFF);
}

}  // namespace

LibraryInfo DescribeLibrary() {
  for (const AdModule& module : adModules) {
    const AdModuleDescriptor& descriptor = module.descriptor;
    if (module.handle == nullptr || std::strstr(descriptor.banner, kModule) == nullptr) continue;
    return {descriptor.banner, VersionText(descriptor.version), ModulePath(module.handle)};
  }
  return {};
}

ConfigurationInfo DescribeConfiguration(const std::string& suffix) {
  kiv::GrowingText name;
  std::FILE* file = kiv::OpenMemoryConfiguration(suffix.c_str(), &name);
  if (file != nullptr) std::fclose(file);
  const char* moltaPath = std::getenv("MOLTAPATH");
  return {moltaPath != nullptr ? moltaPath : "", name.text(), file != nullptr};
}

std::vector<std::pair<std::string, std::string>> SetVariables() {
  std::vector<std::pair<std::string, std::string>> found;
  for (const char* name : kVariables) {
    if (const char* value = std::getenv(name)) found.emplace_back(name, value);
  }
  return found;
}

}  // namespace kivsd
