// What the library asks of a compiler beyond the language. Each compiler has its own branch here and
// nowhere else.
#ifndef KIV_COMPILER_H
#define KIV_COMPILER_H

#include <cstdint>

#ifdef _MSC_VER

#include <intrin.h>

// Keeps a contended path out of its caller, which then saves no registers for it.
#define KIV_NOINLINE __declspec(noinline)
// Compiles a function into its callers, whatever its size. Replaces the word inline.
#define KIV_ALWAYS_INLINE __forceinline
// The parameters, counted from 1, of a function that formats like printf.
#define KIV_FORMAT(text, values)

namespace kiv {

// The upper half of the 128-bit product.
inline uint64_t HighProduct(uint64_t left, uint64_t right) { return __umulh(left, right); }

// Starts to load a cache line. The address may be any.
inline void Prefetch(const void* address) {
  _mm_prefetch(static_cast<const char*>(address), _MM_HINT_T0);
}

}  // namespace kiv

#else

#define KIV_NOINLINE [[gnu::noinline]]
#define KIV_ALWAYS_INLINE [[gnu::always_inline]] inline
#define KIV_FORMAT(text, values) [[gnu::format(__printf__, text, values)]]

namespace kiv {

inline uint64_t HighProduct(uint64_t left, uint64_t right) {
  __extension__ using Product = unsigned __int128;
  return static_cast<uint64_t>((static_cast<Product>(left) * right) >> 64);
}

inline void Prefetch(const void* address) { __builtin_prefetch(address); }

}  // namespace kiv

#endif

#endif
