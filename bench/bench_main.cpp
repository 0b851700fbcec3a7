// Speed and memory figures of the player's hot paths; each subsystem adds its benchmarks here.
#include <benchmark/benchmark.h>

#include "CMsgQueue.h"

namespace {
// A command post and its pickup by the worker: the cost every public player call pays.
void BM_CommandQueuePushGet(benchmark::State& state) {
    utils::CMsgQueue queue("bench", 50);
    utils::CMsgQueue::Message message;
    for (auto _ : state) {
        queue.Push(1);
        benchmark::DoNotOptimize(queue.Get(message));
    }
}
BENCHMARK(BM_CommandQueuePushGet);
}  // namespace

BENCHMARK_MAIN();
