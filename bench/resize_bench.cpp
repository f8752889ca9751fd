// Resize and blur of UINT8 images: scalar row kernels against the vector ones, on 1 and 2
// workers. Counters: megapixels per second of destination pixels ("MP/s").
//
//   tavrin_bench --benchmark_filter='Resize|Blur'
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <memory>
#include <random>

#include "enhance/blur.h"
#include "enhance/resize.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace {

struct Bench {
    std::unique_ptr<max_align_t[]> region;
    tav_sr2_MemPool pool = {};
    tav_sr2_TaskSys* ts = nullptr;
    tav_sr2_ThreadPool tp = {};
    tav_sr2_ImageCtx ctx = {};
    tav_sr2_Image src = {}, dst = {};
    bool ok = true;

    Bench(int32_t workers, int32_t sw, int32_t sh, int32_t dw, int32_t dh) {
        const size_t bytes = 160u << 20;
        region.reset(new max_align_t[bytes / sizeof(max_align_t)]);
        ok = tav_sr2_MemPool_init(&pool, region.get(), bytes) == TAV_OK;
        ctx.pool = &pool;
        if (workers > 1) {
            ts = static_cast<tav_sr2_TaskSys*>(calloc(1, sizeof(tav_sr2_TaskSys)));
            tav_sr2_TaskSys_init(ts, &pool);
            ts->config.thread_count = workers;
            ok = ok && tav_sr2_TaskSys_start(ts) == TAV_OK;
            tav_sr2_ThreadPool_init(&tp, &pool);
            tp.task_sys = ts;
            tp.thread_limit = workers;
            ok = ok && tav_sr2_ThreadPool_start(&tp, 64, 64) == TAV_OK;
            ctx.threads = &tp;
            ctx.tasks = ts;
        }
        tav_sr2_Image_init(&src, &pool);
        tav_sr2_Image_init(&dst, &pool);
        ok = ok && tav_sr2_Image_alloc(&src, sw, sh, nullptr, TAV_SR2_FMT_UINT8) == TAV_OK;
        ok = ok && tav_sr2_Image_alloc(&dst, dw, dh, nullptr, TAV_SR2_FMT_UINT8) == TAV_OK;
        if (!ok) return;
        // Smooth content with some texture, as a photograph has.
        std::mt19937 rng(1);
        for (int32_t y = 0; y < sh; ++y) {
            for (int32_t x = 0; x < sw; ++x) {
                src.plane[0][(int64_t)y * src.pitch[0] + x] =
                    (uint8_t)(((x * 7 + y * 3) >> 4) + (rng() & 15));
            }
        }
    }
    ~Bench() {
        tav_sr2_Image_finish(&dst);
        tav_sr2_Image_finish(&src);
        if (ts != nullptr) {
            tav_sr2_ThreadPool_finish(&tp);
            tav_sr2_TaskSys_finish(ts);
            free(ts);
        }
    }
};

void setRate(benchmark::State& state, const tav_sr2_Image& out) {
    state.counters["MP/s"] = benchmark::Counter((double)out.width * out.height * 1e-6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

// Arguments: source width, height, destination width, height, vector (0/1), workers.
void BM_Resize(benchmark::State& state) {
    Bench b((int32_t)state.range(5), (int32_t)state.range(0), (int32_t)state.range(1),
            (int32_t)state.range(2), (int32_t)state.range(3));
    if (!b.ok) {
        state.SkipWithError("setup failed");
        return;
    }
    const tav_sr2_ResizeRowOps* rows =
        state.range(4) ? &tav_sr2_resizeRowsVector : &tav_sr2_resizeRowsScalar;
    for (auto _ : state) {
        if (tav_sr2_Image_resizeWithRows(&b.ctx, &b.dst, &b.src, rows) != TAV_OK) {
            state.SkipWithError("resize failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    setRate(state, b.dst);
}

// Arguments: width, height, sigma * 10, vector (0/1), workers.
void BM_Blur(benchmark::State& state) {
    const int32_t w = (int32_t)state.range(0), h = (int32_t)state.range(1);
    Bench b((int32_t)state.range(4), w, h, w, h);
    if (!b.ok) {
        state.SkipWithError("setup failed");
        return;
    }
    const bool vector = state.range(3) != 0;
    const tav_sr2_BlurRowOps* rows = vector ? &tav_sr2_blurRowsVector : &tav_sr2_blurRowsScalar;
    const tav_sr2_ResizeRowOps* resize =
        vector ? &tav_sr2_resizeRowsVector : &tav_sr2_resizeRowsScalar;
    for (auto _ : state) {
        if (tav_sr2_Image_blurWithRows(&b.ctx, &b.dst, &b.src, state.range(2) / 10.0, rows,
                                       resize) != TAV_OK) {
            state.SkipWithError("blur failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    setRate(state, b.dst);
}

void resizeArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"sw", "sh", "dw", "dh", "vec", "workers"});
    for (int64_t workers : {1, 2}) {
        for (int64_t vec : {0, 1}) {
            bm->Args({4000, 3000, 2000, 1500, vec, workers});  // 12 MP to 3 MP
            bm->Args({2000, 1500, 4000, 3000, vec, workers});  // 3 MP to 12 MP
        }
    }
}

void blurArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"w", "h", "sigma10", "vec", "workers"});
    for (int64_t workers : {1, 2}) {
        for (int64_t vec : {0, 1}) {
            bm->Args({2000, 1500, 10, vec, workers});
            bm->Args({2000, 1500, 40, vec, workers});
        }
    }
}

BENCHMARK(BM_Resize)->Apply(resizeArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Blur)->Apply(blurArgs)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
