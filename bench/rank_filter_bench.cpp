// Megapixels per second of the 3 x 3 rank filter (in place and out of place) and of the two
// sample-depth conversions on a 12 MP frame, scalar rows against vector rows, on 1 and 2 workers.
//
//   tavrin_bench --benchmark_filter='RankFilter|DepthConvert'
//
// Arguments: form (0 scalar, 1 vector), workers.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include "foundation/depth_convert.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/rank_filter.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace {

const int32_t kWidth = 4000;
const int32_t kHeight = 3000;
const size_t kHeapBytes = 96u << 20;

// One heap for the whole run, and one scheduler with its thread pool per worker count.
struct BenchEnv {
    tav_sr2_MemPool* pool = nullptr;
    tav_sr2_TaskSys* ts = nullptr;
    tav_sr2_ThreadPool tp = {};
    int32_t workers = 0;
};

tav_sr2_MemPool* benchHeap() {
    static tav_sr2_MemPool pool;
    static void* region = nullptr;
    if (region == nullptr) {
        region = aligned_alloc(64, kHeapBytes);
        tav_sr2_MemPool_init(&pool, region, kHeapBytes);
    }
    return &pool;
}

BenchEnv* envFor(int32_t workers) {
    static BenchEnv envs[3];
    BenchEnv* env = &envs[workers];
    if (env->workers == workers) return env;
    env->pool = benchHeap();
    env->ts = static_cast<tav_sr2_TaskSys*>(calloc(1, sizeof(tav_sr2_TaskSys)));
    tav_sr2_TaskSys_init(env->ts, env->pool);
    env->ts->config.thread_count = workers;
    tav_sr2_TaskSys_start(env->ts);
    tav_sr2_ThreadPool_init(&env->tp, env->pool);
    env->tp.task_sys = env->ts;
    env->tp.thread_limit = workers;
    tav_sr2_ThreadPool_start(&env->tp, 64, 64);
    env->workers = workers;
    return env;
}

bool allocFilled(tav_sr2_Image* image, tav_sr2_MemPool* pool, int32_t code, uint32_t seed) {
    tav_sr2_Image_init(image, pool);
    if (tav_sr2_Image_alloc(image, kWidth, kHeight, nullptr, code) != TAV_OK) return false;
    const uint32_t bytes = tav_sr2_ImageFormat_query(kWidth, kHeight, code, 0);
    const bool words = code == TAV_SR2_FMT_YUV10B420_SEMIPLANAR;
    for (uint32_t i = 0; i < bytes; ++i) {
        seed = seed * 1664525u + 1013904223u;
        // 10-bit words for the deep frame, any byte otherwise.
        image->plane[0][i] = words && (i & 1) ? (uint8_t)((seed >> 24) & 3) : (uint8_t)(seed >> 24);
    }
    return true;
}

void reportRate(benchmark::State& state) {
    state.counters["MP/s"] = benchmark::Counter(
        (double)kWidth * kHeight * (double)state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

void rankFilter(benchmark::State& state, bool in_place) {
    BenchEnv* env = envFor((int32_t)state.range(1));
    const tav_sr2_RankRows* rows =
        state.range(0) ? tav_sr2_rankRowsVector() : tav_sr2_rankRowsScalar();
    tav_sr2_Image src, dst;
    if (!allocFilled(&src, env->pool, TAV_SR2_FMT_UINT8, 1) ||
        !allocFilled(&dst, env->pool, TAV_SR2_FMT_UINT8, 2)) {
        state.SkipWithError("no memory");
        return;
    }
    tav_sr2_RankFilter filter;
    tav_sr2_RankFilter_init(&filter, env->pool, &env->tp);
    tav_sr2_Image* out = in_place ? &src : &dst;
    for (auto _ : state) {
        if (tav_sr2_Image_rank3x3(&filter, &src, out, TAV_SR2_RANK_MAX, rows) != TAV_OK) {
            state.SkipWithError("filter failed");
            break;
        }
        benchmark::DoNotOptimize(out->plane[0][0]);
    }
    reportRate(state);
    tav_sr2_Image_finish(&dst);
    tav_sr2_Image_finish(&src);
}

void convert(benchmark::State& state, bool up) {
    BenchEnv* env = envFor((int32_t)state.range(1));
    const tav_sr2_DepthRows* rows =
        state.range(0) ? tav_sr2_depthRowsVector() : tav_sr2_depthRowsScalar();
    tav_sr2_Image narrow, deep;
    if (!allocFilled(&narrow, env->pool, TAV_SR2_FMT_YUV420_SEMIPLANAR, 3) ||
        !allocFilled(&deep, env->pool, TAV_SR2_FMT_YUV10B420_SEMIPLANAR, 4)) {
        state.SkipWithError("no memory");
        return;
    }
    for (auto _ : state) {
        const uint32_t status = up ? tav_sr2_convert8to10WithRows(&env->tp, &deep, &narrow, rows)
                                   : tav_sr2_convert10to8WithRows(&env->tp, &narrow, &deep, rows);
        if (status != TAV_OK) {
            state.SkipWithError("conversion failed");
            break;
        }
        benchmark::DoNotOptimize(narrow.plane[0][0]);
    }
    reportRate(state);
    tav_sr2_Image_finish(&deep);
    tav_sr2_Image_finish(&narrow);
}

void BM_RankFilterMax3x3InPlace(benchmark::State& state) {
    rankFilter(state, true);
}
void BM_RankFilterMax3x3OutOfPlace(benchmark::State& state) {
    rankFilter(state, false);
}
void BM_DepthConvert8to10(benchmark::State& state) {
    convert(state, true);
}
void BM_DepthConvert10to8(benchmark::State& state) {
    convert(state, false);
}

void formsAndWorkers(benchmark::internal::Benchmark* b) {
    b->ArgNames({"vector", "workers"});
    for (int64_t workers : {1, 2}) {
        for (int64_t form : {0, 1})
            b->Args({form, workers});
    }
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_RankFilterMax3x3InPlace)->Apply(formsAndWorkers);
BENCHMARK(BM_RankFilterMax3x3OutOfPlace)->Apply(formsAndWorkers);
BENCHMARK(BM_DepthConvert8to10)->Apply(formsAndWorkers);
BENCHMARK(BM_DepthConvert10to8)->Apply(formsAndWorkers);

}  // namespace
