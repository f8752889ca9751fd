// Cost of the row scheduler and the closure pool.
//
// RowsPlainLoop is the reference: the same row body called in a loop on one thread. TaskSysRun
// hands the same rows to tav_sr2_TaskSys_run with 1, 2 and 8 workers (fixed and dynamic split);
// the difference per row is the scheduler's overhead, since the body is a few instructions.
// ThreadPoolPostJoin measures post + join of one 8-byte job, and of one job per worker as the
// band kernels do it.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

namespace {

const int32_t kRows = 1024;

struct RowArgs {
    int32_t out[kRows];
};

uint32_t tinyRow(void* arg, int32_t row, tav_sr2_TaskCtx*) {
    ((RowArgs*)arg)->out[row] = row * 3 + 1;
    return 0;
}
const tav_sr2_TaskType kTinyRows = tav_sr2_rowTaskType<tinyRow>();

struct Scheduler {
    std::vector<unsigned char> region = std::vector<unsigned char>(1 << 16);
    tav_sr2_MemPool pool;
    std::unique_ptr<tav_sr2_TaskSys> ts{new tav_sr2_TaskSys()};
    tav_sr2_ThreadPool tp;
    Scheduler(int32_t workers, int32_t dynamic_split) {
        tav_sr2_MemPool_init(&pool, region.data(), region.size());
        tav_sr2_TaskSys_init(ts.get(), &pool);
        ts->config.thread_count = workers;
        ts->config.dynamic_split = dynamic_split;
        tav_sr2_TaskSys_start(ts.get());
        tav_sr2_ThreadPool_init(&tp, &pool);
        tp.thread_limit = workers;
        tp.task_sys = ts.get();
        tav_sr2_ThreadPool_start(&tp, 64, 64);
    }
    ~Scheduler() {
        tav_sr2_ThreadPool_finish(&tp);
        tav_sr2_TaskSys_finish(ts.get());
    }
};

void RowsPlainLoop(benchmark::State& state) {
    RowArgs args;
    for (auto _ : state) {
        for (int32_t row = 0; row < kRows; ++row)
            tinyRow(&args, row, nullptr);
        benchmark::DoNotOptimize(args.out);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(RowsPlainLoop);

void TaskSysRun(benchmark::State& state) {
    Scheduler s((int32_t)state.range(0), (int32_t)state.range(1));
    RowArgs args;
    for (auto _ : state) {
        tav_sr2_TaskSys_run(s.ts.get(), &kTinyRows, &args, kRows);
        benchmark::DoNotOptimize(args.out);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(TaskSysRun)
    ->ArgNames({"workers", "dynamic"})
    ->ArgsProduct({{1, 2, 8}, {0, 1}})
    ->UseRealTime();

uint32_t emptyJob(void* arg) {
    benchmark::DoNotOptimize(arg);
    return 0;
}

// range(1): jobs per join; 0 means one per worker.
void ThreadPoolPostJoin(benchmark::State& state) {
    int32_t workers = (int32_t)state.range(0);
    Scheduler s(workers, 0);
    int32_t jobs = state.range(1) > 0 ? (int32_t)state.range(1) : workers;
    int64_t payload = 42;
    int64_t* block = &payload;
    for (auto _ : state) {
        for (int32_t i = 0; i < jobs; ++i) {
            tav_sr2_ThreadPool_post(&s.tp, emptyJob, &block, sizeof(block));
        }
        benchmark::DoNotOptimize(tav_sr2_ThreadPool_join(&s.tp));
    }
    state.SetItemsProcessed(state.iterations() * jobs);
}
BENCHMARK(ThreadPoolPostJoin)
    ->ArgNames({"workers", "jobs"})
    ->ArgsProduct({{1, 2, 8}, {1, 0}})
    ->UseRealTime();

}  // namespace
