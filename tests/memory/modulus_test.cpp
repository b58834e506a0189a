// Remainders without a division, against the division, and the divisors that choose a slot.
#include "memsys/modulus.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

#include "memsys/slots.h"

namespace {

TEST(WideModulus, IsExactForEveryDivisorAndSizeOfValue) {
  std::mt19937_64 random(20261122);
  for (uint32_t divisor = 257; divisor <= 2047; ++divisor) {
    const kiv::WideModulus modulus(divisor);
    for (int bits = 1; bits <= 61; ++bits) {
      const uint64_t mask = UINT64_MAX >> (64 - bits);
      const uint64_t multiple = (random() & mask) / divisor * divisor;
      for (const uint64_t value : {mask, random() & mask, multiple, multiple + divisor - 1}) {
        if (value <= mask) {
          ASSERT_EQ(modulus.Of(value), value % divisor) << value << " by " << divisor;
        }
      }
      if (multiple != 0) {
        ASSERT_EQ(modulus.Of(multiple - 1), divisor - 1) << multiple << " by " << divisor;
      }
    }
  }
}

bool IsPrime(uint32_t number) {
  for (uint32_t divisor = 2; divisor * divisor <= number; ++divisor) {
    if (number % divisor == 0) return false;
  }
  return true;
}

TEST(SlotPrimes, AreTheFiftyConsecutivePrimesFrom1297) {
  uint32_t expected = 1297;
  for (const kiv::WideModulus& prime : kiv::kSlotPrimes) {
    uint32_t divisor = 1;  // the smallest number without a remainder
    while (prime.Of(divisor) != 0) ++divisor;
    EXPECT_EQ(divisor, expected);
    do ++expected;
    while (!IsPrime(expected));
  }
  EXPECT_EQ(kiv::kSlotPrimes.size(), 50u);
}

TEST(NarrowModulus, IsExactForEveryValue) {
  for (const uint32_t divisor : {1u, 2u, 3u, 4u, 5u, 7u, 16u, 63u, 64u, 1000u, 65535u}) {
    const kiv::NarrowModulus modulus(divisor);
    for (uint32_t value = 0; value <= 65535; ++value) {
      ASSERT_EQ(modulus.Of(value), value % divisor) << value << " by " << divisor;
    }
  }
}

}  // namespace
