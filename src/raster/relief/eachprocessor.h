#pragma once

// For loops over rows: vectors as long as the processor has them, with the same results, since nothing is
// contracted. Sanitizers start later than the choice is made. A source that includes this is optimized for
// such loops.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) &&     \
    !defined(__SANITIZE_THREAD__)
#define ZMT_EACH_PROCESSOR __attribute__((target_clones("avx2", "default")))
#define ZMT_INLINE __attribute__((always_inline))
#else
#define ZMT_EACH_PROCESSOR
#define ZMT_INLINE
#endif
