// Replaces calls that the library makes to the system. Tests use it to make calls fail and to check
// their arguments.
//
// On Windows a patch finds the function's slot in the import table of the loaded kivsdu.dll by the
// function's name, whatever DLL exports it. A program that links the library's objects has one import
// table for the library and the test: the patch then replaces the test's own calls, too.
//
// Natively the linker redirects the primitives of the library's platform seam to stand-ins with the
// same names, arguments and results (lnx/seam_import.h), so that one test serves both platforms.
//
// The destructor takes the patch back. Only one thread may patch at a time. Patches of one function
// nest.
#ifndef KIV_TESTS_IMPORT_PATCH_H
#define KIV_TESTS_IMPORT_PATCH_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kiv::test {

// Redirects one import to another function, which must have the original's signature. Fails the test
// if the library has no such import.
class ImportPatch {
 public:
  ImportPatch(const char* function, void* replacement);
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  void* original() const { return original_; }

 private:
  void* place_;  // where the patched pointer is, or null
  void* original_;
};

// The behaviour of a scripted call.
struct Script {
  uintptr_t result = 0;             // returned in place of the original's result
  uint32_t error = 0;               // stored as the last error and as errno
  uint32_t passFirst = 0;           // calls that reach the original before the script begins
  uint32_t failCount = UINT32_MAX;  // calls that follow the script; later ones reach the original
};

// Makes an import follow a script, and records the arguments of its calls. For
// functions of at most 12 integer or pointer arguments with an integer, pointer or no result.
class ScriptedImport {
 public:
  static constexpr size_t kMaxArguments = 12;
  using Arguments = std::array<uintptr_t, kMaxArguments>;

  ScriptedImport(const char* function, const Script& script);
  ~ScriptedImport();
  ScriptedImport(const ScriptedImport&) = delete;
  ScriptedImport& operator=(const ScriptedImport&) = delete;

  // The arguments of every call so far, oldest call first. Arguments beyond the function's own are
  // meaningless, and so is the high half of a 32-bit argument.
  const std::vector<Arguments>& calls() const;

 private:
  size_t slot_;
  ImportPatch patch_;
};

// ---- The loaded DLL (Windows only) ----

struct Import {
  std::string dll;  // in lower case
  std::string function;
};

// All imports of a loaded module, or of the module that the library is a part of.
std::vector<Import> ImportsOf(const char* module);
std::vector<Import> ImportsOfLibrary();

// The names of all exports of a loaded module.
std::vector<std::string> ExportsOf(const char* module);

}  // namespace kiv::test

#endif
