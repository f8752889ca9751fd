// Megapixels per second of the estimator's reference preparation on a 2400 x 1800 crop: the
// pyramid (level 0 copy, the six-tap reductions, the contrast top level) and the corner
// detection on every level, scalar rows against vector rows, on 1 and 2 workers. The pyramid and
// the corners are also timed alone.
//
//   tavrin_bench --benchmark_filter='Align'
//
// Arguments: form (0 scalar, 1 vector), workers.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include "alignment/corners.h"
#include "alignment/corners_rows.h"
#include "alignment/motion_estimator.h"
#include "alignment/pyramid.h"
#include "foundation/image.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace {

const int32_t kWidth = 2400;
const int32_t kHeight = 1800;
const size_t kHeapBytes = 64u << 20;

struct AlignEnv {
    tav_sr2_MemPool pool = {};
    void* region = nullptr;
    tav_sr2_TaskSys* ts = nullptr;
    tav_sr2_ThreadPool tp = {};
    tav_sr2_Image input = {};
    tav_sr2_MotionEstimator est = {};
    tav_sr2_CornerList list = {};
    int32_t workers = 0;
};

// Value noise: random lattice values every 8 pixels, bilinear in between, plus fine grain, so
// every level has corners.
void fillScene(tav_sr2_Image* image) {
    auto lattice = [](int32_t i, int32_t j) {
        uint32_t h = (uint32_t)i * 73856093u ^ (uint32_t)j * 19349663u;
        h = (h ^ (h >> 13)) * 1274126177u;
        return (int32_t)((h >> 24) & 0xFF);
    };
    for (int32_t y = 0; y < image->height; ++y) {
        uint8_t* row = image->plane[0] + (int64_t)y * image->pitch[0];
        for (int32_t x = 0; x < image->width; ++x) {
            const int32_t i = x >> 3, j = y >> 3, fx = x & 7, fy = y & 7;
            const int32_t top = lattice(i, j) * (8 - fx) + lattice(i + 1, j) * fx;
            const int32_t bottom = lattice(i, j + 1) * (8 - fx) + lattice(i + 1, j + 1) * fx;
            const int32_t v = (top * (8 - fy) + bottom * fy) >> 6;
            row[x] = (uint8_t)((v * 7 + (lattice(x, y) >> 5) * 8) >> 3);
        }
    }
}

AlignEnv* envFor(int32_t workers) {
    static AlignEnv envs[3];
    AlignEnv* env = &envs[workers];
    if (env->workers == workers) return env;
    env->region = aligned_alloc(64, kHeapBytes);
    tav_sr2_MemPool_init(&env->pool, env->region, kHeapBytes);
    env->ts = static_cast<tav_sr2_TaskSys*>(calloc(1, sizeof(tav_sr2_TaskSys)));
    tav_sr2_TaskSys_init(env->ts, &env->pool);
    env->ts->config.thread_count = workers;
    tav_sr2_TaskSys_start(env->ts);
    tav_sr2_ThreadPool_init(&env->tp, &env->pool);
    env->tp.task_sys = env->ts;
    env->tp.thread_limit = workers;
    tav_sr2_ThreadPool_start(&env->tp, 64, 64);
    tav_sr2_Image_init(&env->input, &env->pool);
    tav_sr2_Image_alloc(&env->input, kWidth, kHeight, nullptr, TAV_SR2_FMT_UINT8);
    fillScene(&env->input);
    tav_sr2_MotionEstimator_init(&env->est, &env->pool);
    env->est.max_pixels = kWidth * kHeight;
    env->est.motion_model = 3;
    env->est.fit_method = 3;
    env->est.normalize_level0 = 0;
    env->est.thread_pool = &env->tp;
    tav_sr2_MotionEstimator_configure(&env->est, kWidth, kHeight);
    tav_sr2_CornerList_init(&env->list, &env->pool, env->est.feature_count);
    env->workers = workers;
    return env;
}

void reportRate(benchmark::State& state) {
    state.counters["MP/s"] = benchmark::Counter(
        (double)kWidth * kHeight * (double)state.iterations() / 1e6, benchmark::Counter::kIsRate);
}

enum Part { kPyramid = 1, kCorners = 2 };

void alignPrepare(benchmark::State& state, int32_t parts) {
    AlignEnv* env = envFor((int32_t)state.range(1));
    const bool vector = state.range(0) != 0;
    const tav_sr2_PyramidRows* pyramid_rows =
        vector ? tav_sr2_pyramidRowsVector() : tav_sr2_pyramidRowsScalar();
    const tav_sr2_CornerRows* corner_rows =
        vector ? tav_sr2_cornerRowsVector() : tav_sr2_cornerRowsScalar();
    tav_sr2_MotionEstimator* est = &env->est;
    tav_sr2_Pyramid_build(est, &env->input, est->ref_pyramid, pyramid_rows);
    for (auto _ : state) {
        uint32_t status = TAV_OK;
        if (parts & kPyramid) {
            status |= tav_sr2_Pyramid_build(est, &env->input, est->ref_pyramid, pyramid_rows);
        }
        for (int32_t k = 0; (parts & kCorners) && k < est->level_count; ++k) {
            status |= tav_sr2_CornerList_detectWithRows(&env->list, &est->ref_pyramid[k],
                                                        est->feature_count, &env->tp, corner_rows);
        }
        if (status != TAV_OK) state.SkipWithError("alignment preparation failed");
        benchmark::DoNotOptimize(env->list.count);
    }
    reportRate(state);
}

void AlignPyramidCorners(benchmark::State& state) {
    alignPrepare(state, kPyramid | kCorners);
}
void AlignPyramid(benchmark::State& state) {
    alignPrepare(state, kPyramid);
}
void AlignCorners(benchmark::State& state) {
    alignPrepare(state, kCorners);
}

void formsAndWorkers(benchmark::internal::Benchmark* b) {
    b->ArgNames({"vector", "workers"});
    for (int64_t workers : {1, 2}) {
        for (int64_t vector : {0, 1})
            b->Args({vector, workers});
    }
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace

BENCHMARK(AlignPyramidCorners)->Apply(formsAndWorkers);
BENCHMARK(AlignPyramid)->Apply(formsAndWorkers);
BENCHMARK(AlignCorners)->Apply(formsAndWorkers);
