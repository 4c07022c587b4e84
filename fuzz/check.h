/* A broken invariant is a crash for the fuzzer, the reason first. */
#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H
#include <cstdio>
#include <cstdlib>
#define FUZZ_CHECK(c) \
    ((c) ? (void)0 : (std::fprintf(stderr, "invariant broken: %s (%s:%d)\n", #c, __FILE__, __LINE__), std::abort()))
#endif
