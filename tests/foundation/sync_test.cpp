// Mutex, condition, thread and queue records, and thread placement.
#include "foundation/sync.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "foundation/cpu.h"
#include "foundation/queue.h"

#include "tests/foundation/task_test_util.h"

namespace {

TEST(MutexTest, BothKindsExcludeUnderContention) {
    TestPool tp(4096);
    for (int32_t kind : {TAV_SR2_MUTEX_RECURSIVE, TAV_SR2_MUTEX_SPIN}) {
        tav_sr2_Mutex m;
        ASSERT_EQ(tav_sr2_Mutex_create(&m, &tp.pool, kind), TAV_OK);
        long counter = 0;  // deliberately not atomic: the lock alone protects it
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 2000; ++i) {
                    tav_sr2_Mutex_lock(&m);
                    counter = counter + 1;
                    tav_sr2_Mutex_unlock(&m);
                }
            });
        }
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(counter, 8000) << "kind " << kind;
        tav_sr2_Mutex_destroy(&m);
    }
    EXPECT_EQ(tp.inUse(), 0u);
}

TEST(CondTest, TimedWaitSignalAndBroadcast) {
    TestPool tp(4096);
    tav_sr2_Mutex spin, m;
    tav_sr2_Cond c;
    tav_sr2_Cond_setEmpty(&c, &tp.pool);
    EXPECT_EQ(tav_sr2_Cond_timedWait(&c, 1), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_Cond_signal(&c), TAV_ERROR_STATE);
    ASSERT_EQ(tav_sr2_Mutex_create(&spin, &tp.pool, TAV_SR2_MUTEX_SPIN), TAV_OK);
    EXPECT_EQ(tav_sr2_Cond_create(&c, &tp.pool, &spin), TAV_ERROR_PARAM);
    ASSERT_EQ(tav_sr2_Mutex_create(&m, &tp.pool, TAV_SR2_MUTEX_RECURSIVE), TAV_OK);
    ASSERT_EQ(tav_sr2_Cond_create(&c, &tp.pool, &m), TAV_OK);

    for (int32_t ms : {0, 40}) {
        tav_sr2_Mutex_lock(&m);
        auto t0 = std::chrono::steady_clock::now();
        uint32_t status;
        do {
            status = tav_sr2_Cond_timedWait(&c, ms);
        } while (status == TAV_OK);  // wake-ups without a signal are allowed
        double waited = msSince(t0);
        tav_sr2_Mutex_unlock(&m);
        EXPECT_EQ(status, TAV_ERROR_TIMEOUT);
        EXPECT_GE(waited, ms - 2.0);
        EXPECT_LT(waited, ms + 1000.0);
    }
    // Deadlines: whole seconds, and nanoseconds that carry into the next second.
    for (int32_t ms : {-5, 0, 1, 999, 1000, 1001, 2500, 3000}) {
        for (long ns : {0L, 1L, 500000000L, 999999999L}) {
            timespec d = tav_sr2_Cond_deadline(timespec{7, ns}, ms);
            long long want_ns = 7000000000LL + ns + (ms > 0 ? ms : 0) * 1000000LL;
            EXPECT_EQ(d.tv_sec, want_ns / 1000000000LL) << ms << " ms after " << ns;
            EXPECT_EQ(d.tv_nsec, want_ns % 1000000000LL) << ms << " ms after " << ns;
        }
    }

    // Three waiters, one broadcast; each waits on the predicate as a caller must.
    int ready = 0, released = 0;
    std::vector<std::thread> waiters;
    std::vector<uint32_t> statuses(3, 1);
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&, i] {
            tav_sr2_Mutex_lock(&m);
            ++ready;
            tav_sr2_Cond_signal(&c);
            uint32_t s = TAV_OK;
            while (released == 0 && s == TAV_OK)
                s = tav_sr2_Cond_wait(&c);
            statuses[i] = s;
            tav_sr2_Mutex_unlock(&m);
        });
    }
    tav_sr2_Mutex_lock(&m);
    while (ready < 3)
        tav_sr2_Cond_timedWait(&c, 100);
    released = 1;
    EXPECT_EQ(tav_sr2_Cond_broadcast(&c), TAV_OK);
    tav_sr2_Mutex_unlock(&m);
    for (auto& w : waiters)
        w.join();
    for (uint32_t s : statuses)
        EXPECT_EQ(s, TAV_OK);

    EXPECT_EQ(tav_sr2_Cond_destroy(&c), TAV_OK);
    EXPECT_EQ(tav_sr2_Cond_wait(&c), TAV_ERROR_STATE);
    tav_sr2_Mutex_destroy(&m);
    tav_sr2_Mutex_destroy(&spin);
    EXPECT_EQ(tp.inUse(), 0u);
}

struct NameProbe {
    std::atomic<int> go{0};
    char name[32] = {};
    int policy = -1;
};

uint32_t probeThread(void* arg) {
    NameProbe* p = (NameProbe*)arg;
    while (p->go.load() == 0)
        std::this_thread::yield();  // the creator names us after create
    pthread_getname_np(pthread_self(), p->name, sizeof(p->name));
    sched_param param;
    pthread_getschedparam(pthread_self(), &p->policy, &param);
    return 0x1234;
}

TEST(QueueTest, FifoBoundsAndTimeouts) {
    TestPool tp(8192);
    tav_sr2_Queue q;
    EXPECT_EQ(tav_sr2_Queue_init(&q, &tp.pool, 0), TAV_ERROR_PARAM);
    EXPECT_EQ(tav_sr2_Queue_push(&q, &q, 0), TAV_ERROR_STATE);
    EXPECT_EQ(tav_sr2_Queue_pop(&q, 0), nullptr);
    ASSERT_EQ(tav_sr2_Queue_init(&q, &tp.pool, 3), TAV_OK);
    int items[64];
    // Many laps round the ring, at every fill level, keep the order.
    int pushed = 0, popped = 0;
    for (int lap = 0; lap < 40; ++lap) {
        int fill = lap % 4;
        for (int i = 0; i < fill; ++i) {
            ASSERT_EQ(tav_sr2_Queue_push(&q, &items[pushed++ % 64], 0), TAV_OK);
        }
        EXPECT_EQ(tav_sr2_Queue_count(&q), fill);
        for (int i = 0; i < fill; ++i) {
            EXPECT_EQ(tav_sr2_Queue_pop(&q, 0), &items[popped++ % 64]);
        }
    }
    EXPECT_EQ(tav_sr2_Queue_pop(&q, 0), nullptr);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_sr2_Queue_pop(&q, 30), nullptr);
    EXPECT_GE(msSince(t0), 28.0);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(tav_sr2_Queue_push(&q, &items[i], 0), TAV_OK);
    EXPECT_EQ(tav_sr2_Queue_push(&q, &items[3], 0), TAV_ERROR_STATE);
    t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_sr2_Queue_push(&q, &items[3], 30), TAV_ERROR_TIMEOUT);
    EXPECT_GE(msSince(t0), 28.0);
    // A blocked producer goes on as soon as a consumer makes room.
    std::thread producer([&] { EXPECT_EQ(tav_sr2_Queue_push(&q, &items[3], -1), TAV_OK); });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(tav_sr2_Queue_pop(&q, -1), &items[0]);
    producer.join();
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(tav_sr2_Queue_pop(&q, 0), &items[i]);
    EXPECT_EQ(tav_sr2_Queue_finish(&q), TAV_OK);
    EXPECT_EQ(tp.inUse(), 0u);
}

TEST(QueueTest, ProducersAndConsumersLoseNothing) {
    TestPool tp(8192);
    tav_sr2_Queue q;
    ASSERT_EQ(tav_sr2_Queue_init(&q, &tp.pool, 4), TAV_OK);  // small: both sides block often
    const int kProducers = 3, kPerProducer = 1500;
    std::vector<uintptr_t> tokens(kProducers * kPerProducer);
    std::vector<std::atomic<int>> seen(tokens.size());
    std::vector<std::thread> threads;
    for (int p = 0; p < kProducers; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) {
                tav_sr2_Queue_push(&q, &tokens[p * kPerProducer + i], TAV_SR2_WAIT_FOREVER);
            }
        });
    }
    std::atomic<int> order_errors{0};
    for (int c = 0; c < 3; ++c) {
        threads.emplace_back([&] {
            std::vector<long> last(kProducers, -1);
            for (int i = 0; i < kPerProducer; ++i) {
                uintptr_t* item = (uintptr_t*)tav_sr2_Queue_pop(&q, TAV_SR2_WAIT_FOREVER);
                long index = item - tokens.data();
                seen[index].fetch_add(1);
                // Each consumer sees any one producer's items in push order.
                long producer = index / kPerProducer;
                if (index <= last[producer]) order_errors.fetch_add(1);
                last[producer] = index;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    for (auto& s : seen)
        ASSERT_EQ(s.load(), 1);
    EXPECT_EQ(order_errors.load(), 0);
    EXPECT_EQ(tav_sr2_Queue_count(&q), 0);
    tav_sr2_Queue_finish(&q);
    EXPECT_EQ(tp.inUse(), 0u);
}

// Placement runs on its own thread so the test runner's thread keeps its CPUs.
TEST(ThreadAffinity, MaskIsIntersectedWithAllowedCpus) {
    EXPECT_GE(tav_sr2_getProcessorCount(), 1);
    std::thread([] {
        cpu_set_t allowed;
        ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
        int first = -1;
        for (int c = 0; c < 32 && first < 0; ++c) {
            if (CPU_ISSET(c, &allowed)) first = c;
        }
        ASSERT_GE(first, 0);
        cpu_set_t now;
        EXPECT_EQ(tav_sr2_setAffinity(1u << first), TAV_OK);
        sched_getaffinity(0, sizeof(now), &now);
        EXPECT_EQ(CPU_COUNT(&now), 1);
        EXPECT_TRUE(CPU_ISSET(first, &now));
        // A mask that names no allowed CPU means no restriction at all.
        uint32_t foreign = 0;
        for (int c = 0; c < 32; ++c) {
            if (!CPU_ISSET(c, &allowed)) foreign |= 1u << c;
        }
        if (foreign != 0) {
            EXPECT_EQ(tav_sr2_setAffinity(foreign), TAV_OK);
            sched_getaffinity(0, sizeof(now), &now);
            EXPECT_TRUE(CPU_EQUAL(&now, &allowed));
        }
#ifdef TAVRIN_FAULT_INJECTION
        tav_sr2_setAffinity_injectFailure(1);
        EXPECT_EQ(tav_sr2_setAffinity(1u << first), TAV_ERROR_BUFFER);
        EXPECT_EQ(tav_sr2_setAffinity(1u << first), TAV_OK);
        EXPECT_EQ(tav_sr2_setAffinity_callCount(), 2u);
#endif
    }).join();
}

}  // namespace
