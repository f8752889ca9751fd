// The sharpness measure of frame intake: scalar row kernels against the vector ones on one
// worker, on the centre half of a 4000 x 3000 frame's luma shrunk by 2 (1000 x 750), plus the
// packed 10-bit conversion of a whole 4000 x 3000 frame. Counters: megapixels per second.
//
//   tavrin_bench --benchmark_filter='Sharpness|Packed10'
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "engine/convert_packed10.h"
#include "engine/sharpness.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"

namespace {

struct Heap {
    std::unique_ptr<max_align_t[]> region;
    tav_sr2_MemPool pool = {};
    explicit Heap(size_t bytes) : region(new max_align_t[bytes / sizeof(max_align_t)]) {
        tav_sr2_MemPool_init(&pool, region.get(), bytes);
    }
};

void sharpness(benchmark::State& state, const tav_sr2_SharpRowOps* rows) {
    Heap heap(16u << 20);
    tav_sr2_Image im;
    tav_sr2_Image_init(&im, &heap.pool);
    if (tav_sr2_Image_alloc(&im, 1000, 750, nullptr, TAV_SR2_FMT_UINT8) != TAV_OK) {
        state.SkipWithError("no memory");
        return;
    }
    std::mt19937 rng(1);
    for (int32_t i = 0; i < 1000 * 750; ++i)
        im.plane[0][i] = (uint8_t)rng();
    uint32_t score = 0;
    for (auto _ : state) {
        tav_sr2_Image_sharpnessWithRows(nullptr, &heap.pool, &score, &im, 0.99, 0.7, rows);
        benchmark::DoNotOptimize(score);
    }
    state.counters["MP/s"] =
        benchmark::Counter(0.75 * state.iterations(), benchmark::Counter::kIsRate);
    tav_sr2_Image_finish(&im);
}

void BM_SharpnessScalar(benchmark::State& state) {
    sharpness(state, &tav_sr2_sharpRowsScalar);
}
void BM_SharpnessVector(benchmark::State& state) {
    sharpness(state, &tav_sr2_sharpRowsVector);
}
BENCHMARK(BM_SharpnessScalar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SharpnessVector)->Unit(benchmark::kMillisecond);

void BM_Packed10To8(benchmark::State& state) {
    const int32_t w = 4000, h = 3000, pitch = 4000 * 4 / 3 + 4;
    std::vector<uint8_t> luma((size_t)pitch * h), chroma((size_t)pitch * h / 2);
    std::mt19937 rng(2);
    for (auto& v : luma)
        v = (uint8_t)rng();
    for (auto& v : chroma)
        v = (uint8_t)rng();
    Heap heap(24u << 20);
    tav_sr2_Image src, dst;
    tav_sr2_Image_init(&src, nullptr);
    tav_sr2_Image_init(&dst, &heap.pool);
    tav_sr2_ImagePlanes2 planes = {{luma.data(), chroma.data()}, {pitch, pitch}};
    if (tav_sr2_Image_setup(&src, w, h, &planes, TAV_SR2_FMT_YUV10B_PACKED_LE_420S) != TAV_OK ||
        tav_sr2_Image_alloc(&dst, w, h, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR) != TAV_OK) {
        state.SkipWithError("setup failed");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav_sr2_convertPacked10to8(nullptr, &dst, &src));
    }
    state.counters["MP/s"] =
        benchmark::Counter(12.0 * state.iterations(), benchmark::Counter::kIsRate);
    tav_sr2_Image_finish(&dst);
}
BENCHMARK(BM_Packed10To8)->Unit(benchmark::kMillisecond);

}  // namespace
