// Load and unload: the library registers itself with the server's utility library.
//
// Both run under the loader's lock. They only hand over a description; thread attach and detach
// notices need nothing, and so get no function.
#include <cstdint>

#include "kivsdu_version.h"
#include "kivutlu/kivutlu.h"
#include "library.h"
#include "text.h"

namespace kiv {
namespace {

// The utility library may fill this in; nothing here reads it. Static, so that what the utility
// library keeps of it stays valid while the module is loaded.
unsigned char registrationOutput[AD_MODULE_OUTPUT_BYTES];

}  // namespace

void LibraryLoaded(void* module) {
  AdModuleDescriptor descriptor = {};
  descriptor.version = KIVSDU_VERSION_WORD;
  CopyText(descriptor.banner, AD_MODULE_BANNER_MAX, KIVSDU_BANNER);
  // A refused registration does not keep the server from starting: the result is not looked at.
  static_cast<void>(adInitMod(module, &descriptor, registrationOutput));
}

void LibraryUnloaded(void* module) { adTermModLib(module); }

}  // namespace kiv
