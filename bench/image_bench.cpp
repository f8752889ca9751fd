// Sizing an image: the reuse path (same byte count, no allocation) that stages take on every
// frame, against sizing a fresh record, which takes and later returns a pool block.
#include <benchmark/benchmark.h>

#include <vector>

#include "foundation/image.h"

namespace {

struct BenchPool {
    std::vector<uint8_t> region = std::vector<uint8_t>(32u << 20);
    tav_sr2_MemPool pool;
    BenchPool() { tav_sr2_MemPool_init(&pool, region.data(), region.size()); }
    ~BenchPool() { tav_sr2_MemPool_finish(&pool); }
};

const int32_t kWidth = 4000, kHeight = 3000;

void BM_ImageSetupReuse(benchmark::State& state) {
    BenchPool p;
    tav_sr2_Image img;
    tav_sr2_Image_init(&img, &p.pool);
    tav_sr2_Image_setup(&img, kWidth, kHeight, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR);
    for (auto _ : state) {
        uint32_t status =
            tav_sr2_Image_setup(&img, kWidth, kHeight, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(img.plane[1]);
    }
    tav_sr2_Image_finish(&img);
}
BENCHMARK(BM_ImageSetupReuse);

void BM_ImageSetupFirstTime(benchmark::State& state) {
    BenchPool p;
    for (auto _ : state) {
        tav_sr2_Image img;
        tav_sr2_Image_init(&img, &p.pool);
        uint32_t status =
            tav_sr2_Image_setup(&img, kWidth, kHeight, nullptr, TAV_SR2_FMT_YUV420_SEMIPLANAR);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(img.plane[1]);
        tav_sr2_Image_finish(&img);
    }
}
BENCHMARK(BM_ImageSetupFirstTime);

}  // namespace
