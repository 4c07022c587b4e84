/*
 * Heap accounting for the benchmark binaries: linking heapcount.cpp
 * replaces the global operator new and delete. While counting is on, every
 * block's usable size (what malloc really handed out, rounding included) is
 * added on allocation and taken off on release, so the live total over a
 * stretch of code is what that code kept. malloc's own 8-byte chunk header
 * per block is not in it; Totals::blocks lets a reader add it.
 * Off, it costs one predictable branch. Single-threaded measurements only.
 */
#ifndef BENCH_HEAPCOUNT_H
#define BENCH_HEAPCOUNT_H

#include <cstddef>

namespace heapcount {

struct Totals {
    long long usableBytes = 0;   /* malloc_usable_size of live blocks */
    long long blocks = 0;        /* live blocks */
};

void enable(bool on);
Totals now();

}  // namespace heapcount

#endif
