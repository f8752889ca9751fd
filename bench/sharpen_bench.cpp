// The sharpening stage on a 4000 x 3000 frame, each unsharp_method on the 10-bit frame the CPU
// merge makes (method 0 also on an 8-bit frame), on 1 and 2 workers; and the 7-tap 10-bit band
// pass alone with its scalar rows beside the vector ones; and the contrast and structure stages
// that follow it. The frame holds ramps with texture; the
// weight comes from a weight_sum of eight merged frames, skin weighting off. The stage runs in
// place, so each iteration sharpens the last one's output: the cost does not depend on it.
// Counter: megapixels per second.
//
//   tavrin_bench --benchmark_filter='Sharpen|UnsharpBand|ContrastStructure'
#include <benchmark/benchmark.h>

#include <random>

#include "bench/bench_rig.h"
#include "enhance/image_rows.h"
#include "sharpen/enhance.h"
#include "sharpen/image_effect.h"
#include "sharpen/unsharp.h"

namespace {

constexpr int32_t kW = 4000, kH = 3000;

void paint(tav_sr2_Image* frame) {
    std::mt19937 rng(1);
    const bool deep = tav_sr2_isSemiPlanar10(frame->format);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            const int32_t v = (((x * 7 + y * 3) >> 4) + (rng() & 15)) & 255;
            if (deep) {
                tav_sr2_rowOf<uint16_t>(frame, 0, y)[x] = (uint16_t)(4 * v);
            } else {
                tav_sr2_rowOf<uint8_t>(frame, 0, y)[x] = (uint8_t)v;
            }
        }
}

void setRate(benchmark::State& state) {
    state.counters["MP/s"] =
        benchmark::Counter(kW * kH * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

// Arguments: method, 10-bit, workers.
void BM_SharpenStage(benchmark::State& state) {
    BenchRig rig(size_t(320) << 20, (int32_t)state.range(2));
    const bool deep = state.range(1) != 0;
    tav_sr2_Image frame, sums;
    tav_sr2_Image_init(&frame, &rig.pool);
    tav_sr2_Image_init(&sums, &rig.pool);
    const int32_t format = deep ? TAV_SR2_FMT_YUV10B420_SEMIPLANAR : TAV_SR2_FMT_YUV420_SEMIPLANAR;
    if (!rig.ok || tav_sr2_Image_alloc(&frame, kW, kH, nullptr, format) != TAV_OK ||
        tav_sr2_Image_alloc(&sums, kW / 4 - 2, kH / 4 - 2, nullptr, TAV_SR2_FMT_UINT16) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    paint(&frame);
    for (int32_t y = 0; y < sums.height; ++y)
        for (int32_t x = 0; x < sums.width; ++x)
            tav_sr2_rowOf<uint16_t>(&sums, 0, y)[x] = 8 * 128;
    tav_sr2_EnhanceInputs in = {};
    in.ctx = rig.ctx();
    in.weight_sum = &sums;
    in.accum_num = in.frame_count = 8;
    in.do_unsharp = 110;
    in.unsharp_method = (int32_t)state.range(0);
    in.unsharp_sigma = 1.24;
    in.unsharp_sigma2 = 0.56;
    in.unsharp_4ghost_ratio = 0.5;
    in.do_unsharp_rate_for_skin = 1.0;
    in.internal_zoom_ratio = 1.0;
    in.zoom_ratio = 2.0;
    in.white_edge_level = in.black_edge_level = 0.8f;
    for (auto _ : state) {
        if (tav_sr2_Enhance_run(&in, &frame) != TAV_OK) state.SkipWithError("the stage failed");
    }
    setRate(state);
    tav_sr2_Image_finish(&sums);
    tav_sr2_Image_finish(&frame);
}

// Arguments: workers.
void unsharpBand(benchmark::State& state, const tav_sr2_SharpenRowOps* rows) {
    BenchRig rig(size_t(128) << 20, (int32_t)state.range(0));
    tav_sr2_Image frame, high;
    tav_sr2_Image_init(&frame, &rig.pool);
    tav_sr2_Image_init(&high, &rig.pool);
    if (!rig.ok ||
        tav_sr2_Image_alloc(&frame, kW, kH, nullptr, TAV_SR2_FMT_YUV10B420_SEMIPLANAR) != TAV_OK ||
        tav_sr2_Image_alloc(&high, kW, kH, nullptr, TAV_SR2_FMT_UINT16) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    paint(&frame);
    const tav_sr2_ImageCtx ctx = rig.ctx();
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_sr2_Unsharp_bandWithRows(
            &ctx, TAV_SR2_UNSHARP_BAND7, &high, &frame, nullptr, 0.56, 1.24, 110.0, 0.0, rows));
    }
    setRate(state);
    tav_sr2_Image_finish(&high);
    tav_sr2_Image_finish(&frame);
}

void BM_UnsharpBand7Scalar(benchmark::State& state) {
    unsharpBand(state, &tav_sr2_sharpenRowsScalar);
}
void BM_UnsharpBand7Vector(benchmark::State& state) {
    unsharpBand(state, &tav_sr2_sharpenRowsVector);
}

void stageArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"method", "deep", "workers"});
    for (int64_t workers : {1, 2}) {
        for (int64_t method : {0, 1, 2, 3})
            bm->Args({method, 1, workers});
        bm->Args({0, 0, workers});
    }
}

// The two stages after sharpening on the 10-bit frame. Arguments: structure (0: contrast at gain
// 60, sigma 2.2; 1: structure at strength 32, eps 500; 2: the same with eps_high 1000), workers.
void BM_ContrastStructure(benchmark::State& state) {
    BenchRig rig(size_t(256) << 20, (int32_t)state.range(1));
    tav_sr2_Image frame;
    tav_sr2_Image_init(&frame, &rig.pool);
    if (!rig.ok ||
        tav_sr2_Image_alloc(&frame, kW, kH, nullptr, TAV_SR2_FMT_YUV10B420_SEMIPLANAR) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    paint(&frame);
    const tav_sr2_ImageCtx ctx = rig.ctx();
    tav_sr2_ImageEffect effect;
    tav_sr2_ImageEffect_init(&effect, &rig.pool);
    tav_sr2_ImageEffect_setThreads(&effect, rig.ts, rig.threads());
    tav_sr2_StructureParams params;
    tav_sr2_ImageEffect_defaults(4, &params);
    params.strength = 32;
    params.eps_high = state.range(0) == 2 ? 1000.0 : 0.0;
    for (auto _ : state) {
        const uint32_t status = state.range(0) == 0
                                    ? tav_sr2_Contrast_run(&ctx, &frame, 60, 2.2)
                                    : tav_sr2_ImageEffect_run(&effect, &frame, &frame, 4, &params);
        if (status != TAV_OK) state.SkipWithError("the stage failed");
    }
    setRate(state);
    tav_sr2_ImageEffect_finish(&effect);
    tav_sr2_Image_finish(&frame);
}

void effectArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"structure", "workers"});
    for (int64_t workers : {1, 2})
        for (int64_t kind : {0, 1, 2})
            bm->Args({kind, workers});
}

void workerArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"workers"});
    for (int64_t workers : {1, 2})
        bm->Args({workers});
}

BENCHMARK(BM_SharpenStage)->Apply(stageArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ContrastStructure)->Apply(effectArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_UnsharpBand7Scalar)->Apply(workerArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_UnsharpBand7Vector)->Apply(workerArgs)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
