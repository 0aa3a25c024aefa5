#pragma once
// Marks a per-pixel loop to be compiled twice, for baseline x86-64 and for processors with
// AVX2 (x86-64-v3), the version picked once when the library loads. Everything it calls is
// inlined into it (a callee left out of line would run the baseline version). Both give the same results:
// the library is built without floating-point contraction or fast-math, so wider vectors change
// only how many pixels an instruction handles. Sanitizer and fuzzing builds, other compilers and
// other processors get the one baseline version.

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) &&                            \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define BIC_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v3", "default"), flatten))
#else
#define BIC_VECTOR_CLONES
#endif
