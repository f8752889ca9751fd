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
