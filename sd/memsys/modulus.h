// Remainders without a division, for a divisor that is known in advance.
#ifndef KIV_MEMSYS_MODULUS_H
#define KIV_MEMSYS_MODULUS_H

#include <cstdint>

#include "compiler.h"

namespace kiv {

// The quotient is the product with the divisor's reciprocal (T. Granlund and P. L. Montgomery,
// "Division by Invariant Integers using Multiplication", PLDI 1994). The reciprocal is rounded
// down. The quotient is therefore at most 1 too small, which the remainder shows and corrects.
class Modulus {
 public:
  constexpr Modulus() = default;
  constexpr explicit Modulus(uint32_t divisor)
      : divisor_(divisor), reciprocal_(UINT64_MAX / divisor) {}

  uint32_t Of(uint64_t value) const {
    const uint64_t rest = value - HighProduct(value, reciprocal_) * divisor_;
    return static_cast<uint32_t>(rest >= divisor_ ? rest - divisor_ : rest);
  }

 private:
  uint64_t divisor_ = 1;
  uint64_t reciprocal_ = UINT64_MAX;
};

}  // namespace kiv

#endif
