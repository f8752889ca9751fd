// The finishing stages on a 4000 x 3000 10-bit frame, on 1 and 2 workers: the chroma filter
// (window 21 cells at scale 4, with a noise map; and its narrow-change clip) and the grain in its
// three modes. Counter: megapixels per second.
//
//   tavrin_bench --benchmark_filter='ChromaNr|Grain'
#include <benchmark/benchmark.h>

#include <random>

#include "bench/bench_rig.h"
#include "enhance/image_rows.h"
#include "nr/chroma_nr.h"
#include "sharpen/dither.h"

namespace {

constexpr int32_t kW = 4000, kH = 3000;

bool makeFrame(BenchRig* rig, tav_sr2_Image* frame) {
    tav_sr2_Image_init(frame, &rig->pool);
    if (!rig->ok ||
        tav_sr2_Image_alloc(frame, kW, kH, nullptr, TAV_SR2_FMT_YUV10B420_SEMIPLANAR) != TAV_OK)
        return false;
    std::mt19937 rng(1);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x)
            tav_sr2_rowOf<uint16_t>(frame, 0, y)[x] =
                (uint16_t)(4 * ((((x * 7 + y * 3) >> 4) + (rng() & 15)) & 255));
    for (int32_t y = 0; y < kH / 2; ++y)
        for (int32_t x = 0; x < kW; ++x)
            tav_sr2_rowOf<uint16_t>(frame, 1, y)[x] = (uint16_t)(4 * (112 + (rng() & 31)));
    return true;
}

void setRate(benchmark::State& state) {
    state.counters["MP/s"] =
        benchmark::Counter(kW * kH * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

// Arguments: clip (0: the filter, 1: the narrow-change step), workers.
void BM_ChromaNr(benchmark::State& state) {
    BenchRig rig(size_t(192) << 20, (int32_t)state.range(1));
    tav_sr2_Image frame, map;
    tav_sr2_Image_init(&map, &rig.pool);
    if (!makeFrame(&rig, &frame) ||
        tav_sr2_Image_alloc(&map, kW / 4 - 2, kH / 4 - 2, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    for (int32_t y = 0; y < map.height; ++y)
        for (int32_t x = 0; x < map.width; ++x)
            tav_sr2_rowOf<uint8_t>(&map, 0, y)[x] = 24;
    const tav_sr2_ImageCtx ctx = rig.ctx();
    for (auto _ : state) {
        const uint32_t status = state.range(0) == 0
                                    ? tav_sr2_ChromaNR_run(&ctx, &frame, &frame, &map, 21, 0.02f,
                                                           0.05f, 0.05f, 1.0f, 4.0f)
                                    : tav_sr2_ChromaNR_clip(&ctx, &frame, 21, 4.0f);
        if (status != TAV_OK) state.SkipWithError("the filter failed");
    }
    setRate(state);
    tav_sr2_Image_finish(&map);
    tav_sr2_Image_finish(&frame);
}

// Arguments: mode, workers.
void BM_Grain(benchmark::State& state) {
    BenchRig rig(size_t(192) << 20, (int32_t)state.range(1));
    tav_sr2_Image frame;
    if (!makeFrame(&rig, &frame)) {
        state.SkipWithError("no memory");
        return;
    }
    const tav_sr2_ImageCtx ctx = rig.ctx();
    for (auto _ : state) {
        if (tav_sr2_Dither_run16(&ctx, &frame, &frame, 512, 255, 8, (int32_t)state.range(0), 2.0,
                                 0.0, 1.0) != TAV_OK)
            state.SkipWithError("the grain failed");
    }
    setRate(state);
    tav_sr2_Image_finish(&frame);
}

void chromaArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"clip", "workers"});
    for (int64_t workers : {1, 2})
        for (int64_t clip : {0, 1})
            bm->Args({clip, workers});
}

void grainArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"mode", "workers"});
    for (int64_t workers : {1, 2})
        for (int64_t mode : {0, 1, 2})
            bm->Args({mode, workers});
}

BENCHMARK(BM_ChromaNr)->Apply(chromaArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Grain)->Apply(grainArgs)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
