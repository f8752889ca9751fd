// A memory pool over a heap region and, for more than one worker, a started task system and
// thread pool on it: the setting every image benchmark runs in. One worker means no thread pool,
// so the operators run their bands on the calling thread.
#pragma once

#include <stdlib.h>

#include <memory>

#include "enhance/image_ctx.h"
#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

struct BenchRig {
    std::unique_ptr<max_align_t[]> region;
    tav_sr2_MemPool pool = {};
    tav_sr2_TaskSys* ts = nullptr;
    tav_sr2_ThreadPool tp = {};
    bool ok = false;

    BenchRig(size_t bytes, int32_t workers) {
        region.reset(new max_align_t[bytes / sizeof(max_align_t)]);
        ok = tav_sr2_MemPool_init(&pool, region.get(), bytes) == TAV_OK;
        if (workers <= 1) return;
        ts = static_cast<tav_sr2_TaskSys*>(calloc(1, sizeof(tav_sr2_TaskSys)));
        tav_sr2_TaskSys_init(ts, &pool);
        ts->config.thread_count = workers;
        ok = ok && tav_sr2_TaskSys_start(ts) == TAV_OK;
        tav_sr2_ThreadPool_init(&tp, &pool);
        tp.task_sys = ts;
        tp.thread_limit = workers;
        ok = ok && tav_sr2_ThreadPool_start(&tp, 64, 64) == TAV_OK;
    }
    ~BenchRig() {
        if (ts == nullptr) return;
        tav_sr2_ThreadPool_finish(&tp);
        tav_sr2_TaskSys_finish(ts);
        free(ts);
    }
    BenchRig(const BenchRig&) = delete;
    BenchRig& operator=(const BenchRig&) = delete;

    tav_sr2_ThreadPool* threads() { return ts ? &tp : nullptr; }
    tav_sr2_ImageCtx ctx() { return {&pool, threads(), ts}; }
};
