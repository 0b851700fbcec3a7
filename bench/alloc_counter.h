#ifndef KORVEL_BENCH_ALLOC_COUNTER_H
#define KORVEL_BENCH_ALLOC_COUNTER_H

#include <cstdint>

// Number of C++ allocations (every form of operator new) made by the whole process so far. Read it
// before and after a loop: the difference is the loop's. malloc calls are not seen.
uint64_t AllocationCount();

#endif
