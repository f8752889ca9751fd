// A whole engine run as the instance layer makes it: init in a buffer of exactly the budget,
// start, 8 frames of 4000 x 3000 taken in (YVU420_SEMIPLANAR, NV21, or the same frames packed at
// 10 bits, YUV10B_PACKED_LE_420S, which intake converts into the pool), the run at zoom 2 on the
// CPU merge, finish; with the stages built so far. The references, timed in the same program,
// are the least any run must do: one bilinear, and one bicubic (Keys' cubic through the
// resampler), enlargement of the zoom window (2000 x 1500, luma and chroma) to the output.
// Counter "MP/s": output megapixels per second. Arguments: workers, the caller included; packed.
//
//   tavrin_bench --benchmark_filter=Pipeline
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <memory>
#include <vector>

#include "bench/bench_rig.h"
#include "engine/buffer_budget.h"
#include "engine/engine.h"
#include "engine/frame_intake.h"
#include "engine/process.h"
#include "enhance/resize.h"
#include "merge/upscaler.h"

namespace {

constexpr int32_t kWidth = 4000, kHeight = 3000, kFrames = 8;
constexpr float kZoom = 2.0f;

struct FreeDeleter {
    void operator()(void* p) const { free(p); }
};

// Three 10-bit samples a 32-bit little-endian word, rows padded to 6 samples.
std::vector<uint8_t> packed10(const uint8_t* samples, int32_t width, int32_t rows, int32_t pitch) {
    std::vector<uint8_t> out(size_t(pitch) * rows, 0);
    for (int32_t y = 0; y < rows; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            uint8_t* word = &out[size_t(y) * pitch + size_t(x / 3) * 4];
            const uint32_t v = uint32_t(samples[size_t(y) * width + x]) << (2 + 10 * (x % 3));
            for (int b = 0; b < 4; ++b)
                word[b] |= uint8_t(v >> (8 * b));
        }
    }
    return out;
}

constexpr int32_t kPackedPitch = (kWidth + 5) / 6 * 8;

// Value noise: a random lattice of `cell`-pixel cells read bilinearly, so that alignment finds
// real structure at every scale rather than a repeating pattern.
double valueNoise(const std::vector<uint8_t>& lattice, int32_t x, int32_t y, int32_t cell) {
    constexpr int32_t kLattice = 256;
    const int32_t gx = x / cell, gy = y / cell;
    const double fx = double(x % cell) / cell, fy = double(y % cell) / cell;
    auto at = [&](int32_t i, int32_t j) {
        return double(lattice[size_t(j % kLattice) * kLattice + size_t(i % kLattice)]);
    };
    const double top = at(gx, gy) * (1 - fx) + at(gx + 1, gy) * fx;
    const double bottom = at(gx, gy + 1) * (1 - fx) + at(gx + 1, gy + 1) * fx;
    return top * (1 - fy) + bottom * fy;
}

// A burst of a textured scene, each frame moved by a pixel against the one before (and half a
// pixel down), in both forms.
struct Burst {
    std::vector<std::vector<uint8_t>> pixels, packed;
    std::vector<tavrin_KELD_Image> records, packed_records;
    Burst() {
        const size_t luma = size_t(kWidth) * kHeight;
        std::vector<uint8_t> lattice(256 * 256);
        uint32_t seed = 1;
        for (uint8_t& v : lattice)
            v = uint8_t((seed = seed * 1664525u + 1013904223u) >> 24);
        const int32_t sw = kWidth + kFrames, sh = kHeight + kFrames;
        std::vector<uint8_t> scene(size_t(sw) * sh);
        for (int32_t y = 0; y < sh; ++y)
            for (int32_t x = 0; x < sw; ++x)
                scene[size_t(y) * sw + x] = uint8_t(0.45 * valueNoise(lattice, x, y, 97) +
                                                    0.35 * valueNoise(lattice, x, y, 23) +
                                                    0.2 * valueNoise(lattice, x, y, 5));
        for (int32_t f = 0; f < kFrames; ++f) {
            std::vector<uint8_t> p(luma * 3 / 2);
            for (int32_t y = 0; y < kHeight; ++y)
                for (int32_t x = 0; x < kWidth; ++x)
                    p[size_t(y) * kWidth + x] = scene[size_t(y + f / 2) * sw + x + f];
            for (size_t i = luma; i < p.size(); ++i)
                p[i] = uint8_t(128 + (i % 17));
            pixels.push_back(std::move(p));
        }
        for (std::vector<uint8_t>& p : pixels) {
            records.push_back(
                {kWidth, kHeight, p.data(), p.data() + luma, nullptr, kWidth, kWidth, 0});
            packed.push_back(packed10(p.data(), kWidth, kHeight * 3 / 2, kPackedPitch));
            uint8_t* q = packed.back().data();
            packed_records.push_back({kWidth, kHeight, q, q + size_t(kPackedPitch) * kHeight,
                                      nullptr, kPackedPitch, kPackedPitch, 0});
        }
    }
};

const Burst& burst() {
    static const Burst b;
    return b;
}

void BM_PipelineWholeRun(benchmark::State& state) {
    const int32_t workers = int32_t(state.range(0));
    const bool packed = state.range(1) != 0;
    const char* format = packed ? "YUV10B_PACKED_LE_420S" : "YVU420_SEMIPLANAR";
    const Burst& b = burst();
    const int32_t budget =
        tav_sr2_getBufferSize(kWidth, kHeight, kWidth, kHeight, kFrames, kFrames, format, kZoom);
    std::unique_ptr<uint8_t, FreeDeleter> buffer(
        static_cast<uint8_t*>(aligned_alloc(64, (size_t(budget) + 63) & ~size_t(63))));
    std::vector<uint8_t> out(size_t(kWidth) * kHeight * 3 / 2);
    const tavrin_KELD_Image output = {kWidth,  kHeight, out.data(), out.data() + kWidth * kHeight,
                                      nullptr, kWidth,  kWidth,     0};
    int32_t merged = 0;
    for (auto _ : state) {
        tav_sr2_Engine* e = nullptr;
        uint32_t status = tav_sr2_init(&e, buffer.get(), budget, kWidth, kHeight, kWidth, kHeight,
                                       kFrames, kFrames, workers, format, kZoom);
        status |= tav_sr2_setCore(&e, 0, workers, 0);
        status |= tav_sr2_start(&e);
        for (const tavrin_KELD_Image& frame : packed ? b.packed_records : b.records)
            status |= tav_sr2_addImage(&e, &frame);
        status |= tav_sr2_process(&e, &output);
        status |= tav_sr2_getMergeNum(&e, &merged);
        status |= tav_sr2_finish(&e);
        if (status != TAV_OK) {
            state.SkipWithError("the run failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["MP/s"] = benchmark::Counter(double(kWidth) * kHeight * state.iterations() / 1e6,
                                                benchmark::Counter::kIsRate);
    state.counters["merged"] = merged;  // frames the run merged
}
BENCHMARK(BM_PipelineWholeRun)
    ->ArgsProduct({{1, 2, 4}, {0, 1}})
    ->ArgNames({"workers", "packed"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The references: the zoom window of one frame enlarged to the output, luma and chroma, by the
// bilinear resize (kCubic 0) or Keys' bicubic through the resampler (kCubic 1).
template <int kCubic>
void referenceEnlargement(benchmark::State& state) {
    const int32_t workers = int32_t(state.range(0));
    BenchRig rig(size_t(64) << 20, workers);
    bool ok = rig.ok;
    const tav_sr2_ImageCtx ctx = rig.ctx();

    std::vector<uint8_t> out(size_t(kWidth) * kHeight * 3 / 2);
    const tavrin_KELD_Image& frame = burst().records[0];
    tav_sr2_Image full, window, dst;
    tav_sr2_Image_init(&full, &rig.pool);
    tav_sr2_Image_init(&dst, &rig.pool);
    uint8_t* in_planes[2] = {static_cast<uint8_t*>(frame.plane0),
                             static_cast<uint8_t*>(frame.plane1)};
    uint8_t* out_planes[2] = {out.data(), out.data() + kWidth * kHeight};
    ok = ok && tav_sr2_Image_alloc(&full, kWidth, kHeight, in_planes,
                                   TAV_SR2_FMT_YUV420_SEMIPLANAR) == TAV_OK;
    ok = ok && tav_sr2_Image_alloc(&dst, kWidth, kHeight, out_planes,
                                   TAV_SR2_FMT_YUV420_SEMIPLANAR) == TAV_OK;
    ok = ok && tav_sr2_Image_crop(&window, &full, kWidth / 4, kHeight / 4, kWidth / 2,
                                  kHeight / 2) == TAV_OK;
    tav_sr2_Upscaler u;
    tav_sr2_Upscaler_init(&u, &rig.pool);
    u.resize = ctx;
    const tav_sr2_UpscaleKernel keys = {0, 0.0, 0.5};
    ok = ok && tav_sr2_Upscaler_reset(&u) == TAV_OK &&
         tav_sr2_Upscaler_setKernel(&u, &keys) == TAV_OK;
    if (!ok) state.SkipWithError("setup failed");
    for (auto _ : state) {
        if (!ok) break;
        const uint32_t status = kCubic ? tav_sr2_Upscaler_resample(&u, &dst, &window) |
                                             tav_sr2_Upscaler_resampleChroma(&u, &dst, &window)
                                       : tav_sr2_Image_resize(&ctx, &dst, &window);
        if (status != TAV_OK) {
            state.SkipWithError("resize failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["MP/s"] = benchmark::Counter(double(kWidth) * kHeight * state.iterations() / 1e6,
                                                benchmark::Counter::kIsRate);
    tav_sr2_Upscaler_finish(&u);
    tav_sr2_Image_finish(&dst);
    tav_sr2_Image_finish(&full);
}
void BM_PipelineReferenceResize(benchmark::State& state) {
    referenceEnlargement<0>(state);
}
void BM_PipelineReferenceBicubic(benchmark::State& state) {
    referenceEnlargement<1>(state);
}
BENCHMARK(BM_PipelineReferenceResize)
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_PipelineReferenceBicubic)
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
