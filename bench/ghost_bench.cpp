// One addFrame of the ghost map on the crop of a 4000 x 3000 frame at zoom 2 (2000 x 1500, a
// work image of 1000 x 750), scalar row kernels against the vector ones, on 1 and 2 workers.
// The base is set once outside the timing. Counter: crop megapixels per second.
//
//   tavrin_bench --benchmark_filter=Ghost
#include <benchmark/benchmark.h>

#include <random>

#include "bench/bench_rig.h"
#include "merge/ghost.h"

namespace {

constexpr int32_t kW = 2000, kH = 1500;

// Smooth random texture, and the same texture moved by a fraction of a pixel with some noise.
void paint(tav_sr2_Image* base, tav_sr2_Image* frame) {
    std::mt19937 rng(3);
    for (int32_t y = 0; y < kH; ++y) {
        uint8_t* b = base->plane[0] + (size_t)y * base->pitch[0];
        uint8_t* f = frame->plane[0] + (size_t)y * frame->pitch[0];
        for (int32_t x = 0; x < kW; ++x) {
            b[x] = (uint8_t)(128 + 60 * ((x * 7 + y * 3) % 37) / 37 - 30 + (rng() & 7));
            f[x] = (uint8_t)(b[x] + (rng() % 5) - 2);
        }
    }
}

void addFrame(benchmark::State& state, const tav_sr2_GhostRowOps* rows) {
    BenchRig rig(64u << 20, (int32_t)state.range(0));
    tav_sr2_Image base, frame;
    tav_sr2_Image_init(&base, &rig.pool);
    tav_sr2_Image_init(&frame, &rig.pool);
    tav_sr2_Ghost ghost;
    tav_sr2_Ghost_init(&ghost, &rig.pool);
    ghost.threads = rig.threads();
    ghost.tasks = rig.ts;
    ghost.rows = rows;
    ghost.deghost_gauss_sigma0 = 0.8;
    ghost.deghost_ofs = 24.0;
    if (!rig.ok || tav_sr2_Image_alloc(&base, kW, kH, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK ||
        tav_sr2_Image_alloc(&frame, kW, kH, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    paint(&base, &frame);
    if (tav_sr2_Ghost_setBase(&ghost, &base) != TAV_OK ||
        tav_sr2_Ghost_addFrame(&ghost, &frame) != TAV_OK)
        state.SkipWithError("the ghost map failed");
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_sr2_Ghost_addFrame(&ghost, &frame));
    }
    state.counters["MP/s"] =
        benchmark::Counter(kW * kH / 1e6 * state.iterations(), benchmark::Counter::kIsRate);
    tav_sr2_Ghost_finish(&ghost);
    tav_sr2_Image_finish(&frame);
    tav_sr2_Image_finish(&base);
}

void BM_GhostAddFrameScalar(benchmark::State& state) {
    addFrame(state, &tav_sr2_ghostRowsScalar);
}
void BM_GhostAddFrameVector(benchmark::State& state) {
    addFrame(state, &tav_sr2_ghostRowsVector);
}
BENCHMARK(BM_GhostAddFrameScalar)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GhostAddFrameVector)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
