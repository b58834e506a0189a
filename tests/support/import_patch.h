// Replaces calls that the loaded kivsdu.dll makes to the system, to see what it does when they
// fail and what it asks of them.
//
// A patch finds the function's slot in the DLL's import table by name, whatever DLL it comes
// from, and puts the slot back when it is destroyed. One thread patches at a time; patches of one
// function nest.
#ifndef KIV_TESTS_IMPORT_PATCH_H
#define KIV_TESTS_IMPORT_PATCH_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kiv::test {

// Sends one import of kivsdu.dll to another function while it lives. The replacement has the
// original's signature. Fails the test when the DLL has no such import.
class ImportPatch {
 public:
  ImportPatch(const char* function, void* replacement);
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  void* original() const { return original_; }

 private:
  void** slot_;
  void* original_;
};

// What a scripted call does.
struct Script {
  uintptr_t result = 0;    // what the call returns instead
  uint32_t error = 0;      // what GetLastError and errno then say
  uint32_t passFirst = 0;  // calls that go through to the original before the script begins
  uint32_t failCount = UINT32_MAX;  // calls that follow the script; those after go through again
};

// Makes an import of kivsdu.dll follow a script while it lives, and keeps what it was asked. For
// functions of at most 12 integer or pointer arguments with an integer, pointer or no result.
class ScriptedImport {
 public:
  static constexpr size_t kMaxArguments = 12;
  using Arguments = std::array<uintptr_t, kMaxArguments>;

  ScriptedImport(const char* function, const Script& script);
  ~ScriptedImport();
  ScriptedImport(const ScriptedImport&) = delete;
  ScriptedImport& operator=(const ScriptedImport&) = delete;

  // The arguments of every call so far, oldest first. Only as many mean something as the function
  // has, and 32-bit ones only in their low half.
  const std::vector<Arguments>& calls() const;

 private:
  size_t slot_;
  ImportPatch patch_;
};

struct Import {
  std::string dll;  // in lower case
  std::string function;
};

// Everything that a loaded module imports.
std::vector<Import> ImportsOf(const char* module);

// The names that a loaded module exports.
std::vector<std::string> ExportsOf(const char* module);

}  // namespace kiv::test

#endif
