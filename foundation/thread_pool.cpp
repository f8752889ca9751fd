// tav_sr2_ThreadPool, common part and bound mode.
//
// start validates (max threads and queue size at least 1) and either builds the job list of the
// bound mode (capacity twice the queue size, in one pool block) or the queues of the own mode.
// post copies the argument block into a pool block of exactly its size and adds a one-shot
// tav_sr2_TaskType_call task on the copy; list entries are claimed by compare-and-swap, so a
// full list is TAV_ERROR_STATE and out of memory TAV_ERROR_MALLOC. join walks the list in post
// order: wait, result (ORed), release, free the copy; the first failure stops the walk. finish
// cancels, joins and frees, keeping the pool and the settings for a restart; after a failed join
// it gives back the copies of jobs that finished or were dropped.
#include "foundation/thread_pool.h"

#include <string.h>

namespace {

bool isStarted(const tav_sr2_ThreadPool* tp) {
    return tp->max_threads > 0;
}
bool isBound(const tav_sr2_ThreadPool* tp) {
    return tp->task_sys != nullptr;
}

uint32_t startBound(tav_sr2_ThreadPool* tp, int32_t queue_size) {
    int32_t capacity = 2 * queue_size;
    uint64_t bytes = sizeof(tav_sr2_PoolJobList) +
                     (uint64_t)capacity * (sizeof(tav_sr2_TaskCall) + sizeof(uint32_t));
    if (bytes > 0xFFFFFFFFull) return TAV_ERROR_PARAM;
    unsigned char* block = (unsigned char*)tav_sr2_MemPool_alloc(tp->pool, (uint32_t)bytes);
    if (block == nullptr) return TAV_ERROR_MALLOC;
    memset(block, 0, (size_t)bytes);
    tav_sr2_PoolJobList* list = (tav_sr2_PoolJobList*)block;
    list->task_sys = tp->task_sys;
    list->capacity = capacity;
    list->calls = (tav_sr2_TaskCall*)(block + sizeof(tav_sr2_PoolJobList));
    list->ids = (uint32_t*)(list->calls + capacity);
    tp->jobs = list;
    return TAV_OK;
}

// An entry of the list, or -1 when it is full.
int32_t claimEntry(tav_sr2_PoolJobList* list) {
    int32_t n = tav_sr2_atomicLoad(&list->count);
    while (n < list->capacity) {
        if (tav_sr2_atomicCas(&list->count, &n, n + 1)) return n;
    }
    return -1;
}

uint32_t postBound(tav_sr2_ThreadPool* tp, tav_sr2_JobFn fn, const void* block, uint32_t size) {
    tav_sr2_PoolJobList* list = tp->jobs;
    int32_t i = claimEntry(list);
    if (i < 0) return TAV_ERROR_STATE;
    list->ids[i] = 0;
    list->calls[i].fn = nullptr;
    list->calls[i].arg = nullptr;
    void* copy = tav_sr2_MemPool_alloc(tp->pool, size);
    if (copy == nullptr) return TAV_ERROR_MALLOC;  // the entry stays empty; join skips it
    if (size > 0) memcpy(copy, block, size);
    list->calls[i].fn = fn;
    list->calls[i].arg = copy;
    uint32_t status = tav_sr2_TaskSys_addOne(list->task_sys, &tav_sr2_TaskType_call,
                                             &list->calls[i], 0, nullptr, &list->ids[i]);
    if (status == TAV_OK && list->ids[i] == 0) status = TAV_ERROR_STATE;  // scheduler stopped
    if (status != TAV_OK) {
        tav_sr2_MemPool_free(tp->pool, copy);
        list->calls[i].arg = nullptr;
    }
    return status;
}

// Collects entry i: its task's result ORed into *result, the id and the copy given back.
uint32_t collectEntry(tav_sr2_ThreadPool* tp, int32_t i, uint32_t* result) {
    tav_sr2_PoolJobList* list = tp->jobs;
    uint32_t id = list->ids[i];
    if (id != 0) {
        uint32_t status = tav_sr2_TaskSys_wait(list->task_sys, 1, &id);
        uint32_t job_result = 0;
        if (!tav_sr2_failed(status)) {
            status = tav_sr2_TaskSys_result(list->task_sys, id, 0, &job_result);
        }
        if (!tav_sr2_failed(status)) status = tav_sr2_TaskSys_release(list->task_sys, id);
        if (tav_sr2_failed(status)) return status;
        *result |= job_result;
        list->ids[i] = 0;
    }
    tav_sr2_MemPool_free(tp->pool, list->calls[i].arg);
    list->calls[i].arg = nullptr;
    return TAV_OK;
}

uint32_t joinBound(tav_sr2_ThreadPool* tp) {
    tav_sr2_PoolJobList* list = tp->jobs;
    int32_t n = tav_sr2_atomicLoad(&list->count);
    uint32_t result = 0;
    for (int32_t i = 0; i < n; ++i) {
        uint32_t status = collectEntry(tp, i, &result);
        if (status != TAV_OK) return status | result;
    }
    tav_sr2_atomicStore(&list->count, 0);
    return result;
}

// After a failed join: gives back what the jobs left behind. A finished job is released; the
// copy of a job whose task no longer exists (the scheduler was stopped, which drops its tasks)
// is freed too. A job still unfinished keeps its copy and the list, since its task may yet read
// both: false then, and the list must stay.
bool dropLeftJobs(tav_sr2_ThreadPool* tp) {
    tav_sr2_PoolJobList* list = tp->jobs;
    int32_t n = tav_sr2_atomicLoad(&list->count);
    bool all = true;
    for (int32_t i = 0; i < n; ++i) {
        uint32_t id = list->ids[i], ignored = 0;
        uint32_t state =
            id == 0 ? TAV_ERROR_STATE : tav_sr2_TaskSys_result(list->task_sys, id, 0, &ignored);
        if (state == TAV_SR2_TASK_UNFINISHED) {
            all = false;
            continue;
        }
        if (state == TAV_OK) tav_sr2_TaskSys_release(list->task_sys, id);
        tav_sr2_MemPool_free(tp->pool, list->calls[i].arg);
        list->calls[i].arg = nullptr;
        list->ids[i] = 0;
    }
    return all;
}

// Clears the state and keeps the pool and the settings.
void clearState(tav_sr2_ThreadPool* tp) {
    tav_sr2_ThreadPool keep = *tp;
    memset((void*)tp, 0, sizeof(*tp));
    tp->pool = keep.pool;
    tp->thread_limit = keep.thread_limit;
    tp->caller_is_worker = keep.caller_is_worker;
    tp->pin_workers = keep.pin_workers;
    tp->core_mask = keep.core_mask;
    tp->restore_mask = keep.restore_mask;
    tp->task_sys = keep.task_sys;
    memcpy(tp->reserved, keep.reserved, sizeof(tp->reserved));
}

}  // namespace

void tav_sr2_ThreadPool_init(tav_sr2_ThreadPool* tp, tav_sr2_MemPool* pool) {
    memset((void*)tp, 0, sizeof(*tp));
    tp->pool = pool;
    tp->caller_is_worker = 1;
    tp->thread_limit = 0;
}

uint32_t tav_sr2_ThreadPool_start(tav_sr2_ThreadPool* tp, int32_t max_threads, int32_t queue_size) {
    if (tp == nullptr || max_threads < 1 || queue_size < 1 || queue_size > 0x3FFFFFF) {
        return TAV_ERROR_PARAM;
    }
    if (isStarted(tp)) return TAV_ERROR_STATE;
    tav_sr2_atomicStore(&tp->stopping, 0);
    uint32_t status =
        isBound(tp) ? startBound(tp, queue_size) : tav_sr2_ThreadPool_startOwn(tp, queue_size);
    if (status != TAV_OK) {
        clearState(tp);
        return status;
    }
    tp->max_threads = max_threads;
    return TAV_OK;
}

uint32_t tav_sr2_ThreadPool_post(tav_sr2_ThreadPool* tp, tav_sr2_JobFn fn, const void* block,
                                 uint32_t size) {
    if (fn == nullptr || (block == nullptr && size != 0)) return TAV_ERROR_PARAM;
    if (tp == nullptr) return fn(const_cast<void*>(block));
    if (tav_sr2_atomicLoad(&tp->stopping)) return TAV_SR2_TASK_CANCELLED;
    if (!isStarted(tp)) return TAV_ERROR_STATE;
    return isBound(tp) ? postBound(tp, fn, block, size)
                       : tav_sr2_ThreadPool_postOwn(tp, fn, block, size);
}

uint32_t tav_sr2_ThreadPool_join(tav_sr2_ThreadPool* tp) {
    if (tp == nullptr) return TAV_OK;
    if (!isStarted(tp)) return TAV_ERROR_STATE;
    return isBound(tp) ? joinBound(tp) : tav_sr2_ThreadPool_joinOwn(tp);
}

uint32_t tav_sr2_ThreadPool_cancel(tav_sr2_ThreadPool* tp) {
    if (tp == nullptr) return TAV_ERROR_PARAM;
    tav_sr2_atomicStore(&tp->stopping, 1);
    return TAV_OK;
}

uint32_t tav_sr2_ThreadPool_finish(tav_sr2_ThreadPool* tp) {
    if (tp == nullptr) return TAV_ERROR_PARAM;
    if (!isStarted(tp)) {
        clearState(tp);
        return TAV_OK;
    }
    tav_sr2_ThreadPool_cancel(tp);
    uint32_t status = tav_sr2_ThreadPool_join(tp);
    if (isBound(tp)) {
        if (status == TAV_OK || dropLeftJobs(tp)) tav_sr2_MemPool_free(tp->pool, tp->jobs);
    } else {
        tav_sr2_ThreadPool_finishOwn(tp);
    }
    clearState(tp);
    return status;
}

int32_t tav_sr2_ThreadPool_threadCount(const tav_sr2_ThreadPool* tp) {
    if (tp == nullptr) return 1;
    if (isBound(tp)) return tav_sr2_TaskSys_threadCount(tp->task_sys);
    if (!isStarted(tp)) return 1;
    int32_t n = tav_sr2_ThreadPool_ownThreadTarget(tp) + (tp->caller_is_worker ? 1 : 0);
    return n < 1 ? 1 : n;
}

uint32_t tav_sr2_ThreadPool_requiredSize(int32_t threads, int32_t queue_size, int32_t arg_size,
                                         int32_t jobs) {
    if (threads < 1 || queue_size < 1 || arg_size < 0 || jobs < 0) return ~0u;
    uint64_t locks = 2ull * (TAV_SR2_MUTEX_IMPL_SIZE + TAV_SR2_COND_IMPL_SIZE);
    uint64_t bytes = (uint64_t)threads * 48 + ((uint64_t)arg_size + 16) * (uint64_t)jobs +
                     2 * ((uint64_t)queue_size * 16 + locks + 32);
    return bytes > 0xFFFFFFFEull ? ~0u : (uint32_t)bytes;
}
