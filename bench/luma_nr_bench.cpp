// The guided filter and multiscale_ynr on a 2000 x 1500 plane, on 1 and 2 workers; the filter
// with its scalar rows beside the vector ones. The content is the resize benchmarks' photo-like
// ramps with texture, 8-bit; multiscale_ynr runs on a 10-bit frame of it (the merged frame's
// format) with a noise map of 32. The filter runs in place, so each iteration filters the last
// one's output: the cost does not depend on the content. Counter: megapixels per second.
//
//   tavrin_bench --benchmark_filter='GuidedFilter|MultiscaleYnr'
#include <benchmark/benchmark.h>

#include <random>

#include "bench/bench_rig.h"
#include "enhance/image_rows.h"
#include "nr/guided_filter.h"
#include "nr/luma_nr.h"

namespace {

constexpr int32_t kW = 2000, kH = 1500;

template <typename T>
void paint(tav_sr2_Image* image, int32_t scale) {
    std::mt19937 rng(1);
    for (int32_t y = 0; y < kH; ++y) {
        T* row = tav_sr2_rowOf<T>(image, 0, y);
        for (int32_t x = 0; x < kW; ++x)
            row[x] = (T)(((((x * 7 + y * 3) >> 4) + (rng() & 15)) & 255) * scale);
    }
}

void setRate(benchmark::State& state) {
    state.counters["MP/s"] =
        benchmark::Counter(kW * kH * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

// Arguments: window, workers.
void guidedFilter(benchmark::State& state, const tav_sr2_GuidedRowOps* rows) {
    BenchRig rig(64u << 20, (int32_t)state.range(1));
    tav_sr2_Image plane;
    tav_sr2_Image_init(&plane, &rig.pool);
    tav_sr2_GuidedFilter filter;
    tav_sr2_GuidedFilter_init(&filter, &rig.pool);
    tav_sr2_GuidedFilter_setThreads(&filter, rig.ts);
    filter.rows = rows;
    if (!rig.ok || tav_sr2_Image_alloc(&plane, kW, kH, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK ||
        tav_sr2_GuidedFilter_setup(&filter, kW, kH, TAV_SR2_FMT_UINT8, nullptr) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    paint<uint8_t>(&plane, 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_sr2_GuidedFilter_process(&filter, nullptr, &plane,
                                                              (int32_t)state.range(0), 100.0f));
    }
    setRate(state);
    tav_sr2_GuidedFilter_finish(&filter);
    tav_sr2_Image_finish(&plane);
}

void BM_GuidedFilterScalar(benchmark::State& state) {
    guidedFilter(state, &tav_sr2_guidedRowsScalar);
}
void BM_GuidedFilterVector(benchmark::State& state) {
    guidedFilter(state, &tav_sr2_guidedRowsVector);
}

// Arguments: workers.
void BM_MultiscaleYnr(benchmark::State& state) {
    BenchRig rig(96u << 20, (int32_t)state.range(0));
    tav_sr2_Image frame, map;
    tav_sr2_Image_init(&frame, &rig.pool);
    tav_sr2_Image_init(&map, &rig.pool);
    if (!rig.ok ||
        tav_sr2_Image_alloc(&frame, kW, kH, nullptr, TAV_SR2_FMT_YUV10B420_SEMIPLANAR) != TAV_OK ||
        tav_sr2_Image_alloc(&map, kW, kH, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    paint<uint16_t>(&frame, 4);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x)
            tav_sr2_rowOf<uint8_t>(&map, 0, y)[x] = 32;
    const tav_sr2_NrEngine engine = {rig.ctx(), 124, -124, 107};
    for (auto _ : state) {
        benchmark::DoNotOptimize(multiscale_ynr_16(&engine, &frame, &map, 128 + 30, 2.2f, 1.1f));
    }
    setRate(state);
    tav_sr2_Image_finish(&map);
    tav_sr2_Image_finish(&frame);
}

void filterArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"window", "workers"});
    for (int64_t workers : {1, 2})
        for (int64_t window : {9, 41})
            bm->Args({window, workers});
}

void workerArgs(benchmark::internal::Benchmark* bm) {
    bm->ArgNames({"workers"});
    for (int64_t workers : {1, 2})
        bm->Args({workers});
}

BENCHMARK(BM_GuidedFilterScalar)->Apply(filterArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GuidedFilterVector)->Apply(filterArgs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MultiscaleYnr)->Apply(workerArgs)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
