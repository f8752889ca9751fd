// tav_sr2_ImageCtx: what the shared image operators need besides their images, the pool for
// scratch, the thread pool for row bands and the task system for row tasks. Callers hold one
// inside the engine. A null thread pool means one worker: bands then run on the caller.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "foundation/mem_pool.h"
#include "foundation/task_sys.h"
#include "foundation/thread_pool.h"

struct tav_sr2_ImageCtx {
    tav_sr2_MemPool* pool;
    tav_sr2_ThreadPool* threads;
    tav_sr2_TaskSys* tasks;
};
static_assert(offsetof(tav_sr2_ImageCtx, pool) == 0);
static_assert(offsetof(tav_sr2_ImageCtx, threads) == sizeof(void*));
static_assert(offsetof(tav_sr2_ImageCtx, tasks) == 2 * sizeof(void*));

// Workers the thread pool spreads its jobs over, the caller included; 1 without a thread pool.
int32_t tav_sr2_ImageCtx_workers(const tav_sr2_ImageCtx* ctx);

// One band of rows y0 .. y1-1; `band` (0 .. bands-1) indexes the band's own scratch.
typedef uint32_t (*tav_sr2_ImageBandFn)(void* arg, int32_t band, int32_t y0, int32_t y1);

// Splits `rows` into `bands` bands, band k covering rows k*rows/bands up to (k+1)*rows/bands,
// runs them as one posted job per band (or on the caller without a thread pool or with one band)
// and joins. Returns the OR of the band results and of the post and join statuses.
uint32_t tav_sr2_ImageCtx_runBands(const tav_sr2_ImageCtx* ctx, int32_t bands, int32_t rows,
                                   tav_sr2_ImageBandFn fn, void* arg);
