/*
 * The fuzz targets' invariant check: a broken invariant is a crash for the
 * fuzzer, with the reason first.
 */
#ifndef FUZZ_CHECK_H
#define FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

[[noreturn]] inline void fuzzFail(const char* what, const char* file, int line)
{
    std::fprintf(stderr, "invariant broken: %s (%s:%d)\n", what, file, line);
    std::abort();
}

#define FUZZ_CHECK(cond) ((cond) ? (void)0 : fuzzFail(#cond, __FILE__, __LINE__))

#endif
