// Allocation plus release throughput of the pool on a fragmented heap, beside malloc/free doing
// the same work in the same run. The heap is pre-fragmented with a row of live blocks and holes,
// so every search walks a realistic free list. Argument: the number of holes.
#include "foundation/mem_pool.h"

#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

constexpr size_t kRegionBytes = 64u << 20;
constexpr int kBatch = 8;  // blocks held at once in each iteration

struct Workload {
    std::vector<uint32_t> fragments;  // sizes laid down before measuring; odd ones are released
    std::vector<uint32_t> requests;   // sizes asked for while measuring
    std::vector<int> releaseOrder;    // order in which each batch is given back
};

Workload makeWorkload(int holes) {
    std::mt19937 rng(7);
    Workload w;
    for (int i = 0; i < 2 * holes; ++i)
        w.fragments.push_back(16 + rng() % 2000);
    for (int i = 0; i < 4096; ++i) {
        w.requests.push_back(rng() % 4 == 0 ? 2000 + rng() % 30000 : 8 + rng() % 500);
    }
    for (int i = 0; i < kBatch; ++i)
        w.releaseOrder.push_back(i);
    std::shuffle(w.releaseOrder.begin(), w.releaseOrder.end(), rng);
    return w;
}

template <typename Alloc, typename Free>
void runBatches(benchmark::State& state, const Workload& w, Alloc alloc, Free release) {
    void* held[kBatch];
    size_t next = 0;
    for (auto _ : state) {
        for (void*& p : held) {
            p = alloc(w.requests[next]);
            next = (next + 1) % w.requests.size();
        }
        // The whole array, not each pointer: g++ 12 miscompiles DoNotOptimize on a pointer lvalue
        // (its "+m,r" constraint) and the stores to `held` went missing.
        benchmark::DoNotOptimize(held);
        for (int i : w.releaseOrder)
            release(held[i]);
    }
    state.SetItemsProcessed(state.iterations() * 2 * kBatch);
}

// Lays down the fragments and releases every second one, leaving `holes` free blocks between
// live ones. Returns the live ones.
template <typename Alloc, typename Free>
std::vector<void*> fragment(const Workload& w, Alloc alloc, Free release) {
    std::vector<void*> all;
    for (uint32_t n : w.fragments)
        all.push_back(alloc(n));
    std::vector<void*> live;
    for (size_t i = 0; i < all.size(); ++i) {
        if (i % 2) {
            release(all[i]);
        } else {
            live.push_back(all[i]);
        }
    }
    return live;
}

void BM_MemPool_allocFree(benchmark::State& state) {
    const Workload w = makeWorkload(static_cast<int>(state.range(0)));
    void* region = malloc(kRegionBytes);
    tav_sr2_MemPool pool;
    tav_sr2_MemPool_init(&pool, region, kRegionBytes);
    auto alloc = [&pool](uint32_t n) { return tav_sr2_MemPool_alloc(&pool, n); };
    auto release = [&pool](void* p) { tav_sr2_MemPool_free(&pool, p); };
    std::vector<void*> live = fragment(w, alloc, release);
    runBatches(state, w, alloc, release);
    for (void* p : live)
        release(p);
    if (tav_sr2_MemPool_finish(&pool) != TAV_OK) state.SkipWithError("pool leaked");
    free(region);
}

void BM_Malloc_allocFree(benchmark::State& state) {
    const Workload w = makeWorkload(static_cast<int>(state.range(0)));
    auto alloc = [](uint32_t n) { return malloc(n); };
    auto release = [](void* p) { free(p); };
    std::vector<void*> live = fragment(w, alloc, release);
    runBatches(state, w, alloc, release);
    for (void* p : live)
        release(p);
}

BENCHMARK(BM_MemPool_allocFree)->Arg(16)->Arg(256)->Arg(2048);
BENCHMARK(BM_Malloc_allocFree)->Arg(16)->Arg(256)->Arg(2048);

}  // namespace
