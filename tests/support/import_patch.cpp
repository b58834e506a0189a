#include "support/import_patch.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/last_error.h"

namespace kiv::test {
namespace {

constexpr size_t kSlots = 8;  // most scripted imports at a time

struct ScriptState {
  bool used = false;
  Script script;
  void* original = nullptr;
  std::vector<ScriptedImport::Arguments> calls;
};
ScriptState states[kSlots];

using Word = uintptr_t;
using Forwarded = Word (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

// Takes the most arguments that any patched function has, and passes all of them on. A function
// ignores surplus arguments.
template <size_t kSlot>
Word Scripted(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j,
              Word k, Word l) {
  ScriptState& state = states[kSlot];
  const size_t number = state.calls.size();
  state.calls.push_back({a, b, c, d, e, f, g, h, i, j, k, l});
  const size_t first = state.script.passFirst;
  if (number >= first && number - first < state.script.failCount) {
    SetErrors(static_cast<int>(state.script.error), state.script.error);
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

ScriptedImport::ScriptedImport(const char* function, const Script& script)
    : slot_(TakeState(script)),
      patch_(function, EntryOf(slot_, std::make_index_sequence<kSlots>())) {
  states[slot_].original = patch_.original();
}

ScriptedImport::~ScriptedImport() { states[slot_].used = false; }

const std::vector<ScriptedImport::Arguments>& ScriptedImport::calls() const {
  return states[slot_].calls;
}

}  // namespace kiv::test
