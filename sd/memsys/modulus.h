// Remainders without a division, for divisors that are known in advance.
//
// The quotient is the high part of the product with the divisor's reciprocal, which is rounded up
// (T. Granlund and P. L. Montgomery, "Division by Invariant Integers using Multiplication", PLDI
// 1994, theorem 4.2): exact if the value times the rounding error is below the reciprocal's unit.
#ifndef KIV_MEMSYS_MODULUS_H
#define KIV_MEMSYS_MODULUS_H

#include <cstdint>

#include "compiler.h"

namespace kiv {

// Of values below 2^61, for a divisor from 257 to 2047.
class WideModulus {
 public:
  constexpr explicit WideModulus(uint32_t divisor)
      : divisor_(divisor), reciprocal_(ReciprocalOf(divisor)) {}

  uint32_t Of(uint64_t value) const {
    const uint64_t quotient = HighProduct(value, reciprocal_) >> (kShift - 64);
    return static_cast<uint32_t>(value - quotient * divisor_);
  }

 private:
  static constexpr int kShift = 72;

  // 2^72 divided by the divisor, rounded up, from the quotient and the rest of 2^64.
  static constexpr uint64_t ReciprocalOf(uint64_t divisor) {
    const uint64_t quotient = UINT64_MAX / divisor;
    const uint64_t rest = UINT64_MAX % divisor + 1;
    return (quotient << (kShift - 64)) + ((rest << (kShift - 64)) + divisor - 1) / divisor;
  }

  uint64_t divisor_;
  uint64_t reciprocal_;
};

// Of values below 2^16, for a divisor below 2^16.
class NarrowModulus {
 public:
  constexpr explicit NarrowModulus(uint32_t divisor)
      : divisor_(divisor), reciprocal_(((uint64_t{1} << 32) + divisor - 1) / divisor) {}

  constexpr uint32_t Of(uint32_t value) const {
    return value - static_cast<uint32_t>((value * reciprocal_) >> 32) * divisor_;
  }

 private:
  uint32_t divisor_;
  uint64_t reciprocal_;
};

}  // namespace kiv

#endif
