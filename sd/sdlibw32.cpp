// Load and unload: registers the library with the server's utility library.
//
// Both functions run under the loader's lock and only pass on a description. Thread attach and
// detach notices need no work and have no function.
#include <cstdint>

#include "kivsdu_version.h"
#include "kivutlu/kivutlu.h"
#include "library.h"
#include "text.h"

namespace kiv {
namespace {

// The utility library may write into this area; nothing here reads it. It is static because the
// utility library may keep a pointer to it while the module is loaded.
unsigned char registrationOutput[AD_MODULE_OUTPUT_BYTES];

}  // namespace

void LibraryLoaded(void* module) {
  AdModuleDescriptor descriptor = {};
  descriptor.version = KIVSDU_VERSION_WORD;
  CopyText(descriptor.banner, AD_MODULE_BANNER_MAX, KIVSDU_BANNER);
  // The result is ignored: the server starts even if the registration is refused.
  static_cast<void>(adInitMod(module, &descriptor, registrationOutput));
}

void LibraryUnloaded(void* module) { adTermModLib(module); }

}  // namespace kiv
