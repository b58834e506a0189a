// The shared object's constructor and destructor, called by the loader.
#include <dlfcn.h>
#include <link.h>

#include "library.h"

using namespace kiv;

namespace {

// What dlopen returns for this library: the loader's record of it.
void* ThisModule() {
  Dl_info names = {};
  void* record = nullptr;
  static_cast<void>(
      dladdr1(reinterpret_cast<void*>(&ThisModule), &names, &record, RTLD_DL_LINKMAP));
  return record;
}

[[gnu::constructor]] void Loaded() { LibraryLoaded(ThisModule()); }

[[gnu::destructor]] void Unloaded() { LibraryUnloaded(ThisModule()); }

}  // namespace
