#include "support/import_patch.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <utility>

namespace kiv::test {
namespace {

constexpr char kLibrary[] = "kivsdu.dll";
constexpr size_t kSlots = 8;  // most scripted imports at a time

unsigned char* BaseOf(const char* module) {
  return reinterpret_cast<unsigned char*>(GetModuleHandleA(module));
}

template <typename T>
T* At(unsigned char* base, size_t offset) {
  return reinterpret_cast<T*>(base + offset);
}

IMAGE_DATA_DIRECTORY DirectoryOf(unsigned char* base, size_t index) {
  const auto* dos = At<IMAGE_DOS_HEADER>(base, 0);
  const auto* nt = At<IMAGE_NT_HEADERS64>(base, static_cast<size_t>(dos->e_lfanew));
  return nt->OptionalHeader.DataDirectory[index];
}

// Calls visit(dll, function, slot) for every import by name.
template <typename Visitor>
void VisitImports(const char* module, Visitor visit) {
  unsigned char* base = BaseOf(module);
  if (base == nullptr) return;
  const IMAGE_DATA_DIRECTORY directory = DirectoryOf(base, IMAGE_DIRECTORY_ENTRY_IMPORT);
  auto* dll = At<IMAGE_IMPORT_DESCRIPTOR>(base, directory.VirtualAddress);
  for (; dll->Name != 0; ++dll) {
    const auto* name = At<IMAGE_THUNK_DATA64>(base, dll->OriginalFirstThunk);
    auto* slot = At<void*>(base, dll->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      visit(At<const char>(base, dll->Name),
            At<const char>(base, name->u1.AddressOfData + offsetof(IMAGE_IMPORT_BY_NAME, Name)),
            slot);
    }
  }
}

void** FindSlot(const char* function) {
  void** found = nullptr;
  VisitImports(kLibrary, [&](const char*, const char* name, void** slot) {
    if (std::string(name) == function) found = slot;
  });
  return found;
}

void WriteSlot(void** slot, void* value) {
  DWORD protection = 0;
  VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
  *slot = value;
  VirtualProtect(slot, sizeof *slot, protection, &protection);
}

struct ScriptState {
  bool used = false;
  Script script;
  void* original = nullptr;
  std::vector<ScriptedImport::Arguments> calls;
};
ScriptState states[kSlots];

using Word = uintptr_t;
using Forwarded = Word (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

// Takes the most arguments that any patched function has, and passes all of them on. On this
// platform a function ignores surplus arguments.
template <size_t kSlot>
Word Scripted(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j,
              Word k, Word l) {
  ScriptState& state = states[kSlot];
  const size_t number = state.calls.size();
  state.calls.push_back({a, b, c, d, e, f, g, h, i, j, k, l});
  const size_t first = state.script.passFirst;
  if (number >= first && number - first < state.script.failCount) {
    errno = static_cast<int>(state.script.error);
    SetLastError(state.script.error);
    return state.script.result;
  }
  return reinterpret_cast<Forwarded>(state.original)(a, b, c, d, e, f, g, h, i, j, k, l);
}

template <size_t... kIndexes>
void* EntryOf(size_t slot, std::index_sequence<kIndexes...>) {
  void* const entries[] = {reinterpret_cast<void*>(&Scripted<kIndexes>)...};
  return entries[slot];
}

size_t TakeState(const Script& script) {
  for (size_t slot = 0; slot < kSlots; ++slot) {
    if (states[slot].used) continue;
    states[slot] = {true, script, nullptr, {}};
    states[slot].calls.reserve(64);  // no allocation in a call: the patched function may be malloc
    return slot;
  }
  ADD_FAILURE() << "more than " << kSlots << " scripted imports at a time";
  return 0;
}

}  // namespace

ImportPatch::ImportPatch(const char* function, void* replacement)
    : slot_(FindSlot(function)), original_(slot_ != nullptr ? *slot_ : nullptr) {
  EXPECT_NE(slot_, nullptr) << kLibrary << " does not import " << function;
  if (slot_ != nullptr) WriteSlot(slot_, replacement);
}

ImportPatch::~ImportPatch() {
  if (slot_ != nullptr) WriteSlot(slot_, original_);
}

ScriptedImport::ScriptedImport(const char* function, const Script& script)
    : slot_(TakeState(script)),
      patch_(function, EntryOf(slot_, std::make_index_sequence<kSlots>())) {
  states[slot_].original = patch_.original();
}

ScriptedImport::~ScriptedImport() { states[slot_].used = false; }

const std::vector<ScriptedImport::Arguments>& ScriptedImport::calls() const {
  return states[slot_].calls;
}

std::vector<Import> ImportsOf(const char* module) {
  std::vector<Import> imports;
  VisitImports(module, [&](const char* dll, const char* function, void**) {
    std::string lower = dll;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    imports.push_back({lower, function});
  });
  return imports;
}

std::vector<std::string> ExportsOf(const char* module) {
  std::vector<std::string> names;
  unsigned char* base = BaseOf(module);
  if (base == nullptr) return names;
  const IMAGE_DATA_DIRECTORY directory = DirectoryOf(base, IMAGE_DIRECTORY_ENTRY_EXPORT);
  const auto* table = At<IMAGE_EXPORT_DIRECTORY>(base, directory.VirtualAddress);
  const auto* offsets = At<DWORD>(base, table->AddressOfNames);
  for (DWORD i = 0; i < table->NumberOfNames; ++i) {
    names.emplace_back(At<const char>(base, offsets[i]));
  }
  return names;
}

}  // namespace kiv::test
