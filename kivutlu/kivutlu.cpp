// A small utility library: kivsdu runs with it where the server's own is missing. It stores the
// descriptors that modules register.
//
// Modules call it under the loader's lock, one at a time: the table needs no lock of its own.
#include "kivutlu/kivutlu.h"

static_assert(offsetof(AdModuleDescriptor, callback) == 0, "shared with the server's library");
static_assert(offsetof(AdModuleDescriptor, version) == 8, "shared with the server's library");
static_assert(offsetof(AdModuleDescriptor, zero) == 10, "shared with the server's library");
static_assert(offsetof(AdModuleDescriptor, banner) == 12, "shared with the server's library");

AdModule adModules[AD_MODULES_MAX];

namespace {

// The entry of a module, or null. A null handle finds the first free entry.
AdModule* EntryOf(const void* handle) {
  for (AdModule& entry : adModules) {
    if (entry.handle == handle) return &entry;
  }
  return nullptr;
}

}  // namespace

int32_t adInitMod(void* module, const AdModuleDescriptor* descriptor, void* output) {
  if (module == nullptr || descriptor == nullptr || output == nullptr) return 1;
  AdModule* entry = EntryOf(module);
  if (entry == nullptr) entry = EntryOf(nullptr);
  if (entry == nullptr) return 1;
  entry->descriptor = *descriptor;
  entry->handle = module;
  return 0;
}

void adTermModLib(void* module) {
  if (module == nullptr) return;
  AdModule* entry = EntryOf(module);
  if (entry != nullptr) *entry = AdModule{};
}
