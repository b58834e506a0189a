// Loads the modules that a module needs from the folder in which it lies.
//
// The loader itself searches a module's own folder only if the module's maker has asked for that. It
// does accept a needed module that is loaded already, by name. So the needed modules that lie in the
// folder are loaded first, each after those that it needs itself.
#ifndef KIV_OS_LNX_MODULE_NEEDS_H
#define KIV_OS_LNX_MODULE_NEEDS_H

#include <cstddef>

namespace kiv::os {

// Holds the needed modules loaded. Once the module itself is loaded, it holds them, and the
// destructor only drops these additional references.
class FolderNeeds {
 public:
  // A path without a folder has no needs: the loader decides where such a module lies.
  explicit FolderNeeds(const char* path);
  ~FolderNeeds();
  FolderNeeds(const FolderNeeds&) = delete;
  FolderNeeds& operator=(const FolderNeeds&) = delete;

 private:
  static constexpr size_t kMost = 256;  // the loader searches for those beyond
  static constexpr int kDeepest = 32;

  void LoadNeedsOf(const char* path, int depth);
  void LoadNeed(const char* path, const char* name, int depth);

  size_t count_ = 0;
  void* loaded_[kMost];
};

}  // namespace kiv::os

#endif
