// The pattern upscaler's 2x and the polyphase resampler (Lanczos 2, the engine's default) of a
// 2000 x 1500 picture to 4000 x 3000, scalar rows against vector rows, on 1 and 2 workers. The
// OpenCV peers (bench/opencv) run cv::resize INTER_CUBIC on the same sizes. Counters: megapixels
// per second of destination pixels ("MP/s").
//
//   tavrin_bench --benchmark_filter='Upscale'
#include <benchmark/benchmark.h>

#include <random>

#include "bench/bench_rig.h"
#include "foundation/image.h"
#include "merge/upscaler.h"

namespace {

constexpr int32_t kSrcW = 2000, kSrcH = 1500;

struct Bench {
    BenchRig rig;
    tav_sr2_Upscaler u = {};
    tav_sr2_Image src = {}, dst = {};
    bool ok;

    Bench(int32_t workers, bool vector) : rig(160u << 20, workers), ok(rig.ok) {
        tav_sr2_Upscaler_init(&u, &rig.pool);
        u.resize = rig.ctx();
        u.rows = vector ? &tav_sr2_upscaleRowsVector : &tav_sr2_upscaleRowsScalar;
        const tav_sr2_UpscaleKernel lanczos = {2, 0.2, 0.2};
        ok = ok && tav_sr2_Upscaler_reset(&u) == TAV_OK &&
             tav_sr2_Upscaler_setKernel(&u, &lanczos) == TAV_OK &&
             tav_sr2_Upscaler_setThreshold(&u, 8) == TAV_OK;
        tav_sr2_Image_init(&src, &rig.pool);
        tav_sr2_Image_init(&dst, &rig.pool);
        ok = ok && tav_sr2_Image_alloc(&src, kSrcW, kSrcH, nullptr, TAV_SR2_FMT_UINT8) == TAV_OK;
        ok = ok &&
             tav_sr2_Image_alloc(&dst, 2 * kSrcW, 2 * kSrcH, nullptr, TAV_SR2_FMT_UINT8) == TAV_OK;
        if (!ok) return;
        // Smooth content with some texture, as a photograph has (the peers' content too).
        std::mt19937 rng(1);
        for (int32_t y = 0; y < kSrcH; ++y)
            for (int32_t x = 0; x < kSrcW; ++x)
                src.plane[0][(int64_t)y * src.pitch[0] + x] =
                    (uint8_t)(((x * 7 + y * 3) >> 4) + (rng() & 15));
    }
    ~Bench() {
        tav_sr2_Image_finish(&dst);
        tav_sr2_Image_finish(&src);
        tav_sr2_Upscaler_finish(&u);
    }
};

// Arguments: vector (0/1), workers.
template <uint32_t (*Op)(tav_sr2_Upscaler*, tav_sr2_Image*, const tav_sr2_Image*)>
void run(benchmark::State& state) {
    Bench b((int32_t)state.range(1), state.range(0) != 0);
    if (!b.ok) {
        state.SkipWithError("setup failed");
        return;
    }
    for (auto _ : state) {
        if (Op(&b.u, &b.dst, &b.src) != TAV_OK) state.SkipWithError("failed");
        benchmark::ClobberMemory();
    }
    state.counters["MP/s"] = benchmark::Counter((double)b.dst.width * b.dst.height * 1e-6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Upscale2x(benchmark::State& state) {
    run<tav_sr2_Upscaler_upscale2x>(state);
}
void BM_UpscalerResample(benchmark::State& state) {
    run<tav_sr2_Upscaler_resample>(state);
}

void args(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"vector", "workers"});
    for (int64_t workers : {1, 2})
        for (int64_t vector : {0, 1})
            bm->Args({vector, workers});
}

BENCHMARK(BM_Upscale2x)->Apply(args)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_UpscalerResample)->Apply(args)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
