// Which sanitizer watches the test. Sanitizers have signal handlers of their own; the thread
// sanitizer delivers a signal only when the thread calls the C library.
#ifndef KIV_TESTS_SANITIZERS_H
#define KIV_TESTS_SANITIZERS_H

#ifdef __has_feature
#define KIV_TESTS_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KIV_TESTS_HAS_FEATURE(feature) 0
#endif

namespace kiv::test {

#if defined(__SANITIZE_THREAD__) || KIV_TESTS_HAS_FEATURE(thread_sanitizer)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || KIV_TESTS_HAS_FEATURE(address_sanitizer)
constexpr bool kUnderAddressSanitizer = true;
#else
constexpr bool kUnderAddressSanitizer = false;
#endif

// A function that the thread sanitizer does not watch.
#ifdef __has_attribute
#define KIV_TESTS_UNWATCHED __attribute__((no_sanitize("thread")))
#else
#define KIV_TESTS_UNWATCHED
#endif

}  // namespace kiv::test

#endif
