// Helpers shared by the tests of the synchronisation records, the scheduler and the pool.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"

// A memory pool over a heap region owned by the test.
struct TestPool {
    std::vector<unsigned char> region;
    tav_sr2_MemPool pool;
    explicit TestPool(size_t bytes) : region(bytes) {
        tav_sr2_MemPool_init(&pool, region.data(), region.size());
    }
    uint32_t inUse() const { return tav_sr2_MemPool_inUse(&pool); }
    bool owns(const void* p) const {
        return p >= (const void*)region.data() && p < (const void*)(region.data() + region.size());
    }
};

inline double msSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

// Rows of a recording kernel: how often each row ran, and on which thread last.
struct Rows {
    explicit Rows(int32_t n) : count(n), hits(n), threads(n) {}
    int32_t count;
    std::vector<std::atomic<int>> hits;
    std::vector<pthread_t> threads;
    uint32_t row_result = 0;  // what every row returns
    bool allOnce() const {
        for (const auto& h : hits) {
            if (h.load() != 1) return false;
        }
        return true;
    }
    int total() const {
        int sum = 0;
        for (const auto& h : hits)
            sum += h.load();
        return sum;
    }
};

inline uint32_t recordRow(void* arg, int32_t row, tav_sr2_TaskCtx*) {
    Rows* rows = (Rows*)arg;
    rows->hits[row].fetch_add(1);
    rows->threads[row] = pthread_self();
    return rows->row_result;
}
