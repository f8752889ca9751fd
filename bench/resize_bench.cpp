// Resize and blur of UINT8 images: scalar row kernels against the vector ones, on 1 and 2
// workers. Counters: megapixels per second of destination pixels ("MP/s").
//
//   tavrin_bench --benchmark_filter='Resize|Blur'
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <memory>
#include <random>

#include "bench/bench_rig.h"
#include "enhance/blur.h"
#include "enhance/resize.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace {

struct Bench {
    BenchRig rig;
    tav_sr2_ImageCtx ctx;
    tav_sr2_Image src = {}, dst = {};
    bool ok;

    Bench(int32_t workers, int32_t sw, int32_t sh, int32_t dw, int32_t dh)
        : rig(160u << 20, workers), ctx(rig.ctx()), ok(rig.ok) {
        tav_sr2_Image_init(&src, &rig.pool);
        tav_sr2_Image_init(&dst, &rig.pool);
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
