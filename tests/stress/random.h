// Cheap pseudo-random numbers; a seed gives equal numbers on every machine.
#ifndef KIV_TESTS_STRESS_RANDOM_H
#define KIV_TESTS_STRESS_RANDOM_H

#include <cstdint>

namespace kiv::stress {

// Every bit of the result depends on every bit of the seed, so that consecutive seeds give
// unrelated sequences.
constexpr uint64_t Scramble(uint64_t seed) {
  seed += 0x9E3779B97F4A7C15;
  seed = (seed ^ (seed >> 30)) * 0xBF58476D1CE4E5B9;
  seed = (seed ^ (seed >> 27)) * 0x94D049BB133111EB;
  return seed ^ (seed >> 31);
}

// A xorshift generator.
class Random {
 public:
  explicit constexpr Random(uint64_t seed) : state_(Scramble(seed) | 1) {}

  constexpr uint32_t Next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return static_cast<uint32_t>((state_ * 0x2545F4914F6CDD1D) >> 32);
  }

  constexpr uint32_t Below(uint32_t limit) { return Next() % limit; }
  constexpr uint32_t Between(uint32_t least, uint32_t most) {
    return least + Below(most - least + 1);
  }
  constexpr bool OneIn(uint32_t count) { return Below(count) == 0; }

  template <typename T, uint32_t kCount>
  constexpr const T& OneOf(const T (&choices)[kCount]) {
    return choices[Below(kCount)];
  }

 private:
  uint64_t state_;
};

}  // namespace kiv::stress

#endif
