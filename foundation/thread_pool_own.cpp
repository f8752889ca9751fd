// tav_sr2_ThreadPool, own-thread mode (no scheduler bound).
//
// start builds a request and a reply queue of the queue size and the ascending core list of
// core_mask. Threads start lazily at a post, up to min(max(started, limit), max_threads,
// queue size - caller), where the limit below 0 is the processor count less the caller. A post
// copies the argument behind a small job header and pushes the job; a worker pops it, runs it
// (or marks it TAV_SR2_TASK_CANCELLED when stopping) and pushes it on the reply queue; join
// collects the replies, running requests itself first when the caller is a worker. At most the
// queue size jobs are outstanding, so neither queue ever blocks a producer. The pool's own
// address in the request queue is the parallel-for marker: its popper claims indices by atomic
// add until they run out and ORs the results into the accumulator. The stop marker is pushed
// once and each worker that pops it pushes it again for the next.
#include <string.h>

#include "foundation/thread_pool.h"

namespace {

// A job of this mode: the header, then the argument copy at a 16-byte boundary.
struct OwnJob {
    tav_sr2_JobFn fn;
    uint32_t result;
    uint32_t size;
};
static_assert(sizeof(OwnJob) == 16, "argument copies start 16-byte aligned");

void* forMarker(tav_sr2_ThreadPool* tp) {
    return tp;
}
void* stopMarker(tav_sr2_ThreadPool* tp) {
    return &tp->stopping;
}
void* jobArg(OwnJob* job) {
    return job + 1;
}

void runForMarker(tav_sr2_ThreadPool* tp) {
    for (;;) {
        int32_t i = tav_sr2_atomicAdd(&tp->for_next, 1);
        if (i >= tp->for_count) return;
        tav_sr2_atomicOr(&tp->for_result, tp->for_fn(tp->for_arg, i));
    }
}

void runItem(tav_sr2_ThreadPool* tp, void* item) {
    if (item == forMarker(tp)) {
        runForMarker(tp);
        return;
    }
    OwnJob* job = (OwnJob*)item;
    job->result = tav_sr2_atomicLoad(&tp->stopping) ? TAV_SR2_TASK_CANCELLED : job->fn(jobArg(job));
}

void placeThread(tav_sr2_ThreadPool* tp, int32_t index) {
    if (tp->pin_workers && tp->core_count > 0) {
        tav_sr2_setAffinity(1u << tp->cores[index % tp->core_count]);
    } else if (tp->core_mask != 0) {
        tav_sr2_setAffinity(tp->core_mask);
    }
}

uint32_t ownWorker(void* arg) {
    tav_sr2_ThreadPool* tp = (tav_sr2_ThreadPool*)arg;
    placeThread(tp, tav_sr2_atomicAdd(&tp->active_threads, 1));
    for (;;) {
        void* item = tav_sr2_Queue_pop(&tp->requests, TAV_SR2_WAIT_FOREVER);
        if (item == nullptr) break;  // the queue's locks failed: nothing sensible is left
        if (item == stopMarker(tp)) {
            tav_sr2_Queue_push(&tp->requests, item, TAV_SR2_WAIT_FOREVER);
            break;
        }
        runItem(tp, item);
        tav_sr2_Queue_push(&tp->replies, item, TAV_SR2_WAIT_FOREVER);
    }
    tav_sr2_atomicAdd(&tp->active_threads, -1);
    return TAV_OK;
}

// Starts threads up to the target; the first failure ends the attempt.
uint32_t startThreads(tav_sr2_ThreadPool* tp) {
    int32_t target = tav_sr2_ThreadPool_ownThreadTarget(tp);
    while (tp->started_threads < target) {
        uint32_t status =
            tav_sr2_Thread_create(tp->pool, ownWorker, tp, &tp->threads[tp->started_threads]);
        if (status != TAV_OK) return status;
        ++tp->started_threads;
    }
    return TAV_OK;
}

uint32_t collectJob(tav_sr2_ThreadPool* tp, OwnJob* job) {
    uint32_t result = job->result;
    tav_sr2_MemPool_free(tp->pool, job);
    tav_sr2_atomicAdd(&tp->jobs_in_flight, -1);
    return result;
}

uint32_t buildCoreList(tav_sr2_ThreadPool* tp) {
    if (tp->core_mask == 0) return TAV_OK;
    tp->cores = (uint8_t*)tav_sr2_MemPool_alloc(tp->pool, 32);
    if (tp->cores == nullptr) return TAV_ERROR_MALLOC;
    for (int32_t bit = 0; bit < 32; ++bit) {
        if ((tp->core_mask >> bit) & 1u) tp->cores[tp->core_count++] = (uint8_t)bit;
    }
    return TAV_OK;
}

}  // namespace

int32_t tav_sr2_ThreadPool_ownThreadTarget(const tav_sr2_ThreadPool* tp) {
    int32_t caller = tp->caller_is_worker ? 1 : 0;
    int32_t limit = tp->thread_limit < 0 ? tav_sr2_getProcessorCount() - caller : tp->thread_limit;
    int32_t target = tp->started_threads > limit ? tp->started_threads : limit;
    if (target > tp->max_threads) target = tp->max_threads;
    if (target > tp->requests.capacity - caller) target = tp->requests.capacity - caller;
    return target < 0 ? 0 : target;
}

uint32_t tav_sr2_ThreadPool_startOwn(tav_sr2_ThreadPool* tp, int32_t queue_size) {
    uint32_t status = tav_sr2_Queue_init(&tp->requests, tp->pool, queue_size);
    if (status == TAV_OK) status = tav_sr2_Queue_init(&tp->replies, tp->pool, queue_size);
    if (status == TAV_OK) {
        uint32_t bytes = (uint32_t)queue_size * (uint32_t)sizeof(tav_sr2_Thread*);
        tp->threads = (tav_sr2_Thread**)tav_sr2_MemPool_alloc(tp->pool, bytes);
        if (tp->threads == nullptr) status = TAV_ERROR_MALLOC;
    }
    if (status == TAV_OK) status = buildCoreList(tp);
    if (status != TAV_OK) tav_sr2_ThreadPool_finishOwn(tp);
    return status;
}

uint32_t tav_sr2_ThreadPool_postOwn(tav_sr2_ThreadPool* tp, tav_sr2_JobFn fn, const void* block,
                                    uint32_t size) {
    int32_t n = tav_sr2_atomicLoad(&tp->jobs_in_flight);
    do {
        if (n >= tp->requests.capacity) return TAV_ERROR_STATE;
    } while (!tav_sr2_atomicCas(&tp->jobs_in_flight, &n, n + 1));
    OwnJob* job = size > 0xFFFFFFFFu - sizeof(OwnJob)
                      ? nullptr
                      : (OwnJob*)tav_sr2_MemPool_alloc(tp->pool, (uint32_t)sizeof(OwnJob) + size);
    if (job == nullptr) {
        tav_sr2_atomicAdd(&tp->jobs_in_flight, -1);
        return TAV_ERROR_MALLOC;
    }
    job->fn = fn;
    job->result = 0;
    job->size = size;
    if (size > 0) memcpy(jobArg(job), block, size);
    uint32_t status = startThreads(tp);
    // With no thread and a caller that never helps, the job would wait forever.
    if (status != TAV_OK && tp->started_threads == 0 && !tp->caller_is_worker) {
        collectJob(tp, job);
        return status;
    }
    return tav_sr2_Queue_push(&tp->requests, job, TAV_SR2_WAIT_FOREVER);
}

uint32_t tav_sr2_ThreadPool_joinOwn(tav_sr2_ThreadPool* tp) {
    uint32_t result = 0;
    while (tav_sr2_atomicLoad(&tp->jobs_in_flight) > 0) {
        if (tp->caller_is_worker) {
            void* item = tav_sr2_Queue_pop(&tp->requests, 0);
            if (item != nullptr) {
                runItem(tp, item);
                result |= collectJob(tp, (OwnJob*)item);
                continue;
            }
        }
        void* item = tav_sr2_Queue_pop(&tp->replies, TAV_SR2_WAIT_FOREVER);
        if (item == nullptr) return result | TAV_ERROR_STATE;
        result |= collectJob(tp, (OwnJob*)item);
    }
    return result;
}

uint32_t tav_sr2_ThreadPool_parallelFor(tav_sr2_ThreadPool* tp, tav_sr2_ForFn fn, void* arg,
                                        int32_t count) {
    if (fn == nullptr || count < 0) return TAV_ERROR_PARAM;
    if (tp == nullptr) {
        uint32_t result = 0;
        for (int32_t i = 0; i < count; ++i)
            result |= fn(arg, i);
        return result;
    }
    if (tp->task_sys != nullptr) return TAV_ERROR_UNSUPPORTED;
    if (tp->max_threads <= 0 || tav_sr2_atomicLoad(&tp->jobs_in_flight) > 0) {
        return TAV_ERROR_STATE;
    }
    if (tav_sr2_atomicLoad(&tp->stopping)) return TAV_SR2_TASK_CANCELLED;
    startThreads(tp);  // whatever started helps; the caller covers the rest
    tp->for_fn = fn;
    tp->for_arg = arg;
    tp->for_count = count;
    tav_sr2_atomicStore(&tp->for_next, 0);
    tav_sr2_atomicStore(&tp->for_result, 0u);
    int32_t markers = tp->started_threads < count ? tp->started_threads : count;
    int32_t pushed = 0;
    while (pushed < markers &&
           tav_sr2_Queue_push(&tp->requests, forMarker(tp), TAV_SR2_WAIT_FOREVER) == TAV_OK) {
        ++pushed;
    }
    if (tp->caller_is_worker || pushed == 0) runForMarker(tp);
    for (int32_t i = 0; i < pushed; ++i)
        tav_sr2_Queue_pop(&tp->replies, TAV_SR2_WAIT_FOREVER);
    return tav_sr2_atomicLoad(&tp->for_result);
}

void tav_sr2_ThreadPool_finishOwn(tav_sr2_ThreadPool* tp) {
    if (tp->started_threads > 0) {
        tav_sr2_Queue_push(&tp->requests, stopMarker(tp), TAV_SR2_WAIT_FOREVER);
        for (int32_t i = 0; i < tp->started_threads; ++i) {
            tav_sr2_Thread_join(tp->threads[i], nullptr);
        }
        tp->started_threads = 0;
    }
    tav_sr2_MemPool_free(tp->pool, tp->threads);
    tav_sr2_MemPool_free(tp->pool, tp->cores);
    tp->threads = nullptr;
    tp->cores = nullptr;
    tp->core_count = 0;
    tav_sr2_Queue_finish(&tp->requests);
    tav_sr2_Queue_finish(&tp->replies);
}
