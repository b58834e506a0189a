// Decides whether a history of concurrent operations is linearizable: whether each operation could
// have taken effect at one moment between its call and its return, so that a sequential model gives
// the results that were recorded.
//
// The algorithm of Wing and Gong ("Testing and verifying concurrent objects", 1993) tries the
// operations that no other one precedes, and goes back when the model refuses. As Lowe proposed
// ("Testing for linearizability", 2017), it remembers each pair of operations done and state of the
// model, and never continues twice from one.
#ifndef KIV_TESTS_LINEARIZABILITY_CHECKER_H
#define KIV_TESTS_LINEARIZABILITY_CHECKER_H

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace kiv::linearizability {

constexpr size_t kMaxOperations = 256;  // of a history

// Calls and returns are numbered in one order.
template <typename Call>
struct Operation {
  Call call;
  uint64_t called;
  uint64_t returned;
};

// A Model has a State with operator<, a state `initial`, and
//
//   std::optional<State> Next(const State& state, const Call& call)
//
// the state after an operation, whose recorded results are part of the call; none if it could not
// have had these results.
template <typename Model, typename Call>
class Checker {
 public:
  Checker(const Model& model, std::vector<Operation<Call>> history)
      : model_(model), history_(std::move(history)) {
    std::sort(history_.begin(), history_.end(),
              [](const auto& one, const auto& other) { return one.called < other.called; });
  }

  bool IsLinearizable() { return Continue(Done{}, model_.initial); }

 private:
  using State = typename Model::State;
  using Done = std::bitset<kMaxOperations>;

  bool Continue(const Done& done, const State& state) {
    if (done.count() == history_.size()) return true;
    if (!seen_.insert({done.to_string(), state}).second) return false;
    // An operation that was called after another's return comes after it.
    const uint64_t firstReturn = FirstReturn(done);
    for (size_t i = 0; i < history_.size() && history_[i].called < firstReturn; ++i) {
      if (done[i]) continue;
      const auto next = model_.Next(state, history_[i].call);
      Done with = done;
      if (next && Continue(with.set(i), *next)) return true;
    }
    return false;
  }

  uint64_t FirstReturn(const Done& done) const {
    uint64_t first = UINT64_MAX;
    for (size_t i = 0; i < history_.size(); ++i) {
      if (!done[i]) first = std::min(first, history_[i].returned);
    }
    return first;
  }

  Model model_;
  std::vector<Operation<Call>> history_;
  std::set<std::pair<std::string, State>> seen_;
};

template <typename Model, typename Call>
bool IsLinearizable(const Model& model, const std::vector<Operation<Call>>& history) {
  return Checker<Model, Call>(model, history).IsLinearizable();
}

}  // namespace kiv::linearizability

#endif
