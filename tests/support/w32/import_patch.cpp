#include "support/import_patch.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>

#include "support/last_error.h"

namespace kiv::test {
namespace {

constexpr char kDll[] = "kivsdu.dll";

// Null stands for the program.
unsigned char* BaseOf(const char* module) {
  return reinterpret_cast<unsigned char*>(GetModuleHandleA(module));
}

// The module that the library is a part of.
const char* LibraryModule() { return BaseOf(kDll) != nullptr ? kDll : nullptr; }

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
  VisitImports(LibraryModule(), [&](const char*, const char* name, void** slot) {
    if (std::string(name) == function) found = slot;
  });
  return found;
}

// The name of a slot's import.
std::string NameOf(const void* slot) {
  std::string found;
  VisitImports(LibraryModule(), [&](const char*, const char* name, void** each) {
    if (each == slot) found = name;
  });
  return found;
}

void WriteSlot(void** slot, void* value) {
  DWORD protection = 0;
  VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
  *slot = value;
  VirtualProtect(slot, sizeof *slot, protection, &protection);
}

// Some functions have two names in the import libraries, so that a DLL of several parts may have two
// slots for one import.
void WriteSlots(const std::string& function, void* value) {
  VisitImports(LibraryModule(), [&](const char*, const char* name, void** slot) {
    if (name == function) WriteSlot(slot, value);
  });
}

// The universal C runtime does not export printf. Its headers and import libraries call this
// function, which has other parameters.
constexpr char kUniversalPrintf[] = "__stdio_common_vfprintf";

using Printf = int (*)(const char* format, const char* text);

void* printfReplacement;

int CallPrintfReplacement(uint64_t /*options*/, void* /*file*/, const char* format,
                          void* /*locale*/, va_list arguments) {
  return reinterpret_cast<Printf>(printfReplacement)(format, va_arg(arguments, const char*));
}

}  // namespace

void SetErrors(int errnoValue, uint32_t lastError) {
  errno = errnoValue;
  SetLastError(lastError);
}

ImportPatch::ImportPatch(const char* function, void* replacement)
    : place_(FindSlot(function)), original_(nullptr) {
  if (place_ == nullptr && std::string(function) == "printf") {
    place_ = FindSlot(kUniversalPrintf);
    printfReplacement = replacement;
    replacement = reinterpret_cast<void*>(&CallPrintfReplacement);
  }
  EXPECT_NE(place_, nullptr) << "the library does not import " << function;
  if (place_ == nullptr) return;
  original_ = *static_cast<void**>(place_);
  WriteSlots(NameOf(place_), replacement);
}

ImportPatch::~ImportPatch() {
  if (place_ != nullptr) WriteSlots(NameOf(place_), original_);
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

std::vector<Import> ImportsOfLibrary() { return ImportsOf(LibraryModule()); }

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
