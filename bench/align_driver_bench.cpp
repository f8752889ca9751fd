// Alignment of a 2400 x 1800 crop: the driver on a burst of the base frame alone, and of the base
// and one moved frame, on 1 and 2 workers. One frame's alignment is the difference of the two.
// Counter: megapixels per second of crop pixels per frame in the burst ("MP/s").
//
//   tavrin_bench --benchmark_filter=AlignDriver
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "alignment/align_driver.h"
#include "bench/bench_rig.h"
#include "engine/pipeline.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"
#include "tests/alignment/scene_util.h"

namespace {

const int32_t kW = 2400, kH = 1800;

// The base and the moved frame, made once: warping 4 megapixels takes longer than aligning them.
const tav_scene::Plane& benchFrame(int32_t k) {
    static const tav_scene::Plane scene = tav_scene::texturedScene(kW + 64, kH + 64, 21);
    static const tav_scene::Plane base = tav_scene::warpedFrame(
        scene, tav_scene::aboutCentre(0, 1, 0, 0, 0, 0, 0, 0), 32, 32, kW, kH, 2.0, 1);
    static const tav_scene::Plane moved = tav_scene::warpedFrame(
        scene, tav_scene::aboutCentre(0.8, 1.01, 17.5, -11.25, 1e-6, -2e-6, kW / 2, kH / 2), 32, 32,
        kW, kH, 2.0, 2);
    return k == 0 ? base : moved;
}

struct Bench {
    BenchRig rig;
    std::unique_ptr<tav_sr2_Pipeline> p{new tav_sr2_Pipeline};
    tav_sr2_Image frames[2] = {};
    bool ok = true;

    explicit Bench(int32_t workers) : rig(128u << 20, workers) {
        ok = rig.ok;
        tav_sr2_Pipeline_init(p.get(), &rig.pool, rig.ts, rig.threads());
        p->clip_width = kW;
        p->clip_height = kH;
        for (int32_t k = 0; k < 2 && ok; ++k) {
            tav_sr2_Image_init(&frames[k], &rig.pool);
            ok = tav_sr2_Image_alloc(&frames[k], kW, kH, nullptr, 48) == TAV_OK;
            if (!ok) break;
            const tav_scene::Plane& src = benchFrame(k);
            for (int32_t y = 0; y < kH; ++y)
                memcpy(frames[k].plane[0] + (size_t)y * frames[k].pitch[0], &src.px[(size_t)y * kW],
                       kW);
            memset(frames[k].plane[1], 128, (size_t)frames[k].pitch[1] * (kH / 2));
            ok = tav_sr2_Image_crop(&p->images[k], &frames[k], 0, 0, kW, kH) == TAV_OK;
        }
    }
    ~Bench() {
        tav_sr2_Pipeline_finish(p.get());
        for (tav_sr2_Image& f : frames)
            tav_sr2_Image_finish(&f);
    }
    uint32_t align(int32_t frame_count) {
        p->frame_count = frame_count;
        p->align_fail_count = 0;
        p->order_ready = 1;
        for (int32_t i = 0; i < TAV_SR2_PIPELINE_FRAMES; ++i)
            p->frame_order[i] = i;
        return tav_sr2_Pipeline_align(p.get());
    }
};

// Arguments: frames in the burst (1: the base alone, 2: base and one frame), workers.
void BM_AlignDriver(benchmark::State& state) {
    const int32_t frame_count = (int32_t)state.range(0);
    Bench b((int32_t)state.range(1));
    if (!b.ok) {
        state.SkipWithError("setup failed");
        return;
    }
    for (auto _ : state) {
        if (b.align(frame_count) != TAV_OK) {
            state.SkipWithError("align failed");
            return;
        }
    }
    if (frame_count == 2 && b.p->align_status[1] != 0) state.SkipWithError("frame not aligned");
    state.counters["MP/s"] = benchmark::Counter((double)kW * kH * frame_count * 1e-6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_AlignDriver)
    ->ArgNames({"frames", "workers"})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Args({1, 2})
    ->Args({2, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
