// The row scheduler: configuration, placement, row ranges, slots and ids, dependencies,
// waits, failures, start and stop, and a stress run of random task graphs.
#include "foundation/task_sys.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "foundation/task_sys_internal.h"
#include "tests/foundation/task_test_util.h"

namespace {

// A scheduler over its own pool; finishing it must give every byte back.
struct Sys {
    TestPool pool;
    std::unique_ptr<tav_sr2_TaskSys> ts{new tav_sr2_TaskSys()};
    explicit Sys(size_t pool_bytes = 1 << 16) : pool(pool_bytes) {
        tav_sr2_TaskSys_init(ts.get(), &pool.pool);
    }
    ~Sys() {
        tav_sr2_TaskSys_finish(ts.get());
        EXPECT_EQ(pool.inUse(), 0u);
    }
    tav_sr2_TaskSysConfig& config() { return ts->config; }
    uint32_t start(int32_t threads) {
        ts->config.thread_count = threads;
        return tav_sr2_TaskSys_start(ts.get());
    }
    tav_sr2_TaskSys* operator->() { return ts.get(); }
    operator tav_sr2_TaskSys*() { return ts.get(); }
};

// ---- a recording row kernel ---------------------------------------------------------------------

const tav_sr2_TaskType kRecordRows = tav_sr2_rowTaskType<recordRow>();

uint32_t countCall(void* arg) {
    ((std::atomic<int>*)arg)->fetch_add(1);
    return 0;
}

// ---- slots and ids ------------------------------------------------------------------------------

TEST(TaskSysTest, FullSlotTableTimesOutAndStaleIdsAreHarmless) {
    Sys s;
    s.config().caller_is_worker = 0;
    s.config().wait_ms = 40;
    ASSERT_EQ(s.start(2), TAV_OK);
    std::vector<uint32_t> events(TAV_SR2_TASK_SLOTS);
    for (uint32_t& e : events)
        ASSERT_EQ(tav_sr2_TaskSys_addEvent(s, &e), TAV_OK);
    EXPECT_EQ(std::set<uint32_t>(events.begin(), events.end()).size(), events.size());
    uint32_t out = 0;
    EXPECT_EQ(tav_sr2_TaskSys_result(s, events[0], 0, &out), TAV_SR2_TASK_UNFINISHED);
    EXPECT_EQ(out, TAV_SR2_TASK_UNFINISHED);

    std::atomic<int> calls{0};
    tav_sr2_TaskCall call = {countCall, &calls};
    uint32_t id = 0;
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 0, nullptr, &id),
              TAV_ERROR_TIMEOUT);
    EXPECT_GE(msSince(t0), 38.0);
    EXPECT_EQ(id, 0u);

    EXPECT_EQ(tav_sr2_TaskSys_setEvent(s, events[0], TAV_SR2_TASK_UNFINISHED), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_TaskSys_setEvent(s, events[0], TAV_ERROR_IO), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_setEvent(s, events[0], 0), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_result(s, events[0], 0, &out), TAV_OK);
    EXPECT_EQ(out, TAV_ERROR_IO);
    EXPECT_EQ(tav_sr2_TaskSys_retain(s, events[0]), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_release(s, events[0]), TAV_OK);
    EXPECT_EQ(s->free_slots, 0);  // still held

    // An adder that waits for a slot hears the release that frees one, rather than sitting out
    // wait_ms. The one free slot is reused under a new id; the old id names nothing now.
    s->active.wait_ms = 20000;
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(tav_sr2_TaskSys_release(s, events[0]), TAV_OK);
    });
    t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 0, nullptr, &id), TAV_OK);
    EXPECT_LT(msSince(t0), 10000.0);
    releaser.join();
    EXPECT_EQ(id & TAV_SR2_TASK_ID_MASK, events[0] & TAV_SR2_TASK_ID_MASK);
    EXPECT_NE(id, events[0]);
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &id), TAV_OK);
    EXPECT_EQ(calls.load(), 1);
    t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &events[0]), TAV_OK);
    EXPECT_LT(msSince(t0), 30.0);
    EXPECT_EQ(tav_sr2_TaskSys_result(s, events[0], 0, &out), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_retain(s, events[0]), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_release(s, events[0]), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_setEvent(s, events[0], 0), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_release(s, id), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_release(s, id), TAV_ERROR_STATE);  // freed with the last hold

    // A task that is not an event cannot be set.
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 1, &events[1], &id), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_setEvent(s, id, 0), TAV_ERROR_STATE);
    for (size_t i = 1; i < events.size(); ++i) {
        ASSERT_EQ(tav_sr2_TaskSys_setEvent(s, events[i], 0), TAV_OK);
        ASSERT_EQ(tav_sr2_TaskSys_release(s, events[i]), TAV_OK);
    }
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &id), TAV_OK);
    EXPECT_EQ(calls.load(), 2);
    EXPECT_EQ(tav_sr2_TaskSys_release(s, id), TAV_OK);
    EXPECT_EQ(s->free_slots, TAV_SR2_TASK_SLOTS);
    EXPECT_EQ(s->free_dep_count, TAV_SR2_TASK_SLOTS);
}

// ---- dependencies -------------------------------------------------------------------------------

struct OrderLog {
    std::mutex lock;
    std::vector<std::string> events;
    void add(const std::string& e) {
        std::lock_guard<std::mutex> guard(lock);
        events.push_back(e);
    }
};
struct Step {
    OrderLog* log;
    std::string name;
    uint32_t result;
};
uint32_t stepCall(void* arg) {
    Step* step = (Step*)arg;
    step->log->add(step->name);
    return step->result;
}
uint32_t stepRow(void* arg, int32_t, int32_t) {
    Step* step = (Step*)arg;
    step->log->add(step->name);
    return step->result;
}

TEST(TaskSysTest, DependenciesOrderAndSkipOnFailure) {
    Sys s;
    ASSERT_EQ(s.start(3), TAV_OK);
    OrderLog log;
    Step a_step{&log, "A", 0}, b_step{&log, "B", 0}, c_step{&log, "C", 0};
    tav_sr2_TaskCall a_call{stepCall, &a_step}, c_call{stepCall, &c_step};
    tav_sr2_TaskFor b_for{stepRow, &b_step};
    uint32_t e, a, b, c;
    ASSERT_EQ(tav_sr2_TaskSys_addEvent(s, &e), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &a_call, 1, &e, &a), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_add(s, &tav_sr2_TaskType_for, &b_for, 20, 1, &a, &b), TAV_OK);
    uint32_t c_deps[3] = {a, a, b};  // a repeated dependency counts once
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &c_call, 3, c_deps, &c), TAV_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(log.events.empty());
    ASSERT_EQ(tav_sr2_TaskSys_setEvent(s, e, 0), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_wait(s, 1, &c), TAV_OK);
    std::vector<std::string> want = {"A"};
    want.insert(want.end(), 20, "B");
    want.push_back("C");
    EXPECT_EQ(log.events, want);
    for (uint32_t id : {e, a, b, c}) {
        uint32_t out = 1;
        EXPECT_EQ(tav_sr2_TaskSys_result(s, id, 0, &out), TAV_OK);
        EXPECT_EQ(out, 0u);
        EXPECT_EQ(tav_sr2_TaskSys_release(s, id), TAV_OK);
    }

    // A failed event skips its dependents and theirs, which run nothing.
    log.events.clear();
    uint32_t f, g, h;
    ASSERT_EQ(tav_sr2_TaskSys_addEvent(s, &f), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_add(s, &tav_sr2_TaskType_for, &b_for, 8, 1, &f, &g), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &c_call, 1, &g, &h), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_setEvent(s, f, TAV_ERROR_IO), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_wait(s, 1, &h), TAV_OK);
    EXPECT_TRUE(log.events.empty());
    for (uint32_t id : {g, h}) {
        uint32_t out = 0;
        EXPECT_EQ(tav_sr2_TaskSys_result(s, id, 0, &out), TAV_OK);
        EXPECT_EQ(out, TAV_ERROR_IO | TAV_SR2_TASK_CANCELLED);
    }

    // A dependency that already finished with a failure passes it on just the same.
    Step k_step{&log, "K", TAV_ERROR_NOT_FOUND};
    tav_sr2_TaskCall k_call{stepCall, &k_step};
    uint32_t k, l, m;
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &k_call, 0, nullptr, &k), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_wait(s, 1, &k), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &c_call, 1, &k, &l), TAV_OK);
    // A row task without rows has no function: it finishes with its dependencies' result.
    ASSERT_EQ(tav_sr2_TaskSys_add(s, &tav_sr2_TaskType_for, &b_for, 0, 1, &k, &m), TAV_OK);
    uint32_t lm[2] = {l, m};
    ASSERT_EQ(tav_sr2_TaskSys_wait(s, 2, lm), TAV_OK);
    EXPECT_EQ(log.events, std::vector<std::string>{"K"});
    uint32_t out = 0;
    EXPECT_EQ(tav_sr2_TaskSys_result(s, l, 0, &out), TAV_OK);
    EXPECT_EQ(out, TAV_ERROR_NOT_FOUND | TAV_SR2_TASK_CANCELLED);
    EXPECT_EQ(tav_sr2_TaskSys_result(s, m, 0, &out), TAV_OK);
    EXPECT_EQ(out, TAV_ERROR_NOT_FOUND);
    for (uint32_t id : {f, g, h, k, l, m})
        EXPECT_EQ(tav_sr2_TaskSys_release(s, id), TAV_OK);

    // A negative count waits for everything, ids or not.
    std::atomic<int> calls{0};
    tav_sr2_TaskCall call = {countCall, &calls};
    for (int i = 0; i < 40; ++i) {
        ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 0, nullptr, nullptr),
                  TAV_OK);
    }
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, -1, nullptr), TAV_OK);
    EXPECT_EQ(calls.load(), 40);
    EXPECT_EQ(s->free_slots, TAV_SR2_TASK_SLOTS);
}

// ---- waits ------------------------------------------------------------------------------------

struct Probe {
    std::atomic<int> inside{0};
};
uint32_t markInside(void* arg) {
    ((Probe*)arg)->inside = 1;
    return 0;
}

// One worker, two callers. The other thread ends the test thread's wait and at once runs rows
// of its own; the test thread, still under worker 0, turns it away and then leaves without
// running them. The turned-away thread must take worker 0 over when it frees, not sit out
// wait_ms and time out.
TEST(TaskSysTest, TurnedAwayCallerTakesTheIndexOver) {
    for (int rep = 0; rep < 5; ++rep) {
        Sys s;
        s.config().wait_ms = 20000;
        ASSERT_EQ(s.start(1), TAV_OK);
        Probe probe;
        tav_sr2_TaskCall mark = {markInside, &probe};
        uint32_t ids[2];
        ASSERT_EQ(tav_sr2_TaskSys_addEvent(s, &ids[0]), TAV_OK);
        ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &mark, 0, nullptr, &ids[1]),
                  TAV_OK);
        Rows rows(20);
        uint32_t other_status = 1;
        double other_ms = 0;
        std::thread other([&] {
            while (probe.inside.load() == 0)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));  // it sleeps in its wait
            tav_sr2_TaskSys_setEvent(s, ids[0], 0);
            auto t0 = std::chrono::steady_clock::now();
            other_status = tav_sr2_TaskSys_run(s, &kRecordRows, &rows, 20);
            other_ms = msSince(t0);
        });
        EXPECT_EQ(tav_sr2_TaskSys_wait(s, 2, ids), TAV_OK);
        other.join();
        EXPECT_EQ(other_status, TAV_OK);
        EXPECT_LT(other_ms, 10000.0);
        EXPECT_TRUE(rows.allOnce());
        for (uint32_t id : ids)
            EXPECT_EQ(tav_sr2_TaskSys_release(s, id), TAV_OK);
    }
}

struct SlowJob {
    std::atomic<int> started{0};
};
uint32_t slowJob(void* arg) {
    ((SlowJob*)arg)->started = 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return 0;
}

// The caller waits inside the worker loop with nothing to run; the end of a task that another
// worker runs must wake it at once, not after wait_ms.
TEST(TaskSysTest, WaiterWakesWhenAnotherWorkerFinishes) {
    Sys s;
    ASSERT_EQ(s.start(2), TAV_OK);
    for (int rep = 0; rep < 3; ++rep) {
        SlowJob job;
        tav_sr2_TaskCall call = {slowJob, &job};
        uint32_t id;
        ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 0, nullptr, &id),
                  TAV_OK);
        while (job.started.load() == 0)
            std::this_thread::yield();
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &id), TAV_OK);
        EXPECT_LT(msSince(t0), 1000.0);  // wait_ms is 3000
        tav_sr2_TaskSys_release(s, id);
    }
}

TEST(TaskSysTest, WaitTimeOutStopAndRestart) {
    Sys s;
    s.config().wait_ms = 30;
    ASSERT_EQ(s.start(3), TAV_OK);
    uint32_t e, a;
    ASSERT_EQ(tav_sr2_TaskSys_addEvent(s, &e), TAV_OK);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &e), TAV_ERROR_TIMEOUT);
    EXPECT_GE(msSince(t0), 28.0);
    ASSERT_EQ(tav_sr2_TaskSys_setEvent(s, e, 0), TAV_OK);  // the id stayed valid
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &e), TAV_OK);
    tav_sr2_TaskSys_release(s, e);

    // Stop drops what is queued or waiting; a stopped scheduler accepts and runs nothing.
    std::atomic<int> calls{0};
    tav_sr2_TaskCall call = {countCall, &calls};
    ASSERT_EQ(tav_sr2_TaskSys_addEvent(s, &e), TAV_OK);
    ASSERT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 1, &e, &a), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_stop(s), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_stop(s), TAV_OK);
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &a), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_setEvent(s, e, 0), TAV_ERROR_STATE);
    uint32_t id = 5;
    EXPECT_EQ(tav_sr2_TaskSys_addOne(s, &tav_sr2_TaskType_call, &call, 0, nullptr, &id), TAV_OK);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(tav_sr2_TaskSys_addEvent(s, &id), TAV_OK);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(tav_sr2_TaskSys_run(s, &tav_sr2_TaskType_call, &call, 1), TAV_OK);
    EXPECT_EQ(calls.load(), 0);

    ASSERT_EQ(tav_sr2_TaskSys_start(s), TAV_OK);
    Rows rows(100);
    EXPECT_EQ(tav_sr2_TaskSys_run(s, &kRecordRows, &rows, 100), TAV_OK);
    EXPECT_TRUE(rows.allOnce());
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &a), TAV_OK);  // stale after the restart
    EXPECT_EQ(calls.load(), 0);

    // A finished record is cleared: its operations answer a bad state and touch nothing.
    EXPECT_EQ(tav_sr2_TaskSys_finish(s), TAV_OK);
    uint32_t out = 0;
    EXPECT_EQ(tav_sr2_TaskSys_result(s, a, 0, &out), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_release(s, a), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, 1, &a), TAV_ERROR_STATE);
}

// ---- start failures -----------------------------------------------------------------------------

TEST(TaskSysTest, StartFailsCleanlyAndRequiredSizeIsEnough) {
    {
        Sys tiny(256);
        EXPECT_EQ(tiny.start(4), TAV_ERROR_MALLOC);
        EXPECT_EQ(tiny.pool.inUse(), 0u);
        EXPECT_EQ(tav_sr2_TaskSys_threadCount(tiny), 1);
    }
    // A pool region loses at most 32 bytes to alignment and its end tag.
    uint32_t need = tav_sr2_TaskSys_requiredSize();
    {
        Sys exact(need + 32);
        ASSERT_EQ(exact.start(16), TAV_OK);
        Rows rows(64);
        EXPECT_EQ(tav_sr2_TaskSys_run(exact, &kRecordRows, &rows, 64), TAV_OK);
        EXPECT_TRUE(rows.allOnce());
    }
    {
        Sys short_pool(need - 32);
        EXPECT_EQ(short_pool.start(16), TAV_ERROR_MALLOC);
        EXPECT_EQ(short_pool->spawned, 0);
        EXPECT_EQ(short_pool.pool.inUse(), 0u);
    }
#ifdef TAVRIN_FAULT_INJECTION
    {
        // The first thread falls back to default attributes and bears no name.
        Sys s;
        tav_sr2_Thread_injectCreateFailure(1, 0);
        ASSERT_EQ(s.start(4), TAV_OK);
        int named = 0;
        for (int i = 0; i < s->spawned; ++i) {
            char name[32] = {};
            pthread_getname_np(s->threads[i]->thread, name, sizeof(name));
            named += std::string(name) == "TavSR";
        }
        EXPECT_EQ(named, 2);
        Rows rows(40);
        EXPECT_EQ(tav_sr2_TaskSys_run(s, &kRecordRows, &rows, 40), TAV_OK);
        EXPECT_TRUE(rows.allOnce());
    }
    {
        Sys s;
        tav_sr2_Thread_injectCreateFailure(2, 1);  // the second thread cannot start at all
        EXPECT_EQ(s.start(4), TAV_ERROR_BUFFER);
        EXPECT_EQ(s->spawned, 0);
        EXPECT_EQ(tav_sr2_TaskSys_threadCount(s), 1);
        EXPECT_EQ(s.pool.inUse(), 0u);
        tav_sr2_Thread_injectCreateFailure(0, 0);
    }
#endif
}

// ---- stress -----------------------------------------------------------------------------------

struct StressTask {
    int32_t count = 0;  // rows; one-shots have 0
    bool one_shot = false;
    int32_t fail_row = -1;
    uint32_t fail_bits = 0;
    std::vector<int> deps;
    // Expected by a straightforward walk of the graph.
    bool runs = false;
    uint32_t expected = 0;
    // Observed.
    std::unique_ptr<std::atomic<int>[]> hits;
    std::atomic<int> done{0};
    std::atomic<int> order_errors{0};
    std::vector<StressTask*> dep_tasks;
    tav_sr2_TaskCall call{};
    uint32_t id = 0;
    int32_t units() const { return one_shot ? 1 : count; }
};

uint32_t stressUnit(StressTask* t, int32_t row) {
    for (StressTask* d : t->dep_tasks) {
        if (d->runs && d->done.load() != d->units()) t->order_errors.fetch_add(1);
    }
    volatile uint32_t spin = 0;
    for (int i = 0; i < 200; ++i)
        spin = spin + i;
    t->hits[row].fetch_add(1);
    t->done.fetch_add(1);
    return row == t->fail_row ? t->fail_bits : 0;
}
// Which thread works under each worker index right now: two threads must never share one.
std::atomic<uint64_t> g_index_owner[TAV_SR2_TASK_MAX_WORKERS];
std::atomic<int> g_index_clashes{0};

uint32_t stressRow(void* arg, int32_t row, tav_sr2_TaskCtx* ctx) {
    uint64_t self = (uint64_t)pthread_self();
    uint64_t before = g_index_owner[ctx->worker_index].exchange(self);
    if (before != 0 && before != self) g_index_clashes.fetch_add(1);  // same thread may nest
    uint32_t result = stressUnit((StressTask*)arg, row);
    g_index_owner[ctx->worker_index].store(before);
    return result;
}
uint32_t stressOne(void* arg) {
    return stressUnit((StressTask*)arg, 0);
}
const tav_sr2_TaskType kStressRows = tav_sr2_rowTaskType<stressRow>();

void buildGraph(std::vector<std::unique_ptr<StressTask>>* graph, int n, uint32_t seed) {
    std::mt19937 rng(seed);
    for (int i = 0; i < n; ++i) {
        auto t = std::make_unique<StressTask>();
        t->one_shot = rng() % 10 < 3;
        t->count = t->one_shot ? 0 : (int32_t)(rng() % 49);
        if (rng() % 12 == 0 && t->units() > 0) {
            t->fail_row = (int32_t)(rng() % t->units());
            t->fail_bits = TAV_ERROR_GENERIC | (1u << (rng() % 8));
        }
        int ndeps = i == 0 ? 0 : (int)(rng() % 4);
        for (int k = 0; k < ndeps; ++k)
            t->deps.push_back((int)(rng() % i));
        uint32_t dep_or = 0;
        for (int d : t->deps) {
            dep_or |= (*graph)[d]->expected;
            t->dep_tasks.push_back((*graph)[d].get());
        }
        if (!t->one_shot && t->count == 0) {
            t->expected = dep_or;  // no function: finishes with what its dependencies gave
        } else if (dep_or != 0) {
            t->expected = dep_or | TAV_SR2_TASK_CANCELLED;
        } else {
            t->runs = true;
            t->expected = t->fail_row >= 0 ? t->fail_bits : 0;
        }
        t->hits.reset(new std::atomic<int>[std::max(t->units(), 1)]);
        for (int32_t r = 0; r < std::max(t->units(), 1); ++r)
            t->hits[r] = 0;
        t->call = {stressOne, t.get()};
        graph->push_back(std::move(t));
    }
}

// Submits a graph, with plain row runs in between, and checks every task.
void submitAndCheck(tav_sr2_TaskSys* ts, uint32_t seed) {
    std::vector<std::unique_ptr<StressTask>> graph;
    buildGraph(&graph, 120, seed);
    for (size_t i = 0; i < graph.size(); ++i) {
        StressTask* t = graph[i].get();
        std::vector<uint32_t> dep_ids;
        for (int d : t->deps)
            dep_ids.push_back(graph[d]->id);
        uint32_t status =
            t->one_shot ? tav_sr2_TaskSys_addOne(ts, &tav_sr2_TaskType_call, &t->call,
                                                 (int32_t)dep_ids.size(), dep_ids.data(), &t->id)
                        : tav_sr2_TaskSys_add(ts, &kStressRows, t, t->count,
                                              (int32_t)dep_ids.size(), dep_ids.data(), &t->id);
        ASSERT_EQ(status, TAV_OK);
        if (i % 15 == 0) {
            Rows rows(16);
            ASSERT_EQ(tav_sr2_TaskSys_run(ts, &kRecordRows, &rows, 16), TAV_OK);
            ASSERT_TRUE(rows.allOnce());
        }
    }
    std::vector<uint32_t> ids;
    for (auto& t : graph)
        ids.push_back(t->id);
    ASSERT_EQ(tav_sr2_TaskSys_wait(ts, (int32_t)ids.size(), ids.data()), TAV_OK);
    for (size_t i = 0; i < graph.size(); ++i) {
        StressTask* t = graph[i].get();
        for (int32_t r = 0; r < t->units(); ++r) {
            ASSERT_EQ(t->hits[r].load(), t->runs ? 1 : 0) << "task " << i << " row " << r;
        }
        EXPECT_EQ(t->order_errors.load(), 0) << "task " << i;
        uint32_t out = 0;
        EXPECT_EQ(tav_sr2_TaskSys_result(ts, t->id, 0, &out), TAV_OK);
        EXPECT_EQ(out, t->expected) << "task " << i;
        EXPECT_EQ(tav_sr2_TaskSys_release(ts, t->id), TAV_OK);
    }
}

void stressRun(int32_t dynamic_split) {
    Sys s;
    s.config().dynamic_split = dynamic_split;
    ASSERT_EQ(s.start(4), TAV_OK);
    // Three submitters: the extra threads also count as worker 0 and take turns helping.
    std::thread a([&] { submitAndCheck(s, 11 + dynamic_split); });
    std::thread b([&] { submitAndCheck(s, 23 + dynamic_split); });
    submitAndCheck(s, 37 + dynamic_split);
    a.join();
    b.join();
    EXPECT_EQ(g_index_clashes.load(), 0);
    EXPECT_EQ(tav_sr2_TaskSys_wait(s, -1, nullptr), TAV_OK);
    EXPECT_EQ(s->free_slots, TAV_SR2_TASK_SLOTS);
    EXPECT_EQ(s->free_dep_count, TAV_SR2_TASK_SLOTS);
    EXPECT_EQ(s->free_range_count, TAV_SR2_TASK_RANGE_PAIRS / 4);
}

TEST(TaskSysTest, StressRandomGraphsFixedSplit) {
    stressRun(0);
}
TEST(TaskSysTest, StressRandomGraphsDynamicSplit) {
    stressRun(1);
}

}  // namespace
