#include "support/lnx/seam_import.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "support/import_patch.h"

namespace kiv::test {
namespace {

thread_local uint32_t lastError = 0;
thread_local void* originalOfCall = nullptr;
std::atomic<SeamFault> seamFault{nullptr};  // threads of the test call while it changes

// Entries register before main, in any order.
SeamImportEntry*& FirstEntry() {
  static SeamImportEntry* first = nullptr;
  return first;
}

SeamImportEntry* FindFrom(SeamImportEntry* entry, const char* name) {
  while (entry != nullptr && std::strcmp(entry->name, name) != 0) entry = entry->next;
  return entry;
}

void SetTargets(SeamImportEntry* first, void* replacement) {
  for (SeamImportEntry* entry = first; entry != nullptr;
       entry = FindFrom(entry->next, first->name)) {
    entry->target = replacement != nullptr ? replacement : entry->original;
  }
}

using Word = uintptr_t;
using Forwarded = Word (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

// Calls the stand-in that this thread's patched call replaces. Passes on the most arguments that
// any stand-in has.
Word CallOriginal(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j,
                  Word k, Word l) {
  return reinterpret_cast<Forwarded>(originalOfCall)(a, b, c, d, e, f, g, h, i, j, k, l);
}

}  // namespace

SeamImportEntry::SeamImportEntry(const char* importName, void* standIn)
    : name(importName), original(standIn), target(standIn), next(FirstEntry()) {
  FirstEntry() = this;
}

void EnterPatchedCall(const SeamImportEntry& entry) { originalOfCall = entry.original; }

void SetSeamFault(SeamFault fault) { seamFault = fault; }

SeamFailure DecideFault(const char* import, intptr_t* result) {
  const SeamFault fault = seamFault;
  return fault == nullptr ? SeamFailure::kNone : fault(import, result);
}

uint32_t SeamLastError() { return lastError; }

void SetErrors(int errnoValue, uint32_t error) {
  errno = errnoValue;
  lastError = error;
}

// The place is the first entry of the name.
ImportPatch::ImportPatch(const char* function, void* replacement)
    : place_(FindFrom(FirstEntry(), function)), original_(nullptr) {
  EXPECT_NE(place_, nullptr) << "no linked primitive calls " << function;
  if (place_ == nullptr) return;
  auto* first = static_cast<SeamImportEntry*>(place_);
  const bool patched = first->target != first->original;
  original_ = patched ? first->target : reinterpret_cast<void*>(&CallOriginal);
  SetTargets(first, replacement);
}

ImportPatch::~ImportPatch() {
  if (place_ == nullptr) return;
  const bool patched = original_ != reinterpret_cast<void*>(&CallOriginal);
  SetTargets(static_cast<SeamImportEntry*>(place_), patched ? original_ : nullptr);
}

}  // namespace kiv::test
