// The closure pool: bound to a scheduler as the engine uses it, and with its own threads.
#include "foundation/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/foundation/task_test_util.h"

namespace {

// The engine's arrangement: a scheduler and a pool bound to it, started with 64, 64.
struct Bound {
    TestPool pool;
    std::unique_ptr<tav_sr2_TaskSys> ts{new tav_sr2_TaskSys()};
    tav_sr2_ThreadPool tp;
    explicit Bound(int32_t threads, size_t pool_bytes = 1 << 16) : pool(pool_bytes) {
        tav_sr2_TaskSys_init(ts.get(), &pool.pool);
        ts->config.thread_count = threads;
        EXPECT_EQ(tav_sr2_TaskSys_start(ts.get()), TAV_OK);
        tav_sr2_ThreadPool_init(&tp, &pool.pool);
        tp.thread_limit = threads;
        tp.task_sys = ts.get();
    }
    ~Bound() {
        tav_sr2_ThreadPool_finish(&tp);
        tav_sr2_TaskSys_finish(ts.get());
        EXPECT_EQ(pool.inUse(), 0u);
    }
};

struct JobArg {
    int32_t index;
    uint32_t result;
    std::atomic<int>* runs;  // per index
    const TestPool* pool;
    std::atomic<int>* outside_pool;
};

uint32_t recordJob(void* arg) {
    JobArg* a = (JobArg*)arg;
    a->runs[a->index].fetch_add(1);
    if (!a->pool->owns(arg)) a->outside_pool->fetch_add(1);  // must run on the pool's copy
    return a->result;
}

uint32_t returnsArgument(void* arg) {
    return *(uint32_t*)arg;
}

TEST(ThreadPoolTest, BoundPostCopiesArgumentsAndJoinOrsResults) {
    Bound b(4);
    ASSERT_EQ(tav_sr2_ThreadPool_start(&b.tp, 64, 64), TAV_OK);
    EXPECT_EQ(tav_sr2_ThreadPool_start(&b.tp, 64, 64), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_ThreadPool_threadCount(&b.tp), 4);
    EXPECT_EQ(tav_sr2_ThreadPool_threadCount(nullptr), 1);
    uint32_t idle = b.pool.inUse();
    for (int round = 0; round < 3; ++round) {
        std::vector<std::atomic<int>> runs(100);
        std::atomic<int> outside{0};
        uint32_t want = 0;
        JobArg arg{0, 0, runs.data(), &b.pool, &outside};
        for (int32_t i = 0; i < 100; ++i) {
            arg.index = i;
            arg.result = i % 17 == 5 ? TAV_ERROR_GENERIC | (1u << (i % 7)) : 0;
            want |= arg.result;
            ASSERT_EQ(tav_sr2_ThreadPool_post(&b.tp, recordJob, &arg, sizeof(arg)), TAV_OK);
        }
        arg.index = -1;  // the jobs hold their own copies
        EXPECT_EQ(tav_sr2_ThreadPool_join(&b.tp), want);
        for (auto& r : runs)
            ASSERT_EQ(r.load(), 1);
        EXPECT_EQ(outside.load(), 0);
        EXPECT_EQ(b.pool.inUse(), idle);  // copies and ids given back
        EXPECT_EQ(b.ts->free_slots, TAV_SR2_TASK_SLOTS);
    }
    EXPECT_EQ(tav_sr2_ThreadPool_join(&b.tp), TAV_OK);  // nothing posted

    // Several threads may post at once; one joins.
    std::vector<std::atomic<int>> runs(120);
    std::atomic<int> outside{0};
    std::vector<std::thread> posters;
    for (int t = 0; t < 3; ++t) {
        posters.emplace_back([&, t] {
            for (int32_t i = t * 40; i < t * 40 + 40; ++i) {
                JobArg arg{i, 0, runs.data(), &b.pool, &outside};
                EXPECT_EQ(tav_sr2_ThreadPool_post(&b.tp, recordJob, &arg, sizeof(arg)), TAV_OK);
            }
        });
    }
    for (auto& p : posters)
        p.join();
    EXPECT_EQ(tav_sr2_ThreadPool_join(&b.tp), TAV_OK);
    for (auto& r : runs)
        ASSERT_EQ(r.load(), 1);
}

// One worker: posted jobs wait for the join. A scheduler stopped before it drops them; the
// join reports the stop, and finish still gives their copies back to the pool.
TEST(ThreadPoolTest, FinishFreesCopiesOfJobsAStoppedSchedulerDropped) {
    Bound b(1);
    ASSERT_EQ(tav_sr2_ThreadPool_start(&b.tp, 64, 64), TAV_OK);
    uint32_t idle = b.pool.inUse();
    uint32_t value = 5;
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(tav_sr2_ThreadPool_post(&b.tp, returnsArgument, &value, 4), TAV_OK);
    EXPECT_GT(b.pool.inUse(), idle);
    EXPECT_EQ(tav_sr2_TaskSys_stop(b.ts.get()), TAV_OK);
    EXPECT_EQ(tav_sr2_ThreadPool_join(&b.tp), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_ThreadPool_finish(&b.tp), TAV_ERROR_STATE);
    EXPECT_EQ(b.pool.inUse(), 0u);
}

// ---- own threads --------------------------------------------------------------------------------

struct Own {
    TestPool pool{1 << 16};
    tav_sr2_ThreadPool tp;
    Own() { tav_sr2_ThreadPool_init(&tp, &pool.pool); }
    ~Own() {
        tav_sr2_ThreadPool_finish(&tp);
        EXPECT_EQ(pool.inUse(), 0u);
    }
};

uint32_t markIndex(void* arg, int32_t i) {
    std::atomic<int>* seen = (std::atomic<int>*)arg;
    seen[i].fetch_add(1);
    return i % 100 == 42 ? 0x8u : 0u;
}

TEST(ThreadPoolTest, OwnModeWithoutThreadsRunsOnJoinAndCancelSkips) {
    Own o;  // thread_limit 0: the caller does everything when it joins
    ASSERT_EQ(tav_sr2_ThreadPool_start(&o.tp, 4, 8), TAV_OK);
    std::vector<std::atomic<int>> runs(8);
    std::atomic<int> outside{0};
    for (int32_t i = 0; i < 8; ++i) {
        JobArg arg{i, 0, runs.data(), &o.pool, &outside};
        ASSERT_EQ(tav_sr2_ThreadPool_post(&o.tp, recordJob, &arg, sizeof(arg)), TAV_OK);
    }
    EXPECT_EQ(o.tp.started_threads, 0);
    EXPECT_EQ(runs[0].load(), 0);
    EXPECT_EQ(tav_sr2_ThreadPool_join(&o.tp), TAV_OK);
    for (auto& r : runs)
        EXPECT_EQ(r.load(), 1);

    // Jobs taken after cancel are not run but marked cancelled.
    for (int32_t i = 0; i < 3; ++i) {
        JobArg arg{i, 0, runs.data(), &o.pool, &outside};
        ASSERT_EQ(tav_sr2_ThreadPool_post(&o.tp, recordJob, &arg, sizeof(arg)), TAV_OK);
    }
    tav_sr2_ThreadPool_cancel(&o.tp);
    EXPECT_EQ(tav_sr2_ThreadPool_join(&o.tp), TAV_SR2_TASK_CANCELLED);
    for (auto& r : runs)
        EXPECT_EQ(r.load(), 1);
    EXPECT_EQ(tav_sr2_ThreadPool_finish(&o.tp), TAV_OK);

    // Restarted with threads and a caller that only waits.
    o.tp.thread_limit = -1;
    o.tp.caller_is_worker = 0;
    ASSERT_EQ(tav_sr2_ThreadPool_start(&o.tp, 2, 4), TAV_OK);
    int32_t want_threads = std::min(2, std::max(tav_sr2_getProcessorCount(), 0));
    EXPECT_EQ(tav_sr2_ThreadPool_threadCount(&o.tp), std::max(want_threads, 1));
    std::vector<std::atomic<int>> seen(200);
    EXPECT_EQ(tav_sr2_ThreadPool_parallelFor(&o.tp, markIndex, seen.data(), 200), 0x8u);
    for (auto& s : seen)
        ASSERT_EQ(s.load(), 1);
    for (int32_t i = 0; i < 4; ++i) {
        JobArg arg{i, 0, runs.data(), &o.pool, &outside};
        ASSERT_EQ(tav_sr2_ThreadPool_post(&o.tp, recordJob, &arg, sizeof(arg)), TAV_OK);
    }
    EXPECT_EQ(tav_sr2_ThreadPool_join(&o.tp), TAV_OK);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(runs[i].load(), 2);
}

}  // namespace
