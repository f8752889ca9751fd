// tav_sr2_ThreadPool: posting closures (a function and a copied argument block) to workers.
//
// Bound mode (task_sys set; the engine's mode): each post copies the argument block into pool
// memory and adds a one-shot task of tav_sr2_TaskType_call to the scheduler; join waits for the
// jobs in the order they were posted and returns the OR of their results, so a failed job shows
// as a failed join. Several threads may post at once; the join must come from one thread while
// nobody posts. At most twice the start's queue size jobs may be posted between joins.
//
// Own-thread mode (task_sys null): the pool runs its own threads, started at the first post,
// fed through a request queue and answered through a reply queue. The caller, when it is a
// worker, runs queued jobs itself while it joins.
//
// The usual pattern of a band kernel:
//
//     struct Bands { int32_t next; ... };             // next: shared band counter, 0
//     Bands bands = {...};
//     Bands* p = &bands;
//     int32_t n = tav_sr2_ThreadPool_threadCount(tp);
//     if (n == 1) return bandJob(&p);                 // no threads: same code on the caller
//     for (int32_t i = 0; i < n; ++i) tav_sr2_ThreadPool_post(tp, bandJob, &p, sizeof(p));
//     return tav_sr2_ThreadPool_join(tp);
//
// where bandJob claims bands with tav_sr2_atomicAdd(&bands->next, 1) until they run out.
#pragma once

#include <stdint.h>

#include "foundation/mem_pool.h"
#include "foundation/queue.h"
#include "foundation/task_sys.h"

typedef uint32_t (*tav_sr2_JobFn)(void* arg);
typedef uint32_t (*tav_sr2_ForFn)(void* arg, int32_t index);

// The jobs of the bound mode since the last join, in post order.
struct tav_sr2_PoolJobList {
    tav_sr2_TaskSys* task_sys;
    int32_t capacity;         // twice the queue size given at start
    int32_t count;            // atomic; claimed by compare-and-swap
    tav_sr2_TaskCall* calls;  // {function, argument copy}; the tasks' arguments
    uint32_t* ids;            // task ids; 0 for an entry whose post failed
};

struct tav_sr2_ThreadPool {
    tav_sr2_MemPool* pool;
    // Settings, kept across restarts.
    int32_t thread_limit;  // own mode: threads to start; below 0: processors less the caller
    int32_t caller_is_worker;
    int32_t pin_workers;
    uint32_t core_mask;
    uint32_t restore_mask;
    tav_sr2_TaskSys* task_sys;  // set: bound mode
    int32_t reserved[4];
    // State.
    int32_t stopping;  // atomic
    int32_t max_threads;
    int32_t started_threads;
    int32_t active_threads;  // atomic
    int32_t jobs_in_flight;  // atomic, own mode
    tav_sr2_Queue requests;
    tav_sr2_Queue replies;
    tav_sr2_Thread** threads;
    uint8_t* cores;  // ascending core list of core_mask
    int32_t core_count;
    // The parallel-for of the own threads.
    uint32_t for_result;  // atomic
    tav_sr2_ForFn for_fn;
    void* for_arg;
    int32_t for_next;  // atomic
    int32_t for_count;
    tav_sr2_PoolJobList* jobs;  // bound mode
};

// Clears the record: caller_is_worker 1, thread_limit 0. Settings are then plain fields.
void tav_sr2_ThreadPool_init(tav_sr2_ThreadPool* tp, tav_sr2_MemPool* pool);
// Both numbers at least 1 (TAV_ERROR_PARAM); TAV_ERROR_STATE when already started;
// TAV_ERROR_MALLOC or TAV_ERROR_BUFFER when its memory or locks cannot be made.
uint32_t tav_sr2_ThreadPool_start(tav_sr2_ThreadPool* tp, int32_t max_threads, int32_t queue_size);
// Copies `size` bytes of `block` and queues fn(copy). A null pool calls fn(block) and returns
// its result. TAV_ERROR_PARAM (null fn, or null block with a size), TAV_SR2_TASK_CANCELLED when
// stopping, TAV_ERROR_STATE when the job list is full or the pool not started,
// TAV_ERROR_MALLOC when the copy does not fit.
uint32_t tav_sr2_ThreadPool_post(tav_sr2_ThreadPool* tp, tav_sr2_JobFn fn, const void* block,
                                 uint32_t size);
// Waits for every posted job; the OR of their results and of any failure of the wait. A failed
// wait (TAV_ERROR_TIMEOUT) stops the walk: the jobs not yet collected stay for the next join.
uint32_t tav_sr2_ThreadPool_join(tav_sr2_ThreadPool* tp);
// Own mode only: fn(arg, i) for i in 0..count-1 on the pool's threads and the caller; the OR of
// the results. TAV_ERROR_UNSUPPORTED in bound mode, TAV_ERROR_STATE with jobs outstanding.
uint32_t tav_sr2_ThreadPool_parallelFor(tav_sr2_ThreadPool* tp, tav_sr2_ForFn fn, void* arg,
                                        int32_t count);
// Sets `stopping`: later posts are refused and own-mode jobs not yet started are skipped.
uint32_t tav_sr2_ThreadPool_cancel(tav_sr2_ThreadPool* tp);
// Cancels, joins, stops own threads and frees everything; pool and settings stay, so the pool
// can start again. Returns the join's value. After a failed join (a time-out) a job that is
// still unfinished keeps its argument copy and the job list, which its task may yet read: the
// memory pool then reports them as a leak.
uint32_t tav_sr2_ThreadPool_finish(tav_sr2_ThreadPool* tp);
// Workers a job list is spread over: the scheduler's thread_count in bound mode, own threads
// plus the caller in own mode, 1 for a null pool.
int32_t tav_sr2_ThreadPool_threadCount(const tav_sr2_ThreadPool* tp);
// Pool bytes for the given use; ~0 for bad arguments.
uint32_t tav_sr2_ThreadPool_requiredSize(int32_t threads, int32_t queue_size, int32_t arg_size,
                                         int32_t jobs);

// Shared by the two modes (thread_pool.cpp, thread_pool_own.cpp).
uint32_t tav_sr2_ThreadPool_startOwn(tav_sr2_ThreadPool* tp, int32_t queue_size);
uint32_t tav_sr2_ThreadPool_postOwn(tav_sr2_ThreadPool* tp, tav_sr2_JobFn fn, const void* block,
                                    uint32_t size);
uint32_t tav_sr2_ThreadPool_joinOwn(tav_sr2_ThreadPool* tp);
void tav_sr2_ThreadPool_finishOwn(tav_sr2_ThreadPool* tp);
int32_t tav_sr2_ThreadPool_ownThreadTarget(const tav_sr2_ThreadPool* tp);
